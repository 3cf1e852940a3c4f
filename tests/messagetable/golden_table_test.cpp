// Tables written out by hand, byte for byte: what the library writes must be exactly these files.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "tests/messagetable/expected_bytes.h"
#include "tests/messagetable/message_table_fixture.h"

namespace tabulo::internal::test {
namespace {

// A table with blocks of three messages, the string field Symbol and the numeric field Price.
constexpr const char* FRONT =
    "4b 65 73 74 72 6f 76 61 44 62  01  05 00  20 03  a1 00 00 00"  // KestrovaDb, little-endian, 5.800, 161 bytes
    "0d 00 00 00  4d 65 73 73 61 67 65 54 61 62 6c 65 00"           // MessageTable
    "03 00 00 00  05 00 00 00  03 00 00 00  01 00 00 00"            // block of 3; 5 strings, 3 summarised; 1 number
    "07 00 00 00  53 79 6d 62 6f 6c 00"                             // Symbol
    "06 00 00 00  50 72 69 63 65 00";                               // Price

// A pending message, never numbered; a double, three texts.
constexpr const char* FIRST_FRAME =
    "4f 00 00 00  0b 00 00 00  ff ff ff ff  00 00 00 00  64 00 00 00  e8 03 00 00 00 00 00 00"
    "44 00 00 00 00  00  00"
    "01 00 00 00 00 00 00 f8 3f"
    "03 00 00 00 63 31 00   00 00 00 00   04 00 00 00 49 42 4d 00   04 00 00 00 38 3d 41 00   00 00 00 00"
    "4f 00 00 00";
// From the counterparty, a possible duplicate; no number, an empty text, a text without a NUL.
constexpr const char* SECOND_FRAME =
    "46 00 00 00  0c 00 00 00  05 00 00 00  00 00 00 00  ff ff ff 1f  d0 07 00 00 00 00 00 00"
    "41 45 00 00 00  01  00"
    "00"
    "03 00 00 00 63 32 00   01 00 00 00 00   05 00 00 00 4d 53 46 54 00   00 00 00 00   01 00 00 00 78"
    "46 00 00 00";
// The pending message sent; all five letters of a type, no text.
constexpr const char* THIRD_FRAME =
    "44 00 00 00  0d 00 00 00  06 00 00 00  ff ff ff ff  65 00 00 00  dc 05 00 00 00 00 00 00"
    "41 42 43 44 45  00  00"
    "01 00 00 00 00 00 00 00 c0"
    "00 00 00 00   00 00 00 00   00 00 00 00   00 00 00 00   00 00 00 00"
    "44 00 00 00";
// Resent and out of sequence, with a long.
constexpr const char* FOURTH_FRAME =
    "44 00 00 00  0e 00 00 00  04 00 00 00  00 00 00 00  ff ff ff 5f  b8 0b 00 00 00 00 00 00"
    "38 00 00 00 00  00  01"
    "02 07 00 00 00 00 00 00 00"
    "00 00 00 00   00 00 00 00   00 00 00 00   00 00 00 00   00 00 00 00"
    "44 00 00 00";

constexpr const char* INDEXES_AFTER_THREE =
    "ff ff ff 1f  65 00 00 00  ff ff ff ff  ff ff ff ff  ff ff ff ff  0d 00 00 00"
    "ff ff ff ff  dc 05 00 00 00 00 00 00"
    "ff ff ff ff  e8 03 00 00 00 00 00 00"
    "06 00 00 00  dc 05 00 00 00 00 00 00";
constexpr const char* INDEXES_AFTER_FOUR =
    "ff ff ff 1f  65 00 00 00  ff ff ff ff  ff ff ff ff  ff ff ff 5f  0e 00 00 00"
    "ff ff ff ff  dc 05 00 00 00 00 00 00"
    "ff ff ff ff  e8 03 00 00 00 00 00 00"
    "06 00 00 00  dc 05 00 00 00 00 00 00";

// The block's footer: 8 + 217 + 3926 = 4151 (1037 hexadecimal) bytes are in the block.
Bytes footer() {
    return ExpectedBytes()
        .hex(
            "ff ff ff ff  0b 00 00 00  e8 03 00 00 00 00 00 00"
            "ff ff ff 1f  64 00 00 00  00 00 00 00  00 00 00 00  00 00 00 00"
            "01 00 00 00 00 00 00 00 c0")
        .hex(
            "06 00 00 00  0d 00 00 00  d0 07 00 00 00 00 00 00"
            "ff ff ff 1f  65 00 00 00  ff ff ff ff  ff ff ff ff  ff ff ff ff"
            "01 00 00 00 00 00 00 f8 3f")
        .filter({1, 3, 480, 5185, 5725, 6342, 3465})                                         // c1, c2
        .filter({0, 5})                                                                      // the empty text
        .filter({19, 43, 70, 235, 1142, 3183, 8924, 329, 360, 364, 2320, 6641, 7242, 8651})  // IBM, MSFT
        .hex(INDEXES_AFTER_THREE)
        .hex("37 10 00 00 00 00 00 00")
        .bytes();
}

Bytes header(const char* bookkeeping, const char* indexes) {
    return ExpectedBytes().hex(FRONT).hex(bookkeeping).hex(indexes).bytes();
}

Bytes closedBlock() {
    return ExpectedBytes()
        .hex("37 10 00 00 00 00 00 00")
        .hex(FIRST_FRAME)
        .hex(SECOND_FRAME)
        .hex(THIRD_FRAME)
        .append(footer())
        .bytes();
}

Message makeMessage(std::int32_t uniformId, std::int32_t seqNum, std::int32_t prevSeqNum, std::int32_t connMsgId,
                    std::int64_t timestamp) {
    Message message;
    message.metadata.uniformId = uniformId;
    message.metadata.seqNum = seqNum;
    message.metadata.prevSeqNum = prevSeqNum;
    message.metadata.connMsgId = connMsgId;
    message.metadata.timestamp = timestamp;
    message.strings.resize(5);
    message.numbers.resize(1);
    return message;
}

std::vector<Message> goldenMessages() {
    Message first = makeMessage(11, -1, 0, 100, 1000);
    setMsgType(&first.metadata, "D");
    first.numbers[0] = numericValue_ofDouble(1.5);
    first.strings = {withNul("c1"), std::nullopt, withNul("IBM"), withNul("8=A"), std::nullopt};
    Message second = makeMessage(12, 5, 0, 536870911, 2000);
    setMsgType(&second.metadata, "AE");
    second.metadata.isPossDupFlag = 1;
    second.strings = {withNul("c2"), withNul(""), withNul("MSFT"), std::nullopt, "x"};
    Message third = makeMessage(13, 6, -1, 101, 1500);
    setMsgType(&third.metadata, "ABCDE");
    third.numbers[0] = numericValue_ofDouble(-2);
    Message fourth = makeMessage(14, 4, 0, 1610612735, 3000);
    setMsgType(&fourth.metadata, "8");
    fourth.metadata.isOutOfSequence = 1;
    fourth.numbers[0] = numericValue_ofLong(7);
    return {first, second, third, fourth};
}

class GoldenTable : public MessageTableTest {
  protected:
    void SetUp() override {
        shape.stringNames = {"Symbol"};
        shape.numericNames = {"Price"};
    }
    // Creates the table and stores the first `count` messages.
    void store(std::size_t count) {
        open(OpenMode::create);
        for (std::size_t i = 0; i < count; ++i) {
            ASSERT_EQ(write(goldenMessages()[i]), NO_ERROR) << "message " << i;
        }
    }
    void expectFile(const ExpectedBytes& expected) {
        const Bytes actual = fileBytes();
        ASSERT_EQ(actual.size(), expected.bytes().size());
        const auto difference = std::mismatch(actual.begin(), actual.end(), expected.bytes().begin());
        const auto offset = static_cast<std::size_t>(difference.first - actual.begin());
        const std::size_t shown = std::min<std::size_t>(32, actual.size() - offset);
        EXPECT_EQ(offset, actual.size()) << "at offset " << offset << " the file has\n  "
                                         << hexAt(actual, offset, shown) << "\nand not\n  "
                                         << hexAt(expected.bytes(), offset, shown);
    }

