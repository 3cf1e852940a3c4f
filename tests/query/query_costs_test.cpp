// What a query asks of the system and of the heap: calls for a skipped block, reads of an iterator that follows a
// writer, and memory while it walks.
#include <gtest/gtest.h>

#include <cstdint>
#include <optional>
#include <utility>
#include <vector>

#include "messagetable/message_lookup.h"
#include "tests/query/query_fixture.h"
#include "tests/support/allocation_failure.h"
#include "tests/support/fault_platform.h"

namespace tabulo::internal::test {
namespace {

// A condition that no plain message meets, told by the summaries of the blocks alone, and not by what is kept of them
// (known_blocks_test.cpp).
struct Unanswered {
    const char* name;
    void (*set)(QueryConditions* conditions);
};

void setText(QueryConditions* conditions, std::int32_t field) {
    EXPECT_EQ(conditions_addStringFilter(conditions, field, false, false), NO_ERROR);
    EXPECT_EQ(conditions_setStringFilterValueCount(conditions, 1), NO_ERROR);
    EXPECT_EQ(conditions_setStringFilterValue(conditions, "nowhere", 0), NO_ERROR);
}

const Unanswered unanswered[] = {
    {"ids", [](QueryConditions* c) { EXPECT_EQ(conditions_setMessageIdRange(c, 1000000, 2000000), NO_ERROR); }},
    {"a number",
     [](QueryConditions* c) {
         const std::int64_t value = -5;
         EXPECT_EQ(conditions_addLongFilter(c, 0, nullptr, nullptr, 0, &value, 1, false), NO_ERROR);
     }},
    {"a built-in text", [](QueryConditions* c) { setText(c, 0); }},
    {"a configured text", [](QueryConditions* c) { setText(c, 2); }},
};

class SkippedBlocks : public QueryTest {
  protected:
    SkippedBlocks() { layout = layoutOf(3, 1, 1); }

    // What a walk that finds nothing asks of the system, the opening of its iterator included.
    std::vector<RecordedCall> walk(MessageTable* from, const Unanswered& condition, bool backward) {
        QueryConditionsPtr conditions = newConditions(backward);
        condition.set(conditions.get());
        FaultPlatform platform;
        const MessageTableIteratorPtr iterator = openIterator(from, std::move(conditions));
        const WatchedIterator watched(iterator.get(), true);
        EXPECT_EQ(nextId(iterator.get()), std::nullopt) << condition.name;
        EXPECT_EQ(watched.messagesAsked, 0) << condition.name << ": not every block was skipped";
        EXPECT_EQ(watched.blocksSkipped, blocks) << condition.name;
        return platform.calls();
    }
    void writeBlocks(int upTo) {
        writePlain(3 * blocks + 1, 3 * upTo);
        blocks = upTo;
    }
    // The calls of all walks over a table, one number for each condition.
    std::vector<std::size_t> counts(MessageTable* from, bool backward) {
        std::vector<std::size_t> found;
        for (const Unanswered& condition : unanswered) {
            found.push_back(walk(from, condition, backward).size());
        }
        return found;
    }
    // A reader whose view is that of now: what a lookup would have read is not the walk's.
    MessageTablePtr openRefreshed() {
        MessageTablePtr reader = openReader();
        EXPECT_EQ(mt_refresh(reader.get()), NO_ERROR);
        return reader;
    }
    // Walks over the table as it grows, by its writer and by readers opened before and after the growth.
    void expectCallsForEachBlock(std::size_t calls, bool backward);

