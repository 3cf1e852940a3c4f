// Tables of query tests: made from a layout, filled with messages whose every field the test decides, and walked by
// iterators.
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
#include "query/message_table_iterator.h"
#include "query/query_conditions.h"
#include "tests/support/bytes.h"
#include "tests/support/log_capture.h"
#include "tests/support/message.h"
#include "tests/support/message_fields.h"
#include "tests/support/temporary_directory.h"

namespace tabulo::internal::test {

// A layout with so many configured fields, all of which, with the two leading built-in ones, are summarised.
MessageTableLayout layoutOf(std::int32_t messagesPerBlock, std::int32_t configuredStrings = 0,
                            std::int32_t numericFields = 0);
// The table "messages" under `root`, not open yet.
MessageTablePtr createTable(const std::string& root, const MessageTableLayout& layout);
// The same, opened; null with a failed expectation when that is refused.
MessageTablePtr openTable(const std::string& root, const MessageTableLayout& layout, OpenMode mode);

// The n-th plain message: uniformId, seqNum and connMsgId n, timestamp 1000 n, msgType "D"; string field i is
// "f<i>-<n>" with its NUL, numeric field i the long 100 n + i.
Message plainMessage(std::int32_t n, const MessageTableLayout& layout);

QueryConditionsPtr newConditions(bool backward = false);
MessageTableIteratorPtr openIterator(MessageTable* table, QueryConditionsPtr conditions);
// The uniform id of the next match, or nothing at the end; a failed expectation for an error.
std::optional<std::int32_t> nextId(MessageTableIterator* iterator);
// The uniform ids of all matches that are still to come.
std::vector<std::int32_t> remainingIds(MessageTableIterator* iterator);
// first, first + 1, ... last, or downwards.
std::vector<std::int32_t> idsFromTo(std::int32_t first, std::int32_t last);

// Watches an iterator, which must not outlive it: what it asks about blocks, and, if wanted, with no block skipped.
class WatchedIterator {
  public:
    WatchedIterator(MessageTableIterator* iterator, bool skipsBlocks);
    ~WatchedIterator() = default;
    WatchedIterator(const WatchedIterator&) = delete;
    WatchedIterator& operator=(const WatchedIterator&) = delete;

    int blocksAsked = 0;
    int blocksSkipped = 0;  // or would have been
    int blocksUnread = 0;   // of these, those that not even the footer was read of
    int messagesAsked = 0;

  private:
    static ErrorCode askBlock(void* owner, const BlockSummary& summary, Visit* answer);
    static void skipBlocks(void* owner, std::int64_t count);
    static ErrorCode askMessage(void* owner, const MessageView& message, Visit* answer);

    MessageVisitor asked_;  // the iterator's own
    bool skipsBlocks_;
};

// One table, open for writing, in a directory of its own. Tests set `layout` before they call create().
class QueryTest : public ::testing::Test {
  protected:
    void create() {
        table.reset();
        table = openTable(directory.root(), layout, OpenMode::create);
    }
    MessageTablePtr openReader() { return openTable(directory.root(), layout, OpenMode::read); }
    std::string path() const { return directory.file("messages"); }
    Message plain(std::int32_t n) const { return plainMessage(n, layout); }
    void write(const Message& message) { ASSERT_EQ(writeMessage(table.get(), message), NO_ERROR); }
    void writePlain(std::int32_t first, std::int32_t last);
    // The uniform ids that a query over `table` selects, with block skipping.
    std::vector<std::int32_t> select(const std::function<void(QueryConditions*)>& set, bool backward = false);

    LogCapture log;
    TemporaryDirectory directory;
    MessageTableLayout layout = layoutOf(3);
    MessageTablePtr table;
};

}  // namespace tabulo::internal::test
