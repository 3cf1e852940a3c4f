#include <gtest/gtest.h>

#include <cerrno>

#include "storage/table_file.h"
#include "tests/storage/open_table_file.h"
#include "tests/support/bytes.h"
#include "tests/support/debug_log.h"
#include "tests/support/fault_platform.h"
#include "tests/support/log_capture.h"
#include "tests/support/temporary_directory.h"

namespace tabulo::internal::test {
namespace {

const std::string seekRefused = debugLine("FileRead", "fread in seek failed with code 5. Returning FILE_SEEK_ERROR");
const std::string syncRefused = debugLine("tableFileRead", "syncing position failed");

std::string shortRead(int length, int position, int count) {
    return debugLine("FileRead", "fread " + std::to_string(length) + " bytes from pos " + std::to_string(position) +
                                     " failed: only " + std::to_string(count) +
                                     " bytes read. Returning FILE_READ_ERROR.");
}

class TableFileReading : public ::testing::Test {
  protected:
    void SetUp() override {
        writeFile(path, content);
        file = openTableFile(path, OpenMode::read);
    }

    ErrorCode read(std::int64_t length) { return tableFileRead(file.get(), buffer.data(), length, &count); }
    ErrorCode readExact(std::int64_t length) { return tableFileReadExact(file.get(), buffer.data(), length); }

