// mt_writeRawMessage: messages that come as one encoded frame.
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <limits>
#include <string>

#include "messagetable/message_table.h"
#include "tests/messagetable/expected_bytes.h"
#include "tests/messagetable/message_table_fixture.h"
#include "tests/support/fault_platform.h"
#include "tests/support/log_capture.h"

namespace tabulo::internal::test {
namespace {

constexpr std::size_t FIRST_FRAME = 148;  // behind the header and the block's length word

class RawMessage : public MessageTableTest {
  protected:
    void SetUp() override { open(OpenMode::create); }
    ErrorCode writeRaw(const Bytes& frame) {
        return mt_writeRawMessage(table.get(), frame.data(), static_cast<std::int32_t>(frame.size()));
    }
    void expectRefused(ErrorCode expected, const Bytes& frame, const std::string& what) {
        const Bytes before = fileBytes();
        EXPECT_EQ(writeRaw(frame), expected) << what;
        EXPECT_EQ(toHex(fileBytes()), toHex(before)) << what;
        EXPECT_EQ(table->records.dataInfo.messageCount, 0) << what;
        EXPECT_EQ(table->writer->summary.messageCount, 0) << what;
    }
};

TEST_F(RawMessage, IsStoredAsTheFrameItIs) {
    const Bytes frame = frameOf(simpleMessage(1));
    ASSERT_EQ(writeRaw(frame), NO_ERROR);
    EXPECT_EQ(fileBytes().size(), FIRST_FRAME + frame.size());
    EXPECT_EQ(hexAt(fileBytes(), FIRST_FRAME, frame.size()), toHex(frame));
    EXPECT_EQ(table->records.dataInfo.messageCount, 1);
    EXPECT_EQ(table->records.dataInfo.dataEnd, fileBytes().size());
    EXPECT_EQ(table->records.staticIndexes.lastUniform, 1);
}

TEST_F(RawMessage, MakesTheSameTableAsMessagesGivenFieldByField) {
    shape = widestShape();
    open(OpenMode::create);
    for (const Message& message : simpleMessages(1, 7, shape)) {
        ASSERT_EQ(writeRaw(frameOf(message)), NO_ERROR);
    }
    const Bytes raw = fileBytes();
    open(OpenMode::create);
    ASSERT_EQ(writeSimple(1, 7), NO_ERROR);
    EXPECT_TRUE(raw == fileBytes());
    EXPECT_EQ(readAll(table.get()).messages, simpleMessages(1, 7, shape));
}

TEST_F(RawMessage, BytesBehindTheFrameAreIgnored) {
    Bytes frame = frameOf(simpleMessage(1));
    const std::size_t length = frame.size();
    frame.insert(frame.end(), 100, 0xee);
    ASSERT_EQ(writeRaw(frame), NO_ERROR);
    EXPECT_EQ(fileBytes().size(), FIRST_FRAME + length);
}

TEST_F(RawMessage, ATextWithoutANulStaysWithoutOne) {
    Message message = bareMessage(1);
    message.strings[2] = "8=FIX.4.2";
    ASSERT_EQ(writeRaw(frameOf(message)), NO_ERROR);
    EXPECT_EQ(readAll(table.get()).messages.at(0), message);
}

TEST_F(RawMessage, BytesBehindTheNulOfItsMsgTypeNeverReachTheFile) {
    Bytes frame = frameOf(bareMessage(1));
    const Bytes msgType = fromHex("38 00 78 79 7a");
    std::copy(msgType.begin(), msgType.end(), frame.begin() + 28);
    ASSERT_EQ(writeRaw(frame), NO_ERROR);
    EXPECT_EQ(hexAt(fileBytes(), FIRST_FRAME + 28, 5), "38 00 00 00 00");
}

TEST_F(RawMessage, CutAnywhereIsNoDataAndChangesNothing) {
    const Bytes frame = frameOf(simpleMessage(1));
    for (std::size_t length = 1; length < frame.size(); ++length) {
        expectRefused(NO_DATA_ERROR, Bytes(frame.begin(), frame.begin() + static_cast<std::ptrdiff_t>(length)),
                      std::to_string(length) + " bytes");
    }
}

TEST_F(RawMessage, OfLengthZeroIsNoData) {
    const char nothing = 0;
    EXPECT_EQ(mt_writeRawMessage(table.get(), &nothing, 0), NO_DATA_ERROR);
}

TEST_F(RawMessage, WithLengthsThatDisagreeIsInconsistentAndChangesNothing) {
    Bytes frame = frameOf(simpleMessage(1));
    frame[0] += 1;
    expectRefused(CONSISTENCY_ERROR, frame, "msgLen");
    frame[0] -= 1;
    frame[frame.size() - 4] += 1;
    expectRefused(CONSISTENCY_ERROR, frame, "msgLen2");
}

TEST_F(RawMessage, WithBothLengthsOffIsNoDataAndChangesNothing) {
    Bytes frame = frameOf(simpleMessage(1));
    frame[0] += 1;
    frame[frame.size() - 4] += 1;
    frame.push_back(0);
    expectRefused(NO_DATA_ERROR, frame, "one byte more than its fields take");
}

TEST_F(RawMessage, WithAnUnknownNumericTypeIsInconsistent) {
    shape.numericNames = {"Price"};
    open(OpenMode::create);
    Bytes frame = frameOf(bareMessage(1, shape));
    frame[35] = 3;
    expectRefused(CONSISTENCY_ERROR, frame, "type 3");
}

TEST_F(RawMessage, OfANegativeLengthIsAWriteResetErrorAndChangesNothing) {
    const Bytes frame = frameOf(simpleMessage(1));
    const Bytes before = fileBytes();
    for (const std::int32_t length : {-1, std::numeric_limits<std::int32_t>::min()}) {
        EXPECT_EQ(mt_writeRawMessage(table.get(), frame.data(), length), STREAM_WRITE_RESET_ERROR) << length;
    }
    EXPECT_EQ(toHex(fileBytes()), toHex(before));
    EXPECT_EQ(STREAM_WRITE_RESET_ERROR, 29);
}

TEST_F(RawMessage, WithoutTableStorageOrBufferIsANullPointer) {
    const Bytes frame = frameOf(simpleMessage(1));
    const auto length = static_cast<std::int32_t>(frame.size());
    EXPECT_EQ(mt_writeRawMessage(nullptr, frame.data(), length), NULL_POINTER_ERROR);
    EXPECT_EQ(mt_writeRawMessage(table.get(), nullptr, length), NULL_POINTER_ERROR);
    EXPECT_EQ(mt_writeRawMessage(table.get(), nullptr, -1), NULL_POINTER_ERROR);
    MessageTable empty;
    EXPECT_EQ(mt_writeRawMessage(&empty, frame.data(), length), NULL_POINTER_ERROR);
}

TEST_F(RawMessage, OfAnotherLayoutIsRefused) {
    TableShape other;
    other.stringNames = {"Symbol"};
    EXPECT_NE(writeRaw(frameOf(bareMessage(1, other))), NO_ERROR);
    EXPECT_EQ(fileBytes().size(), 140U);
}

TEST_F(RawMessage, ToAReadOnlyTableIsRefusedAndDropsNothing) {
    ASSERT_EQ(writeSimple(1, 2), NO_ERROR);
    ASSERT_EQ(closeTable(table), NO_ERROR);
    open(OpenMode::read);
    LogCapture log;
    EXPECT_EQ(writeRaw(frameOf(simpleMessage(3))), READ_ONLY_ERROR);
    EXPECT_TRUE(log.all().empty()) << log.all().front();
    EXPECT_EQ(table->storage->activeCount, 1);
    EXPECT_EQ(readAll(table.get()).messages, simpleMessages(1, 2));
}

TEST_F(RawMessage, WithoutAnActiveFileIsAWriteError) {
    table = createTable(directory.root());
    EXPECT_EQ(writeRaw(frameOf(simpleMessage(1))), FILE_WRITE_ERROR);
    EXPECT_EQ(table->records.dataInfo.messageCount, 0);
}

TEST_F(RawMessage, ThatClosesABlockSavesTheTailAndReportsItsFailure) {
    ASSERT_EQ(writeSimple(1, 2), NO_ERROR);
    FaultPlatform platform;
    platform.failNth(FileCall::writeAt, 3, EIO);
    EXPECT_EQ(writeRaw(frameOf(simpleMessage(3))), FILE_FLUSH_ERROR);
    EXPECT_EQ(table->records.dataInfo.messageCount, 3);
    EXPECT_EQ(table->records.blockInfo.lastBlockEnd, fileBytes().size());
    table.reset();
}

TEST_F(RawMessage, WhoseWriteFailsLeavesEverythingAsItWas) {
    ASSERT_EQ(writeSimple(1, 2), NO_ERROR);
    const Bytes before = fileBytes();
    FaultPlatform platform;
    platform.failNth(FileCall::writeAt, 1, ENOSPC);
    EXPECT_EQ(writeRaw(frameOf(simpleMessage(3))), FILE_FLUSH_ERROR);
    EXPECT_EQ(toHex(fileBytes()), toHex(before));
    EXPECT_EQ(table->records.dataInfo.messageCount, 2);
    EXPECT_EQ(table->writer->summary.messageCount, 2);
    table.reset();
}

}  // namespace
}  // namespace tabulo::internal::test
