// Follows the message tables that are shipped, and publishes what comes.
#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "adapters/nats/publisher.h"
#include "adapters/nats/source_table.h"
#include "tabulo/follower.h"

namespace tabulo::shipping {

// What is to be done with a stream that does not fit its tables.
struct ShipLeave {
    bool acceptRewind = false;
    bool allowGap = false;
};

class TableShipping {
  public:
    TableShipping(Publisher& publisher, Words words, ShipLeave leave);

    // From where the stream has it, or from its beginning; or leaves it out, and tells that.
    void add(const std::filesystem::path& path);
    // A table that the stream has and the folder has not: tells that, or records it.
    void tellMissing(const std::string& table);
    // A table was left out before it was added.
    void noteLeftOut() noexcept { isWhole_ = false; }

    // Publishes the next message, or does what has happened to a table; false when nothing has come in that time.
    bool step(std::chrono::milliseconds timeout);
    // Whether the stream was found ahead of a table: nothing more is to be shipped.
    bool isRewound() const noexcept { return isRewound_; }
    // Whether no table is left out: else what the stream has may lack messages that session values count.
    bool isWhole() const noexcept { return isWhole_; }

    // Notes where the tables end now; and whether all that stands in front of there is published.
    void noteEnds();
    // Again for those that held another content than the one that is followed: it may be gone.
    void renewEnds();
    bool hasReachedEnds() const;
    bool has(const std::string& table) const;

    // How far behind, as of now; any thread may ask.
    struct Lag {
        std::int64_t messages = 0;
        std::int64_t bytes = 0;
    };
    Lag lag() const;

  private:
    struct Following {
        SourceTable table;
        std::optional<std::size_t> number{};  // in the follower; none when it is left out
        std::int64_t incarnation = 0;
        TableBytes file{};
        std::vector<std::byte> newest{};  // the first bytes of the frame that was shipped last, and where it stands
        std::int64_t newestAt = 0;
        std::int64_t next = 0;     // offset behind it
        std::int64_t shipped = 0;  // messages
        std::int64_t end = 0;      // as noted
    };

    bool resume(Following* following, bool isLive);
    bool begin(Following* following, std::int64_t incarnation);
    bool resumeRewound(Following* following, const Shipped& shipped);
    bool startAnew(Following* following, const Shipped& shipped, bool isLive);
    bool follow(Following* following, const Shipped& shipped);
    bool hasLayoutOf(const Following& following) const;
    void change(Following* following);
    static bool isEmptied(const Following& following);
    static void noteEnd(Following* following);
    void leaveOut(Following* following, const std::string& why);
    void ship(const MessageView& message);
    Following* numbered(std::size_t number);
    bool changeEmptied();

    Publisher& publisher_;
    Words words_;
    ShipLeave leave_;
    Follower follower_;
    mutable std::mutex mutex_;  // of what `lag` looks at
    std::vector<Following> tables_;
    std::chrono::steady_clock::time_point comparedAt_{};
    bool isRewound_ = false;
    bool isWhole_ = true;
};

}  // namespace tabulo::shipping
