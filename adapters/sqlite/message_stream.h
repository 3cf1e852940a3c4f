// The messages of several files that a statement asks for, one after another in the order of its plan.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "adapters/sqlite/connection.h"
#include "adapters/sqlite/demand.h"
#include "adapters/sqlite/plan.h"
#include "adapters/sqlite/table_file.h"

namespace tabulo::sqlite {

// What is asked of one file.
struct Source {
    std::size_t number = 0;  // of the file in its set
    TableFile* file = nullptr;
    Query query{};
    IntegerDemand ordinals{};  // a range of them
    std::optional<TimeUnit> unit{};
};

// Its number in the whole of the files.
inline sqlite3_int64 rowidOf(const Source& source, const MessageView& message) {
    return (static_cast<std::int64_t>(source.number) << ROWID_FILE_SHIFT) | message.ordinal();
}

class FileStream;

class MessageStream {
  public:
    // The files must outlive it.
    MessageStream(Connection& connection, std::vector<Source> sources, Order order, bool isBackward);
    ~MessageStream();
    MessageStream(const MessageStream&) = delete;
    MessageStream& operator=(const MessageStream&) = delete;

    // The next message, valid until the next call; null at the end. Throws Interrupted; the Errors of reading, behind
    // all messages in front of what is damaged; tableClosed for a table that was emptied meanwhile.
    const MessageView* next();
    // Of the message that was given last.
    const Source& source() const noexcept;

  private:
    bool isBehind(std::size_t a, std::size_t b) const noexcept;
    void begin();
    void sink();

    Connection& connection_;
    const Order order_;
    const bool isBackward_;
    std::vector<std::unique_ptr<FileStream>> files_;
    std::vector<std::size_t> heads_;  // a heap of the files that have a message, the next one on top
    std::size_t given_ = 0;
    bool hasBegun_ = false;
};

}  // namespace tabulo::sqlite