    const std::string noBlock = "00 00 00 00 00 00 00 00  00 00 00 00 00 00 00 00 ";
    const std::string oneBlock = "00 00 00 00 00 00 00 00  d8 10 00 00 00 00 00 00 ";
};

TEST_F(GoldenTable, WithoutMessagesIsItsHeader) {
    store(0);
    expectFile(ExpectedBytes()
                   .hex(FRONT)
                   .hex(noBlock + "a1 00 00 00 00 00 00 00  00 00 00 00")
                   .append(expectedEmptyIndexes()));
}

TEST_F(GoldenTable, WithTwoMessagesHasAnOpenBlockBehindAHeaderThatKnowsNothingOfIt) {
    store(2);
    expectFile(ExpectedBytes()
                   .hex(FRONT)
                   .hex(noBlock + "a1 00 00 00 00 00 00 00  00 00 00 00")
                   .append(expectedEmptyIndexes())
                   .hex("00 00 00 00 00 00 00 00")
                   .hex(FIRST_FRAME)
                   .hex(SECOND_FRAME));
}

TEST_F(GoldenTable, WithThreeMessagesHasAClosedBlockAndAHeaderThatKnowsIt) {
    store(3);
    ASSERT_EQ(footer().size(), 3926U);
    EXPECT_EQ(table->storage->footerSize, 3926);
    expectFile(ExpectedBytes()
                   .append(header((oneBlock + "d8 10 00 00 00 00 00 00  03 00 00 00").c_str(), INDEXES_AFTER_THREE))
                   .append(closedBlock()));
}

TEST_F(GoldenTable, WithFourMessagesGetsItsWholeHeaderWhenItIsClosed) {
    store(4);
    const ExpectedBytes data = ExpectedBytes().append(closedBlock()).hex("00 00 00 00 00 00 00 00").hex(FOURTH_FRAME);
    expectFile(ExpectedBytes()
                   .append(header((oneBlock + "d8 10 00 00 00 00 00 00  03 00 00 00").c_str(), INDEXES_AFTER_THREE))
                   .append(data.bytes()));
    ASSERT_EQ(closeTable(table), NO_ERROR);
    expectFile(ExpectedBytes()
                   .append(header((oneBlock + "24 11 00 00 00 00 00 00  04 00 00 00").c_str(), INDEXES_AFTER_FOUR))
                   .append(data.bytes()));
}

TEST_F(GoldenTable, WrittenByHandIsReadAndContinued) {
    writeFile(path(),
              ExpectedBytes()
                  .append(header((oneBlock + "24 11 00 00 00 00 00 00  04 00 00 00").c_str(), INDEXES_AFTER_FOUR))
                  .append(closedBlock())
                  .hex("00 00 00 00 00 00 00 00")
                  .hex(FOURTH_FRAME)
                  .bytes());
    EXPECT_EQ(messagesIn(directory.root(), shape), goldenMessages());
    open(OpenMode::write);
    ASSERT_EQ(write(goldenMessages()[0]), NO_ERROR);
    EXPECT_EQ(fileBytes().size(), 4388U + 79) << "the open block goes on without a second length word";
    EXPECT_EQ(hexAt(fileBytes(), 4388, 79), ExpectedBytes().hex(FIRST_FRAME).hexText());
}

TEST_F(GoldenTable, WrittenInTwoSessionsIsTheSameFile) {
    store(1);
    ASSERT_EQ(closeTable(table), NO_ERROR);
    for (const std::size_t i : {1U, 2U, 3U}) {
        open(OpenMode::write);
        ASSERT_EQ(write(goldenMessages()[i]), NO_ERROR);
        ASSERT_EQ(closeTable(table), NO_ERROR);
    }
    expectFile(ExpectedBytes()
                   .append(header((oneBlock + "24 11 00 00 00 00 00 00  04 00 00 00").c_str(), INDEXES_AFTER_FOUR))
                   .append(closedBlock())
                   .hex("00 00 00 00 00 00 00 00")
                   .hex(FOURTH_FRAME));
}

TEST_F(GoldenTable, OfDefaultShapeHasFramesOf55BytesAndAFooterOf2652) {
    shape = defaultShape();
    open(OpenMode::create);
    EXPECT_EQ(fileBytes().size(), 140U);
    EXPECT_EQ(table->storage->footerSize, 2652);
    ASSERT_EQ(write(bareMessage(1, shape)), NO_ERROR);
    EXPECT_EQ(fileBytes().size(), 140U + 8 + 55);
    for (std::int32_t n = 2; n < 1000; ++n) {
        ASSERT_EQ(write(bareMessage(n, shape)), NO_ERROR);
    }
    EXPECT_EQ(fileBytes().size(), 140U + 8 + 999 * 55);
    ASSERT_EQ(write(bareMessage(1000, shape)), NO_ERROR);
    const Bytes bytes = fileBytes();
    ASSERT_EQ(bytes.size(), 140U + 8 + 1000 * 55 + 2652);
    EXPECT_EQ(u64At(bytes, 140), 8U + 1000 * 55 + 2652);
    EXPECT_EQ(u64At(bytes, bytes.size() - 8), u64At(bytes, 140)) << "the footer ends with the block's length";
}

TEST_F(GoldenTable, OfTheWidestShapeHasAFooterOf18012) {
    shape = widestShape(1);
    open(OpenMode::create);
    EXPECT_EQ(table->storage->footerSize, 18012);
    const std::size_t headerSize = fileBytes().size();
    ASSERT_EQ(write(bareMessage(1, shape)), NO_ERROR);
    EXPECT_EQ(fileBytes().size(), headerSize + 8 + (35 + 16 + 16 * 4 + 4) + 18012);
}

}  // namespace
}  // namespace tabulo::internal::test
