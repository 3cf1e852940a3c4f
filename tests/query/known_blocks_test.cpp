// Queries on a handle that has answered a query before: what its blocks' footers said is kept, and blocks that it rules
// out are not read again.
#include <gtest/gtest.h>

#include <cerrno>
#include <optional>
#include <utility>
#include <vector>

#include "tests/query/query_fixture.h"
#include "tests/support/fault_platform.h"

namespace tabulo::internal::test {
namespace {

constexpr int BLOCKS = 100;
constexpr std::int32_t PER_BLOCK = 3;
// What a query reads besides a block that it finds its messages in: what is kept is confirmed in front of it and behind
// it, the open block, the view of a reader.
constexpr std::size_t MOST_CALLS = 16;

class KnownBlocksOfATable : public QueryTest {
  protected:
    void SetUp() override {
        layout = layoutOf(PER_BLOCK, 1, 1);
        create();
        writePlain(1, BLOCKS * PER_BLOCK + 1);
        reader = openReader();
    }
    static QueryConditionsPtr seqNums(std::int32_t first, std::int32_t last, bool backward = false) {
        QueryConditionsPtr conditions = newConditions(backward);
        EXPECT_EQ(conditions_setSeqNumRange(conditions.get(), first, last), NO_ERROR);
        return conditions;
    }
    struct Answer {
        std::vector<std::int32_t> ids;
        std::size_t calls = 0;
        int unread = 0;
    };
    Answer ask(QueryConditionsPtr conditions) {
        const FaultPlatform platform;
        const MessageTableIteratorPtr iterator = openIterator(reader.get(), std::move(conditions));
        const WatchedIterator watched(iterator.get(), true);
        Answer answer;
        answer.ids = remainingIds(iterator.get());
        answer.calls = platform.calls().size();
        answer.unread = watched.blocksUnread;
        return answer;
    }
    // Another table in the place of this one, by its writer: as long, but every number is another.
    void replaceTable(std::int32_t firstId) {
        ASSERT_EQ(mt_drop(table.get()), NO_ERROR);
        writePlain(firstId, firstId + BLOCKS * PER_BLOCK);
    }

