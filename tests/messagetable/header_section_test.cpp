#include "messagetable/header_section.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "tests/messagetable/expected_bytes.h"
#include "tests/messagetable/message_table_fixture.h"
#include "tests/support/fault_platform.h"
#include "tests/support/log_capture.h"

namespace tabulo::internal::test {
namespace {

// File offsets of a header without names.
constexpr std::size_t TYPE_LENGTH = 19;
constexpr std::size_t MESSAGES_PER_BLOCK = 36;
constexpr std::size_t STRING_COUNT = 40;
constexpr std::size_t SUMMARISED_COUNT = 44;
constexpr std::size_t NUMERIC_COUNT = 48;
constexpr std::size_t LAST_BLOCK_END = 60;
constexpr std::size_t DATA_END = 68;
constexpr std::size_t MESSAGE_COUNT = 76;
constexpr std::size_t INDEXES = 80;
constexpr std::size_t HEADER_END = 140;

Bytes int32Bytes(std::int32_t value) {
    return ExpectedBytes().i32(value).bytes();
}

// The whole header of a new table.
Bytes newHeader(std::int32_t messagesPerBlock, const std::vector<std::string>& stringNames = {},
                const std::vector<std::string>& numericNames = {}) {
    const Bytes layout = expectedLayout(messagesPerBlock, stringNames, numericNames);
    const auto size = static_cast<std::int32_t>(19 + layout.size() + 88);
    return ExpectedBytes()
        .append(expectedGenericHeader(size))
        .append(layout)
        .u64(0)
        .u64(0)
        .u64(static_cast<std::uint64_t>(size))
        .i32(0)
        .append(expectedEmptyIndexes())
        .bytes();
}

class HeaderSection : public MessageTableTest {
  protected:
    // The code of opening the file under `path()` with the present shape; the file must stay as it was.
    ErrorCode reopen(OpenMode mode) {
        const Bytes before = fileBytes();
        table.reset();
        table = createTable(directory.root(), shape);
        const ErrorCode code = mt_open(table.get(), mode);
        EXPECT_TRUE(code == NO_ERROR || fileBytes() == before) << "a refused file was changed";
        return code;
    }
    // The file is made anew and its bytes at `offset` replaced.
    void makePatched(std::size_t offset, const Bytes& bytes) {
        open(OpenMode::create);
        table.reset();
        patchFile(path(), offset, bytes);
    }
    // The code that both a reader and a writer get for such a file.
    ErrorCode openPatched(std::size_t offset, const Bytes& bytes) {
        makePatched(offset, bytes);
        const ErrorCode reading = reopen(OpenMode::read);
        EXPECT_EQ(reopen(OpenMode::write), reading) << "reading and writing disagree at offset " << offset;
        return reading;
    }
    // mtX_verify itself over the file's present bytes.
    ErrorCode verify() { return verifyOf(fileBytes().size()); }
    // The same with so many of them in the stream.
    ErrorCode verifyOf(std::size_t streamed) {
        table.reset();
        table = createTable(directory.root(), shape);
        Bytes bytes = fileBytes();
        table->storage->headerSize = static_cast<std::int32_t>(u32At(bytes, 15));
        KSVByteStream stream;
        byteStream_init(&stream, bytes.data(), static_cast<std::int32_t>(bytes.size()));
        byteStream_resetWrite(&stream, static_cast<std::int32_t>(streamed));
        TableFile* file = nullptr;
        EXPECT_EQ(tableFileOpen(&file, path().c_str(), OpenMode::read, nullptr), NO_ERROR);
        const ErrorCode code = mtX_verify({table->header, table->storage.get()}, file, &stream, 19, &records);
        EXPECT_EQ(tableFileClose(file), NO_ERROR);
        return code;
    }

