// Appends that fail on their way: what they leave in the file, in the counters and in the writer.
#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <vector>

#include "messagetable/message_table.h"
#include "tests/messagetable/expected_bytes.h"
#include "tests/messagetable/message_table_fixture.h"
#include "tests/support/allocation_failure.h"
#include "tests/support/debug_log.h"
#include "tests/support/fault_platform.h"
#include "tests/support/log_capture.h"

namespace tabulo::internal::test {
namespace {

using Lines = std::vector<std::string>;

std::string dropped(int index, ErrorCode code) {
    return warningLine("mfr_writeMessage", "Replica " + std::to_string(index) +
                                               " closed due to file write error: " + getErrorMessage(code));
}

// The footer that the writer would write now, which tells its whole summary.
std::string writerState(const MessageTable* table) {
    const ByteStreamPtr stream(byteStream_create(0));
    const BlockSummary& summary = table->writer->summary;
    EXPECT_EQ(blockSummary_writeFooter(&summary, table->header.layout, stream.get()), NO_ERROR);
    const std::uint8_t* begin = byteStream_buffer(stream.get());
    return std::to_string(summary.messageCount) + " messages, " + std::to_string(summary.frameBytes) + " bytes, " +
           toHex(std::span(begin, static_cast<std::size_t>(byteStream_writeMark(stream.get()))));
}

class WriteFailure : public MessageTableTest {
  protected:
    // Stores `count` messages and remembers what a failure has to leave as it is.
    void store(std::int32_t count) {
        open(OpenMode::create);
        ASSERT_EQ(writeSimple(1, count), NO_ERROR);
        file = fileBytes();
        writer = writerState(table.get());
        dataInfo = table->records.dataInfo;
        blockInfo = table->records.blockInfo;
        indexes = table->records.staticIndexes;
        log.clear();
        platform.clear();
    }
    void expectNothingStored() {
        EXPECT_EQ(toHex(fileBytes()), toHex(file)) << "the file still shows a trace of the message";
        expectNothingCounted();
    }
    void expectNothingCounted() {
        EXPECT_EQ(writerState(table.get()), writer);
        EXPECT_EQ(table->records.dataInfo.messageCount, dataInfo.messageCount);
        EXPECT_EQ(table->records.dataInfo.dataEnd, dataInfo.dataEnd);
        EXPECT_EQ(table->records.blockInfo.lastBlockEnd, blockInfo.lastBlockEnd);
        EXPECT_TRUE(table->records.staticIndexes == indexes);
    }
    // Opens the master again and puts it back into the storage, so that the writer can be seen going on.
    void putMasterBack() {
        platform.clear();
        TableStorage* storage = table->storage.get();
        ASSERT_EQ(storage->activeCount, 0);
        ASSERT_EQ(storage->files[0], nullptr) << "a dropped file leaves its slot";
        ASSERT_EQ(tableFileOpen(&storage->files[0], path().c_str(), OpenMode::write, nullptr), NO_ERROR);
        storage->activeIndexes[0] = 0;
        storage->activeCount = 1;
    }
    // Stores the rest up to message 7; the file must be that of a table where nothing failed.
    void expectGoesOnAsIfNothingHadFailed(std::int32_t next) {
        putMasterBack();
        ASSERT_EQ(writeSimple(next, 7), NO_ERROR);
        ASSERT_EQ(mt_close(table.get()), NO_ERROR);
        const TemporaryDirectory other;
        MessageTablePtr unharmed = openTable(other.root(), OpenMode::create, shape);
        ASSERT_EQ(writeSimpleMessages(unharmed.get(), 1, 7, shape), NO_ERROR);
        ASSERT_EQ(closeTable(unharmed), NO_ERROR);
        EXPECT_EQ(toHex(fileBytes()), toHex(readFile(other.file(shape.name))));
    }
    static Message largeMessage(std::int32_t n, std::size_t size = 5000) {
        Message message = simpleMessage(n);
        message.strings[2] = std::string(size, 'x') + '\0';
        return message;
    }
    void TearDown() override { table.reset(); }

