// What a cursor takes for a block, and where it goes on.
#include "messagetable/block_cursor.h"

#include <gtest/gtest.h>

#include <cerrno>

#include "tests/messagetable/block_reader_fixture.h"
#include "tests/support/fault_platform.h"

namespace tabulo::internal::test {
namespace {

using OpenBlocks = BlockCursor::OpenBlocks;
using ZeroWords = BlockCursor::ZeroWords;

class BlockCursors : public BlockReaderTest {
  protected:
    void startAt(std::size_t position, OpenBlocks openBlocks = OpenBlocks::unread,
                 ZeroWords zeroWords = ZeroWords::judged) {
        cursor = blockCursor_at(reader.get(), static_cast<std::int64_t>(position), openBlocks, zeroWords);
    }
    ErrorCode tryNext(std::size_t start, OpenBlocks openBlocks = OpenBlocks::unread) {
        startAt(start, openBlocks);
        return blockCursor_next(&cursor, file);
    }
    // The block at `start`.
    const Block& next(std::size_t start, OpenBlocks openBlocks = OpenBlocks::unread) {
        EXPECT_EQ(tryNext(start, openBlocks), NO_ERROR) << "the step to " << start;
        return cursor.block;
    }
    // The block that ends at `blockEnd`.
    const Block& previous(std::size_t blockEnd) {
        startAt(blockEnd);
        EXPECT_EQ(blockCursor_previous(&cursor, file), NO_ERROR) << "the step back from " << blockEnd;
        return cursor.block;
    }
    const Block& loadOpen(std::size_t start) {
        startAt(start, OpenBlocks::scanned);
        EXPECT_EQ(mfr_loadOpenBlock(&cursor, file), NO_ERROR) << "the open block at " << start;
        return cursor.block;
    }
    static void expectDamaged(const Block& block, ErrorCode code, const std::string& what) {
        EXPECT_EQ(block.state, BlockState::damaged) << what;
        EXPECT_EQ(block.damage, code) << what;
    }

