#include <gtest/gtest.h>

#include <cerrno>

#include "storage/table_file.h"
#include "storage/table_file_internal.h"
#include "tests/storage/open_table_file.h"
#include "tests/support/bytes.h"
#include "tests/support/captured_output.h"
#include "tests/support/debug_log.h"
#include "tests/support/fault_platform.h"
#include "tests/support/log_capture.h"
#include "tests/support/temporary_directory.h"

namespace tabulo::internal::test {
namespace {

std::string sizeLine(int requested, int actual) {
    return debugLine("tableFileTruncate", "requested file size = " + std::to_string(requested) +
                                              ", actual file size = " + std::to_string(actual) + ".");
}

class TableFileTruncate : public ::testing::Test {
  protected:
    void SetUp() override {
        writeFile(path, pattern(100));
        file = openTableFile(path, OpenMode::write);
        log.clear();
    }

    FaultPlatform platform;
    const TemporaryDirectory directory;
    const std::string path = directory.file("orders");
    TableFilePtr file;
    DebugLog log;
};

TEST_F(TableFileTruncate, OfAReadOnlyFileIsRefused) {
    const TableFilePtr reader = openTableFile(path, OpenMode::read);
    EXPECT_EQ(tableFileTruncate(reader.get(), 10), READ_ONLY_ERROR);
    EXPECT_EQ(readFile(path).size(), 100U);
}

TEST_F(TableFileTruncate, ToANegativeSizeIsAWrongParameter) {
    EXPECT_EQ(tableFileTruncate(file.get(), -1), WRONG_PARAMETER_ERROR);
    EXPECT_EQ(readFile(path).size(), 100U);
}

TEST_F(TableFileTruncate, BelowThePositionMovesItToTheNewEnd) {
    ASSERT_EQ(tableFileSeekSet(file.get(), 80), NO_ERROR);
    EXPECT_EQ(tableFileTruncate(file.get(), 60), NO_ERROR);
    EXPECT_EQ(positionOf(file), 60);
    EXPECT_EQ(tableFileCachedSize(file.get()), 60);
    EXPECT_EQ(toHex(readFile(path)), toHex(pattern(60)));
    EXPECT_EQ(log.lines(), std::vector<std::string>{sizeLine(60, 60)});
    EXPECT_EQ(file->lastOperation, TableFileOperation::truncate);
}

TEST_F(TableFileTruncate, AboveThePositionLeavesItWhereItIs) {
    EXPECT_EQ(readHex(file, 30), toHex(pattern(30)));
    EXPECT_EQ(tableFileTruncate(file.get(), 60), NO_ERROR);
    EXPECT_EQ(positionOf(file), 30);
    EXPECT_EQ(readHex(file, 100), hexOf(pattern(100), 30, 30)) << "what was read ahead beyond the cut is gone";
}

TEST_F(TableFileTruncate, WritingGoesOnAtTheCut) {
    ASSERT_EQ(tableFileSeekEnd(file.get(), 0), NO_ERROR);
    ASSERT_EQ(tableFileTruncate(file.get(), 3), NO_ERROR);
    ASSERT_EQ(writeBytes(file, fromHex("aa bb")), NO_ERROR);
    ASSERT_EQ(tableFileFlush(file.get()), NO_ERROR);
    EXPECT_EQ(toHex(readFile(path)), hexOf(pattern(100), 0, 3) + " aa bb");
    EXPECT_EQ(tableFileCachedSize(file.get()), 5);
}

TEST_F(TableFileTruncate, GatheredBytesAreWrittenBeforeTheCut) {
    ASSERT_EQ(tableFileSeekEnd(file.get(), 0), NO_ERROR);
    ASSERT_EQ(writeBytes(file, fromHex("aa bb cc")), NO_ERROR);
    EXPECT_EQ(tableFileTruncate(file.get(), 101), NO_ERROR);
    EXPECT_EQ(toHex(readFile(path)), toHex(pattern(100)) + " aa");
    EXPECT_EQ(tableFileFlush(file.get()), NO_ERROR);
    EXPECT_EQ(readFile(path).size(), 101U) << "cut bytes were written again";
}

TEST_F(TableFileTruncate, BeyondTheEndExtendsWithZeros) {
    EXPECT_EQ(tableFileTruncate(file.get(), 103), NO_ERROR);
    EXPECT_EQ(toHex(readFile(path)), toHex(pattern(100)) + " 00 00 00");
    EXPECT_EQ(tableFileCachedSize(file.get()), 103);
    EXPECT_EQ(positionOf(file), 0);
}

TEST_F(TableFileTruncate, ToZeroEmptiesTheFile) {
    ASSERT_EQ(tableFileSeekEnd(file.get(), 0), NO_ERROR);
    EXPECT_EQ(tableFileTruncate(file.get(), 0), NO_ERROR);
    EXPECT_EQ(positionOf(file), 0);
    EXPECT_EQ(readFile(path).size(), 0U);
}

TEST_F(TableFileTruncate, ARefusedCutIsReportedAndThePositionRestored) {
    ASSERT_EQ(tableFileSeekSet(file.get(), 20), NO_ERROR);
    platform.failNth(FileCall::truncate, 1, EPERM);
    EXPECT_EQ(tableFileTruncate(file.get(), 60), FILE_TRUNCATE_ERROR);
    EXPECT_EQ(log.lines(),
              std::vector<std::string>{debugLine("sys_ftruncate", "truncating failed. Windows error code: 1.")});
    EXPECT_EQ(positionOf(file), 20);
    EXPECT_EQ(tableFileCachedSize(file.get()), 100);
    EXPECT_EQ(readHex(file, 5), hexOf(pattern(100), 20, 5)) << "the stream stands where the position says";
    ASSERT_EQ(writeBytes(file, fromHex("aa")), NO_ERROR);
    ASSERT_EQ(tableFileFlush(file.get()), NO_ERROR);
    Bytes expected = pattern(100);
    expected[25] = 0xaa;
    EXPECT_EQ(toHex(readFile(path)), toHex(expected));
}

TEST_F(TableFileTruncate, ARefusedCutBelowThePositionLeavesItAtTheRequestedSize) {
    ASSERT_EQ(tableFileSeekSet(file.get(), 80), NO_ERROR);
    platform.failNth(FileCall::truncate, 1, EPERM);
    EXPECT_EQ(tableFileTruncate(file.get(), 60), FILE_TRUNCATE_ERROR);
    EXPECT_EQ(positionOf(file), 60);
    EXPECT_EQ(readHex(file, 5), hexOf(pattern(100), 60, 5));
}

TEST_F(TableFileTruncate, ARefusedCutWithThePositionAtTheEndIsReportedAsSuccess) {
    // Deliberate: callers go by the size, and the line shows the true one.
    ASSERT_EQ(tableFileSeekEnd(file.get(), 0), NO_ERROR);
    platform.failAll(FileCall::truncate, EFBIG);
    EXPECT_EQ(tableFileTruncate(file.get(), 200), NO_ERROR);
    EXPECT_EQ(tableFileCachedSize(file.get()), 100);
    EXPECT_EQ(positionOf(file), 100);
    EXPECT_EQ(log.lines(),
              (std::vector<std::string>{debugLine("sys_ftruncate", "truncating failed. Windows error code: 27."),
                                        sizeLine(200, 100)}));
    ASSERT_EQ(writeBytes(file, fromHex("aa")), NO_ERROR);
    ASSERT_EQ(tableFileFlush(file.get()), NO_ERROR);
    EXPECT_EQ(toHex(readFile(path)), toHex(pattern(100)) + " aa") << "the stream stands at the real end";
}

TEST_F(TableFileTruncate, GatheredBytesThatCannotBeWrittenAreASeekErrorAndNothingIsCut) {
    ASSERT_EQ(writeBytes(file, pattern(10, 9)), NO_ERROR);
    platform.failNth(FileCall::writeAt, 1, ENOSPC);
    ErrorCode code = NO_ERROR;
    {
        const CapturedOutput errors(stderr);
        code = tableFileTruncate(file.get(), 60);
    }
    EXPECT_EQ(code, FILE_SEEK_ERROR);
    EXPECT_EQ(platform.count(FileCall::truncate), 0);
    EXPECT_EQ(toHex(readFile(path)), toHex(pattern(100)));
}

TEST_F(TableFileTruncate, AnInterruptedCutIsRepeated) {
    platform.failNth(FileCall::truncate, 1, EINTR);
    EXPECT_EQ(tableFileTruncate(file.get(), 60), NO_ERROR);
    EXPECT_EQ(readFile(path).size(), 60U);
}

TEST_F(TableFileTruncate, ASizeThatCannotBeAskedAfterTheCutIsReported) {
    platform.failAll(FileCall::size, EIO);
    EXPECT_EQ(tableFileTruncate(file.get(), 60), SYSTEM_FILE_ERROR);
}

TEST_F(TableFileTruncate, AFileOfTheRequestedSizeIsNotCut) {
    EXPECT_EQ(tableFileTruncate(file.get(), 100), NO_ERROR);
    EXPECT_EQ(platform.count(FileCall::truncate), 0);
    EXPECT_EQ(log.lines(), std::vector<std::string>{sizeLine(100, 100)});
}

TEST_F(TableFileTruncate, ACutOfAClosedStreamIsRefused) {
    FileStream closed;
    EXPECT_EQ(sys_ftruncate(&closed, 60), SYSTEM_FILE_ERROR);
    EXPECT_EQ(log.lines(), std::vector<std::string>{debugLine("sys_ftruncate", "getUnderlyingDescriptor() failed.")});
}

TEST_F(TableFileTruncate, AStreamWhoseGatheredBytesCannotBeWrittenIsNotCut) {
    FileStream* stream = &file->stream;
    ASSERT_EQ(fileStream_write(stream, "gathered", 8), 0);
    platform.failNth(FileCall::writeAt, 1, ENOSPC);
    EXPECT_EQ(sys_ftruncate(stream, 60), FILE_FLUSH_ERROR);
    EXPECT_EQ(platform.count(FileCall::truncate), 0);
    EXPECT_EQ(log.lines(), std::vector<std::string>{});
    EXPECT_EQ(toHex(readFile(path)), toHex(pattern(100)));
}

}  // namespace
}  // namespace tabulo::internal::test
