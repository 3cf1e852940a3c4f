#include "messagetable/table_header.h"

#include <gtest/gtest.h>

#include <limits>
#include <memory>
#include <string>
#include <vector>

#include "core/byte_stream.h"
#include "core/handle.h"
#include "tests/messagetable/expected_bytes.h"
#include "tests/support/bytes.h"
#include "tests/support/temporary_directory.h"

namespace tabulo::internal::test {
namespace {

using ConfigPtr = Handle<KSVTboTableConfig, tableConfig_destroy>;

ConfigPtr configuration() {
    return ConfigPtr(tableConfig_create("orders", 1));
}

// A forward stream over a buffer of the test.
KSVByteStream streamOver(Bytes& bytes) {
    KSVByteStream stream;
    byteStream_init(&stream, bytes.data(), static_cast<std::int32_t>(bytes.size()));
    byteStream_resetWrite(&stream, static_cast<std::int32_t>(bytes.size()));
    return stream;
}

std::string writtenLayout(const MessageTableHeader& header) {
    const ByteStreamPtr stream(byteStream_create(0));
    EXPECT_EQ(mtLayout_write(&header, stream.get()), NO_ERROR);
    return toHex(
        std::span(byteStream_buffer(stream.get()), static_cast<std::size_t>(byteStream_writeMark(stream.get()))));
}

// The layout and names of expectedLayout, without the type name before them.
Bytes layoutBytes(const std::vector<std::string>& stringNames, const std::vector<std::string>& numericNames) {
    Bytes bytes = expectedLayout(1000, stringNames, numericNames);
    bytes.erase(bytes.begin(), bytes.begin() + 17);
    return bytes;
}

TEST(TableLayout, OfADefaultConfigurationHasFourStringFieldsTwoOfThemSummarised) {
    const ConfigPtr config = configuration();
    MessageTableHeader header;
    mtLayout_fromConfig(&header, config.get());
    EXPECT_EQ(header.layout.messagesPerBlock, 1000);
    EXPECT_EQ(header.layout.stringFieldCount, 4);
    EXPECT_EQ(header.layout.summarisedStringFieldCount, 2);
    EXPECT_EQ(header.layout.numericFieldCount, 0);
    EXPECT_EQ(writtenLayout(header), "e8 03 00 00 04 00 00 00 02 00 00 00 00 00 00 00");
}

TEST(TableLayout, TakesNamesWithTheirStoredLength) {
    const ConfigPtr config = configuration();
    ASSERT_EQ(tableConfig_addStringFieldName(config.get(), "ClOrdID"), NO_ERROR);
    ASSERT_EQ(tableConfig_addStringFieldName(config.get(), nullptr), NO_ERROR);
    ASSERT_EQ(tableConfig_addStringFieldName(config.get(), ""), NO_ERROR);
    ASSERT_EQ(tableConfig_addNumericFieldName(config.get(), "Price"), NO_ERROR);
    MessageTableHeader header;
    mtLayout_fromConfig(&header, config.get());
    EXPECT_EQ(header.stringFieldNames[0].length, 8);
    EXPECT_STREQ(header.stringFieldNames[0].text, "ClOrdID");
    EXPECT_EQ(header.stringFieldNames[1].length, 0) << "an absent name";
    EXPECT_EQ(header.stringFieldNames[2].length, 0) << "an empty name";
    EXPECT_EQ(header.numericFieldNames[0].length, 6);
    EXPECT_EQ(mtLayout_configuredStringCount(&header.layout), 3);
    EXPECT_EQ(writtenLayout(header), toHex(layoutBytes({"ClOrdID", "", ""}, {"Price"})));
}

TEST(TableLayout, AConfiguredStringFieldIsSummarisedTooAndItsNameStandsBeforeTheNumericOnes) {
    const ConfigPtr config = configuration();
    ASSERT_EQ(tableConfig_addNumericFieldName(config.get(), "N"), NO_ERROR);
    ASSERT_EQ(tableConfig_addStringFieldName(config.get(), "S"), NO_ERROR);
    MessageTableHeader header;
    mtLayout_fromConfig(&header, config.get());
    EXPECT_EQ(writtenLayout(header),
              "e8 03 00 00 05 00 00 00 03 00 00 00 01 00 00 00 02 00 00 00 53 00 02 00 00 00 4e 00");
}

TEST(TableLayout, AFullHeaderStoresTwelveAndSixteenNames) {
    const ConfigPtr config = configuration();
    std::vector<std::string> strings;
    std::vector<std::string> numbers;
    for (int i = 0; i < 12; ++i) {
        strings.push_back("string " + std::to_string(i));
        ASSERT_EQ(tableConfig_addStringFieldName(config.get(), strings.back().c_str()), NO_ERROR);
    }
    for (int i = 0; i < 16; ++i) {
        numbers.push_back("number " + std::to_string(i));
        ASSERT_EQ(tableConfig_addNumericFieldName(config.get(), numbers.back().c_str()), NO_ERROR);
    }
    MessageTableHeader header;
    mtLayout_fromConfig(&header, config.get());
    EXPECT_EQ(writtenLayout(header), toHex(layoutBytes(strings, numbers)));
}

TEST(TableLayout, IsReadBackWithNamesThatPointIntoTheStream) {
    Bytes bytes = layoutBytes({"ClOrdID", ""}, {"Price"});
    KSVByteStream stream = streamOver(bytes);
    MessageTableHeader header;
    ASSERT_EQ(mtLayout_read(&header, &stream, true), NO_ERROR);
    EXPECT_EQ(byteStream_unread(&stream), 0);
    EXPECT_EQ(header.layout, (MessageTableLayout{1000, 6, 4, 1}));
    EXPECT_EQ(header.stringFieldNames[0].length, 8);
    EXPECT_EQ(header.stringFieldNames[0].text, reinterpret_cast<const char*>(bytes.data()) + 20);
    EXPECT_EQ(header.stringFieldNames[1].length, 0);
    EXPECT_STREQ(header.numericFieldNames[0].text, "Price");
}

TEST(TableLayout, ReadWithoutNamesSkipsThem) {
    Bytes bytes = layoutBytes({"ClOrdID"}, {"Price"});
    KSVByteStream stream = streamOver(bytes);
    MessageTableHeader header;
    ASSERT_EQ(mtLayout_read(&header, &stream, false), NO_ERROR);
    EXPECT_EQ(byteStream_unread(&stream), 0);
    EXPECT_EQ(header.layout.stringFieldCount, 5);
    EXPECT_EQ(header.stringFieldNames[0].text, nullptr);
    EXPECT_EQ(header.stringFieldNames[0].length, 0);
}

TEST(TableLayout, CutAnywhereIsNotEnoughDataWithAndWithoutNames) {
    const Bytes whole = layoutBytes({"ClOrdID"}, {"Price"});
    for (std::size_t length = 0; length < whole.size(); ++length) {
        Bytes bytes(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(length));
        for (const bool keepNames : {false, true}) {
            KSVByteStream stream = streamOver(bytes);
            MessageTableHeader header;
            EXPECT_EQ(mtLayout_read(&header, &stream, keepNames), STREAM_NOT_ENOUGH_DATA_ERROR) << length << " bytes";
            EXPECT_EQ(byteStream_error(&stream), STREAM_NOT_ENOUGH_DATA_ERROR);
        }
    }
}

TEST(TableLayout, ANameLengthIsCheckedAgainstTheUnreadBytes) {
    for (const std::uint32_t length : {3U, 0x7FFFFFFFU, 0x80000000U, 0xFFFFFFFFU}) {
        for (const bool keepNames : {false, true}) {
            Bytes bytes = ExpectedBytes().i32(1000).i32(5).i32(2).i32(0).u32(length).text("ab").bytes();
            KSVByteStream stream = streamOver(bytes);
            MessageTableHeader header;
            EXPECT_EQ(mtLayout_read(&header, &stream, keepNames), STREAM_NOT_ENOUGH_DATA_ERROR) << length;
        }
    }
}

TEST(TableLayout, ImpossibleCountsInAFileReadNoMoreNamesThanThereCanBe) {
    // 13 names stand there; at most 12 are read, of however many the count speaks.
    ExpectedBytes stored;
    stored.i32(1000).i32(2147483647).i32(2).i32(-2147483647 - 1);
    for (int i = 0; i < 13; ++i) {
        stored.u32(0);
    }
    Bytes bytes = stored.bytes();
    KSVByteStream stream = streamOver(bytes);
    MessageTableHeader header;
    EXPECT_EQ(mtLayout_read(&header, &stream, true), NO_ERROR);
    EXPECT_EQ(byteStream_unread(&stream), 4);
}

TEST(TableLayout, AStreamThatCannotGrowIsAnExtensionError) {
    Bytes room(15);
    KSVByteStream stream;
    byteStream_init(&stream, room.data(), 15);
    const MessageTableHeader header;
    EXPECT_EQ(mtLayout_write(&header, &stream), STREAM_EXTENSION_ERROR);
}

TEST(TableLayout, TheCheckTakesTheOutermostPossibleValues) {
    for (const MessageTableLayout& layout :
         {MessageTableLayout{1, 2, 0, 0}, MessageTableLayout{1, 16, 14, 16}, MessageTableLayout{2147483647, 4, 2, 0}}) {
        EXPECT_EQ(mtLayout_check(&layout), NO_ERROR)
            << layout.messagesPerBlock << " " << layout.stringFieldCount << " " << layout.summarisedStringFieldCount;
    }
}

TEST(TableLayout, TheCheckRefusesEachValueOneStepBeyond) {
    const std::vector<MessageTableLayout> impossible = {
        {0, 4, 2, 0},     {-1, 4, 2, 0},    {1000, 1, 2, 0},  {1000, 17, 2, 0}, {1000, -4, 2, 0},
        {1000, 4, -1, 0}, {1000, 4, 15, 0}, {1000, 4, 2, -1}, {1000, 4, 2, 17},
    };
    for (const MessageTableLayout& layout : impossible) {
        EXPECT_EQ(mtLayout_check(&layout), HEADER_CORRUPTED_ERROR)
            << layout.messagesPerBlock << " " << layout.stringFieldCount << " " << layout.summarisedStringFieldCount
            << " " << layout.numericFieldCount;
    }
}

TEST(FieldNames, AreEqualByLengthAndBytes) {
    const FieldName name{"Price", 6};
    EXPECT_TRUE(fieldName_equals(name, {"Price", 6}));
    EXPECT_FALSE(fieldName_equals(name, {"price", 6}));
    EXPECT_FALSE(fieldName_equals(name, {"PriceX", 7}));
    EXPECT_FALSE(fieldName_equals({"a\0b", 4}, {"a\0c", 4})) << "bytes behind a NUL count";
    EXPECT_FALSE(fieldName_equals(name, {"PriceX", 6})) << "a stored name whose last byte is no NUL";
}

TEST(FieldNames, AnAbsentNameEqualsAnEmptyOneAndNoOther) {
    EXPECT_TRUE(fieldName_equals({nullptr, 0}, {nullptr, 0}));
    EXPECT_TRUE(fieldName_equals({nullptr, 0}, {"", 1}));
    EXPECT_TRUE(fieldName_equals({"", 1}, {nullptr, 0}));
    EXPECT_FALSE(fieldName_equals({nullptr, 0}, {"a", 2}));
    EXPECT_FALSE(fieldName_equals({"a", 2}, {nullptr, 0}));
}

TEST(BookkeepingRecords, AreStoredFieldByField) {
    const BlockInfo blockInfo{0x1112131415161718, 0x2122232425262728};
    const DataInfo dataInfo{0x3132333435363738, 0x41424344};
    const ByteStreamPtr stream(byteStream_create(0));
    EXPECT_EQ(blockInfo_write(&blockInfo, stream.get()), NO_ERROR);
    EXPECT_EQ(dataInfo_write(&dataInfo, stream.get()), NO_ERROR);
    EXPECT_EQ(toHex(std::span(byteStream_buffer(stream.get()), 28)),
              "18 17 16 15 14 13 12 11 28 27 26 25 24 23 22 21 38 37 36 35 34 33 32 31 44 43 42 41");
    BlockInfo readBlockInfo;
    DataInfo readDataInfo;
    EXPECT_EQ(blockInfo_read(&readBlockInfo, stream.get()), NO_ERROR);
    EXPECT_EQ(dataInfo_read(&readDataInfo, stream.get()), NO_ERROR);
    EXPECT_EQ(readBlockInfo.reserved, blockInfo.reserved);
    EXPECT_EQ(readBlockInfo.lastBlockEnd, blockInfo.lastBlockEnd);
    EXPECT_EQ(readDataInfo.dataEnd, dataInfo.dataEnd);
    EXPECT_EQ(readDataInfo.messageCount, dataInfo.messageCount);
    EXPECT_EQ(byteStream_unread(stream.get()), 0);
}

TEST(BookkeepingRecords, AreZeroAfterInit) {
    BlockInfo blockInfo{1, 2};
    DataInfo dataInfo{3, 4};
    blockInfo_init(&blockInfo);
    dataInfo_init(&dataInfo);
    EXPECT_EQ(blockInfo.reserved + blockInfo.lastBlockEnd + dataInfo.dataEnd, 0U);
    EXPECT_EQ(dataInfo.messageCount, 0);
}

TEST(BookkeepingRecords, CutAreNotEnoughDataAndStayAsTheyWere) {
    for (std::size_t length = 0; length < 16; ++length) {
        Bytes bytes(length, 0xee);
        KSVByteStream stream = streamOver(bytes);
        BlockInfo blockInfo{1, 2};
        EXPECT_EQ(blockInfo_read(&blockInfo, &stream), STREAM_NOT_ENOUGH_DATA_ERROR);
        EXPECT_EQ(blockInfo.reserved, 1U);
        EXPECT_EQ(blockInfo.lastBlockEnd, 2U);
        if (length < 12) {
            stream = streamOver(bytes);
            DataInfo dataInfo{3, 4};
            EXPECT_EQ(dataInfo_read(&dataInfo, &stream), STREAM_NOT_ENOUGH_DATA_ERROR);
            EXPECT_EQ(dataInfo.dataEnd, 3U);
            EXPECT_EQ(dataInfo.messageCount, 4);
        }
    }
}

TEST(BookkeepingRecords, AreCheckedAgainstTheFilesSize) {
    const TemporaryDirectory directory;
    writeFile(directory.file("f"), Bytes(100));
    TableFile* file = nullptr;
    ASSERT_EQ(tableFileOpen(&file, directory.file("f").c_str(), OpenMode::read, nullptr), NO_ERROR);
    const auto blockEnd = [&](std::uint64_t end) {
        const BlockInfo info{0, end};
        return blockInfo_check(&info, file);
    };
    EXPECT_EQ(blockEnd(0), NO_ERROR);
    EXPECT_EQ(blockEnd(100), NO_ERROR);
    EXPECT_EQ(blockEnd(101), FILE_SIZE_ERROR);
    EXPECT_EQ(blockEnd(std::numeric_limits<std::uint64_t>::max()), FILE_SIZE_ERROR) << "the field is unsigned";
    const auto data = [&](std::uint64_t end, std::int32_t count) {
        const DataInfo info{end, count};
        return dataInfo_check(&info, file);
    };
    EXPECT_EQ(data(100, 0), NO_ERROR);
    EXPECT_EQ(data(100, 2147483647), NO_ERROR);
    EXPECT_EQ(data(99, 0), FILE_SIZE_ERROR);
    EXPECT_EQ(data(101, 0), FILE_SIZE_ERROR);
    EXPECT_EQ(data(100, -1), HEADER_CORRUPTED_ERROR);
    EXPECT_EQ(data(99, -1), FILE_SIZE_ERROR) << "the size is checked first";
    EXPECT_EQ(tableFileClose(file), NO_ERROR);
}

TEST(BookkeepingRecords, WithoutAFileGiveTheFilesOwnCode) {
    const BlockInfo blockInfo;
    const DataInfo dataInfo;
    EXPECT_EQ(blockInfo_check(&blockInfo, nullptr), NULL_POINTER_ERROR);
    EXPECT_EQ(dataInfo_check(&dataInfo, nullptr), NULL_POINTER_ERROR);
}

}  // namespace
}  // namespace tabulo::internal::test
