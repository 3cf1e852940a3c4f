// Iterators over a table that grows meanwhile.
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>

#include "tests/query/query_fixture.h"
#include "tests/support/fault_platform.h"

namespace tabulo::internal::test {
namespace {

// `table` is the writer; iterators run over `reader`, a table object of its own that is opened read-only.
class GrowingTable : public QueryTest {
  protected:
    void createBoth() {
        create();
        reader = openReader();
    }
    MessageTableIteratorPtr iterate(bool backward = false) {
        return openIterator(reader.get(), newConditions(backward));
    }
    Bytes fileBytes() const { return readFile(path()); }
    // The start of block number `block` (0 is the first), found by the length words of `bytes`.
    std::size_t blockStart(const Bytes& bytes, int block) const {
        auto start = static_cast<std::size_t>(table->storage->headerSize);
        for (int i = 0; i < block; ++i) {
            start += lengthWord(bytes, start);
        }
        return start;
    }
    static std::size_t lengthWord(const Bytes& bytes, std::size_t at) {
        std::size_t length = 0;
        for (std::size_t i = 0; i < 8; ++i) {
            length |= static_cast<std::size_t>(bytes.at(at + i)) << (8 * i);
        }
        return length;
    }
    static Bytes part(const Bytes& bytes, std::size_t from, std::size_t to) {
        return Bytes(bytes.begin() + static_cast<std::ptrdiff_t>(from),
                     bytes.begin() + static_cast<std::ptrdiff_t>(to));
    }