    MessageTablePtr reader;
};

TEST_F(KnownBlocksOfATable, AreReadOnceForAllRangesThatRuleThemOut) {
    for (const bool backward : {false, true}) {
        reader = openReader();
        const Answer first = ask(seqNums(100, 102, backward));
        EXPECT_GE(first.calls, static_cast<std::size_t>(BLOCKS));
        EXPECT_EQ(first.unread, 0);
        for (const std::int32_t from : {1, 100, 150, BLOCKS * PER_BLOCK - 1}) {
            const Answer again = ask(seqNums(from, from + 2, backward));
            const std::vector<std::int32_t> expected = backward ? idsFromTo(from + 2, from) : idsFromTo(from, from + 2);
            EXPECT_EQ(again.ids, expected) << "from " << from;
            EXPECT_LE(again.calls, MOST_CALLS) << "from " << from << (backward ? " backward" : " forward");
            EXPECT_GE(again.unread, BLOCKS - 2) << "from " << from;
        }
    }
}

// Two are asked one by one, which takes as many reads as confirming what is kept.
TEST_F(KnownBlocksOfATable, ArePassedThreeAtATimeAndNotTwo) {
    constexpr std::int32_t LAST = BLOCKS * PER_BLOCK + 1;
    ask(seqNums(1, 1));
    for (const int passed : {2, 3, 4}) {
        const int unread = passed < 3 ? 0 : passed;
        EXPECT_EQ(ask(seqNums(passed * PER_BLOCK + 1, LAST)).unread, unread);
        EXPECT_EQ(ask(seqNums(passed * PER_BLOCK + 1, LAST, true)).unread, unread);
    }
}

TEST_F(KnownBlocksOfATable, ServeTimesAndTheNumbersOfTheMetadataToo) {
    ask(seqNums(1, 1));
    QueryConditionsPtr times = newConditions();
    EXPECT_EQ(conditions_setStartingTime(times.get(), 1000 * 150), NO_ERROR);
    EXPECT_EQ(conditions_setEndingTime(times.get(), 1000 * 160), NO_ERROR);
    EXPECT_EQ(ask(std::move(times)).ids, idsFromTo(150, 160));
    for (const std::int32_t pseudo : {0, 1}) {  // uniform id, sequence number
        QueryConditionsPtr numbers = newConditions(true);
        const std::int64_t wanted[] = {7, 290};
        EXPECT_EQ(conditions_addLongFilter(numbers.get(), 1 + pseudo, nullptr, nullptr, 0, wanted, 2, false), NO_ERROR);
        const Answer answer = ask(std::move(numbers));
        EXPECT_EQ(answer.ids, (std::vector<std::int32_t>{290, 7}));
        EXPECT_GE(answer.unread, BLOCKS - 8);
    }
}

TEST_F(KnownBlocksOfATable, GrowWithTheTable) {
    ask(seqNums(1, 1));
    const std::int32_t last = BLOCKS * PER_BLOCK + 1;
    writePlain(last + 1, last + 10 * PER_BLOCK);
    EXPECT_EQ(ask(seqNums(last + 4, last + 5)).ids, idsFromTo(last + 4, last + 5));
    const Answer again = ask(seqNums(last + 4, last + 5));
    EXPECT_EQ(again.ids, idsFromTo(last + 4, last + 5));
    EXPECT_LE(again.calls, MOST_CALLS);
}

TEST_F(KnownBlocksOfATable, AreForgottenWhenAnotherTableStandsInTheFile) {
    for (const bool backward : {false, true}) {
        const std::int32_t first = backward ? 5000 : 10000;
        ask(seqNums(1, 2, backward));
        replaceTable(first);
        const Answer answer = ask(seqNums(first + 7, first + 9, backward));
        EXPECT_EQ(answer.ids, backward ? idsFromTo(first + 9, first + 7) : idsFromTo(first + 7, first + 9));
        EXPECT_EQ(answer.unread, 0);
    }
}

// A query that reads every block that is kept, and others behind or in front of them, must not make one list of both.
TEST_F(KnownBlocksOfATable, OfAnotherContentAreNotKeptTogetherWithThoseOfThisOne) {
    for (const bool backward : {false, true}) {
        // Frames of one length, so that blocks begin where they began; the first blocks stay as they are.
        replaceTable(1000);
        reader = openReader();
        ask(seqNums(1, 1, backward));
        ASSERT_EQ(mt_drop(table.get()), NO_ERROR);
        writePlain(1000, 1029);
        writePlain(3000, 3500);
        EXPECT_EQ(ask(seqNums(1000, 3500, backward)).ids.size(), 531U);
        EXPECT_EQ(ask(seqNums(3100, 3100, backward)).ids, std::vector<std::int32_t>{3100})
            << (backward ? "backward" : "forward");
    }
}

TEST_F(KnownBlocksOfATable, AreForgottenWhenTheTableIsDropped) {
    reader = std::move(table);
    ask(seqNums(1, 2));
    ASSERT_EQ(mt_drop(reader.get()), NO_ERROR);
    for (std::int32_t n = 1; n <= 30; ++n) {
        ASSERT_EQ(writeMessage(reader.get(), plain(1000 + n)), NO_ERROR);
    }
    EXPECT_EQ(ask(seqNums(1020, 1021)).ids, idsFromTo(1020, 1021));
}

TEST_F(KnownBlocksOfATable, AreDoneWithoutWhereTheyCannotBeConfirmed) {
    ask(seqNums(1, 1));
    FaultPlatform platform;
    platform.failNth(FileCall::readAt, 1, EIO);  // the footer by which they are confirmed
    const MessageTableIteratorPtr iterator = openIterator(reader.get(), seqNums(200, 201));
    EXPECT_EQ(remainingIds(iterator.get()), idsFromTo(200, 201));
    EXPECT_GE(platform.count(FileCall::readAt), BLOCKS);
}

TEST_F(KnownBlocksOfATable, AreDoneWithoutForAQueryThatWritesALogLineForEachBlock) {
    ask(seqNums(1, 1));
    std::vector<std::size_t> notes;
    for (int round = 0; round < 2; ++round) {
        log.clear();
        QueryConditionsPtr conditions = seqNums(1, 1000);
        EXPECT_EQ(conditions_setMessageIdRange(conditions.get(), 5, 536870912), NO_ERROR);
        EXPECT_EQ(ask(std::move(conditions)).unread, 0);
        notes.push_back(log.notes().size());
    }
    EXPECT_GE(notes[0], static_cast<std::size_t>(BLOCKS));
    EXPECT_EQ(notes[0], notes[1]);
}

TEST_F(KnownBlocksOfATable, AreNotAskedByAnInvertedQuery) {
    ask(seqNums(1, 1));
    QueryConditionsPtr conditions = seqNums(4, 1000);
    conditions->inverted = true;
    const Answer answer = ask(std::move(conditions));
    EXPECT_EQ(answer.ids, idsFromTo(1, 3));
    EXPECT_EQ(answer.unread, 0);
}

// What is damaged is told by whoever reads it, and where nobody reads it by nobody.
TEST_F(KnownBlocksOfATable, LeaveADamagedBlockUnreadThatCannotMatch) {
    ask(seqNums(1, 1));
    const std::int64_t block = 50;
    std::int64_t start = table->storage->headerSize;
    {
        const MessageTableIteratorPtr iterator = openIterator(reader.get(), newConditions());
        for (std::int32_t n = 0; n < block * PER_BLOCK + 1; ++n) {
            ASSERT_NE(nextId(iterator.get()), std::nullopt);
        }
        start = iterator->cursor.block.start;
    }
    patchFile(path(), static_cast<std::size_t>(start), Bytes(8, 0xEE));
    EXPECT_EQ(ask(seqNums(200, 201)).ids, idsFromTo(200, 201));
    const MessageTableIteratorPtr iterator = openIterator(reader.get(), seqNums(140, 160));
    bool end = false;
    ErrorCode code = NO_ERROR;
    while (code == NO_ERROR && !end) {
        code = mtIterator_next(iterator.get(), &end);
    }
    EXPECT_EQ(code, HEADER_CORRUPTED_ERROR);
}

}  // namespace
}  // namespace tabulo::internal::test