    TailRecords records;  // of the last mtX_verify that succeeded
};

TEST_F(HeaderSection, OfADefaultTableIs121BytesInAHeaderOf140) {
    shape = defaultShape();
    open(OpenMode::write);
    EXPECT_EQ(toHex(fileBytes()), toHex(newHeader(1000)));
    EXPECT_EQ(fileBytes().size(), 140U);
    EXPECT_EQ(table->storage->headerSize, 140);
}

TEST_F(HeaderSection, HoldsTheNamesAndADataEndOfExactlyItsSize) {
    shape.stringNames = {"ClOrdID", "", "Symbol"};
    shape.numericNames = {"", "Price"};
    open(OpenMode::write);
    const Bytes expected = newHeader(3, {"ClOrdID", "", "Symbol"}, {"", "Price"});
    EXPECT_EQ(toHex(fileBytes()), toHex(expected));
    EXPECT_EQ(expected.size(), 140U + 4 + 8 + 4 + 4 + 7 + 4 + 4 + 6);
    EXPECT_EQ(reopen(OpenMode::write), NO_ERROR) << "absent names equal absent names";
}

TEST_F(HeaderSection, OfANewFileIsOneWriteTogetherWithTheGenericHeader) {
    shape = widestShape();
    FaultPlatform platform;
    open(OpenMode::create);
    const std::vector<RecordedCall> writes = platform.calls(FileCall::writeAt);
    ASSERT_EQ(writes.size(), 1U);
    EXPECT_EQ(writes[0].offset, 0);
    EXPECT_EQ(writes[0].length, static_cast<std::int64_t>(fileBytes().size()));
    table.reset();
}

TEST_F(HeaderSection, BeyondTheLargestHeaderIsAWrongParameterAndWritesNothing) {
    shape.stringNames = {std::string(8096 - 140 - 4 - 1, 'x')};
    open(OpenMode::write);
    EXPECT_EQ(fileBytes().size(), 8096U) << "8096 bytes are allowed";
    ASSERT_EQ(reopen(OpenMode::write), NO_ERROR);
    shape.name = "longer";
    shape.stringNames[0] += 'x';
    table = createTable(directory.root(), shape);
    EXPECT_EQ(mt_open(table.get(), OpenMode::write), WRONG_PARAMETER_ERROR);
    EXPECT_EQ(readText(path()), "");
}

TEST_F(HeaderSection, WritingOneGivesTheRecordsOfATableWithoutMessages) {
    open(OpenMode::create);
    ASSERT_EQ(writeSimple(1, 4), NO_ERROR);
    const ByteStreamPtr stream(byteStream_create(256));
    byteStream_putBytes(stream.get(), expectedGenericHeader(0).data(), 19);
    records = table->records;
    ASSERT_EQ(records.dataInfo.messageCount, 4);
    ASSERT_EQ(mtX_writeHeader(table->header, stream.get(), &records), NO_ERROR);
    EXPECT_EQ(byteStream_writeMark(stream.get()), 140);
    EXPECT_EQ(records.blockInfo.lastBlockEnd, 0U);
    EXPECT_EQ(records.dataInfo.dataEnd, 140U);
    EXPECT_EQ(records.dataInfo.messageCount, 0);
    EXPECT_TRUE(records.staticIndexes == mthStaticIndexes{});
    const std::uint8_t* begin = byteStream_buffer(stream.get());
    EXPECT_EQ(hexAt(Bytes(begin, begin + 140), 19, 121), hexAt(newHeader(3), 19, 121));
}

TEST_F(HeaderSection, AnImpossibleLayoutIsAWrongParameterAndLeavesTheRecordsAsTheyWere) {
    table = createTable(directory.root(), shape);
    table->header.layout.messagesPerBlock = 0;
    const ByteStreamPtr stream(byteStream_create(256));
    records.dataInfo.dataEnd = 7;
    EXPECT_EQ(mtX_writeHeader(table->header, stream.get(), &records), WRONG_PARAMETER_ERROR);
    EXPECT_EQ(records.dataInfo.dataEnd, 7U);
}

TEST_F(HeaderSection, WritingANewOneResetsTheTablesBookkeepingIndexesAndWriter) {
    open(OpenMode::create);
    ASSERT_EQ(writeSimple(1, 4), NO_ERROR);
    ASSERT_EQ(table->writer->summary.messageCount, 1);
    ASSERT_EQ(mt_drop(table.get()), NO_ERROR);
    EXPECT_EQ(table->records.blockInfo.lastBlockEnd, 140U) << "the first block begins behind the header";
    EXPECT_EQ(table->records.dataInfo.dataEnd, 140U);
    EXPECT_EQ(table->records.dataInfo.messageCount, 0);
    EXPECT_TRUE(table->records.staticIndexes == mthStaticIndexes{});
    EXPECT_EQ(table->writer->summary.messageCount, 0);
    EXPECT_TRUE(table->writer->summary.staticIndexes == mthStaticIndexes{});
}

TEST_F(HeaderSection, AStreamThatCannotGrowIsAnExtensionErrorWhereverItEnds) {
    table = createTable(directory.root(), shape);
    for (const std::int32_t capacity : {0, 20, 33, 49, 61, 120}) {
        Bytes room(121);
        KSVByteStream stream;
        byteStream_init(&stream, room.data(), capacity);
        EXPECT_EQ(mtX_writeHeader(table->header, &stream, &records), STREAM_EXTENSION_ERROR) << capacity;
    }
}

TEST_F(HeaderSection, WithNothingBehindTheGenericHeaderIsAFileSizeError) {
    open(OpenMode::create);
    table.reset();
    Bytes bytes = fileBytes();
    bytes.resize(19);
    writeFile(path(), bytes);
    EXPECT_EQ(verify(), FILE_SIZE_ERROR);
}

TEST_F(HeaderSection, BehindTheEndOfItsStreamIsAReadResetError) {
    open(OpenMode::create);
    EXPECT_EQ(verifyOf(18), STREAM_READ_RESET_ERROR);
    EXPECT_EQ(verifyOf(19), STREAM_NOT_ENOUGH_DATA_ERROR);
}

TEST_F(HeaderSection, CutBeforeItsRecordsIsNotEnoughDataAndNotAnotherTableType) {
    shape.stringNames = {"ClOrdID"};
    shape.numericNames = {"Price"};
    open(OpenMode::create);
    table.reset();
    const Bytes whole = fileBytes();
    const std::size_t dataInfoEnd = whole.size() - 60;
    for (std::size_t size = 20; size < dataInfoEnd; ++size) {
        writeFile(path(), std::span(whole).first(size));
        EXPECT_EQ(verify(), STREAM_NOT_ENOUGH_DATA_ERROR) << size << " bytes";
    }
}

TEST_F(HeaderSection, CutInItsStaticIndexesIsAFileSizeErrorUnlessItsDataEndSaysOtherwise) {
    open(OpenMode::create);
    table.reset();
    const Bytes whole = fileBytes();
    for (std::size_t size = INDEXES; size < HEADER_END; ++size) {
        writeFile(path(), std::span(whole).first(size));
        EXPECT_EQ(verify(), FILE_SIZE_ERROR) << size << " bytes, of which dataEnd knows nothing";
        patchFile(path(), DATA_END, ExpectedBytes().u64(size).bytes());
        EXPECT_EQ(verify(), STREAM_NOT_ENOUGH_DATA_ERROR) << size << " bytes";
    }
}

TEST_F(HeaderSection, OfAnotherTypeNameIsATableTypeError) {
    EXPECT_EQ(openPatched(TYPE_LENGTH, int32Bytes(12)), TABLE_TYPE_ERROR);
    EXPECT_EQ(openPatched(TYPE_LENGTH, int32Bytes(14)), TABLE_TYPE_ERROR);
    EXPECT_EQ(openPatched(TYPE_LENGTH, int32Bytes(-1)), TABLE_TYPE_ERROR);
    EXPECT_EQ(openPatched(TYPE_LENGTH + 4, fromText("m")), TABLE_TYPE_ERROR);
    EXPECT_EQ(openPatched(TYPE_LENGTH + 4 + 11, fromText("E")), TABLE_TYPE_ERROR);
    EXPECT_EQ(openPatched(TYPE_LENGTH + 4 + 12, fromText("!")), TABLE_TYPE_ERROR) << "the NUL belongs to the name";
}

TEST_F(HeaderSection, WithImpossibleLayoutValuesIsCorrupted) {
    EXPECT_EQ(openPatched(MESSAGES_PER_BLOCK, int32Bytes(0)), HEADER_CORRUPTED_ERROR);
    EXPECT_EQ(openPatched(MESSAGES_PER_BLOCK, int32Bytes(-1)), HEADER_CORRUPTED_ERROR);
    EXPECT_EQ(openPatched(STRING_COUNT, int32Bytes(1)), HEADER_CORRUPTED_ERROR);
    EXPECT_EQ(openPatched(SUMMARISED_COUNT, int32Bytes(-1)), HEADER_CORRUPTED_ERROR);
    EXPECT_EQ(openPatched(SUMMARISED_COUNT, int32Bytes(15)), HEADER_CORRUPTED_ERROR);
    EXPECT_EQ(openPatched(NUMERIC_COUNT, int32Bytes(-1)), HEADER_CORRUPTED_ERROR);
}

TEST_F(HeaderSection, WithMoreFieldsThanThereCanBeIsCorrupted) {
    // All names that can be read are there, and absent.
    for (const std::size_t offset : {STRING_COUNT, NUMERIC_COUNT}) {
        shape.stringNames.assign(12, "");
        shape.numericNames.assign(16, "");
        EXPECT_EQ(openPatched(offset, int32Bytes(17)), HEADER_CORRUPTED_ERROR) << "offset " << offset;
    }
}

TEST_F(HeaderSection, WithAnImpossibleFieldCountIsCorruptedAndNotCutWhateverStandsInThePlaceOfTheNames) {
    EXPECT_EQ(openPatched(STRING_COUNT, int32Bytes(17)), HEADER_CORRUPTED_ERROR);
    EXPECT_EQ(openPatched(NUMERIC_COUNT, int32Bytes(17)), HEADER_CORRUPTED_ERROR);
}

TEST_F(HeaderSection, ThatDoesNotEndWhereTheHeaderDoesIsCorrupted) {
    for (const std::int32_t headerSize : {36, 139, 141, 8096}) {
        EXPECT_EQ(openPatched(15, int32Bytes(headerSize)), HEADER_CORRUPTED_ERROR) << headerSize;
    }
}

TEST_F(HeaderSection, OfAReplicaHasToEndWhereTheReplicasOwnHeaderDoes) {
    open(OpenMode::create);
    const std::string replica = directory.file("replica");
    for (const std::int32_t headerSize : {140, 139, 141}) {
        Bytes bytes = fileBytes();
        const Bytes stored = int32Bytes(headerSize);
        std::copy(stored.begin(), stored.end(), bytes.begin() + 15);
        writeFile(replica, bytes);
        TableFile* file = nullptr;
        std::int64_t masterSize = static_cast<std::int64_t>(bytes.size());
        const ErrorCode code =
            tsX_openReplica(table->storage.get(), &file, replica.c_str(), OpenMode::write, &masterSize);
        EXPECT_EQ(code, headerSize == 140 ? NO_ERROR : HEADER_CORRUPTED_ERROR) << headerSize;
        if (code == NO_ERROR) {
            EXPECT_EQ(tableFileClose(file), NO_ERROR);
        }
    }
}

TEST_F(HeaderSection, OfAnotherBlockLengthOrSummaryIsAConfigMismatchWithoutAMessage) {
    LogCapture log;
    EXPECT_EQ(openPatched(MESSAGES_PER_BLOCK, int32Bytes(4)), CONFIG_MISMATCH_ERROR);
    EXPECT_EQ(openPatched(SUMMARISED_COUNT, int32Bytes(3)), CONFIG_MISMATCH_ERROR);
    EXPECT_TRUE(log.warnings().empty()) << ::testing::PrintToString(log.warnings());
}

TEST_F(HeaderSection, WithALastBlockEndBehindTheFileIsAFileSizeError) {
    makePatched(LAST_BLOCK_END, ExpectedBytes().u64(140).bytes());
    EXPECT_EQ(verify(), NO_ERROR);
    makePatched(LAST_BLOCK_END, ExpectedBytes().u64(141).bytes());
    EXPECT_EQ(verify(), FILE_SIZE_ERROR);
    makePatched(LAST_BLOCK_END, ExpectedBytes().u64(0xFFFFFFFFFFFFFFFF).bytes());
    EXPECT_EQ(verify(), FILE_SIZE_ERROR);
}

TEST_F(HeaderSection, WithADataEndThatIsNotTheFilesSizeIsAFileSizeError) {
    for (const std::uint64_t end : {0U, 139U, 141U}) {
        makePatched(DATA_END, ExpectedBytes().u64(end).bytes());
        EXPECT_EQ(verify(), FILE_SIZE_ERROR) << end;
    }
}

TEST_F(HeaderSection, WithANegativeMessageCountIsCorrupted) {
    EXPECT_EQ(openPatched(MESSAGE_COUNT, int32Bytes(-1)), HEADER_CORRUPTED_ERROR);
}

TEST_F(HeaderSection, ThatIsWholeGivesItsStoredValues) {
    open(OpenMode::create);
    table.reset();
    patchFile(path(), 52, ExpectedBytes().u64(0x0102030405060708).bytes());
    patchFile(path(), MESSAGE_COUNT, int32Bytes(12));
    patchFile(path(), INDEXES, int32Bytes(0x20000000));
    ASSERT_EQ(verify(), NO_ERROR);
    EXPECT_EQ(records.blockInfo.reserved, 0x0102030405060708U);
    EXPECT_EQ(records.blockInfo.lastBlockEnd, 0U);
    EXPECT_EQ(records.dataInfo.dataEnd, 140U);
    EXPECT_EQ(records.dataInfo.messageCount, 12);
    EXPECT_EQ(records.staticIndexes.connMsgIds[APP_FROM], 0x20000000);
}

TEST_F(HeaderSection, ThatIsRefusedLeavesTheRecordsAsTheyWere) {
    open(OpenMode::create);
    table.reset();
    patchFile(path(), 52, ExpectedBytes().u64(99).bytes());
    patchFile(path(), MESSAGE_COUNT, int32Bytes(-1));
    records.dataInfo.dataEnd = 7;
    ASSERT_EQ(verify(), HEADER_CORRUPTED_ERROR);
    EXPECT_EQ(records.blockInfo.reserved, 0U);
    EXPECT_EQ(records.dataInfo.dataEnd, 7U);
    EXPECT_EQ(records.dataInfo.messageCount, 0);
}

}  // namespace
}  // namespace tabulo::internal::test