    const TemporaryDirectory directory;
    const std::string path = directory.file("orders");
    const Bytes content = pattern(20000);
    Bytes buffer = Bytes(20000);
    TableFilePtr file;
    std::int64_t count = -1;
};

TEST_F(TableFileReading, ReadsFollowEachOtherAndSeeks) {
    EXPECT_EQ(readHex(file, 5), hexOf(content, 0, 5));
    EXPECT_EQ(readHex(file, 5), hexOf(content, 5, 5));
    EXPECT_EQ(positionOf(file), 10);
    ASSERT_EQ(tableFileSeekSet(file.get(), 12345), NO_ERROR);
    EXPECT_EQ(readHex(file, 5000), hexOf(content, 12345, 5000));
    ASSERT_EQ(tableFileSeekCur(file.get(), -17345), NO_ERROR);
    EXPECT_EQ(readHex(file, 20000), hexOf(content, 0, 20000));
}

TEST_F(TableFileReading, AShortReadAtTheEndIsNoErrorAndLogsNothing) {
    ASSERT_EQ(tableFileSeekEnd(file.get(), -10), NO_ERROR);
    const DebugLog log;
    EXPECT_EQ(read(50), NO_ERROR);
    EXPECT_EQ(count, 10);
    EXPECT_EQ(positionOf(file), 20000);
    EXPECT_EQ(read(1), NO_ERROR);
    EXPECT_EQ(count, 0);
    EXPECT_EQ(log.text(), "") << "probing for the end of the data is silent";
}

TEST_F(TableFileReading, AnExactReadThatComesShortIsAReadErrorWithALine) {
    ASSERT_EQ(tableFileSeekEnd(file.get(), -10), NO_ERROR);
    const DebugLog log;
    EXPECT_EQ(readExact(11), FILE_READ_ERROR);
    EXPECT_EQ(log.lines(), std::vector<std::string>{shortRead(11, 19990, 10)});
}

TEST_F(TableFileReading, AnExactReadUpToTheEndSucceedsSilently) {
    ASSERT_EQ(tableFileSeekEnd(file.get(), -10), NO_ERROR);
    const DebugLog log;
    EXPECT_EQ(readExact(10), NO_ERROR);
    EXPECT_EQ(hexOf(buffer, 0, 10), hexOf(content, 19990, 10));
    EXPECT_EQ(log.text(), "");
}

TEST_F(TableFileReading, ACheckedReadBeyondTheCachedSizeTouchesNothing) {
    ASSERT_EQ(tableFileSeekEnd(file.get(), -10), NO_ERROR);
    appendFile(path, pattern(5));
    const DebugLog log;
    const FaultPlatform platform;
    EXPECT_EQ(tableFileReadChecked(file.get(), buffer.data(), 11), FILE_SIZE_ERROR);
    EXPECT_EQ(platform.sequence(), "") << "the stream was touched";
    EXPECT_EQ(log.text(), "");
    EXPECT_EQ(positionOf(file), 19990);
    EXPECT_EQ(tableFileReadChecked(file.get(), buffer.data(), 10), NO_ERROR);
    EXPECT_EQ(hexOf(buffer, 0, 10), hexOf(content, 19990, 10));
}

TEST_F(TableFileReading, ACheckedReadOfNothingBehindTheEndIsOneBeyondTheSize) {
    ASSERT_EQ(tableFileSeekEnd(file.get(), 0), NO_ERROR);
    writeFile(path, pattern(15));
    std::int64_t size = 0;
    ASSERT_EQ(tableFileGetSize(file.get(), &size), NO_ERROR);
    ASSERT_EQ(tableFileCachedSize(file.get()), 15);
    EXPECT_EQ(tableFileReadChecked(file.get(), buffer.data(), 0), FILE_SIZE_ERROR);
}

TEST_F(TableFileReading, ACheckedReadInAFileThatShrankUnnoticedIsAReadError) {
    writeFile(path, pattern(15));
    EXPECT_EQ(tableFileReadChecked(file.get(), buffer.data(), 20), FILE_READ_ERROR);
}

TEST_F(TableFileReading, ABackwardReadEndsAtThePositionAndLeavesItAtItsStart) {
    ASSERT_EQ(tableFileSeekSet(file.get(), 1000), NO_ERROR);
    EXPECT_EQ(tableFileReadBackward(file.get(), buffer.data(), 10), NO_ERROR);
    EXPECT_EQ(hexOf(buffer, 0, 10), hexOf(content, 990, 10));
    EXPECT_EQ(positionOf(file), 990);
    EXPECT_EQ(tableFileReadBackward(file.get(), buffer.data(), 990), NO_ERROR);
    EXPECT_EQ(hexOf(buffer, 0, 990), hexOf(content, 0, 990));
    EXPECT_EQ(positionOf(file), 0);
}

TEST_F(TableFileReading, ABackwardReadBeyondTheStartIsASeekOutOfRange) {
    ASSERT_EQ(tableFileSeekSet(file.get(), 9), NO_ERROR);
    EXPECT_EQ(tableFileReadBackward(file.get(), buffer.data(), 10), VSEEK_ERROR);
    EXPECT_EQ(positionOf(file), 9);
    tableFileSetRangeStart(file.get(), 5);
    EXPECT_EQ(tableFileReadBackward(file.get(), buffer.data(), 5), VSEEK_ERROR) << "below the range start";
}

TEST_F(TableFileReading, NegativeLengthsAreWrongParameters) {
    std::int64_t bytes = 0;
    EXPECT_EQ(read(-1), WRONG_PARAMETER_ERROR);
    EXPECT_EQ(readExact(-1), WRONG_PARAMETER_ERROR);
    EXPECT_EQ(tableFileReadChecked(file.get(), buffer.data(), -1), WRONG_PARAMETER_ERROR);
    EXPECT_EQ(tableFileReadBackward(file.get(), buffer.data(), -1), WRONG_PARAMETER_ERROR);
    EXPECT_EQ(tableFileReadAt(file.get(), 0, buffer.data(), -1, &bytes), WRONG_PARAMETER_ERROR);
    EXPECT_EQ(positionOf(file), 0);
}

TEST_F(TableFileReading, ReadingAtAnOffsetMovesNeitherPositionNorBuffer) {
    EXPECT_EQ(readHex(file, 10), hexOf(content, 0, 10));
    const FaultPlatform platform;
    EXPECT_EQ(tableFileReadAt(file.get(), 19995, buffer.data(), 10, &count), NO_ERROR);
    EXPECT_EQ(count, 5) << "a short read at the end is no error";
    EXPECT_EQ(hexOf(buffer, 0, 5), hexOf(content, 19995, 5));
    EXPECT_EQ(platform.calls(FileCall::readAt)[0].offset, 19995);
    const int calls = platform.count(FileCall::readAt);
    EXPECT_EQ(positionOf(file), 10);
    EXPECT_EQ(readHex(file, 10), hexOf(content, 10, 10));
    EXPECT_EQ(platform.count(FileCall::readAt), calls) << "the buffer was lost";
}

// Positions: how the stream is moved.

TEST_F(TableFileReading, ShortForwardMovesAreServedFromTheBuffer) {
    const FaultPlatform platform;
    EXPECT_EQ(readHex(file, 10), hexOf(content, 0, 10));
    ASSERT_EQ(platform.count(FileCall::readAt), 1);
    for (const std::int64_t position : {50, 51, 1000, 4000}) {
        ASSERT_EQ(tableFileSeekSet(file.get(), position), NO_ERROR);
        EXPECT_EQ(readHex(file, 1), hexOf(content, static_cast<std::size_t>(position), 1));
    }
    EXPECT_EQ(platform.count(FileCall::readAt), 1) << "the buffer held all of it";
}

TEST_F(TableFileReading, AForwardMoveOf4095BytesReadsAndOf4096BytesSeeks) {
    FaultPlatform platform;
    ASSERT_EQ(readHex(file, 10), hexOf(content, 0, 10));
    ASSERT_EQ(tableFileSeekCur(file.get(), 4095), NO_ERROR);
    ASSERT_EQ(readHex(file, 1), hexOf(content, 4105, 1));
    ASSERT_EQ(platform.count(FileCall::readAt), 2);
    EXPECT_EQ(platform.calls(FileCall::readAt)[1].offset, 4096) << "the gap is read, from where the buffer ended";

    const TableFilePtr other = openTableFile(path, OpenMode::read);
    platform.clear();
    ASSERT_EQ(readHex(other, 10), hexOf(content, 0, 10));
    ASSERT_EQ(tableFileSeekCur(other.get(), 4096), NO_ERROR);
    ASSERT_EQ(readHex(other, 1), hexOf(content, 4106, 1));
    ASSERT_EQ(platform.count(FileCall::readAt), 2);
    EXPECT_EQ(platform.calls(FileCall::readAt)[1].offset, 4106) << "the gap is skipped";
}

TEST_F(TableFileReading, ABackwardMoveReadsFreshBytes) {
    EXPECT_EQ(readHex(file, 10), hexOf(content, 0, 10));
    patchFile(path, 5, fromHex("aa bb"));
    ASSERT_EQ(tableFileSeekSet(file.get(), 4), NO_ERROR);
    EXPECT_EQ(readHex(file, 3), hexOf(content, 4, 1) + " aa bb");
}

TEST_F(TableFileReading, OnAWritableFileEveryMoveIsASeek) {
    const TableFilePtr writable = openTableFile(path, OpenMode::write);
    const FaultPlatform platform;
    EXPECT_EQ(readHex(writable, 10), hexOf(content, 0, 10));
    ASSERT_EQ(tableFileSeekCur(writable.get(), 40), NO_ERROR);
    EXPECT_EQ(readHex(writable, 10), hexOf(content, 50, 10));
    EXPECT_EQ(platform.calls(FileCall::readAt)[1].offset, 50);
}

// Failures.

TEST_F(TableFileReading, ARefusedReadIsAReadErrorFromEveryReadOperation) {
    FaultPlatform platform;
    platform.failAll(FileCall::readAt, EIO);
    EXPECT_EQ(read(10), FILE_READ_ERROR);
    EXPECT_EQ(read(8192), FILE_READ_ERROR) << "a read past the buffer";
    EXPECT_EQ(tableFileReadAt(file.get(), 0, buffer.data(), 10, &count), FILE_READ_ERROR);
    EXPECT_EQ(tableFileReadChecked(file.get(), buffer.data(), 10), FILE_READ_ERROR);
    DebugLog log;
    EXPECT_EQ(readExact(10), FILE_READ_ERROR);
    EXPECT_EQ(log.lines(), std::vector<std::string>{shortRead(10, 0, 0)});
    ASSERT_EQ(tableFileSeekSet(file.get(), 10), NO_ERROR);
    EXPECT_EQ(tableFileReadBackward(file.get(), buffer.data(), 10), FILE_READ_ERROR);
    EXPECT_EQ(positionOf(file), 0) << "the failed step is the read, behind the seek";
}

TEST_F(TableFileReading, AReadThatIsRefusedHalfWayIsAnErrorAndCountsWhatCame) {
    for (const std::int64_t length : {100, 10000}) {
        const TableFilePtr other = openTableFile(path, OpenMode::read);
        FaultPlatform platform;
        platform.limitTransfer(60);
        platform.failNth(FileCall::readAt, 2, EIO);
        EXPECT_EQ(tableFileRead(other.get(), buffer.data(), length, &count), FILE_READ_ERROR) << length << " bytes";
        EXPECT_EQ(count, 60);
        EXPECT_EQ(positionOf(other), 60);
        EXPECT_EQ(readHex(other, 10), hexOf(content, 60, 10)) << "a later read goes on behind them";
    }
}

TEST_F(TableFileReading, InterruptedAndPartialReadsAreContinued) {
    FaultPlatform platform;
    platform.limitTransfer(7);
    platform.failNth(FileCall::readAt, 1, EINTR);
    platform.failNth(FileCall::readAt, 3, EINTR);
    EXPECT_EQ(readHex(file, 100), hexOf(content, 0, 100));
    EXPECT_EQ(readHex(file, 9000), hexOf(content, 100, 9000));
}

TEST_F(TableFileReading, AReadOfTheBuffersSizeBypassesTheBuffer) {
    FaultPlatform platform;
    platform.limitTransfer(1000);
    EXPECT_EQ(readHex(file, FILE_STREAM_BUFFER), hexOf(content, 0, FILE_STREAM_BUFFER));
    for (const RecordedCall& call : platform.calls(FileCall::readAt)) {
        EXPECT_EQ(call.offset + call.length, static_cast<std::int64_t>(FILE_STREAM_BUFFER)) << "reads ahead";
    }
}

TEST_F(TableFileReading, AFailedDiscardReadIsASeekErrorThatLeavesTheVirtualPosition) {
    ASSERT_EQ(tableFileSeekSet(file.get(), 100), NO_ERROR);
    FaultPlatform platform;
    platform.failNth(FileCall::readAt, 1, EIO);
    DebugLog log;
    EXPECT_EQ(read(10), FILE_SEEK_ERROR);
    EXPECT_EQ(log.lines(), (std::vector<std::string>{seekRefused, syncRefused}));
    EXPECT_EQ(positionOf(file), 100);
    EXPECT_EQ(file->physicalPos, 0);
    EXPECT_EQ(readHex(file, 10), hexOf(content, 100, 10)) << "the next read succeeds where it should";
}

TEST_F(TableFileReading, ADiscardReadThatFailsHalfWayKnowsWhereTheStreamStands) {
    ASSERT_EQ(tableFileSeekSet(file.get(), 100), NO_ERROR);
    FaultPlatform platform;
    platform.limitTransfer(60);
    platform.failNth(FileCall::readAt, 2, EIO);
    EXPECT_EQ(read(10), FILE_SEEK_ERROR);
    EXPECT_EQ(file->physicalPos, 60);
    EXPECT_EQ(positionOf(file), 100);
    EXPECT_EQ(readHex(file, 10), hexOf(content, 100, 10));
}

TEST_F(TableFileReading, AnExactReadReportsAReadErrorAlsoWhenThePositionCouldNotBeReached) {
    ASSERT_EQ(tableFileSeekSet(file.get(), 100), NO_ERROR);
    FaultPlatform platform;
    platform.failNth(FileCall::readAt, 1, EIO);
    const DebugLog log;
    EXPECT_EQ(readExact(10), FILE_READ_ERROR);
    EXPECT_EQ(log.lines(), (std::vector<std::string>{seekRefused, syncRefused, shortRead(10, 100, 0)}));
}

// Beside a writer.

class TableFileReadingBesideAWriter : public ::testing::Test {
  protected:
    void SetUp() override {
        writer = openTableFile(path, OpenMode::create);
        append(pattern(100));
        reader = openTableFile(path, OpenMode::read);
    }

