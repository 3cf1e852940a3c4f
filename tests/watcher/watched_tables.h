// Tables of the watcher's tests, and the record of a watch over them.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/handle.h"
#include "messagetable/message_table.h"
#include "tests/support/bytes.h"
#include "tests/support/message.h"
#include "tests/support/temporary_directory.h"
#include "watcher/message_watcher.h"

namespace tabulo::internal::test {

struct WatchedShape {
    std::int32_t messagesPerBlock = 3;
    std::int32_t configuredStrings = 0;  // each is summarised in the footer
    std::int32_t configuredNumbers = 0;
};

using WatchedTablePtr = Handle<MessageTable, mt_destroy>;

using WatcherPtr = Handle<MessageWatcher, messageWatcher_destroy>;

// A table that is not open; null when it cannot be made. No expectations: processes without a test use it too.
WatchedTablePtr makeWatched(const std::string& root, const std::string& name, const WatchedShape& shape = {});
// Stores a message that carries its uniform id, the wire message as it is given, and nothing else.
ErrorCode storeMessage(MessageTable* table, std::int32_t uniformId, std::string_view wire = {});

// A message as the callback received it.
struct Received : Message {
    std::int32_t reader = -1;

    std::string wire() const { return strings.at(strings.size() - 2).value_or("absent"); }
};

// Runs watches and keeps what they did. One watch at a time records its pauses.
class WatchRecord {
  public:
    // "7@1" message 7 of reader 1, "idle" a call without a message, "pause 270", in their order.
    std::vector<std::string> events;
    std::vector<Received> received;
    // What the callback does besides recording, and its result; a stop is asked for with stop().
    std::function<ErrorCode(const Received&)> onMessage;
    // As above, with the number of the call without a message, from 1 on. Without it the first such call stops.
    std::function<ErrorCode(int)> onIdle;
    int idleCalls = 0;

    void stop() { *stopFlag_ = 1; }
    // The watch's result; its pauses are recorded and take no time.
    ErrorCode run(MessageWatcher* watcher, const std::vector<std::int32_t>& startingIds);
    // The same with the watcher's own pauses.
    ErrorCode runInRealTime(MessageWatcher* watcher, const std::vector<std::int32_t>& startingIds);
    // The events that are messages.
    std::vector<std::string> deliveries() const;
    // Forgets the events and what was received.
    void clear();

  private:
    ErrorCode take(const MessageView& message, std::int32_t tableIndex);
    ErrorCode takeIdle();

    std::int32_t* stopFlag_ = nullptr;
};

// A directory with tables in it.
class WatcherTest : public ::testing::Test {
  protected:
    // An open table, or null with a failed expectation.
    WatchedTablePtr open(const std::string& name, OpenMode mode) const;
    // Creates a table with messages of these ids and closes it.
    void fill(const std::string& name, const std::vector<std::int32_t>& ids) const;
    // fill() and then a read-only table.
    WatchedTablePtr filled(const std::string& name, const std::vector<std::int32_t>& ids) const;
    static WatcherPtr watch(const std::vector<MessageTable*>& tables);

    TemporaryDirectory directory;
    WatchedShape shape;
    WatchRecord record;
};

// Lists of events.
using Events = std::vector<std::string>;

}  // namespace tabulo::internal::test
