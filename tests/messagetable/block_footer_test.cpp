// The stored form of a block summary.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "messagetable/block_summary.h"
#include "tests/messagetable/block_summary_fixture.h"
#include "tests/messagetable/expected_bytes.h"

namespace tabulo::internal::test {
namespace {

TEST(BlockSummaryFooter, OfAnEmptyBlockIsItsRecordsFiltersAndIndexes) {
    const Summary empty(ONE_NUMBER);
    const Bytes absent(9);
    const Bytes expected = ExpectedBytes()
                               .i32(1)
                               .i32(1)
                               .i64(1)
                               .i32(0)
                               .i32(0)
                               .i32(0)
                               .i32(0)
                               .i32(0)
                               .append(absent)
                               .i32(0)
                               .i32(0)
                               .i64(0)
                               .i32(-1)
                               .i32(-1)
                               .i32(-1)
                               .i32(-1)
                               .i32(-1)
                               .append(absent)
                               .filter({})
                               .filter({})
                               .append(expectedEmptyIndexes())
                               .u64(0x0102030405060708)
                               .bytes();
    EXPECT_EQ(toHex(empty.footer(0x0102030405060708)), toHex(expected));
}

TEST(BlockSummaryFooter, OfAStreamThatCannotGrowIsAnExtensionError) {
    const Summary empty;
    for (const std::int32_t capacity : {0, 50, 100, 1400, 2643}) {
        Bytes room(2644);
        KSVByteStream stream;
        byteStream_init(&stream, room.data(), capacity);
        EXPECT_EQ(blockSummary_writeFooter(&empty.summary, empty.layout, &stream), STREAM_EXTENSION_ERROR) << capacity;
    }
}

// A summary with something in every part, and its footer for a block of 5000 bytes.
struct FullFooter : ::testing::Test {
    FullFooter() {
        block.strings[0] = {"a", 2};
        block.strings[1] = {"b", 2};
        block.numbers[0] = numericValue_ofLong(7);
        block.add(metadataOf(4, 9, 1, 5));
        block.numbers[0] = numericValue_ofLong(-7);
        block.add(metadataOf(-4, 10, 2, 0x20000000));
        footer = block.footer(5000);
    }
    Bytes patched(std::size_t offset, const Bytes& bytes) const {
        Bytes copy = footer;
        std::copy(bytes.begin(), bytes.end(), copy.begin() + static_cast<std::ptrdiff_t>(offset));
        return copy;
    }
    ErrorCode readInto(Summary* reader, const Bytes& bytes) const { return reader->read(bytes, 5000); }

    static constexpr std::size_t FILTERS = 90;
    static constexpr std::size_t INDEXES = FILTERS + 2 * 1256;
    Summary block{ONE_NUMBER};
    Bytes footer;
};

TEST_F(FullFooter, IsReadBackAsWritten) {
    Summary reader(ONE_NUMBER);
    ASSERT_EQ(readInto(&reader, footer), NO_ERROR);
    reader.summary.filters = block.summary.filters;  // a reader asks the stored ones in place
    EXPECT_EQ(difference(reader.footer(5000), footer), "");
    EXPECT_EQ(reader.summary.messageCount, 3) << "a closed block has messagesPerBlock messages";
    EXPECT_EQ(reader.summary.frameBytes, 5000 - 8 - footer.size());
    EXPECT_TRUE(reader.summary.staticIndexes == block.summary.staticIndexes);
}

TEST_F(FullFooter, WithAnotherTrailingLengthIsCorrupted) {
    for (const std::uint64_t length : {0ULL, 4999ULL, 5001ULL, 0xFFFFFFFFFFFFFFFFULL}) {
        Summary reader(ONE_NUMBER);
        EXPECT_EQ(readInto(&reader, patched(footer.size() - 8, ExpectedBytes().u64(length).bytes())),
                  HEADER_CORRUPTED_ERROR)
            << length;
    }
}

TEST_F(FullFooter, WithAFilterOfAnotherSizeIsCorrupted) {
    for (const std::uint32_t bits : {0U, 9999U, 10001U, 64U, 0xFFFFFFFFU}) {
        for (const std::size_t filter : {FILTERS, FILTERS + 1256}) {
            Summary reader(ONE_NUMBER);
            EXPECT_EQ(readInto(&reader, patched(filter, ExpectedBytes().u32(bits).bytes())), HEADER_CORRUPTED_ERROR)
                << bits;
        }
    }
}

TEST_F(FullFooter, ThatDoesNotParseToExactlyItsSizeIsCorrupted) {
    for (std::size_t size = 0; size < footer.size(); size += size < INDEXES - 40 && size > FILTERS + 8 ? 97 : 1) {
        Summary reader(ONE_NUMBER);
        EXPECT_EQ(readInto(&reader, Bytes(footer.begin(), footer.begin() + static_cast<std::ptrdiff_t>(size))),
                  HEADER_CORRUPTED_ERROR)
            << size << " bytes";
    }
    Summary reader(ONE_NUMBER);
    Bytes longer = footer;
    longer.push_back(0);
    EXPECT_EQ(readInto(&reader, longer), HEADER_CORRUPTED_ERROR);
}

TEST_F(FullFooter, WithAnUnknownNumericTypeIsInconsistent) {
    for (const std::size_t record : {36U, 45U + 36U}) {
        Summary reader(ONE_NUMBER);
        EXPECT_EQ(readInto(&reader, patched(record, fromHex("03"))), CONSISTENCY_ERROR) << record;
    }
}

TEST_F(FullFooter, ThatIsRefusedLeavesTheStaticIndexesAlone) {
    Summary reader(ONE_NUMBER);
    reader.summary.staticIndexes.lastUniform = 77;
    ASSERT_EQ(readInto(&reader, patched(footer.size() - 8, Bytes(8))), HEADER_CORRUPTED_ERROR);
    EXPECT_EQ(reader.summary.staticIndexes.lastUniform, 77);
}

TEST_F(FullFooter, IsTheSameAfterACopyOfItsSummary) {
    Summary copy(ONE_NUMBER);
    copy.addText("something that has to go");
    blockSummary_copy(&copy.summary, block.summary);
    EXPECT_EQ(toHex(copy.footer(5000)), toHex(footer));
    EXPECT_EQ(copy.summary.messageCount, 2);
    EXPECT_EQ(copy.summary.frameBytes, 110U);
}

}  // namespace
}  // namespace tabulo::internal::test