    void append(const Bytes& bytes) {
        ASSERT_EQ(tableFileSeekEnd(writer.get(), 0), NO_ERROR);
        ASSERT_EQ(writeBytes(writer, bytes), NO_ERROR);
        ASSERT_EQ(tableFileFlush(writer.get()), NO_ERROR);
    }
    void overwrite(std::int64_t position, const Bytes& bytes) {
        ASSERT_EQ(tableFileSeekSet(writer.get(), position), NO_ERROR);
        ASSERT_EQ(writeBytes(writer, bytes), NO_ERROR);
        ASSERT_EQ(tableFileFlush(writer.get()), NO_ERROR);
    }

    const TemporaryDirectory directory;
    const std::string path = directory.file("orders");
    TableFilePtr writer;
    TableFilePtr reader;
};

TEST_F(TableFileReadingBesideAWriter, AfterTheEndAppendedBytesAreReadWithoutASeek) {
    EXPECT_EQ(readHex(reader, 200), toHex(pattern(100)));
    EXPECT_EQ(readHex(reader, 200), "");
    append(fromHex("aa bb cc"));
    EXPECT_EQ(readHex(reader, 200), "aa bb cc");
    append(fromHex("dd"));
    EXPECT_EQ(readHex(reader, 1), "dd");
}

TEST_F(TableFileReadingBesideAWriter, AReadThatCrossesTheOldEndSeesTheNewBytes) {
    EXPECT_EQ(readHex(reader, 90), hexOf(pattern(100), 0, 90));
    append(fromHex("aa bb cc"));
    EXPECT_EQ(readHex(reader, 200), hexOf(pattern(100), 90, 10) + " aa bb cc");
}

TEST_F(TableFileReadingBesideAWriter, AfterFollowingTheEndRewrittenBytesAreFresh) {
    EXPECT_EQ(readHex(reader, 10), hexOf(pattern(100), 0, 10));
    overwrite(10, fromHex("aa bb cc"));
    EXPECT_EQ(tableFileFollowEnd(reader.get()), NO_ERROR);
    EXPECT_EQ(positionOf(reader), 10);
    EXPECT_EQ(reader->physicalPos, 100) << "the stream stands at the file's end";
    EXPECT_EQ(reader->pendingOffset, -90);
    EXPECT_EQ(readHex(reader, 3), "aa bb cc");
}

TEST_F(TableFileReadingBesideAWriter, FollowingTheEndKeepsAPendingMove) {
    EXPECT_EQ(readHex(reader, 10), hexOf(pattern(100), 0, 10));
    ASSERT_EQ(tableFileSeekSet(reader.get(), 60), NO_ERROR);
    overwrite(60, fromHex("aa bb cc"));
    append(pattern(30));
    EXPECT_EQ(tableFileFollowEnd(reader.get()), NO_ERROR);
    EXPECT_EQ(positionOf(reader), 60);
    EXPECT_EQ(reader->physicalPos, 130);
    EXPECT_EQ(readHex(reader, 3), "aa bb cc");
}

TEST_F(TableFileReadingBesideAWriter, FollowingTheEndHasNoEffectOnAWritableFile) {
    ASSERT_EQ(tableFileSeekSet(writer.get(), 10), NO_ERROR);
    const FaultPlatform platform;
    EXPECT_EQ(tableFileFollowEnd(writer.get()), NO_ERROR);
    EXPECT_EQ(platform.sequence(), "");
    EXPECT_EQ(positionOf(writer), 10);
}

TEST_F(TableFileReadingBesideAWriter, AnEndThatCannotBeFoundIsASeekErrorThatLeavesThePosition) {
    EXPECT_EQ(readHex(reader, 10), hexOf(pattern(100), 0, 10));
    FaultPlatform platform;
    platform.failAll(FileCall::size, EIO);
    EXPECT_EQ(tableFileFollowEnd(reader.get()), FILE_SEEK_ERROR);
    EXPECT_EQ(positionOf(reader), 10);
    EXPECT_EQ(readHex(reader, 3), hexOf(pattern(100), 10, 3));
}

TEST_F(TableFileReadingBesideAWriter, ReadingAtAnOffsetAlwaysSeesThisMomentsBytes) {
    EXPECT_EQ(readHex(reader, 10), hexOf(pattern(100), 0, 10));
    overwrite(20, fromHex("aa bb cc"));
    Bytes bytes(3);
    std::int64_t count = 0;
    EXPECT_EQ(tableFileReadAt(reader.get(), 20, bytes.data(), 3, &count), NO_ERROR);
    EXPECT_EQ(toHex(bytes), "aa bb cc");
}

}  // namespace
}  // namespace tabulo::internal::test