    FaultPlatform platform;
    LogCapture log;
    Bytes file;
    std::string writer;
    DataInfo dataInfo;
    BlockInfo blockInfo;
    mthStaticIndexes indexes;
};

TEST_F(WriteFailure, OfASmallMessageIsAFlushErrorThatDropsTheFile) {
    store(1);
    platform.failNth(FileCall::writeAt, 1, ENOSPC);
    EXPECT_EQ(write(simpleMessage(2)), FILE_FLUSH_ERROR);
    EXPECT_EQ(log.warnings(), Lines{dropped(0, FILE_FLUSH_ERROR)});
    EXPECT_FALSE(tableStorage_isActive(table->storage.get()));
    EXPECT_EQ(platform.count(FileCall::close), 1);
    expectNothingStored();
    EXPECT_EQ(write(simpleMessage(2)), FILE_WRITE_ERROR) << "no file is left";
    expectNothingStored();
}

TEST_F(WriteFailure, OfAMessageBeyondTheBufferIsAWriteError) {
    store(1);
    platform.failNth(FileCall::writeAt, 1, EIO);
    EXPECT_EQ(write(largeMessage(2)), FILE_WRITE_ERROR);
    EXPECT_EQ(log.warnings(), Lines{dropped(0, FILE_WRITE_ERROR)});
    expectNothingStored();
}

TEST_F(WriteFailure, BehindPartOfAMessageIsCutBackToWhereTheFileEnded) {
    for (const bool large : {false, true}) {
        store(1);
        platform.limitTransfer(10);
        platform.failNth(FileCall::writeAt, 3, ENOSPC);
        EXPECT_NE(write(large ? largeMessage(2) : simpleMessage(2)), NO_ERROR);
        ASSERT_EQ(platform.count(FileCall::truncate), 1);
        EXPECT_EQ(platform.calls(FileCall::truncate)[0].offset, static_cast<std::int64_t>(file.size()));
        platform.limitTransfer(0);
        expectNothingStored();
        table.reset();
    }
}

TEST_F(WriteFailure, OfTheFirstMessageOfABlockTakesTheLengthWordAwayToo) {
    store(3);
    platform.limitTransfer(10);
    platform.failNth(FileCall::writeAt, 2, ENOSPC);
    EXPECT_EQ(write(simpleMessage(4)), FILE_FLUSH_ERROR);
    platform.limitTransfer(0);
    expectNothingStored();
    expectGoesOnAsIfNothingHadFailed(4);
}

TEST_F(WriteFailure, OfTheLastMessageOfABlockLeavesTheBlockOpen) {
    store(2);
    platform.limitTransfer(1000);
    platform.failNth(FileCall::writeAt, 2, ENOSPC);
    EXPECT_EQ(write(simpleMessage(3)), FILE_FLUSH_ERROR);
    platform.limitTransfer(0);
    expectNothingStored();
    expectGoesOnAsIfNothingHadFailed(3);
}

TEST_F(WriteFailure, OfABlocksLengthWordCutsMessageAndFooterAway) {
    store(2);
    platform.failNth(FileCall::writeAt, 2, EIO);
    EXPECT_EQ(write(simpleMessage(3)), FILE_FLUSH_ERROR);
    EXPECT_EQ(log.warnings(), Lines{dropped(0, FILE_FLUSH_ERROR)});
    expectNothingStored();
    expectGoesOnAsIfNothingHadFailed(3);
}

TEST_F(WriteFailure, LeavesTheWriterToGoOnAsIfNothingHadHappened) {
    store(4);
    platform.failNth(FileCall::writeAt, 1, EIO);
    Message other = simpleMessage(99);
    other.metadata.connMsgId = 0x5FFFFFFF;
    EXPECT_EQ(write(other), FILE_FLUSH_ERROR);
    expectNothingStored();
    expectGoesOnAsIfNothingHadFailed(5);
}

TEST_F(WriteFailure, WhoseCutFailsTooStillGivesTheFirstCodeAndTheTableRecovers) {
    store(1);
    platform.limitTransfer(10);
    platform.failNth(FileCall::writeAt, 3, ENOSPC);
    platform.failAll(FileCall::truncate, EIO);
    EXPECT_EQ(write(simpleMessage(2)), FILE_FLUSH_ERROR);
    EXPECT_EQ(log.warnings(), Lines{dropped(0, FILE_FLUSH_ERROR)});
    EXPECT_EQ(fileBytes().size(), file.size() + 20);
    expectNothingCounted();
    platform.limitTransfer(0);
    platform.clear();
    open(OpenMode::write);
    EXPECT_EQ(readAll(table.get()).messages, simpleMessages(1, 1));
}

TEST_F(WriteFailure, OfTheCloseOfADroppedFileChangesNeitherCodeNorWarning) {
    store(1);
    platform.failNth(FileCall::writeAt, 1, ENOSPC);
    platform.failNth(FileCall::close, 1, EIO);
    EXPECT_EQ(write(simpleMessage(2)), FILE_FLUSH_ERROR);
    EXPECT_EQ(log.warnings(), Lines{dropped(0, FILE_FLUSH_ERROR)});
    EXPECT_EQ(table->storage->activeCount, 0);
    expectNothingStored();
}

TEST_F(WriteFailure, ToEncodeTouchesNoFileAndDropsNone) {
    store(1);
    const Message message = largeMessage(2);
    const MessageFields fields(message);
    ErrorCode code = NO_ERROR;
    {
        const AllocationFailure failure(1);
        code = mt_writeMessage(table.get(), fields.view());
    }
    EXPECT_EQ(code, STREAM_EXTENSION_ERROR);
    EXPECT_EQ(platform.sequence(), "");
    EXPECT_TRUE(log.all().empty()) << log.all().front();
    EXPECT_EQ(table->storage->activeCount, 1);
    expectNothingStored();
    ASSERT_EQ(write(message), NO_ERROR) << "the stream's error does not outlive the message";
    EXPECT_TRUE(readAll(table.get()).messages.at(1) == message);
}

TEST_F(WriteFailure, ToEncodeTheFooterLeavesTheBlockOpen) {
    // The frame fits into the stream's first 4548 bytes, the footer behind it does not.
    store(2);
    const Message message = largeMessage(3, 3000);
    const MessageFields fields(message);
    ErrorCode code = NO_ERROR;
    {
        const AllocationFailure failure(1);
        code = mt_writeMessage(table.get(), fields.view());
    }
    EXPECT_EQ(code, STREAM_EXTENSION_ERROR);
    EXPECT_EQ(platform.sequence(), "");
    expectNothingStored();
    ASSERT_EQ(writeSimple(3, 3), NO_ERROR);
    EXPECT_EQ(readAll(table.get()).messages, simpleMessages(1, 3));
    EXPECT_EQ(table->records.blockInfo.lastBlockEnd, fileBytes().size());
}

TEST_F(WriteFailure, OfAFrameBeyondTheLargestInt32IsAnExtensionErrorAndTouchesNothing) {
    store(1);
    const MessageMetadata metadata;
    // The text is never looked at: the stream is refused the room first.
    const std::vector<StringField> fields = {{"", 2147483647}, {}, {}, {}};
    EXPECT_EQ(mt_writeMessage(table.get(), {metadata, fields, {}}), STREAM_EXTENSION_ERROR);
    EXPECT_EQ(table->storage->activeCount, 1);
    expectNothingStored();
}

TEST_F(WriteFailure, OfTheTailIsReportedAlthoughTheMessageIsStored) {
    store(2);
    platform.failNth(FileCall::writeAt, 3, EIO);
    EXPECT_EQ(write(simpleMessage(3)), FILE_FLUSH_ERROR);
    EXPECT_EQ(log.warnings(), Lines{warningLine("tv_saveData", std::string("Replica 0 closed due to file write "
                                                                           "error: ") +
                                                                   getErrorMessage(FILE_FLUSH_ERROR))});
    EXPECT_EQ(platform.count(FileCall::truncate), 0) << "a failed tail save cuts nothing";
    EXPECT_EQ(table->records.dataInfo.messageCount, 3);
    EXPECT_EQ(table->records.dataInfo.dataEnd, fileBytes().size());
    EXPECT_EQ(table->records.blockInfo.lastBlockEnd, fileBytes().size());
    EXPECT_EQ(table->records.staticIndexes.lastUniform, 3);
    EXPECT_EQ(table->writer->summary.messageCount, 0);
    EXPECT_EQ(table->storage->activeCount, 0);
    platform.clear();
    open(OpenMode::write);
    EXPECT_EQ(readAll(table.get()).messages, simpleMessages(1, 3));
}

TEST_F(WriteFailure, OfTheTailGoesOnWithTheNextBlock) {
    store(2);
    platform.failNth(FileCall::writeAt, 3, EIO);
    EXPECT_EQ(write(simpleMessage(3)), FILE_FLUSH_ERROR);
    expectGoesOnAsIfNothingHadFailed(4);
}

}  // namespace
}  // namespace tabulo::internal::test
