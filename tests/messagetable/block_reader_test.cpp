#include "messagetable/block_reader.h"

#include <gtest/gtest.h>

#include <cerrno>

#include "tests/messagetable/table_image.h"
#include "tests/support/fault_platform.h"

namespace tabulo::internal::test {
namespace {

class BlockReader : public TableImageTest {
  protected:
    // Puts a file there and opens it read-only with a frame reader of its own.
    void read(const Bytes& bytes) {
        reader.reset();
        table.reset();
        place(bytes);
        open(OpenMode::read);
        ASSERT_NE(table, nullptr);
        reader.reset(mfr_createReader(table->storage.get(), table->header.layout));
        blockSummary_reset(&reader->summary, false);
        file = tableStorage_master(table->storage.get());
    }
    ErrorCode footer(std::size_t start, bool scanOpen = false) {
        return mfr_readBlockFooter(reader.get(), file, static_cast<std::int64_t>(start), scanOpen, &block);
    }
    ErrorCode previous(std::size_t blockEnd) {
        return mfr_readPreviousBlock(reader.get(), file, static_cast<std::int64_t>(blockEnd), false, &block);
    }
    Bytes closed(std::int32_t last) const { return closedImage(shape, simpleMessages(1, last, shape)); }
    TableMap map(std::int32_t last) const { return mapOf(shape, simpleMessages(1, last, shape)); }
    // The smallest length of a closed block.
    std::uint64_t smallestBlock() const {
        const std::size_t smallestFrame = frameOf(bareMessage(1, shape)).size();
        return 8 + 4 * smallestFrame + map(0).footerSize;
    }

