// Iterators over a table that is dropped meanwhile, and over one whose file is damaged.
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>

#include "tests/query/query_fixture.h"
#include "tests/support/child_process.h"
#include "tests/support/fault_platform.h"

namespace tabulo::internal::test {
namespace {

class DroppedTable : public QueryTest {
  protected:
    MessageTableIteratorPtr iterate(MessageTable* over, bool backward = false) {
        return openIterator(over, newConditions(backward));
    }
    static void expectEnded(MessageTableIterator* iterator) {
        for (int i = 0; i < 3; ++i) {
            EXPECT_EQ(nextId(iterator), std::nullopt);
        }
    }
};

TEST_F(DroppedTable, EndsTheIteratorsOfTheSameObjectForGoodWhateverIsWrittenAfterwards) {
    for (const bool backward : {false, true}) {
        create();
        writePlain(1, 5);
        const MessageTableIteratorPtr fresh = iterate(table.get(), backward);
        const MessageTableIteratorPtr inside = iterate(table.get(), backward);
        const MessageTableIteratorPtr atTheEnd = iterate(table.get(), backward);
        ASSERT_NE(nextId(inside.get()), std::nullopt);
        ASSERT_EQ(remainingIds(atTheEnd.get()).size(), 5U);
        ASSERT_EQ(mt_drop(table.get()), NO_ERROR);
        expectEnded(inside.get());
        writePlain(11, 30);  // grown past every iterator's place
        expectEnded(fresh.get());
        expectEnded(inside.get());
        expectEnded(atTheEnd.get());
        EXPECT_EQ(remainingIds(iterate(table.get()).get()), idsFromTo(11, 30)) << "a new iterator sees the new table";
    }
}

TEST_F(DroppedTable, LeavesNothingCurrent) {
    create();
    writePlain(1, 5);
    const MessageTableIteratorPtr iterator = iterate(table.get());
    ASSERT_EQ(nextId(iterator.get()), 1);
    ASSERT_EQ(mt_drop(table.get()), NO_ERROR);
    expectEnded(iterator.get());
    EXPECT_EQ(mtIterator_getMetadata(iterator.get()).uniformId, 0);
    EXPECT_EQ(mtIterator_getWireMessage(iterator.get()).text, nullptr);
}

TEST_F(DroppedTable, ByAnotherProcessEndsAnIteratorOnceTheFileIsSeenToBeShorter) {
    for (const bool backward : {false, true}) {
        SCOPED_TRACE(backward ? "backward" : "forward");
        create();
        writePlain(1, 8);
        const MessageTablePtr reader = openReader();
        const MessageTableIteratorPtr waiting = iterate(reader.get());
        ASSERT_EQ(remainingIds(waiting.get()).size(), 8U);
        const MessageTableIteratorPtr inside = iterate(reader.get(), backward);
        for (int i = 0; i < 4; ++i) {
            ASSERT_NE(nextId(inside.get()), std::nullopt);
        }
        table.reset();
        const int result = runInChild([&] {
            const MessageTablePtr other = openTable(directory.root(), layout, OpenMode::write);
            return other == nullptr ? 1 : mt_drop(other.get());
        });
        ASSERT_EQ(result, 0);
        expectEnded(waiting.get());
        // What the iterator has read ahead may still come, each message once; then it is over.
        const std::vector<std::int32_t> rest = remainingIds(inside.get());
        EXPECT_LE(rest.size(), 2U) << "no block that is gone is read";
        table = openTable(directory.root(), layout, OpenMode::write);
        ASSERT_NE(table, nullptr);
        writePlain(11, 40);
        expectEnded(waiting.get());
        expectEnded(inside.get());
        EXPECT_EQ(remainingIds(iterate(reader.get()).get()), idsFromTo(11, 40));
    }
}

TEST_F(DroppedTable, ByAnotherProcessAndGrownAgainShortOfItsPlaceEndsAnIteratorToo) {
    create();
    writePlain(1, 8);
    const MessageTablePtr reader = openReader();
    const MessageTableIteratorPtr iterator = iterate(reader.get());
    ASSERT_EQ(remainingIds(iterator.get()).size(), 8U);
    ASSERT_EQ(mt_drop(table.get()), NO_ERROR);
    writePlain(11, 12);
    expectEnded(iterator.get());
    writePlain(13, 40);
    expectEnded(iterator.get());
}

TEST_F(DroppedTable, ABackwardIteratorOfAnotherObjectThatHasNotBegunEndsWithoutAnError) {
    create();
    writePlain(1, 8);
    const MessageTablePtr reader = openReader();
    const MessageTableIteratorPtr iterator = iterate(reader.get(), true);
    ASSERT_EQ(mt_drop(table.get()), NO_ERROR);
    expectEnded(iterator.get());
}

TEST_F(DroppedTable, ByAnotherProcessEndsABackwardIteratorAlsoInTheMidstOfABlockThatIsReadInPieces) {
    for (const std::int32_t messagesPerBlock : {2, 3}) {  // the block is closed, or open
        SCOPED_TRACE(messagesPerBlock);
        layout = layoutOf(messagesPerBlock);
        create();
        for (const std::int32_t n : {1, 2}) {
            Message message = plain(n);
            message.strings[2] = std::string(5'000'000, 'x');
            write(message);
        }
        const MessageTablePtr reader = openReader();
        const MessageTableIteratorPtr iterator = iterate(reader.get(), true);
        ASSERT_EQ(nextId(iterator.get()), 2);
        ASSERT_EQ(mt_drop(table.get()), NO_ERROR);
        expectEnded(iterator.get());
    }
}

TEST_F(DroppedTable, TheFileIsFetchedAtEveryStep) {
    create();
    writePlain(1, 5);
    const MessageTableIteratorPtr iterator = iterate(table.get());
    ASSERT_EQ(nextId(iterator.get()), 1);
    TableStorage* storage = table->storage.get();
    const std::int32_t active = storage->activeCount;
    storage->activeCount = 0;  // as after a failed write
    bool end = false;
    EXPECT_EQ(mtIterator_next(iterator.get(), &end), MASTER_INACTIVE_ERROR);
    EXPECT_TRUE(end);
    storage->activeCount = active;
    EXPECT_EQ(remainingIds(iterator.get()), idsFromTo(2, 5)) << "the iterator was not harmed";
}

// Offset in a frame without numeric fields: a text longer than the file makes the frame an incomplete one.
constexpr std::size_t FIRST_TEXT_LENGTH = 35;

// Messages before damage, and how the walk ended.
class DamagedTable : public QueryTest {
  protected:
    struct Walk {
        std::vector<std::int32_t> ids;
        ErrorCode code = NO_ERROR;
    };
    void createWithMessages(std::int32_t count) {
        create();
        for (std::int32_t n = 1; n <= count; ++n) {
            frames.push_back(readFile(path()).size() + (n % layout.messagesPerBlock == 1 ? 8 : 0));
            writePlain(n, n);
        }
    }
    Walk walk(bool backward = false) {
        Walk result;
        const MessageTableIteratorPtr iterator = openIterator(table.get(), newConditions(backward));
        bool end = false;
        while ((result.code = mtIterator_next(iterator.get(), &end)) == NO_ERROR && !end) {
            result.ids.push_back(mtIterator_getMetadata(iterator.get()).uniformId);
        }
        EXPECT_TRUE(end) << "an error comes without a message";
        EXPECT_EQ(mtIterator_getMetadata(iterator.get()).uniformId, 0);
        EXPECT_EQ(mtIterator_getWireMessage(iterator.get()).text, nullptr);
        return result;
    }
    // Overwrites four bytes with an impossible number.
    void damage(std::size_t offset) { patchFile(path(), offset, Bytes{0xff, 0xff, 0xff, 0x7f}); }
    std::size_t frameOf(std::int32_t n) const { return frames[static_cast<std::size_t>(n - 1)]; }
    std::size_t frameEnd(std::int32_t n) const {
        const Bytes bytes = readFile(path());
        return frameOf(n) + bytes[frameOf(n)] + std::size_t{256} * bytes[frameOf(n) + 1];
    }