    int blocks = 0;
};

// What is not for a block: the refresh of the view, the places where the walk begins and ends.
constexpr std::size_t MOST_CALLS_BESIDES = 5;

void SkippedBlocks::expectCallsForEachBlock(std::size_t calls, bool backward) {
    create();
    writeBlocks(50);
    const MessageTablePtr early = openRefreshed();
    const std::vector<std::size_t> writerBefore = counts(table.get(), backward);
    const std::vector<std::size_t> readerBefore = counts(early.get(), backward);
    writeBlocks(250);
    const MessageTablePtr late = openRefreshed();
    const std::vector<std::size_t> writerAfter = counts(table.get(), backward);
    const std::vector<std::size_t> readerAfter = counts(late.get(), backward);
    ASSERT_EQ(mt_refresh(early.get()), NO_ERROR);
    const std::vector<std::size_t> earlyAfter = counts(early.get(), backward);
    for (std::size_t i = 0; i < std::size(unanswered); ++i) {
        const char* name = unanswered[i].name;
        EXPECT_EQ(writerAfter[i] - writerBefore[i], 200 * calls) << name << ", the writer's own table";
        EXPECT_EQ(readerAfter[i] - readerBefore[i], 200 * calls) << name << ", a reader";
        EXPECT_EQ(earlyAfter[i], readerAfter[i]) << name << ", a reader opened before the blocks came";
        EXPECT_LE(writerAfter[i], 250 * calls + MOST_CALLS_BESIDES) << name << ", the writer's own table";
        EXPECT_LE(readerAfter[i], 250 * calls + MOST_CALLS_BESIDES) << name << ", a reader";
    }
}

TEST_F(SkippedBlocks, CostOneCallEachForward) {
    expectCallsForEachBlock(1, false);
}

TEST_F(SkippedBlocks, CostTwoCallsEachBackward) {
    expectCallsForEachBlock(2, true);
}

// An iterator kept open over a reader's table while `table` is written.
class FollowingIterator : public QueryTest {
  protected:
    void SetUp() override {
        layout = layoutOf(1000, 1, 1);
        create();
        reader = openReader();
        iterator = openIterator(reader.get(), newConditions());
    }
    std::int64_t size() const { return tableFileCachedSize(tableStorage_master(table->storage.get())); }
    // Writes so many messages more and lets the iterator find them: its reads.
    std::vector<RecordedCall> readsOf(std::int32_t count) {
        writePlain(last + 1, last + count);
        const FaultPlatform platform;
        EXPECT_EQ(remainingIds(iterator.get()), idsFromTo(last + 1, last + count));
        last += count;
        return platform.calls(FileCall::readAt);
    }
    // The same from a place inside a block that stays open: exactly the new bytes, at once.
    void expectNewBytesAlone(std::int32_t count) {
        const std::int64_t end = size();
        const std::vector<RecordedCall> reads = readsOf(count);
        ASSERT_EQ(reads.size(), 1U) << "up to message " << last;
        ASSERT_EQ(reads[0].offset, end) << "up to message " << last;
        ASSERT_EQ(reads[0].length, size() - end) << "up to message " << last;
    }