    BlockCursor cursor;
};

TEST_F(BlockCursors, AClosedBlockIsReadFromItsFooter) {
    const TableMap places = map(8);
    read(closed(8));
    FaultPlatform platform;
    const Block& block = next(places.blockStarts[1]);
    EXPECT_EQ(block.state, BlockState::closed);
    EXPECT_TRUE(block_isClosed(block));
    EXPECT_EQ(block.messageCount, 4);
    EXPECT_EQ(block.start, static_cast<std::int64_t>(places.blockStarts[1]));
    EXPECT_EQ(block_framesStart(block), static_cast<std::int64_t>(places.frame(5).start));
    EXPECT_EQ(block.framesEnd, static_cast<std::int64_t>(places.frame(8).end));
    EXPECT_EQ(block.damage, NO_ERROR);
    EXPECT_EQ(cursor.position, static_cast<std::int64_t>(places.dataEnd));
    EXPECT_EQ(reader->summary.minimum.seqNum, 5);
    EXPECT_EQ(reader->summary.maximum.seqNum, 8);
    EXPECT_EQ(platform.count(FileCall::readAt), 2) << "the length word and the footer decide";
}

TEST_F(BlockCursors, FewerThanEightBytesAreNoBlock) {
    const TableMap places = map(4);
    for (std::size_t count = 0; count < 8; ++count) {
        read(concatenated(closed(4), Bytes(count, 0xff)));
        const Block& block = next(places.dataEnd, OpenBlocks::scanned);
        EXPECT_EQ(block.state, BlockState::none) << count << " bytes";
        EXPECT_EQ(block.messageCount, 0) << count << " bytes";
        EXPECT_EQ(cursor.position, static_cast<std::int64_t>(places.dataEnd)) << count << " bytes";
    }
    EXPECT_EQ(next(places.dataEnd + 1000, OpenBlocks::scanned).state, BlockState::none);
}

TEST_F(BlockCursors, AnOpenBlockIsReadOnlyWhenItMayBeScanned) {
    const TableMap places = map(7);
    const auto start = static_cast<std::int64_t>(places.openBlockStart);
    read(closed(7));
    EXPECT_EQ(next(places.openBlockStart, OpenBlocks::unread).state, BlockState::open);
    EXPECT_EQ(cursor.block.messageCount, 0);
    EXPECT_EQ(cursor.position, start);
    const Block& block = next(places.openBlockStart, OpenBlocks::scanned);
    EXPECT_EQ(block.state, BlockState::open);
    EXPECT_FALSE(block_isClosed(block));
    EXPECT_EQ(block.messageCount, 3);
    EXPECT_EQ(block.framesEnd, static_cast<std::int64_t>(places.dataEnd));
    EXPECT_EQ(block.damage, NO_ERROR);
    EXPECT_EQ(cursor.position, start) << "more may come";
    EXPECT_EQ(reader->summary.minimum.uniformId, 5);
    EXPECT_EQ(reader->summary.maximum.uniformId, 7);
}

TEST_F(BlockCursors, AFullBlockWithoutALengthWordIsReadByItsFooterWhenTheTailKnowsItAsClosed) {
    const TableMap places = map(8);
    Bytes bytes = closed(8);
    putU64(&bytes, places.blockStarts[0], 0);
    read(bytes);
    for (const ZeroWords zeroWords : {ZeroWords::judged, ZeroWords::open}) {
        startAt(places.blockStarts[0], OpenBlocks::scanned, zeroWords);
        ASSERT_EQ(blockCursor_next(&cursor, file), NO_ERROR);
        EXPECT_EQ(cursor.block.state, zeroWords == ZeroWords::judged ? BlockState::torn : BlockState::open);
        EXPECT_EQ(cursor.block.messageCount, 4) << "the footer and the next block are no messages";
        EXPECT_EQ(cursor.block.framesEnd, static_cast<std::int64_t>(places.frame(4).end));
        EXPECT_EQ(cursor.position, static_cast<std::int64_t>(places.blockStarts[1]));
    }
}

TEST_F(BlockCursors, AFullBlockWithoutALengthWordIsOpenWhenTheTailDoesNotKnowIt) {
    const TableMap places = map(4);
    Bytes bytes = closed(4);
    putU64(&bytes, places.blockStarts[0], 0);
    putU64(&bytes, places.storedLastBlockEnd(), 0);
    read(bytes);
    EXPECT_EQ(next(places.blockStarts[0], OpenBlocks::scanned).state, BlockState::open);
    EXPECT_EQ(cursor.block.messageCount, 4);
    EXPECT_EQ(cursor.block.damage, NO_ERROR);
    EXPECT_EQ(cursor.position, static_cast<std::int64_t>(places.dataEnd)) << "it is complete";
    read(cutAt(bytes, places.dataEnd - 1));
    EXPECT_EQ(next(places.blockStarts[0], OpenBlocks::scanned).state, BlockState::open);
    EXPECT_EQ(cursor.block.messageCount, 4);
    EXPECT_EQ(cursor.position, static_cast<std::int64_t>(places.blockStarts[0])) << "a byte of the footer is missing";
}

TEST_F(BlockCursors, AClosedBlockWithoutALengthWordAndWithoutAFrameIsDamaged) {
    const TableMap places = map(10);
    Bytes bytes = closed(10);
    putU64(&bytes, places.blockStarts[0], 0);
    putU32(&bytes, places.frame(3).start, 0);
    read(bytes);
    expectDamaged(next(places.blockStarts[0], OpenBlocks::scanned), HEADER_CORRUPTED_ERROR, "forward");
    EXPECT_EQ(cursor.block.messageCount, 2);
    EXPECT_EQ(cursor.block.framesEnd, static_cast<std::int64_t>(places.frame(2).end));
    startAt(places.blockStarts[1], OpenBlocks::scanned);
    ASSERT_EQ(blockCursor_previous(&cursor, file), NO_ERROR);
    expectDamaged(cursor.block, HEADER_CORRUPTED_ERROR, "backward");
    EXPECT_EQ(cursor.block.start, static_cast<std::int64_t>(places.blockStarts[0]));
    EXPECT_EQ(cursor.block.framesEnd, static_cast<std::int64_t>(places.frame(4).end)) << "the footer's front";
}

TEST_F(BlockCursors, AnOpenBlockEndsAtWhatIsNoFrame) {
    const TableMap places = map(7);
    const Bytes whole = closed(7);
    read(cutAt(whole, places.dataEnd - 1));
    const Block& block = next(places.openBlockStart, OpenBlocks::scanned);
    EXPECT_EQ(block.state, BlockState::open);
    EXPECT_EQ(block.messageCount, 2);
    EXPECT_EQ(block.framesEnd, static_cast<std::int64_t>(places.frame(6).end));
    EXPECT_EQ(block.damage, NO_ERROR) << "a cut frame is the end of the data";
    Bytes damaged = whole;
    putU32(&damaged, places.frame(6).end - 4, 1);
    read(damaged);
    EXPECT_EQ(next(places.openBlockStart, OpenBlocks::scanned).state, BlockState::open);
    EXPECT_EQ(block.messageCount, 1);
    EXPECT_EQ(block.damage, CONSISTENCY_ERROR) << "a frame whose ends disagree is damage";
}

TEST_F(BlockCursors, AnImpossibleBlockLengthIsDamage) {
    const std::size_t start = map(8).blockStarts[0];
    const Bytes whole = closed(8);
    for (const std::uint64_t length : impossibleLengths(start, whole.size())) {
        Bytes bytes = whole;
        putU64(&bytes, start, length);
        read(bytes);
        for (const OpenBlocks openBlocks : {OpenBlocks::unread, OpenBlocks::scanned}) {
            expectDamaged(next(start, openBlocks), HEADER_CORRUPTED_ERROR, "length " + std::to_string(length));
            EXPECT_EQ(cursor.position, static_cast<std::int64_t>(start)) << "length " << length;
        }
    }
}

TEST_F(BlockCursors, TheSmallestBlockThereCanBeIsRead) {
    std::vector<Message> bare;
    for (std::int32_t n = 1; n <= 4; ++n) {
        bare.push_back(bareMessage(n, shape));
    }
    const Bytes bytes = closedImage(shape, bare);
    ASSERT_EQ(u64At(bytes, 140), smallestBlock());
    read(bytes);
    EXPECT_EQ(next(140).state, BlockState::closed);
    EXPECT_EQ(previous(bytes.size()).state, BlockState::closed);
    EXPECT_EQ(cursor.block.start, 140);
}

TEST_F(BlockCursors, LengthsThatDisagreeAreDamage) {
    const TableMap places = map(8);
    const std::uint64_t right = places.blockStarts[1] - places.blockStarts[0];
    for (const std::size_t word : {places.blockStarts[0], places.blockStarts[1] - 8}) {
        for (const std::int64_t off : {-1, 1, 8, -8}) {
            Bytes bytes = closed(8);
            putU64(&bytes, word, right + static_cast<std::uint64_t>(off));
            read(bytes);
            expectDamaged(next(places.blockStarts[0]), HEADER_CORRUPTED_ERROR,
                          "the word at " + std::to_string(word) + " off by " + std::to_string(off));
        }
    }
}

TEST_F(BlockCursors, ABlockWhoseFooterIsInconsistentIsDamagedInTheSameWay) {
    shape.numericNames = {"OrderQty"};
    const TableMap places = map(8);
    Bytes bytes = closed(8);
    bytes[places.frame(4).end + 36] = 3;
    read(bytes);
    expectDamaged(next(places.blockStarts[0]), CONSISTENCY_ERROR, "an unknown numeric type, forward");
    expectDamaged(previous(places.blockStarts[1]), CONSISTENCY_ERROR, "an unknown numeric type, backward");
}

TEST_F(BlockCursors, ARefusedReadIsAReadError) {
    read(closed(6));
    for (int n = 1; n <= 2; ++n) {
        FaultPlatform platform;
        platform.failNth(FileCall::readAt, n, EIO);
        EXPECT_EQ(tryNext(map(6).blockStarts[0]), FILE_READ_ERROR) << "read " << n;
    }
    for (int n = 1; n <= 2; ++n) {
        FaultPlatform platform;
        platform.failNth(FileCall::readAt, n, EIO);
        EXPECT_EQ(tryNext(map(6).openBlockStart, OpenBlocks::scanned), FILE_READ_ERROR) << "read " << n;
    }
}

TEST_F(BlockCursors, ThePreviousBlockIsFoundByItsTrailingLength) {
    const TableMap places = map(10);
    read(closed(10));
    startAt(places.openBlockStart);
    ASSERT_EQ(blockCursor_previous(&cursor, file), NO_ERROR);
    EXPECT_EQ(cursor.block.start, static_cast<std::int64_t>(places.blockStarts[1]));
    ASSERT_EQ(blockCursor_previous(&cursor, file), NO_ERROR);
    EXPECT_EQ(cursor.block.start, static_cast<std::int64_t>(places.blockStarts[0]));
    EXPECT_EQ(cursor.block.state, BlockState::closed);
    EXPECT_EQ(reader->summary.maximum.seqNum, 4);
}

TEST_F(BlockCursors, AWalkForwardReadsEachClosedBlockOnce) {
    const TableMap places = map(12);
    read(closed(12));
    ASSERT_EQ(next(places.blockStarts[0]).state, BlockState::closed);
    FaultPlatform platform;
    ASSERT_EQ(blockCursor_next(&cursor, file), NO_ERROR);
    EXPECT_EQ(reader->summary.minimum.seqNum, 5);
    ASSERT_EQ(blockCursor_next(&cursor, file), NO_ERROR);
    EXPECT_EQ(reader->summary.minimum.seqNum, 9);
    EXPECT_EQ(platform.sequence(), "readAt readAt");
    EXPECT_EQ(cursor.block.state, BlockState::closed);
    EXPECT_EQ(cursor.position, static_cast<std::int64_t>(places.dataEnd));
}

TEST_F(BlockCursors, AWalkBackwardReadsEachClosedBlockTwice) {
    const TableMap places = map(12);
    read(closed(12));
    startAt(places.dataEnd);
    FaultPlatform platform;
    ASSERT_EQ(blockCursor_previous(&cursor, file), NO_ERROR);
    ASSERT_EQ(blockCursor_previous(&cursor, file), NO_ERROR);
    EXPECT_EQ(reader->summary.minimum.seqNum, 5);
    EXPECT_EQ(platform.sequence(), "readAt readAt readAt readAt");
}

TEST_F(BlockCursors, ALengthWordReadAheadThatNoLongerHoldsIsReadAgain) {
    const TableMap places = map(12);
    read(closed(12));
    ASSERT_EQ(next(places.blockStarts[0]).state, BlockState::closed);
    // Another process has dropped the table and written larger messages since.
    Bytes bytes = closed(12);
    putU64(&bytes, places.blockStarts[1], 0);
    bytes.resize(places.frame(6).end);
    place(bytes);
    const Block& block = next(places.blockStarts[1], OpenBlocks::scanned);
    EXPECT_EQ(block.state, BlockState::open);
    EXPECT_EQ(block.messageCount, 2);
}

TEST_F(BlockCursors, AnImpossibleTrailingLengthIsDamageAndNoEndlessWalk) {
    const TableMap places = map(8);
    const std::size_t end = places.blockStarts[1];
    for (const std::uint64_t length :
         {std::uint64_t{0}, std::uint64_t{1}, smallestBlock() - 1, std::uint64_t{end - places.headerSize + 1},
          std::uint64_t{end}, std::uint64_t{1} << 32, std::uint64_t{1} << 63, ~std::uint64_t{0}}) {
        Bytes bytes = closed(8);
        putU64(&bytes, end - 8, length);
        read(bytes);
        expectDamaged(previous(end), HEADER_CORRUPTED_ERROR, "length " + std::to_string(length));
        EXPECT_EQ(mfr_loadPreviousFooter(reader.get(), file, static_cast<std::int64_t>(end)), HEADER_CORRUPTED_ERROR)
            << "length " << length;
    }
}

TEST_F(BlockCursors, BehindTheHeaderThereIsNoPreviousFooter) {
    read(closed(6));
    for (const std::int64_t end : {0, 1, 139, 140}) {
        reader->summary.staticIndexes.lastUniform = 99;
        EXPECT_EQ(mfr_loadPreviousFooter(reader.get(), file, end), NO_ERROR);
        EXPECT_EQ(reader->summary.staticIndexes, mthStaticIndexes{}) << "lastBlockEnd " << end;
    }
}

TEST_F(BlockCursors, ThePreviousFooterGivesItsStaticIndexes) {
    read(closed(10));
    ASSERT_EQ(mfr_loadPreviousFooter(reader.get(), file, static_cast<std::int64_t>(map(10).openBlockStart)), NO_ERROR);
    EXPECT_EQ(reader->summary.staticIndexes.lastUniform, 8);
    EXPECT_EQ(reader->summary.staticIndexes.connMsgIds[APP_TO], 8);
}

TEST_F(BlockCursors, ThePreviousFooterOfAPlaceThatNoBlockEndsAtIsACorruptedHeader) {
    const TableMap places = map(10);
    read(closed(10));
    for (const std::size_t end : {places.openBlockStart - 1, places.openBlockStart + 1, places.openBlockStart + 8,
                                  places.frame(6).end, places.dataEnd, places.dataEnd + 100}) {
        EXPECT_EQ(mfr_loadPreviousFooter(reader.get(), file, static_cast<std::int64_t>(end)), HEADER_CORRUPTED_ERROR)
            << "at " << end;
    }
}

TEST_F(BlockCursors, TheOpenBlockIsReadFrameByFrame) {
    read(closed(7));
    const Block& block = loadOpen(map(7).openBlockStart);
    EXPECT_EQ(block.state, BlockState::open);
    EXPECT_EQ(block.messageCount, 3);
    EXPECT_EQ(reader->summary.staticIndexes.lastUniform, 7);
}

TEST_F(BlockCursors, AnOpenBlockThatHasBeenClosedMeanwhileIsReadFromItsFooter) {
    read(closed(8));
    const Block& block = loadOpen(map(8).blockStarts[1]);
    EXPECT_EQ(block.state, BlockState::closed);
    EXPECT_EQ(block.messageCount, 4);
    EXPECT_EQ(reader->summary.staticIndexes.lastUniform, 8);
}

TEST_F(BlockCursors, AnOpenBlockWhoseLengthReachesBehindTheEndIsReadFrameByFrame) {
    const TableMap places = map(8);
    read(cutAt(closed(8), places.dataEnd - 1));
    const Block& block = loadOpen(places.blockStarts[1]);
    EXPECT_EQ(block.state, BlockState::open);
    EXPECT_EQ(block.messageCount, 4);
    EXPECT_EQ(reader->summary.staticIndexes.lastUniform, 8);
}

TEST_F(BlockCursors, WhereNothingStandsIsAnOpenBlockWithoutMessages) {
    read(closed(8));
    reader->summary.messageCount = 3;
    const Block& block = loadOpen(map(8).dataEnd);
    EXPECT_FALSE(block_isClosed(block));
    EXPECT_EQ(block.messageCount, 0);
    EXPECT_EQ(reader->summary.messageCount, 0);
}

TEST_F(BlockCursors, BytesThatAnotherProcessWroteSinceAreSeen) {
    const TableMap places = map(8);
    const Bytes whole = closed(8);
    read(cutAt(whole, places.frame(6).end));
    EXPECT_EQ(loadOpen(places.blockStarts[1]).messageCount, 2);
    appendFile(path(), slice(whole, places.frame(6).end, places.frame(7).end));
    EXPECT_EQ(loadOpen(places.blockStarts[1]).messageCount, 3) << "the appended frame";
    appendFile(path(), slice(whole, places.frame(7).end, whole.size()));
    Bytes word(8, 0);
    putU64(&word, 0, places.dataEnd - places.blockStarts[1]);
    patchFile(path(), places.blockStarts[1], word);
    EXPECT_EQ(next(places.blockStarts[1]).state, BlockState::closed) << "the patched length word and the footer";
}

TEST_F(BlockCursors, AnOpenBlockThatWasClosedSinceItWasReadIsClosedAtTheSecondLook) {
    const TableMap places = map(8);
    const Bytes whole = closed(8);
    Bytes before = cutAt(whole, places.frame(7).end);
    putU64(&before, places.blockStarts[1], 0);
    read(before);
    EXPECT_EQ(next(places.blockStarts[1]).state, BlockState::open);
    place(whole);
    ASSERT_EQ(blockCursor_refresh(&cursor, file), NO_ERROR);
    EXPECT_EQ(cursor.block.state, BlockState::closed);
    EXPECT_EQ(cursor.block.messageCount, 4);
    EXPECT_EQ(cursor.position, static_cast<std::int64_t>(places.dataEnd));
}

TEST_F(BlockCursors, AnOpenBlockOfWhichTheLengthWordIsLeftIsEmptyAtTheSecondLookAndWithoutTheWordItIsGone) {
    const TableMap places = map(7);
    const Bytes whole = unclosedImage(shape, simpleMessages(1, 7, shape));
    read(whole);
    ASSERT_EQ(next(places.openBlockStart, OpenBlocks::scanned).messageCount, 3);
    place(cutAt(whole, places.openBlockStart + 8));
    ASSERT_EQ(blockCursor_refresh(&cursor, file), NO_ERROR);
    EXPECT_EQ(cursor.block.state, BlockState::open);
    EXPECT_EQ(cursor.block.messageCount, 0);
    EXPECT_EQ(cursor.block.framesEnd, static_cast<std::int64_t>(places.openBlockStart) + 8);
    place(cutAt(whole, places.openBlockStart + 7));
    ASSERT_EQ(blockCursor_refresh(&cursor, file), NO_ERROR);
    EXPECT_EQ(cursor.block.state, BlockState::gone);
}

}  // namespace
}  // namespace tabulo::internal::test
