// Following several message tables at once, while other processes write them.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>

#include "tabulo/message.h"
#include "tabulo/table_info.h"

namespace tabulo {

namespace api {
struct FollowerState;
struct FollowedTable;
}  // namespace api

// Where the following of a table begins.
class FollowFrom {
  public:
    static FollowFrom beginning() noexcept;
    // With what is stored from now on.
    static FollowFrom end() noexcept;
    // With the message at this place (MessageView::position), or behind it (MessageView::next).
    static FollowFrom position(const Position& position) noexcept;
    // With the first message, in the order of the file, whose uniform id is at or above this one.
    static FollowFrom uniformId(std::int32_t uniformId) noexcept;

  private:
    friend struct api::FollowedTable;
    enum class Kind { beginning, end, position, uniformId } kind_ = Kind::beginning;
    Position position_;
    std::int32_t uniformId_ = 0;
};

enum class FollowEventKind {
    message,
    dropped,        // the table was emptied: it goes on with the first message stored since
    replaced,       // another file stands at the table's path: it goes on with that one's first message
    layoutChanged,  // behind one of the two, when the table's new layout is not the one before
    timedOut,       // nothing has come in the time that was given
    stopped,        // stop() was called
};

struct FollowEvent {
    FollowEventKind kind = FollowEventKind::timedOut;
    std::size_t table = 0;                 // the table's number, unless timedOut or stopped
    const MessageView* message = nullptr;  // of the kind message: valid until the next call of next
};

// Merges tables by uniform id: of the next messages of all tables the one with the smallest uniform id is given first,
// that of the table that was added first when two are equal. A table's own order never changes, and no message is left
// out when its id becomes visible late. A message is given as soon as it is there, except that an id which does not
// follow the one before it waits for one more look at all tables.
//
// A call that waits ends as soon as a table is written, where the system reports that: on Linux, but not for the files
// of a network, nor when it has no more watches to give. There the tables are looked at every millisecond, which a note
// in the log says once. A file at the path of another one is noticed within half a second.
//
// One thread uses a Follower; stop() and add() may be called from any thread at any time.
class Follower {
  public:
    Follower();
    Follower(Follower&&) noexcept;
    Follower& operator=(Follower&&) noexcept;
    ~Follower();

    // Adds a table and returns its number, from 0 on in the order of the calls. The errors of a Reader; vseek for a
    // position at which no message can stand.
    std::size_t add(const std::filesystem::path& path, const FollowFrom& from = FollowFrom::beginning());
    // Leaves a table out from now on; its number is not used again. indexOutOfBounds.
    void remove(std::size_t table);

    std::size_t tableCount() const;
    const std::filesystem::path& path(std::size_t table) const;
    const Layout& layout(std::size_t table) const;
    // Behind the message of this table that was given last: from where another Follower goes on. indexOutOfBounds.
    Position position(std::size_t table) const;

    // Waits for the next event, at most so long; 0 only looks. An Error of a table (damage, a file that cannot be read)
    // is thrown once, behind everything that stands in front of it; that table is then left out, and the others go on
    // with the next call.
    FollowEvent next(std::chrono::milliseconds timeout);
    // Without a limit.
    FollowEvent next();

    // Ends a call of next that waits, and every later one, at once. May be called from any thread and more than once.
    void stop() noexcept;

  private:
    std::unique_ptr<api::FollowerState> state_;
};

}  // namespace tabulo