    BlockReaderPtr reader;
    TableFile* file = nullptr;
    BlockView block;
};

TEST_F(BlockReader, AClosedBlockIsReadFromItsFooter) {
    shape.numericNames = {"OrderQty"};
    const TableMap places = map(8);
    read(closed(8));
    FaultPlatform platform;
    ASSERT_EQ(footer(places.blockStarts[1]), NO_ERROR);
    EXPECT_TRUE(block.closed);
    EXPECT_EQ(block.messageCount, 4);
    EXPECT_EQ(block.start, static_cast<std::int64_t>(places.blockStarts[1]));
    EXPECT_EQ(block.frameBytes, static_cast<std::int64_t>(places.frame(8).end - places.frame(5).start));
    EXPECT_EQ(blockView_framesStart(block), static_cast<std::int64_t>(places.frame(5).start));
    EXPECT_EQ(blockView_framesEnd(block), static_cast<std::int64_t>(places.frame(8).end));
    EXPECT_EQ(blockView_next(block, reader.get()), static_cast<std::int64_t>(places.dataEnd));
    const BlockSummary& summary = reader->summary;
    EXPECT_EQ(summary.minimum.seqNum, 5);
    EXPECT_EQ(summary.maximum.seqNum, 8);
    EXPECT_EQ(summary.minimum.timestamp, 5000);
    EXPECT_EQ(summary.maximum.connMsgIds[APP_TO], 8);
    EXPECT_EQ(summary.minimum.connMsgIds[RESENT], 0);
    EXPECT_EQ(summary.maximum.connMsgIds[RESENT], -1);
    EXPECT_EQ(summary.minimum.numericValues[0].longValue, 500);
    EXPECT_EQ(summary.maximum.numericValues[0].longValue, 800);
    EXPECT_EQ(summary.staticIndexes.lastUniform, 8);
    ASSERT_EQ(summary.filters.size(), 2U);
    EXPECT_TRUE(blockSummary_mayContain(summary, 1, "f1-7"));
    EXPECT_FALSE(blockSummary_mayContain(summary, 1, "f1-4")) << "a text of the block before";
    EXPECT_EQ(platform.count(FileCall::readAt), 2) << "the length word and the footer decide";
}

TEST_F(BlockReader, FewerThanEightBytesAreNoBlock) {
    const TableMap places = map(4);
    for (std::size_t count = 0; count < 8; ++count) {
        read(concatenated(closed(4), Bytes(count, 0xff)));
        EXPECT_EQ(footer(places.dataEnd, true), NO_DATA_ERROR) << count << " bytes";
    }
    EXPECT_EQ(footer(places.dataEnd + 1000, true), NO_DATA_ERROR);
}

TEST_F(BlockReader, AnOpenBlockIsReadOnlyWhenItMayBeScanned) {
    const TableMap places = map(7);
    read(closed(7));
    EXPECT_EQ(footer(places.openBlockStart, false), NO_DATA_ERROR);
    ASSERT_EQ(footer(places.openBlockStart, true), NO_ERROR);
    EXPECT_FALSE(block.closed);
    EXPECT_EQ(block.messageCount, 3);
    EXPECT_EQ(block.frameBytes, static_cast<std::int64_t>(places.dataEnd - places.frame(5).start));
    EXPECT_EQ(block.scanEnd, NO_DATA_ERROR);
    EXPECT_EQ(reader->summary.minimum.uniformId, 5);
    EXPECT_EQ(reader->summary.maximum.uniformId, 7);
}

TEST_F(BlockReader, AScanGoesOnFromTheStaticIndexesThatItFinds) {
    read(closed(7));
    reader->summary.staticIndexes.connMsgIds[RESENT] = 2000000000;
    reader->summary.messageCount = 3;
    ASSERT_EQ(footer(map(7).openBlockStart, true), NO_ERROR);
    EXPECT_EQ(reader->summary.staticIndexes.connMsgIds[RESENT], 2000000000);
    EXPECT_EQ(reader->summary.staticIndexes.connMsgIds[APP_TO], 7);
    EXPECT_EQ(reader->summary.messageCount, 3) << "the summary was to be emptied before";
}

TEST_F(BlockReader, AFullBlockWithoutALengthWordIsScannedUpToItsLastMessage) {
    Bytes bytes = closed(8);
    putU64(&bytes, map(8).blockStarts[0], 0);
    read(bytes);
    ASSERT_EQ(footer(map(8).blockStarts[0], true), NO_ERROR);
    EXPECT_FALSE(block.closed);
    EXPECT_EQ(block.messageCount, 4) << "the footer and the next block are no messages";
    EXPECT_EQ(block.scanEnd, NO_ERROR);
    EXPECT_EQ(blockView_next(block, reader.get()), static_cast<std::int64_t>(map(8).blockStarts[1]));
}

TEST_F(BlockReader, AScanEndsAtWhatIsNoFrame) {
    const TableMap places = map(7);
    const Bytes whole = closed(7);
    read(cutAt(whole, places.dataEnd - 1));
    ASSERT_EQ(footer(places.openBlockStart, true), NO_ERROR);
    EXPECT_EQ(block.messageCount, 2);
    EXPECT_EQ(block.scanEnd, NO_DATA_ERROR) << "a cut frame is the end of the data";
    Bytes damaged = whole;
    putU32(&damaged, places.frame(6).end - 4, 1);
    read(damaged);
    ASSERT_EQ(footer(places.openBlockStart, true), NO_ERROR);
    EXPECT_EQ(block.messageCount, 1);
    EXPECT_EQ(block.scanEnd, CONSISTENCY_ERROR) << "a frame whose ends disagree is damage";
}

TEST_F(BlockReader, ScansStopAtTheirEndAndNeverReadBehindIt) {
    const TableMap places = map(3);
    read(closed(3));
    ErrorCode scanEnd = NO_ERROR;
    const auto start = static_cast<std::int64_t>(places.frame(1).start);
    const auto end = static_cast<std::int64_t>(places.frame(2).end + 10);
    FaultPlatform platform;
    ASSERT_EQ(mfr_scanFrames(reader.get(), file, start, end, &scanEnd), NO_ERROR);
    EXPECT_EQ(reader->summary.messageCount, 2);
    EXPECT_EQ(scanEnd, NO_DATA_ERROR);
    for (const RecordedCall& call : platform.calls(FileCall::readAt)) {
        EXPECT_LE(call.offset + call.length, end);
    }
}

TEST_F(BlockReader, AnImpossibleBlockLengthIsACorruptedHeader) {
    const std::size_t start = map(8).blockStarts[0];
    const Bytes whole = closed(8);
    const std::uint64_t available = whole.size() - start;
    for (const std::uint64_t length :
         {std::uint64_t{1}, std::uint64_t{7}, std::uint64_t{8}, std::uint64_t{map(0).footerSize}, smallestBlock() - 1,
          available + 1, available + 1'000'000, std::uint64_t{1} << 31, std::uint64_t{1} << 62, std::uint64_t{1} << 63,
          ~std::uint64_t{0}, ~std::uint64_t{0} - start}) {
        Bytes bytes = whole;
        putU64(&bytes, start, length);
        read(bytes);
        EXPECT_EQ(footer(start), HEADER_CORRUPTED_ERROR) << "length " << length;
        EXPECT_EQ(footer(start, true), HEADER_CORRUPTED_ERROR) << "length " << length << " may be scanned";
    }
}

TEST_F(BlockReader, TheSmallestBlockThereCanBeIsRead) {
    std::vector<Message> bare;
    for (std::int32_t n = 1; n <= 4; ++n) {
        bare.push_back(bareMessage(n, shape));
    }
    const Bytes bytes = closedImage(shape, bare);
    ASSERT_EQ(u64At(bytes, 140), smallestBlock());
    read(bytes);
    EXPECT_EQ(footer(140), NO_ERROR);
    EXPECT_EQ(previous(bytes.size()), NO_ERROR);
    EXPECT_EQ(block.start, 140);
}

TEST_F(BlockReader, LengthsThatDisagreeAreACorruptedHeader) {
    const TableMap places = map(8);
    for (const std::int64_t off : {-1, 1, 8, -8}) {
        Bytes bytes = closed(8);
        putU64(&bytes, places.blockStarts[0],
               places.blockStarts[1] - places.blockStarts[0] + static_cast<std::uint64_t>(off));
        read(bytes);
        EXPECT_EQ(footer(places.blockStarts[0]), HEADER_CORRUPTED_ERROR) << "leading length off by " << off;
        bytes = closed(8);
        putU64(&bytes, places.blockStarts[1] - 8,
               places.blockStarts[1] - places.blockStarts[0] + static_cast<std::uint64_t>(off));
        read(bytes);
        EXPECT_EQ(footer(places.blockStarts[0]), HEADER_CORRUPTED_ERROR) << "trailing length off by " << off;
    }
}

TEST_F(BlockReader, AFilterOfAnotherSizeIsACorruptedHeader) {
    const TableMap places = map(4);
    const std::size_t firstFilter = places.frame(4).end + 72;
    ASSERT_EQ(u32At(closed(4), firstFilter), 10000U);
    for (const std::size_t filter : {firstFilter, firstFilter + 1256}) {
        for (const std::uint32_t bits : {0U, 9999U, 10001U, 10008U, 20000U, 0x7fffffffU, 0xffffffffU}) {
            Bytes bytes = closed(4);
            putU32(&bytes, filter, bits);
            read(bytes);
            EXPECT_EQ(footer(140), HEADER_CORRUPTED_ERROR) << bits << " bits";
        }
    }
}

TEST_F(BlockReader, AnUnknownNumericTypeInAFooterIsInconsistent) {
    shape.numericNames = {"OrderQty"};
    const TableMap places = map(4);
    for (const std::size_t record : {std::size_t{0}, std::size_t{45}}) {
        Bytes bytes = closed(4);
        bytes[places.frame(4).end + record + 36] = 3;
        read(bytes);
        EXPECT_EQ(footer(places.headerSize), CONSISTENCY_ERROR) << "in the record at " << record;
    }
}

TEST_F(BlockReader, ADamagedFooterLeavesTheStaticIndexesAsTheyWere) {
    Bytes bytes = closed(4);
    bytes.back() ^= 0x01;
    read(bytes);
    reader->summary.staticIndexes.lastUniform = 99;
    EXPECT_EQ(footer(140), HEADER_CORRUPTED_ERROR);
    EXPECT_EQ(reader->summary.staticIndexes.lastUniform, 99);
}

TEST_F(BlockReader, ARefusedReadIsAReadError) {
    read(closed(6));
    for (int n = 1; n <= 2; ++n) {
        FaultPlatform platform;
        platform.failNth(FileCall::readAt, n, EIO);
        EXPECT_EQ(footer(map(6).blockStarts[0]), FILE_READ_ERROR) << "read " << n;
    }
    for (int n = 1; n <= 2; ++n) {
        FaultPlatform platform;
        platform.failNth(FileCall::readAt, n, EIO);
        EXPECT_EQ(footer(map(6).openBlockStart, true), FILE_READ_ERROR) << "read " << n;
    }
}

TEST_F(BlockReader, ThePreviousBlockIsFoundByItsTrailingLength) {
    const TableMap places = map(10);
    read(closed(10));
    ASSERT_EQ(previous(places.openBlockStart), NO_ERROR);
    EXPECT_EQ(block.start, static_cast<std::int64_t>(places.blockStarts[1]));
    ASSERT_EQ(previous(places.blockStarts[1]), NO_ERROR);
    EXPECT_EQ(block.start, static_cast<std::int64_t>(places.blockStarts[0]));
    EXPECT_TRUE(block.closed);
    EXPECT_EQ(reader->summary.maximum.seqNum, 4);
}

TEST_F(BlockReader, AWalkForwardReadsEachClosedBlockOnce) {
    const TableMap places = map(12);
    read(closed(12));
    ASSERT_EQ(footer(places.blockStarts[0]), NO_ERROR);
    FaultPlatform platform;
    ASSERT_EQ(footer(places.blockStarts[1]), NO_ERROR);
    EXPECT_EQ(reader->summary.minimum.seqNum, 5);
    ASSERT_EQ(footer(places.blockStarts[2]), NO_ERROR);
    EXPECT_EQ(reader->summary.minimum.seqNum, 9);
    EXPECT_EQ(platform.sequence(), "readAt readAt");
}

TEST_F(BlockReader, AWalkBackwardReadsEachClosedBlockTwice) {
    const TableMap places = map(12);
    read(closed(12));
    FaultPlatform platform;
    ASSERT_EQ(previous(places.dataEnd), NO_ERROR);
    ASSERT_EQ(previous(places.blockStarts[2]), NO_ERROR);
    EXPECT_EQ(reader->summary.minimum.seqNum, 5);
    EXPECT_EQ(platform.sequence(), "readAt readAt readAt readAt");
}

TEST_F(BlockReader, ALengthWordReadAheadThatNoLongerHoldsIsReadAgain) {
    const TableMap places = map(12);
    read(closed(12));
    ASSERT_EQ(footer(places.blockStarts[0]), NO_ERROR);
    // Another process has dropped the table and written larger messages since.
    Bytes bytes = closed(12);
    putU64(&bytes, places.blockStarts[1], 0);
    bytes.resize(places.frame(6).end);
    place(bytes);
    EXPECT_EQ(footer(places.blockStarts[1], true), NO_ERROR);
    EXPECT_FALSE(block.closed);
    EXPECT_EQ(block.messageCount, 2);
}

TEST_F(BlockReader, AnImpossibleTrailingLengthIsACorruptedHeaderAndNoEndlessWalk) {
    const TableMap places = map(8);
    const std::size_t end = places.blockStarts[1];
    for (const std::uint64_t length :
         {std::uint64_t{0}, std::uint64_t{1}, smallestBlock() - 1, std::uint64_t{end - places.headerSize + 1},
          std::uint64_t{end}, std::uint64_t{1} << 32, std::uint64_t{1} << 63, ~std::uint64_t{0}}) {
        Bytes bytes = closed(8);
        putU64(&bytes, end - 8, length);
        read(bytes);
        EXPECT_EQ(previous(end), HEADER_CORRUPTED_ERROR) << "length " << length;
        EXPECT_EQ(mfr_loadPreviousFooter(reader.get(), file, static_cast<std::int64_t>(end)), HEADER_CORRUPTED_ERROR)
            << "length " << length;
    }
}

TEST_F(BlockReader, BehindTheHeaderThereIsNoPreviousFooter) {
    read(closed(6));
    for (const std::int64_t end : {0, 1, 139, 140}) {
        reader->summary.staticIndexes.lastUniform = 99;
        EXPECT_EQ(mfr_loadPreviousFooter(reader.get(), file, end), NO_ERROR);
        EXPECT_EQ(reader->summary.staticIndexes, mthStaticIndexes{}) << "lastBlockEnd " << end;
    }
}

TEST_F(BlockReader, ThePreviousFooterGivesItsStaticIndexes) {
    read(closed(10));
    ASSERT_EQ(mfr_loadPreviousFooter(reader.get(), file, static_cast<std::int64_t>(map(10).openBlockStart)), NO_ERROR);
    EXPECT_EQ(reader->summary.staticIndexes.lastUniform, 8);
    EXPECT_EQ(reader->summary.staticIndexes.connMsgIds[APP_TO], 8);
}

TEST_F(BlockReader, ThePreviousFooterOfAPlaceThatNoBlockEndsAtIsACorruptedHeader) {
    const TableMap places = map(10);
    read(closed(10));
    for (const std::size_t end : {places.openBlockStart - 1, places.openBlockStart + 1, places.openBlockStart + 8,
                                  places.frame(6).end, places.dataEnd, places.dataEnd + 100}) {
        EXPECT_EQ(mfr_loadPreviousFooter(reader.get(), file, static_cast<std::int64_t>(end)), HEADER_CORRUPTED_ERROR)
            << "at " << end;
    }
}

TEST_F(BlockReader, TheOpenBlockIsReadFrameByFrame) {
    const TableMap places = map(7);
    read(closed(7));
    ASSERT_EQ(mfr_loadOpenBlock(reader.get(), file, static_cast<std::int64_t>(places.openBlockStart), &block),
              NO_ERROR);
    EXPECT_FALSE(block.closed);
    EXPECT_EQ(block.messageCount, 3);
    EXPECT_EQ(reader->summary.staticIndexes.lastUniform, 7);
}

TEST_F(BlockReader, AnOpenBlockThatHasBeenClosedMeanwhileIsReadFromItsFooter) {
    const TableMap places = map(8);
    read(closed(8));
    ASSERT_EQ(mfr_loadOpenBlock(reader.get(), file, static_cast<std::int64_t>(places.blockStarts[1]), &block),
              NO_ERROR);
    EXPECT_TRUE(block.closed);
    EXPECT_EQ(block.messageCount, 4);
    EXPECT_EQ(reader->summary.staticIndexes.lastUniform, 8);
}

TEST_F(BlockReader, AnOpenBlockWhoseLengthReachesBehindTheEndIsReadFrameByFrame) {
    const TableMap places = map(8);
    read(cutAt(closed(8), places.dataEnd - 1));
    ASSERT_EQ(mfr_loadOpenBlock(reader.get(), file, static_cast<std::int64_t>(places.blockStarts[1]), &block),
              NO_ERROR);
    EXPECT_FALSE(block.closed);
    EXPECT_EQ(block.messageCount, 4);
    EXPECT_EQ(reader->summary.staticIndexes.lastUniform, 8);
}

TEST_F(BlockReader, WhereNothingStandsIsAnOpenBlockWithoutMessages) {
    read(closed(8));
    reader->summary.messageCount = 3;
    ASSERT_EQ(mfr_loadOpenBlock(reader.get(), file, static_cast<std::int64_t>(map(8).dataEnd), &block), NO_ERROR);
    EXPECT_FALSE(block.closed);
    EXPECT_EQ(block.messageCount, 0);
    EXPECT_EQ(reader->summary.messageCount, 0);
}

TEST_F(BlockReader, BytesThatAnotherProcessWroteSinceAreSeen) {
    const TableMap places = map(8);
    const Bytes whole = closed(8);
    read(cutAt(whole, places.frame(6).end));
    ASSERT_EQ(mfr_loadOpenBlock(reader.get(), file, static_cast<std::int64_t>(places.blockStarts[1]), &block),
              NO_ERROR);
    EXPECT_EQ(block.messageCount, 2);
    appendFile(path(), slice(whole, places.frame(6).end, places.frame(7).end));
    ASSERT_EQ(mfr_loadOpenBlock(reader.get(), file, static_cast<std::int64_t>(places.blockStarts[1]), &block),
              NO_ERROR);
    EXPECT_EQ(block.messageCount, 3) << "the appended frame";
    appendFile(path(), slice(whole, places.frame(7).end, whole.size()));
    Bytes word(8, 0);
    putU64(&word, 0, places.dataEnd - places.blockStarts[1]);
    patchFile(path(), places.blockStarts[1], word);
    ASSERT_EQ(footer(places.blockStarts[1]), NO_ERROR);
    EXPECT_TRUE(block.closed) << "the patched length word and the footer";
}

}  // namespace
}  // namespace tabulo::internal::test
