// mt_writeRawMessages: any number of encoded frames, with one write for each block.
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <limits>

#include "messagetable/message_table.h"
#include "tests/messagetable/message_table_fixture.h"
#include "tests/support/fault_platform.h"
#include "tests/support/log_capture.h"

namespace tabulo::internal::test {
namespace {

class RawMessages : public MessageTableTest {
  protected:
    void SetUp() override { open(OpenMode::create); }

    static Bytes joined(const std::vector<Bytes>& frames) {
        Bytes all;
        for (const Bytes& frame : frames) {
            all.insert(all.end(), frame.begin(), frame.end());
        }
        return all;
    }
    Bytes framesOf(std::int32_t first, std::int32_t last) const {
        std::vector<Bytes> frames;
        for (const Message& message : simpleMessages(first, last, shape)) {
            frames.push_back(frameOf(message));
        }
        return joined(frames);
    }
    ErrorCode writeRaw(const Bytes& frames) { return mt_writeRawMessages(table.get(), frames, &offset, &stored); }

    std::size_t offset = 99;
    std::int64_t stored = 99;
};

TEST_F(RawMessages, MakeTheSameTableAsEachAlone) {
    ASSERT_EQ(writeRaw(framesOf(1, 7)), NO_ERROR);
    EXPECT_EQ(stored, 7);
    const Bytes together = fileBytes();
    open(OpenMode::create);
    for (const Message& message : simpleMessages(1, 7)) {
        const Bytes frame = frameOf(message);
        ASSERT_EQ(mt_writeRawMessage(table.get(), frame.data(), static_cast<std::int32_t>(frame.size())), NO_ERROR);
    }
    EXPECT_EQ(difference(together, fileBytes()), "");
}

TEST_F(RawMessages, AreStoredAsTheyAreAlsoWithBytesThatEncodingDoesNotLeave) {
    std::vector<Bytes> frames;
    for (const Message& message : simpleMessages(1, 7)) {
        Bytes frame = frameOf(message);
        frame[30] = 'X';  // behind the zero byte that ends the MsgType
        frame[33] = 7;    // flags other than 0 and 1
        frame[34] = 255;
        frames.push_back(frame);
    }
    ASSERT_EQ(writeRaw(joined(frames)), NO_ERROR);
    const Bytes file = fileBytes();
    for (const Bytes& frame : frames) {
        EXPECT_NE(std::search(file.begin(), file.end(), frame.begin(), frame.end()), file.end());
    }
}

TEST_F(RawMessages, KeepTheTablesBooks) {
    ASSERT_EQ(writeRaw(framesOf(1, 8)), NO_ERROR);
    EXPECT_EQ(table->records.dataInfo.messageCount, 8);
    EXPECT_EQ(table->records.dataInfo.dataEnd, fileBytes().size());
    EXPECT_EQ(mt_dataEnd(table.get()), static_cast<std::int64_t>(fileBytes().size()));
    EXPECT_EQ(table->records.staticIndexes.lastUniform, 8);
    EXPECT_EQ(table->writer->summary.messageCount, 2);
    ASSERT_EQ(writeSimple(9, 10), NO_ERROR);
    ASSERT_EQ(closeTable(table), NO_ERROR);
    EXPECT_EQ(messagesIn(directory.root()), simpleMessages(1, 10));
}

TEST_F(RawMessages, CountUpToTheLargestNumberAndNotBeyond) {
    table->records.dataInfo.messageCount = std::numeric_limits<std::int32_t>::max() - 2;
    ASSERT_EQ(writeRaw(framesOf(1, 5)), NO_ERROR);
    EXPECT_EQ(table->records.dataInfo.messageCount, std::numeric_limits<std::int32_t>::max());
}

TEST_F(RawMessages, OfNoneWriteNothing) {
    const FaultPlatform platform;
    EXPECT_EQ(writeRaw({}), NO_ERROR);
    EXPECT_EQ(stored, 0);
    EXPECT_EQ(offset, 0u);
    EXPECT_EQ(platform.sequence(), "");
}

TEST_F(RawMessages, StoreNothingWhenOneIsNotSound) {
    const Bytes before = fileBytes();
    Bytes frames = framesOf(1, 4);
    const std::size_t lastFrame = framesOf(1, 3).size();
    frames.pop_back();
    EXPECT_EQ(writeRaw(frames), NO_DATA_ERROR);
    EXPECT_EQ(offset, lastFrame);
    EXPECT_EQ(stored, 0);
    frames.push_back(0xAA);
    EXPECT_EQ(writeRaw(frames), CONSISTENCY_ERROR);
    EXPECT_EQ(offset, lastFrame);
    frames = framesOf(1, 4);
    frames.push_back(1);
    EXPECT_EQ(writeRaw(frames), NO_DATA_ERROR);
    EXPECT_EQ(offset, frames.size() - 1);
    EXPECT_EQ(difference(fileBytes(), before), "");
    EXPECT_EQ(table->writer->summary.messageCount, 0);
}

TEST_F(RawMessages, AreRefusedByATableThatIsOpenForReading) {
    ASSERT_EQ(closeTable(table), NO_ERROR);
    open(OpenMode::read);
    EXPECT_EQ(writeRaw(framesOf(1, 1)), READ_ONLY_ERROR);
    EXPECT_EQ(stored, 0);
}

TEST_F(RawMessages, AreRefusedWithoutATableOrAPlaceForTheAnswer) {
    EXPECT_EQ(mt_writeRawMessages(nullptr, {}, &offset, &stored), NULL_POINTER_ERROR);
    EXPECT_EQ(mt_writeRawMessages(table.get(), {}, nullptr, &stored), NULL_POINTER_ERROR);
    EXPECT_EQ(mt_writeRawMessages(table.get(), {}, &offset, nullptr), NULL_POINTER_ERROR);
}

TEST_F(RawMessages, LeaveTheWriterAsItWasWhenTheirWriteFails) {
    ASSERT_EQ(writeSimple(1, 2), NO_ERROR);
    const Bytes before = fileBytes();
    const LogCapture log;
    {
        FaultPlatform platform;
        platform.failNth(FileCall::writeAt, 1, ENOSPC);
        EXPECT_EQ(writeRaw(framesOf(3, 9)), FILE_FLUSH_ERROR);
    }
    EXPECT_EQ(stored, 0);
    EXPECT_EQ(table->writer->summary.messageCount, 2);
    EXPECT_EQ(table->records.dataInfo.messageCount, 2);
    EXPECT_EQ(difference(fileBytes(), before), "");
    EXPECT_EQ(writeRaw(framesOf(3, 3)), FILE_WRITE_ERROR) << "the file was closed";
}

TEST_F(RawMessages, TellHowManyStandInFrontOfTheWriteThatFailed) {
    const LogCapture log;
    {
        FaultPlatform platform;
        platform.failNth(FileCall::writeAt, 4, ENOSPC);  // of the second block; the first took three
        EXPECT_EQ(writeRaw(framesOf(1, 8)), FILE_FLUSH_ERROR);
    }
    EXPECT_EQ(stored, 3);
    table.reset();
    open(OpenMode::write);
    EXPECT_EQ(readAll(table.get()).messages, simpleMessages(1, 3));
}

TEST_F(RawMessages, CountThoseOfABlockWhoseTailAloneCouldNotBeSaved) {
    const LogCapture log;
    {
        FaultPlatform platform;
        platform.failNth(FileCall::writeAt, 3, EIO);
        EXPECT_EQ(writeRaw(framesOf(1, 8)), FILE_FLUSH_ERROR);
    }
    EXPECT_EQ(stored, 3);
    table.reset();
    open(OpenMode::write);
    EXPECT_EQ(readAll(table.get()).messages, simpleMessages(1, 3));
}

// Messages that open, fill and close blocks of three are large, some as the last of the bytes that are given.
class LargeRawMessages : public RawMessages {
  protected:
    std::vector<Message> messages() const {
        std::vector<Message> all = simpleMessages(1, 8, shape);
        for (const std::size_t large : {0U, 1U, 2U, 4U, 5U, 7U}) {
            all[large].strings[0] = std::string(LARGE_FRAME + 10 * large, static_cast<char>('a' + large));
        }
        return all;
    }
    Bytes frames() const {
        std::vector<Bytes> each;
        for (const Message& message : messages()) {
            each.push_back(frameOf(message));
        }
        return joined(each);
    }
};

TEST_F(LargeRawMessages, MakeTheSameTableAsEachAloneAndAreNotCopied) {
    const Bytes bytes = frames();
    {
        const FaultPlatform platform;
        ASSERT_EQ(writeRaw(bytes), NO_ERROR);
        // Each alone, and the fourth and the seventh; two length words; two tails.
        EXPECT_LE(platform.count(FileCall::writeAt), 3 * 6 + 2 + 2 + 2);
    }
    EXPECT_EQ(stored, 8);
    EXPECT_LT(byteStream_capacity(table->writer->stream.get()), LARGE_FRAME);
    const Bytes together = fileBytes();
    open(OpenMode::create);
    for (const Message& message : messages()) {
        ASSERT_EQ(writeMessage(table.get(), message), NO_ERROR);
    }
    EXPECT_EQ(difference(together, fileBytes()), "");
}

TEST_F(LargeRawMessages, AreStoredAsAWholeOrNotAtAllWhicheverWriteFails) {
    const Bytes bytes = frames();
    int failing = 1;
    for (bool failed = true; failed; ++failing) {
        open(OpenMode::create);
        const LogCapture log;
        ErrorCode code = NO_ERROR;
        {
            FaultPlatform platform;
            platform.failNth(FileCall::writeAt, failing, ENOSPC);
            code = writeRaw(bytes);
        }
        failed = code != NO_ERROR;
        table.reset();
        open(OpenMode::write);
        const std::vector<Message> all = messages();
        EXPECT_EQ(readAll(table.get()).messages, std::vector<Message>(all.begin(), all.begin() + stored))
            << "with write " << failing << " refused";
    }
    EXPECT_GT(failing, 8) << "each large frame has a write of its own, at least";
}

TEST_F(RawMessages, AreCommittedWhenThatIsAsked) {
    FaultPlatform platform;
    EXPECT_EQ(mt_commit(table.get()), NO_ERROR);
    EXPECT_EQ(platform.count(FileCall::sync), 1);
    platform.failNth(FileCall::sync, 2, EIO);
    const LogCapture log;
    EXPECT_EQ(mt_commit(table.get()), FILE_FLUSH_ERROR);
    EXPECT_EQ(log.warnings(), std::vector<std::string>{"Tabulo/C WARNING: mt_commit(): commit of " + path() +
                                                       " to the disk failed: Input/output error"});
    EXPECT_EQ(mt_commit(nullptr), NULL_POINTER_ERROR);
    ASSERT_EQ(mt_closeFiles(table.get()), NO_ERROR);
    EXPECT_EQ(mt_commit(table.get()), MASTER_INACTIVE_ERROR);
    open(OpenMode::read);
    EXPECT_EQ(mt_commit(table.get()), READ_ONLY_ERROR);
}

TEST_F(RawMessages, StayWhenTheFilesAreClosed) {
    ASSERT_EQ(writeRaw(framesOf(1, 4)), NO_ERROR);
    EXPECT_EQ(mt_close(table.get()), NO_ERROR);
    FaultPlatform platform;
    platform.failNth(FileCall::close, 1, EIO);
    const LogCapture log;
    EXPECT_EQ(mt_closeFiles(table.get()), SYSTEM_FILE_ERROR);
    EXPECT_EQ(mt_closeFiles(table.get()), NO_ERROR) << "nothing is open any more";
    EXPECT_EQ(mt_closeFiles(nullptr), NULL_POINTER_ERROR);
    EXPECT_EQ(messagesIn(directory.root()), simpleMessages(1, 4));
}

}  // namespace
}  // namespace tabulo::internal::test