    std::vector<std::size_t> frames;  // offset of each message's frame
};

TEST_F(DamagedTable, AFrameOfAClosedBlockWhoseLengthsDifferIsAnError) {
    createWithMessages(8);
    damage(frameEnd(5) - 4);
    EXPECT_EQ(walk().ids, idsFromTo(1, 4));
    EXPECT_EQ(walk().code, CONSISTENCY_ERROR);
    EXPECT_EQ(walk(true).ids, idsFromTo(8, 6));
    EXPECT_NE(walk(true).code, NO_ERROR);
}

TEST_F(DamagedTable, AnIncompleteFrameInAClosedBlockIsAnError) {
    createWithMessages(8);
    damage(frameOf(5) + FIRST_TEXT_LENGTH);
    EXPECT_EQ(walk().ids, idsFromTo(1, 4));
    EXPECT_EQ(walk().code, NO_DATA_ERROR) << getErrorMessage(walk().code);
    EXPECT_EQ(walk(true).ids, idsFromTo(8, 6));
    EXPECT_EQ(walk(true).code, NO_DATA_ERROR);
}

TEST_F(DamagedTable, AnIncompleteFrameInTheOpenBlockThatIsNoTornTailIsAnErrorAndCostsNothingElse) {
    createWithMessages(8);
    damage(frameOf(8) + FIRST_TEXT_LENGTH);
    EXPECT_EQ(walk().ids, idsFromTo(1, 7));
    EXPECT_EQ(walk().code, CONSISTENCY_ERROR);
    EXPECT_EQ(walk(true).ids, idsFromTo(7, 1));
    EXPECT_EQ(walk(true).code, CONSISTENCY_ERROR);
}

TEST_F(DamagedTable, ATornTailOfTheOpenBlockIsTheEnd) {
    createWithMessages(8);
    Bytes bytes = readFile(path());
    bytes.resize(frameEnd(8) - 1);
    table.reset();
    writeFile(path(), bytes);
    table = openReader();
    EXPECT_EQ(walk().ids, idsFromTo(1, 7));
    EXPECT_EQ(walk().code, NO_ERROR);
    EXPECT_EQ(walk(true).ids, idsFromTo(7, 1));
    EXPECT_EQ(walk(true).code, NO_ERROR);
}

TEST_F(DamagedTable, AFrameOfTheOpenBlockWhoseLengthsDifferIsAnErrorAndCostsNothingElse) {
    createWithMessages(8);
    damage(frameEnd(8) - 4);
    EXPECT_EQ(walk().ids, idsFromTo(1, 7));
    EXPECT_EQ(walk().code, CONSISTENCY_ERROR);
    EXPECT_EQ(walk(true).ids, idsFromTo(7, 1));
    EXPECT_EQ(walk(true).code, CONSISTENCY_ERROR);
}

TEST_F(DamagedTable, AFooterWhoseLengthDiffersIsAnError) {
    createWithMessages(8);
    damage(frameOf(7) - 8 - 8);  // the end of the second block
    EXPECT_EQ(walk().ids, idsFromTo(1, 3));
    EXPECT_EQ(walk().code, HEADER_CORRUPTED_ERROR);
    EXPECT_EQ(walk(true).ids, idsFromTo(8, 7));
    EXPECT_EQ(walk(true).code, HEADER_CORRUPTED_ERROR);
}

TEST_F(DamagedTable, AnImpossibleBlockLengthIsAnError) {
    createWithMessages(8);
    damage(frameOf(4) - 8);
    EXPECT_EQ(walk().ids, idsFromTo(1, 3));
    EXPECT_EQ(walk().code, HEADER_CORRUPTED_ERROR);
    EXPECT_EQ(walk(true).ids, idsFromTo(8, 7));
    EXPECT_NE(walk(true).code, NO_ERROR);
}

TEST_F(DamagedTable, AFrameInABlockThatIsSkippedIsNotRead) {
    createWithMessages(8);
    damage(frameOf(5));
    const auto onlyTheFirst = [](QueryConditions* conditions) {
        EXPECT_EQ(conditions_setSeqNumRange(conditions, 1, 3), NO_ERROR);
    };
    EXPECT_EQ(select(onlyTheFirst), idsFromTo(1, 3));
    EXPECT_EQ(select(onlyTheFirst, true), idsFromTo(3, 1));
}

TEST_F(DamagedTable, AnErrorStays) {
    createWithMessages(8);
    damage(frameEnd(2) - 4);
    const MessageTableIteratorPtr iterator = openIterator(table.get(), newConditions());
    ASSERT_EQ(nextId(iterator.get()), 1);
    bool end = false;
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(mtIterator_next(iterator.get(), &end), CONSISTENCY_ERROR);
        EXPECT_TRUE(end);
    }
}

TEST_F(DamagedTable, AnErrorStaysAlsoBackward) {
    createWithMessages(8);
    damage(frameOf(4) - 8);
    damage(frameEnd(5) - 4);
    const MessageTableIteratorPtr iterator = openIterator(table.get(), newConditions(true));
    ASSERT_EQ(nextId(iterator.get()), 8);
    ASSERT_EQ(nextId(iterator.get()), 7);
    bool end = false;
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(mtIterator_next(iterator.get(), &end), HEADER_CORRUPTED_ERROR);
        EXPECT_TRUE(end);
    }
}

TEST_F(DamagedTable, AReadThatTheSystemRefusesIsAnErrorAndTheIteratorGoesOnAfterwards) {
    FaultPlatform platform;
    createWithMessages(8);
    for (const bool backward : {false, true}) {
        const MessageTableIteratorPtr iterator = openIterator(table.get(), newConditions(backward));
        platform.failAll(FileCall::readAt, EIO);
        bool end = false;
        EXPECT_EQ(mtIterator_next(iterator.get(), &end), FILE_READ_ERROR);
        EXPECT_TRUE(end);
        platform.failAll(FileCall::readAt, 0);
        EXPECT_EQ(remainingIds(iterator.get()), backward ? idsFromTo(8, 1) : idsFromTo(1, 8));
    }
}

}  // namespace
}  // namespace tabulo::internal::test
