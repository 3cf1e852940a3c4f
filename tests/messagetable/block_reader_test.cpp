#include "messagetable/block_reader.h"

#include <gtest/gtest.h>

#include <cerrno>

#include "messagetable/frame_cursor.h"
#include "tests/messagetable/block_reader_fixture.h"
#include "tests/support/fault_platform.h"

namespace tabulo::internal::test {
namespace {

class BlockReaders : public BlockReaderTest {
  protected:
    // The footer of the block at `start`, whose length is what its length word says.
    ErrorCode footer(std::size_t start) {
        const auto offset = static_cast<std::int64_t>(start);
        const ErrorCode code = blockReader_readWord(file, offset, &length);
        return code == NO_ERROR ? blockReader_readFooter(reader.get(), file, offset, length) : code;
    }
    // The footer in front of `end`; its length is set, and the footer is not taken.
    ErrorCode footerBefore(std::size_t end) {
        return blockReader_readFooterBefore(reader.get(), file, static_cast<std::int64_t>(end), &length);
    }
    // Scans all frames between these offsets.
    void scan(std::size_t framesStart, std::size_t end) {
        ASSERT_EQ(blockReader_scan(reader.get(), file, static_cast<std::int64_t>(framesStart),
                                   static_cast<std::int64_t>(end), &scanEnd),
                  NO_ERROR);
    }
    // Goes on with a scan up to the file's present end.
    ErrorCode continueScan(std::size_t framesStart) {
        return blockReader_continueScan(reader.get(), file, static_cast<std::int64_t>(framesStart),
                                        static_cast<std::int64_t>(fileBytes().size()), &scanEnd, &same);
    }