    MessageTablePtr reader;
    MessageTableIteratorPtr iterator;
    std::int32_t last = 0;
};

TEST_F(FollowingIterator, ReadsWhatIsNewAndNothingElseWhileABlockFills) {
    readsOf(1);
    while (last < 998) {
        expectNewBytesAlone(1);
    }
    readsOf(3);  // closes the block and begins another one
    for (const std::int32_t count : {1, 2, 50, 400}) {
        expectNewBytesAlone(count);
    }
}

// What tells that a block which was seen open is closed now stands before what is new: the header's tail and the
// block's length word are read anew.
TEST_F(FollowingIterator, ReadsNoMessageOfBeforeAndAtMostTwiceWhatIsNewWhereBlocksAreClosed) {
    constexpr std::int64_t LENGTH_WORD = 8;
    const std::int64_t tailStart = table->storage->headerSize - HEADER_TAIL_SIZE;
    for (const std::int32_t count : {999, 2, 998, 1, 1, 5, 995, 999, 3, 2500, 700}) {
        const std::int64_t end = size();
        const bool closes = (last + count) / 1000 != last / 1000;
        std::int64_t bytes = 0;
        int tails = 0;
        int words = 0;
        for (const RecordedCall& read : readsOf(count)) {
            bytes += read.length;
            const bool isTail = read.offset == tailStart && read.length == HEADER_TAIL_SIZE;
            tails += isTail ? 1 : 0;
            words += read.offset < end && read.length == LENGTH_WORD ? 1 : 0;
            EXPECT_TRUE(isTail || read.offset >= end || read.length == LENGTH_WORD)
                << read.length << " bytes at " << read.offset << " up to message " << last;
        }
        EXPECT_LE(tails, closes ? 1 : 0) << "up to message " << last;
        EXPECT_LE(words, closes ? 1 : 0) << "up to message " << last;
        // What was read ahead of the end of a block is read again behind it.
        EXPECT_LE(bytes, (closes ? 2 : 1) * (size() - end) + 2 * LENGTH_WORD) << "up to message " << last;
    }
}

// Every message is fetched while an allocation would fail.
class WalkAllocations : public QueryTest {
  protected:
    // The largest blocks, of the same size, are those that the two walks come to first.
    void SetUp() override {
        layout = layoutOf(4, 1, 1);
        create();
        for (std::int32_t n = 1; n <= MESSAGES; ++n) {
            Message message = plain(100 + n);
            const bool large = n <= 4 || (n > MESSAGES - 6 && n <= MESSAGES - 2);
            message.strings[3] = std::string(large ? 5000 : 300, 'x');
            write(message);
        }
    }
    // Walks to the end without memory, once so many messages are behind it; the number of messages of the whole walk.
    static int walk(MessageTable* from, QueryConditionsPtr conditions, int behind) {
        const MessageTableIteratorPtr iterator = openIterator(from, std::move(conditions));
        int found = 0;
        while (found < behind && nextId(iterator.get())) {
            found += 1;
        }
        for (;;) {
            bool end = true;
            ErrorCode code = NO_ERROR;
            bool allocated = false;
            {
                const AllocationFailure failure(1);
                code = mtIterator_next(iterator.get(), &end);
                allocated = failure.happened();
            }
            EXPECT_EQ(code, NO_ERROR) << "behind message " << found;
            EXPECT_FALSE(allocated) << "behind message " << found;
            if (end || code != NO_ERROR || allocated) {
                return found;
            }
            found += 1;
        }
    }

    static constexpr int MESSAGES = 42;  // the last two in an open block
};

TEST_F(WalkAllocations, AreNoneForwardOnceTheLargestBlockIsLoaded) {
    const MessageTablePtr reader = openReader();
    EXPECT_EQ(walk(table.get(), newConditions(), 1), MESSAGES);
    EXPECT_EQ(walk(reader.get(), newConditions(), 1), MESSAGES);
}

TEST_F(WalkAllocations, AreNoneBackwardOnceTheLargestBlockIsLoaded) {
    const MessageTablePtr reader = openReader();
    EXPECT_EQ(walk(table.get(), newConditions(true), 3), MESSAGES);
    EXPECT_EQ(walk(reader.get(), newConditions(true), 3), MESSAGES);
}

TEST_F(WalkAllocations, AreNoneWithFiltersAndSkippedBlocks) {
    for (const bool backward : {false, true}) {
        QueryConditionsPtr conditions = newConditions(backward);
        const std::int64_t minimum = 0;
        const std::int64_t maximum = 1000000;
        EXPECT_EQ(conditions_addLongFilter(conditions.get(), 0, &minimum, &maximum, 1, nullptr, 0, false), NO_ERROR);
        EXPECT_EQ(conditions_addStringFilter(conditions.get(), 2, false, false), NO_ERROR);
        EXPECT_EQ(conditions_setStringFilterValueCount(conditions.get(), 2), NO_ERROR);
        EXPECT_EQ(conditions_setStringFilterValue(conditions.get(), "f2-102", 0), NO_ERROR);
        EXPECT_EQ(conditions_setStringFilterValue(conditions.get(), "f2-138", 1), NO_ERROR);
        EXPECT_EQ(walk(table.get(), std::move(conditions), 1), 2) << (backward ? "backward" : "forward");
    }
}

TEST_F(WalkAllocations, AreSeenWhereABufferIsStillToGrow) {
    const MessageTableIteratorPtr iterator = openIterator(table.get(), newConditions());
    bool end = false;
    const AllocationFailure failure(1);
    EXPECT_NE(mtIterator_next(iterator.get(), &end), NO_ERROR);
    EXPECT_TRUE(failure.happened());
}

}  // namespace
}  // namespace tabulo::internal::test