    MessageTablePtr reader;
};

TEST_F(GrowingTable, IsReadOnFromWhereTheEndWas) {
    createBoth();
    const MessageTableIteratorPtr iterator = iterate();
    std::int32_t n = 0;
    for (const std::int32_t more : {1, 1, 1, 1, 2, 3, 4, 5, 7, 1, 30}) {
        writePlain(n + 1, n + more);
        EXPECT_EQ(remainingIds(iterator.get()), idsFromTo(n + 1, n + more));
        EXPECT_EQ(nextId(iterator.get()), std::nullopt) << "the end is the end until more is there";
        n += more;
    }
}

TEST_F(GrowingTable, TheOpenBlockIsNeverPassed) {
    createBoth();
    writePlain(1, 5);
    const MessageTableIteratorPtr iterator = iterate();
    EXPECT_EQ(remainingIds(iterator.get()), idsFromTo(1, 5));
    const std::int64_t position = iterator->cursor.block.start;
    EXPECT_EQ(position, static_cast<std::int64_t>(blockStart(fileBytes(), 1)));
    EXPECT_EQ(iterator->indexInBlock, 2);
    EXPECT_EQ(nextId(iterator.get()), std::nullopt);
    EXPECT_EQ(iterator->cursor.block.start, position);
    EXPECT_EQ(iterator->cursor.position, position);
    EXPECT_EQ(iterator->indexInBlock, 2);
}

TEST_F(GrowingTable, ABlockThatIsClosedMeanwhileIsFinishedAtTheSameIndex) {
    createBoth();
    writePlain(1, 2);
    const MessageTableIteratorPtr iterator = iterate();
    EXPECT_EQ(nextId(iterator.get()), 1);
    writePlain(3, 8);  // closes the iterator's block and another one
    EXPECT_EQ(remainingIds(iterator.get()), idsFromTo(2, 8));
}

TEST_F(GrowingTable, ABlockClosedAtTheVeryEndOfTheIteratorsPlaceIsNotReadTwice) {
    createBoth();
    writePlain(1, 2);
    const MessageTableIteratorPtr iterator = iterate();
    EXPECT_EQ(remainingIds(iterator.get()), idsFromTo(1, 2));
    writePlain(3, 3);
    EXPECT_EQ(remainingIds(iterator.get()), idsFromTo(3, 3));
    writePlain(4, 4);
    EXPECT_EQ(remainingIds(iterator.get()), idsFromTo(4, 4));
}

TEST_F(GrowingTable, AFullBlockWhoseLengthWordIsStillZeroIsFinishedAndNotPassedTwice) {
    createBoth();
    writePlain(1, 3);
    const Bytes closed = fileBytes();
    const std::size_t start = blockStart(closed, 0);
    patchFile(path(), start, Bytes(8, 0));
    const MessageTableIteratorPtr iterator = iterate();
    EXPECT_EQ(remainingIds(iterator.get()), idsFromTo(1, 3)) << "the footer is no message";
    EXPECT_EQ(nextId(iterator.get()), std::nullopt);
    patchFile(path(), start, part(closed, start, start + 8));
    EXPECT_EQ(nextId(iterator.get()), std::nullopt);
    writePlain(4, 7);
    EXPECT_EQ(remainingIds(iterator.get()), idsFromTo(4, 7));
}

// The writer's last write of a block reaches the file in pieces: the frames, and so many bytes of the footer, are
// there.
class HalfWrittenFooter : public GrowingTable, public ::testing::WithParamInterface<std::size_t> {};

TEST_P(HalfWrittenFooter, IsNotTakenForADroppedTable) {
    createBoth();
    writePlain(1, 3);
    const Bytes closed = fileBytes();
    const std::size_t start = blockStart(closed, 0);
    const std::size_t footer = closed.size() - static_cast<std::size_t>(table->storage->footerSize);
    Bytes half = part(closed, 0, footer + GetParam());
    std::fill_n(half.begin() + static_cast<std::ptrdiff_t>(start), 8, std::uint8_t{0});
    writeFile(path(), half);
    const MessageTableIteratorPtr iterator = iterate();
    EXPECT_EQ(remainingIds(iterator.get()), idsFromTo(1, 3));
    EXPECT_EQ(nextId(iterator.get()), std::nullopt);
    EXPECT_EQ(iterator->cursor.position, static_cast<std::int64_t>(start)) << "an open block is never passed";
    writeFile(path(), closed);
    EXPECT_EQ(nextId(iterator.get()), std::nullopt);
    writePlain(4, 7);
    EXPECT_EQ(remainingIds(iterator.get()), idsFromTo(4, 7)) << "the iterator took the file for a dropped one";
}

TEST_P(HalfWrittenFooter, OfATableThatIsDroppedThenEndsTheIteratorForGood) {
    createBoth();
    writePlain(1, 3);
    const Bytes closed = fileBytes();
    Bytes half = part(closed, 0, closed.size() - static_cast<std::size_t>(table->storage->footerSize) + GetParam());
    std::fill_n(half.begin() + static_cast<std::ptrdiff_t>(blockStart(closed, 0)), 8, std::uint8_t{0});
    writeFile(path(), half);
    const MessageTableIteratorPtr iterator = iterate();
    EXPECT_EQ(remainingIds(iterator.get()), idsFromTo(1, 3));
    writeFile(path(), closed);
    ASSERT_EQ(mt_drop(table.get()), NO_ERROR);
    EXPECT_EQ(nextId(iterator.get()), std::nullopt) << "the file is seen to be shorter than the iterator's place";
    writePlain(11, 30);
    EXPECT_EQ(nextId(iterator.get()), std::nullopt) << "another table's message";
}

INSTANTIATE_TEST_SUITE_P(OfBytes, HalfWrittenFooter, ::testing::Values(0U, 1U, 100U, 2000U));

TEST_F(GrowingTable, AHalfWrittenMessageIsTheEndForNow) {
    createBoth();
    writePlain(1, 4);
    const std::size_t before = fileBytes().size();
    writePlain(5, 5);
    const Bytes whole = fileBytes();
    for (const std::size_t cut : {before + 1, before + 4, before + 20, whole.size() - 1}) {
        writeFile(path(), part(whole, 0, cut));
        const MessageTableIteratorPtr iterator = iterate();
        EXPECT_EQ(remainingIds(iterator.get()), idsFromTo(1, 4)) << cut;
        EXPECT_EQ(remainingIds(iterate(true).get()), idsFromTo(4, 1)) << cut;
        writeFile(path(), whole);
        EXPECT_EQ(remainingIds(iterator.get()), idsFromTo(5, 5)) << cut;
    }
}

TEST_F(GrowingTable, AHalfWrittenMessageThatARecoveryReplacesIsReadAnew) {
    createBoth();
    writePlain(1, 4);
    writePlain(5, 5);
    Bytes torn = fileBytes();
    torn.resize(torn.size() - 6);
    writeFile(path(), torn);
    const MessageTableIteratorPtr iterator = iterate();
    EXPECT_EQ(remainingIds(iterator.get()), idsFromTo(1, 4));
    table.reset();  // the writer is gone; the next one recovers
    table = openTable(directory.root(), layout, OpenMode::write);
    ASSERT_NE(table, nullptr);
    writePlain(50, 53);
    EXPECT_EQ(remainingIds(iterator.get()), idsFromTo(50, 53));
}

TEST_F(GrowingTable, AForwardIteratorSkipsABlockThatWasClosedBeforeItGotThere) {
    createBoth();
    writePlain(1, 3);
    QueryConditionsPtr conditions = newConditions();
    EXPECT_EQ(conditions_setSeqNumRange(conditions.get(), 1, 3), NO_ERROR);
    const MessageTableIteratorPtr iterator = openIterator(reader.get(), std::move(conditions));
    const WatchedIterator watched(iterator.get(), true);
    EXPECT_EQ(remainingIds(iterator.get()), idsFromTo(1, 3));
    EXPECT_EQ(watched.blocksAsked, 1);
    writePlain(4, 9);
    EXPECT_EQ(nextId(iterator.get()), std::nullopt);
    EXPECT_EQ(watched.blocksAsked, 3);
    EXPECT_EQ(watched.blocksSkipped, 2);
    writePlain(10, 11);
    EXPECT_EQ(nextId(iterator.get()), std::nullopt);
    EXPECT_EQ(watched.blocksAsked, 3) << "an open block can grow and is not asked about";
    EXPECT_EQ(watched.messagesAsked, 3 + 2);
}

TEST_F(GrowingTable, ABackwardIteratorSeesTheNewEndBecauseOpeningRefreshes) {
    createBoth();
    writePlain(1, 2);
    EXPECT_EQ(remainingIds(iterate(true).get()), idsFromTo(2, 1));
    writePlain(3, 8);
    EXPECT_EQ(remainingIds(iterate(true).get()), idsFromTo(8, 1));
}

TEST_F(GrowingTable, ABackwardIteratorDeliversWhatItsBlockHeldWhenItLoadedIt) {
    createBoth();
    writePlain(1, 5);
    const MessageTableIteratorPtr iterator = iterate(true);
    EXPECT_EQ(nextId(iterator.get()), 5);
    writePlain(6, 6);  // closes the block
    EXPECT_EQ(nextId(iterator.get()), 4);
    writePlain(7, 12);
    EXPECT_EQ(remainingIds(iterator.get()), idsFromTo(3, 1));
}

TEST_F(GrowingTable, ABackwardIteratorIsDoneForGood) {
    createBoth();
    const MessageTableIteratorPtr empty = iterate(true);
    EXPECT_EQ(nextId(empty.get()), std::nullopt);
    writePlain(1, 4);
    EXPECT_EQ(nextId(empty.get()), std::nullopt) << "the end of a backward walk is its beginning";
    const MessageTableIteratorPtr iterator = iterate(true);
    EXPECT_EQ(remainingIds(iterator.get()), idsFromTo(4, 1));
    writePlain(5, 9);
    EXPECT_EQ(nextId(iterator.get()), std::nullopt);
}

TEST_F(GrowingTable, ABackwardIteratorStepsForwardOverBlocksClosedSinceTheRefresh) {
    createBoth();
    writePlain(1, 2);
    const MessageTableIteratorPtr iterator = iterate(true);
    writePlain(3, 8);
    EXPECT_EQ(remainingIds(iterator.get()), idsFromTo(8, 1)) << "it begins at the block that is open now";
}

TEST_F(GrowingTable, ABackwardIteratorWhoseFirstReadFailsStillBeginsAtTheBlockThatIsOpenThen) {
    createBoth();
    writePlain(1, 2);
    for (int n = 1; n <= 4; ++n) {
        FaultPlatform platform;
        const MessageTablePtr own = openReader();
        const MessageTableIteratorPtr iterator = openIterator(own.get(), newConditions(true));
        writePlain(6 * n - 3, 6 * n + 2);  // 3 to 8, 9 to 14 and so on
        platform.clear();
        platform.failNth(FileCall::readAt, n, EIO);
        bool end = false;
        EXPECT_EQ(mtIterator_next(iterator.get(), &end), FILE_READ_ERROR) << "read " << n;
        EXPECT_EQ(remainingIds(iterator.get()), idsFromTo(6 * n + 2, 1)) << "read " << n;
    }
}

TEST_F(GrowingTable, ABackwardIteratorFindsBlocksThatTheHeaderDoesNotKnowYet) {
    createBoth();
    writePlain(1, 2);
    const Bytes stale = fileBytes();
    writePlain(3, 8);
    // The writer was killed before it saved the header's tail.
    Bytes now = fileBytes();
    std::copy_n(stale.begin(), table->storage->headerSize, now.begin());
    writeFile(path(), now);
    EXPECT_EQ(remainingIds(iterate(true).get()), idsFromTo(8, 1));
    EXPECT_EQ(remainingIds(iterate().get()), idsFromTo(1, 8));
}

TEST_F(GrowingTable, AWritersOwnIteratorsFollowItsWritesToo) {
    create();
    writePlain(1, 2);
    const MessageTableIteratorPtr iterator = openIterator(table.get(), newConditions());
    EXPECT_EQ(remainingIds(iterator.get()), idsFromTo(1, 2));
    writePlain(3, 10);
    EXPECT_EQ(remainingIds(iterator.get()), idsFromTo(3, 10));
    EXPECT_EQ(remainingIds(openIterator(table.get(), newConditions(true)).get()), idsFromTo(10, 1));
}

}  // namespace
}  // namespace tabulo::internal::test