    std::uint64_t length = 0;
    ErrorCode scanEnd = NO_ERROR;
    bool same = false;
};

TEST_F(BlockReaders, AFooterGivesTheBlocksSummary) {
    shape.numericNames = {"OrderQty"};
    const TableMap places = map(8);
    read(closed(8));
    FaultPlatform platform;
    ASSERT_EQ(footer(places.blockStarts[1]), NO_ERROR);
    const BlockSummary& summary = reader->summary;
    EXPECT_EQ(summary.messageCount, 4);
    EXPECT_EQ(summary.frameBytes, places.frame(8).end - places.frame(5).start);
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

TEST_F(BlockReaders, TheFiltersOfAFooterStandWhileFramesAreRead) {
    const TableMap places = map(8);
    read(closed(8));
    ASSERT_EQ(footer(places.blockStarts[1]), NO_ERROR);
    FrameCursor frames = frameCursor_forward(reader.get(), file, static_cast<std::int64_t>(places.frame(1).start),
                                             static_cast<std::int64_t>(places.frame(4).end), BLOCK_PIECE_SIZE);
    DecodedMessage message;
    ASSERT_EQ(frameCursor_next(&frames, &message), NO_ERROR);
    ASSERT_EQ(message.metadata.uniformId, 1);
    EXPECT_TRUE(blockSummary_mayContain(reader->summary, 1, "f1-7"));
    EXPECT_FALSE(blockSummary_mayContain(reader->summary, 1, "f1-4"));
}

TEST_F(BlockReaders, TheLengthWordBehindAFooterIsReadAlong) {
    const TableMap places = map(8);
    read(closed(8));
    ASSERT_EQ(footer(places.blockStarts[0]), NO_ERROR);
    EXPECT_EQ(reader->nextBlockStart, static_cast<std::int64_t>(places.blockStarts[1]));
    EXPECT_EQ(reader->nextBlockLength, places.dataEnd - places.blockStarts[1]);
    ASSERT_EQ(footer(places.blockStarts[1]), NO_ERROR);
    EXPECT_EQ(reader->nextBlockStart, 0) << "behind the last block there is none";
}

TEST_F(BlockReaders, FewerThanEightBytesAreNoLengthWord) {
    const TableMap places = map(4);
    for (std::size_t count = 0; count < 8; ++count) {
        read(concatenated(closed(4), Bytes(count, 0xff)));
        EXPECT_EQ(blockReader_readWord(file, static_cast<std::int64_t>(places.dataEnd), &length), NO_DATA_ERROR)
            << count << " bytes";
    }
    EXPECT_EQ(blockReader_readWord(file, static_cast<std::int64_t>(places.dataEnd) + 1000, &length), NO_DATA_ERROR);
}

TEST_F(BlockReaders, AScanGoesOnFromTheStaticIndexesThatItFinds) {
    const TableMap places = map(7);
    read(closed(7));
    reader->summary.staticIndexes.connMsgIds[RESENT] = 2000000000;
    reader->summary.messageCount = 3;
    scan(places.frame(5).start, places.dataEnd);
    EXPECT_EQ(reader->summary.staticIndexes.connMsgIds[RESENT], 2000000000);
    EXPECT_EQ(reader->summary.staticIndexes.connMsgIds[APP_TO], 7);
    EXPECT_EQ(reader->summary.messageCount, 3) << "the summary was to be emptied before";
    EXPECT_EQ(scanEnd, NO_DATA_ERROR);
}

TEST_F(BlockReaders, AScanStopsAtTheLastMessageOfAFullBlock) {
    const TableMap places = map(8);
    read(closed(8));
    scan(places.frame(1).start, places.dataEnd);
    EXPECT_EQ(reader->summary.messageCount, 4) << "the footer and the next block are no messages";
    EXPECT_EQ(reader->summary.frameBytes, places.frame(4).end - places.frame(1).start);
    EXPECT_EQ(scanEnd, NO_ERROR);
}

TEST_F(BlockReaders, AScanEndsAtWhatIsNoFrame) {
    const TableMap places = map(7);
    const Bytes whole = closed(7);
    read(cutAt(whole, places.dataEnd - 1));
    scan(places.frame(5).start, places.dataEnd);
    EXPECT_EQ(reader->summary.messageCount, 2);
    EXPECT_EQ(scanEnd, NO_DATA_ERROR) << "a cut frame is the end of the data";
    Bytes damaged = whole;
    putU32(&damaged, places.frame(6).end - 4, 1);
    read(damaged);
    scan(places.frame(5).start, places.dataEnd);
    EXPECT_EQ(reader->summary.messageCount, 1);
    EXPECT_EQ(scanEnd, CONSISTENCY_ERROR) << "a frame whose ends disagree is damage";
}

TEST_F(BlockReaders, ScansStopAtTheirEndAndNeverReadBehindIt) {
    const TableMap places = map(3);
    read(closed(3));
    const std::size_t end = places.frame(2).end + 10;
    FaultPlatform platform;
    scan(places.frame(1).start, end);
    EXPECT_EQ(reader->summary.messageCount, 2);
    EXPECT_EQ(scanEnd, NO_DATA_ERROR);
    for (const RecordedCall& call : platform.calls(FileCall::readAt)) {
        EXPECT_LE(call.offset + call.length, static_cast<std::int64_t>(end));
    }
}

TEST_F(BlockReaders, AScanThatGoesOnAddsWhatWasAppended) {
    const TableMap places = map(8);
    const Bytes whole = closed(8);
    read(cutAt(whole, places.frame(6).end));
    scan(places.frame(5).start, places.frame(6).end);
    ASSERT_EQ(reader->summary.messageCount, 2);
    appendFile(path(), slice(whole, places.frame(6).end, places.frame(7).end));
    ASSERT_EQ(continueScan(places.frame(5).start), NO_ERROR);
    EXPECT_TRUE(same);
    EXPECT_EQ(reader->summary.messageCount, 3);
    EXPECT_EQ(reader->summary.maximum.uniformId, 7);
    EXPECT_EQ(scanEnd, NO_DATA_ERROR);
    appendFile(path(), slice(whole, places.frame(7).end, whole.size()));
    ASSERT_EQ(continueScan(places.frame(5).start), NO_ERROR);
    EXPECT_TRUE(same);
    EXPECT_EQ(reader->summary.messageCount, 4) << "the footer is no message";
    EXPECT_EQ(scanEnd, NO_ERROR);
}

TEST_F(BlockReaders, AScanDoesNotKeepTheMemoryOfALargeMessage) {
    constexpr std::int32_t MOST_KEPT = 1024 * 1024;
    std::vector<Message> messages = simpleMessages(1, 2, shape);
    messages[1].strings[0] = std::string(3'000'000, 'l') + '\0';
    const TableMap places = mapOf(shape, messages);
    const Bytes bytes = unclosedImage(shape, messages);
    read(bytes);
    scan(places.frame(1).start, bytes.size());
    ASSERT_EQ(reader->summary.messageCount, 2);
    EXPECT_LE(byteStream_capacity(reader->frames.get()), MOST_KEPT);
    ASSERT_EQ(continueScan(places.frame(1).start), NO_ERROR);
    EXPECT_TRUE(same);
    EXPECT_LE(byteStream_capacity(reader->frames.get()), MOST_KEPT) << "its last message is looked at again";
}

TEST_F(BlockReaders, AScanDoesNotGoOnWhereItsLastMessageIsNoLongerThere) {
    const TableMap places = map(7);
    Bytes other = closed(7);
    read(cutAt(other, places.frame(6).end));
    scan(places.frame(5).start, places.frame(6).end);
    other[places.frame(6).start + 4] ^= 0x40;  // another uniform id
    place(other);
    ASSERT_EQ(continueScan(places.frame(5).start), NO_ERROR);
    EXPECT_FALSE(same);
    EXPECT_EQ(reader->summary.messageCount, 2) << "nothing is added";
}

TEST_F(BlockReaders, AnImpossibleBlockLengthIsACorruptedHeader) {
    const std::size_t start = map(8).blockStarts[0];
    const Bytes whole = closed(8);
    read(whole);
    for (const std::uint64_t impossible : impossibleLengths(start, whole.size())) {
        EXPECT_FALSE(blockReader_isLength(*reader, impossible, static_cast<std::int64_t>(whole.size() - start)))
            << "length " << impossible;
        EXPECT_EQ(blockReader_readFooter(reader.get(), file, static_cast<std::int64_t>(start), impossible),
                  HEADER_CORRUPTED_ERROR)
            << "length " << impossible;
    }
}

TEST_F(BlockReaders, TheSmallestBlockThereCanBeIsALength) {
    std::vector<Message> bare;
    for (std::int32_t n = 1; n <= 4; ++n) {
        bare.push_back(bareMessage(n, shape));
    }
    const Bytes bytes = closedImage(shape, bare);
    ASSERT_EQ(u64At(bytes, 140), smallestBlock());
    read(bytes);
    const auto smallest = static_cast<std::int64_t>(smallestBlock());
    EXPECT_TRUE(blockReader_isLength(*reader, smallestBlock(), smallest));
    EXPECT_FALSE(blockReader_isLength(*reader, smallestBlock(), smallest - 1)) << "not all of it is there";
    EXPECT_FALSE(blockReader_isLength(*reader, smallestBlock() - 1, smallest));
    EXPECT_EQ(footer(140), NO_ERROR);
}

TEST_F(BlockReaders, LengthsThatDisagreeAreACorruptedHeader) {
    const TableMap places = map(8);
    const std::uint64_t right = places.blockStarts[1] - places.blockStarts[0];
    for (const std::int64_t off : {-1, 1, 8, -8}) {
        Bytes bytes = closed(8);
        putU64(&bytes, places.blockStarts[0], right + static_cast<std::uint64_t>(off));
        read(bytes);
        EXPECT_EQ(footer(places.blockStarts[0]), HEADER_CORRUPTED_ERROR) << "leading length off by " << off;
        bytes = closed(8);
        putU64(&bytes, places.blockStarts[1] - 8, right + static_cast<std::uint64_t>(off));
        read(bytes);
        EXPECT_EQ(footer(places.blockStarts[0]), HEADER_CORRUPTED_ERROR) << "trailing length off by " << off;
    }
}

TEST_F(BlockReaders, AFilterOfAnotherSizeIsACorruptedHeader) {
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

TEST_F(BlockReaders, AnUnknownNumericTypeInAFooterIsInconsistent) {
    shape.numericNames = {"OrderQty"};
    const TableMap places = map(4);
    for (const std::size_t record : {std::size_t{0}, std::size_t{45}}) {
        Bytes bytes = closed(4);
        bytes[places.frame(4).end + record + 36] = 3;
        read(bytes);
        EXPECT_EQ(footer(places.headerSize), CONSISTENCY_ERROR) << "in the record at " << record;
    }
}

TEST_F(BlockReaders, ADamagedFooterLeavesTheStaticIndexesAsTheyWere) {
    Bytes bytes = closed(4);
    bytes.back() ^= 0x01;
    read(bytes);
    reader->summary.staticIndexes.lastUniform = 99;
    EXPECT_EQ(footer(140), HEADER_CORRUPTED_ERROR);
    EXPECT_EQ(reader->summary.staticIndexes.lastUniform, 99);
}

TEST_F(BlockReaders, AFooterIsReadFromItsEndToo) {
    const TableMap places = map(8);
    read(closed(8));
    ASSERT_EQ(footerBefore(places.blockStarts[1]), NO_ERROR);
    EXPECT_EQ(length, places.blockStarts[1] - places.blockStarts[0]);
    EXPECT_EQ(blockReader_takeFooter(reader.get(), length - 1), HEADER_CORRUPTED_ERROR) << "another length";
    ASSERT_EQ(footerBefore(places.blockStarts[1]), NO_ERROR);
    ASSERT_EQ(blockReader_takeFooter(reader.get(), length), NO_ERROR);
    EXPECT_EQ(reader->summary.maximum.seqNum, 4);
    EXPECT_EQ(reader->nextBlockStart, 0) << "nothing is read along";
    EXPECT_EQ(footerBefore(places.dataEnd + 1), HEADER_CORRUPTED_ERROR) << "fewer bytes are there";
}

TEST_F(BlockReaders, ARefusedReadIsAReadError) {
    const TableMap places = map(6);
    read(closed(6));
    for (int n = 1; n <= 2; ++n) {
        FaultPlatform platform;
        platform.failNth(FileCall::readAt, n, EIO);
        EXPECT_EQ(footer(places.blockStarts[0]), FILE_READ_ERROR) << "read " << n;
    }
    FaultPlatform platform;
    platform.failAll(FileCall::readAt, EIO);
    EXPECT_EQ(footerBefore(places.blockStarts[1]), FILE_READ_ERROR);
    EXPECT_EQ(blockReader_scan(reader.get(), file, static_cast<std::int64_t>(places.frame(5).start),
                               static_cast<std::int64_t>(places.dataEnd), &scanEnd),
              FILE_READ_ERROR);
}

}  // namespace
}  // namespace tabulo::internal::test
