#include <gtest/gtest.h>

#include <array>
#include <limits>
#include <span>
#include <string>

#include "messagetable/message_table.h"
#include "tests/messagetable/expected_bytes.h"
#include "tests/messagetable/message_table_fixture.h"
#include "tests/support/log_capture.h"

namespace tabulo::internal::test {
namespace {

constexpr std::int64_t HEADER = 140;
constexpr std::size_t FOOTER = 2652;

class WriteMessage : public MessageTableTest {
  protected:
    void SetUp() override { open(OpenMode::create); }

    // What a refused write must leave as it was.
    struct State {
        Bytes file;
        std::uint64_t lastBlockEnd;
        std::uint64_t dataEnd;
        std::int32_t messageCount;
        std::int32_t blockCount;
        std::uint64_t frameBytes;
        mthStaticIndexes indexes;
        std::int32_t activeCount;
        bool operator==(const State&) const = default;
    };
    State state() const {
        return {fileBytes(),
                table->records.blockInfo.lastBlockEnd,
                table->records.dataInfo.dataEnd,
                table->records.dataInfo.messageCount,
                table->writer->summary.messageCount,
                table->writer->summary.frameBytes,
                table->writer->summary.staticIndexes,
                table->storage->activeCount};
    }
    ErrorCode writeFields(std::span<const StringField> strings, std::span<const NumericValue> numbers = {}) {
        return mt_writeMessage(table.get(), {MessageMetadata{}, strings, numbers});
    }
    void expectRefused(ErrorCode expected, ErrorCode code, const State& before) {
        EXPECT_EQ(code, expected) << getErrorMessage(code);
        EXPECT_TRUE(state() == before) << "a refused write changed something";
    }
};

TEST_F(WriteMessage, TheFirstOneStandsBehindAnEightByteZeroWord) {
    ASSERT_EQ(writeSimple(1, 1), NO_ERROR);
    const Bytes frame = frameOf(simpleMessage(1));
    ASSERT_EQ(fileBytes().size(), static_cast<std::size_t>(HEADER) + 8 + frame.size());
    EXPECT_EQ(u64At(fileBytes(), HEADER), 0U);
    EXPECT_EQ(hexAt(fileBytes(), HEADER + 8, frame.size()), toHex(frame));
}

TEST_F(WriteMessage, TheNextOneOfABlockIsItsFrameAlone) {
    ASSERT_EQ(writeSimple(1, 1), NO_ERROR);
    const std::size_t size = fileBytes().size();
    ASSERT_EQ(writeSimple(2, 2), NO_ERROR);
    const Bytes frame = frameOf(simpleMessage(2));
    ASSERT_EQ(fileBytes().size(), size + frame.size());
    EXPECT_EQ(hexAt(fileBytes(), size, frame.size()), toHex(frame));
    EXPECT_EQ(u64At(fileBytes(), HEADER), 0U);
}

TEST_F(WriteMessage, TheLastOneOfABlockIsFollowedByItsFooterAndBothLengthsAreTheBlocks) {
    ASSERT_EQ(writeSimple(1, 3), NO_ERROR);
    std::size_t frames = 0;
    for (const Message& message : simpleMessages(1, 3)) {
        frames += frameOf(message).size();
    }
    const Bytes bytes = fileBytes();
    ASSERT_EQ(bytes.size(), static_cast<std::size_t>(HEADER) + 8 + frames + FOOTER);
    EXPECT_EQ(u64At(bytes, HEADER), 8 + frames + FOOTER);
    EXPECT_EQ(u64At(bytes, bytes.size() - 8), u64At(bytes, HEADER));
    EXPECT_EQ(table->records.blockInfo.lastBlockEnd, bytes.size());
    ASSERT_EQ(writeSimple(4, 4), NO_ERROR);
    EXPECT_EQ(u64At(fileBytes(), bytes.size()), 0U) << "the next block begins with a zero word";
}

TEST_F(WriteMessage, OfABlockOfOneClosesItEveryTime) {
    shape.messagesPerBlock = 1;
    open(OpenMode::create);
    ASSERT_EQ(writeSimple(1, 4), NO_ERROR);
    EXPECT_EQ(table->records.blockInfo.lastBlockEnd, fileBytes().size());
    EXPECT_EQ(table->records.dataInfo.messageCount, 4);
    const ReadMessages read = readAll(table.get());
    EXPECT_EQ(read.messages, simpleMessages(1, 4));
    EXPECT_EQ(read.blocks, 4);
}

TEST_F(WriteMessage, IsCountedWithItsBytesAndIndexes) {
    for (std::int32_t n = 1; n <= 7; ++n) {
        ASSERT_EQ(writeSimple(n, n), NO_ERROR);
        EXPECT_EQ(table->records.dataInfo.messageCount, n);
        EXPECT_EQ(table->records.dataInfo.dataEnd, fileBytes().size());
        EXPECT_EQ(table->records.staticIndexes.lastUniform, n);
        EXPECT_EQ(table->records.staticIndexes.seqNums[LAST_GOOD].seqNum, n);
        EXPECT_TRUE(table->records.staticIndexes == table->writer->summary.staticIndexes);
        EXPECT_EQ(table->writer->summary.messageCount, n % 3);
    }
}

TEST_F(WriteMessage, SavesTheHeadersTailOnlyWhenItClosesABlock) {
    const std::string fresh = hexAt(fileBytes(), 0, HEADER);
    ASSERT_EQ(writeSimple(1, 2), NO_ERROR);
    EXPECT_EQ(hexAt(fileBytes(), 0, HEADER), fresh);
    ASSERT_EQ(writeSimple(3, 3), NO_ERROR);
    const std::string closed = hexAt(fileBytes(), 0, HEADER);
    EXPECT_NE(closed, fresh);
    EXPECT_EQ(u64At(fileBytes(), 60), fileBytes().size()) << "lastBlockEnd";
    EXPECT_EQ(u64At(fileBytes(), 68), fileBytes().size()) << "dataEnd";
    EXPECT_EQ(u32At(fileBytes(), 76), 3U) << "messageCount";
    ASSERT_EQ(writeSimple(4, 5), NO_ERROR);
    EXPECT_EQ(hexAt(fileBytes(), 0, HEADER), closed);
}

TEST_F(WriteMessage, LargerThanTheWritersBuffersIsStoredWhole) {
    Message message = simpleMessage(1);
    message.strings[2] = std::string(1000000, 'x') + '\0';
    ASSERT_EQ(write(message), NO_ERROR);
    ASSERT_EQ(writeSimple(2, 3), NO_ERROR);
    const ReadMessages read = readAll(table.get());
    ASSERT_EQ(read.messages.size(), 3U);
    EXPECT_TRUE(read.messages[0] == message);
    EXPECT_EQ(read.messages[2], simpleMessage(3));
}

TEST_F(WriteMessage, WithAnEmptyTextAndAnAbsentFieldKeepsThemApart) {
    Message message = bareMessage(1);
    message.strings[0] = withNul("");
    ASSERT_EQ(write(message), NO_ERROR);
    ASSERT_EQ(writeSimple(2, 3), NO_ERROR);
    const Message read = readAll(table.get()).messages.at(0);
    EXPECT_EQ(read.strings[0], std::optional(withNul("")));
    EXPECT_EQ(read.strings[1], std::nullopt);
    const std::size_t filters = fileBytes().size() - FOOTER + 72;
    EXPECT_EQ(fileBytes()[filters + 4] & 0x21, 0x21) << "the empty key is in the first field's filter";
}

TEST_F(WriteMessage, WithAPointerAndLengthZeroIsAbsent) {
    const std::array<StringField, 4> strings = {StringField{"text", 0}, {}, {}, {}};
    ASSERT_EQ(writeFields(strings), NO_ERROR);
    EXPECT_EQ(fileBytes().size(), static_cast<std::size_t>(HEADER) + 8 + 55);
    EXPECT_EQ(readAll(table.get()).messages.at(0).strings[0], std::nullopt);
}

TEST_F(WriteMessage, WithAMsgTypeOfSixLettersIsCutToFive) {
    Message message = bareMessage(1);
    message.metadata.msgType = {'A', 'B', 'C', 'D', 'E', 'F'};
    ASSERT_EQ(write(message), NO_ERROR);
    EXPECT_EQ(hexAt(fileBytes(), HEADER + 8 + 28, 7), "41 42 43 44 45 00 00");
    EXPECT_STREQ(readAll(table.get()).messages.at(0).metadata.msgType.data(), "ABCDE");
}

TEST_F(WriteMessage, WithTheWrongNumberOfFieldsChangesNothing) {
    ASSERT_EQ(writeSimple(1, 2), NO_ERROR);
    const State before = state();
    const std::array<StringField, 5> fields{};
    const std::array<NumericValue, 1> numbers{};
    const std::span strings(fields);
    expectRefused(STRING_FIELDS_COUNT_MISMATCH_ERROR, writeFields({}), before);
    expectRefused(STRING_FIELDS_COUNT_MISMATCH_ERROR, writeFields(strings.first(3)), before);
    expectRefused(STRING_FIELDS_COUNT_MISMATCH_ERROR, writeFields(strings), before);
    expectRefused(NUMERIC_FIELDS_COUNT_MISMATCH_ERROR, writeFields(strings.first(4), numbers), before);
    expectRefused(STRING_FIELDS_COUNT_MISMATCH_ERROR, writeFields(strings, numbers), before);
    shape.numericNames = {"Price"};
    open(OpenMode::create);
    const State withNumbers = state();
    expectRefused(NUMERIC_FIELDS_COUNT_MISMATCH_ERROR, writeFields(strings.first(4)), withNumbers);
}

TEST_F(WriteMessage, WithoutATableOrAStorageIsANullPointer) {
    const MessageMetadata metadata;
    const std::array<StringField, 4> strings{};
    EXPECT_EQ(mt_writeMessage(nullptr, {metadata, strings, {}}), NULL_POINTER_ERROR);
    MessageTable empty;
    EXPECT_EQ(mt_writeMessage(&empty, {metadata, strings, {}}), NULL_POINTER_ERROR);
}

TEST_F(WriteMessage, WithATextThatHasALengthAloneIsANullPointerAndChangesNothing) {
    const State before = state();
    for (std::size_t i = 0; i < 4; ++i) {
        std::array<StringField, 4> holed{};
        holed[i].length = 1;
        expectRefused(NULL_POINTER_ERROR, writeFields(holed), before);
    }
}

TEST_F(WriteMessage, WithANegativeLengthIsAWrongParameterAndChangesNothing) {
    const State before = state();
    for (const std::int32_t length : {-1, std::numeric_limits<std::int32_t>::min()}) {
        for (std::size_t i = 0; i < 4; ++i) {
            std::array<StringField, 4> strings{};
            strings[i] = {"text", length};
            expectRefused(WRONG_PARAMETER_ERROR, writeFields(strings), before);
            strings[i].text = nullptr;
            expectRefused(WRONG_PARAMETER_ERROR, writeFields(strings), before);
        }
    }
}

TEST_F(WriteMessage, WithAnUnknownNumericTypeIsAWrongParameterAndChangesNothing) {
    shape.numericNames = {"Price", "OrderQty"};
    open(OpenMode::create);
    const std::array<StringField, 4> strings{};
    std::array<NumericValue, 2> numbers{};
    numbers[1].type = static_cast<NumericType>(3);
    expectRefused(WRONG_PARAMETER_ERROR, writeFields(strings, numbers), state());
}

TEST_F(WriteMessage, ToAReadOnlyTableIsRefusedAndDropsNothing) {
    ASSERT_EQ(writeSimple(1, 4), NO_ERROR);
    ASSERT_EQ(closeTable(table), NO_ERROR);
    open(OpenMode::read);
    LogCapture log;
    const State before = state();
    const std::array<StringField, 4> holed = {StringField{nullptr, 1}, {}, {}, {}};
    const std::array<NumericValue, 1> numbers{};
    expectRefused(READ_ONLY_ERROR, write(simpleMessage(5)), before);
    expectRefused(READ_ONLY_ERROR, writeFields(holed), before);
    expectRefused(STRING_FIELDS_COUNT_MISMATCH_ERROR, writeFields(std::span(holed).first(3)), before);
    expectRefused(NUMERIC_FIELDS_COUNT_MISMATCH_ERROR, writeFields(holed, numbers), before);
    EXPECT_TRUE(log.all().empty()) << log.all().front();
    EXPECT_EQ(readAll(table.get()).messages, simpleMessages(1, 4));
}

TEST_F(WriteMessage, WithoutAnActiveFileIsAWriteErrorAndCountsNothing) {
    table = createTable(directory.root());
    EXPECT_EQ(write(simpleMessage(1)), FILE_WRITE_ERROR);
    EXPECT_EQ(table->records.dataInfo.messageCount, 0);
    EXPECT_EQ(table->writer->summary.messageCount, 0);
    EXPECT_TRUE(table->records.staticIndexes == mthStaticIndexes{});
}

TEST_F(WriteMessage, StopsCountingAtTheLargestNumberAndTheTableOpensAgain) {
    table->records.dataInfo.messageCount = std::numeric_limits<std::int32_t>::max() - 1;
    ASSERT_EQ(writeSimple(1, 2), NO_ERROR);
    EXPECT_EQ(table->records.dataInfo.messageCount, std::numeric_limits<std::int32_t>::max());
    ASSERT_EQ(closeTable(table), NO_ERROR);
    LogCapture log;
    open(OpenMode::write);
    EXPECT_EQ(table->records.dataInfo.messageCount, std::numeric_limits<std::int32_t>::max());
    EXPECT_TRUE(log.warnings().empty()) << log.warnings().front();
}

TEST_F(WriteMessage, TellsTheTableItsBytesAndTheBlocksEndOnlyWhenItClosedOne) {
    const MessageMetadata metadata;
    const std::array<StringField, 4> strings{};
    const std::int64_t ends[] = {0, 0, HEADER + 8 + 3 * 55 + static_cast<std::int64_t>(FOOTER), 0};
    const std::int64_t sizes[] = {8 + 55, 55, 55 + static_cast<std::int64_t>(FOOTER), 8 + 55};
    for (std::size_t i = 0; i < 4; ++i) {
        Appended appended{-1, -1};
        ASSERT_EQ(mfr_writeMessage(table->writer.get(), {metadata, strings, {}}, &appended), NO_ERROR);
        EXPECT_EQ(appended.blockEnd, ends[i]) << "message " << i + 1;
        EXPECT_EQ(appended.bytes, sizes[i]) << "message " << i + 1;
    }
}

TEST_F(WriteMessage, NeverMovesAReadersPlaceAndIsNotMovedByOne) {
    ASSERT_EQ(writeSimple(1, 2), NO_ERROR);
    EXPECT_EQ(readAll(table.get()).messages, simpleMessages(1, 2));
    ASSERT_EQ(writeSimple(3, 4), NO_ERROR);
    EXPECT_EQ(readAllBackward(table.get()).messages.size(), 4U);
    ASSERT_EQ(writeSimple(5, 7), NO_ERROR);
    EXPECT_EQ(readAll(table.get()).messages, simpleMessages(1, 7));
}

TEST_F(WriteMessage, WritesNoLogLine) {
    LogCapture log;
    ASSERT_EQ(writeSimple(1, 7), NO_ERROR);
    EXPECT_TRUE(log.all().empty()) << log.all().front();
}

}  // namespace
}  // namespace tabulo::internal::test
