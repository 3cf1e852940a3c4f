#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>

#include <cerrno>
#include <cstring>

#include "core/platform.h"
#include "storage/table_file.h"
#include "tests/storage/open_table_file.h"
#include "tests/support/bytes.h"
#include "tests/support/captured_output.h"
#include "tests/support/child_process.h"
#include "tests/support/debug_log.h"
#include "tests/support/fault_platform.h"
#include "tests/support/log_capture.h"
#include "tests/support/temporary_directory.h"

namespace tabulo::internal::test {
namespace {

class TableFileWriting : public ::testing::Test {
  protected:
    void SetUp() override {
        writeFile(path, pattern(100));
        file = openTableFile(path, OpenMode::write);
    }
    // Destroys the file before the platform that a test installed: members go in reverse.
    FaultPlatform platform;
    const TemporaryDirectory directory;
    const std::string path = directory.file("orders");
    TableFilePtr file;
};

TEST_F(TableFileWriting, ToAReadOnlyFileIsRefused) {
    const TableFilePtr reader = openTableFile(path, OpenMode::read);
    EXPECT_EQ(writeBytes(reader, pattern(10)), READ_ONLY_ERROR);
    EXPECT_EQ(tableFileWrite(reader.get(), nullptr, 0), READ_ONLY_ERROR);
    EXPECT_EQ(toHex(readFile(path)), toHex(pattern(100)));
}

TEST_F(TableFileWriting, ANegativeLengthIsAWrongParameter) {
    EXPECT_EQ(tableFileWrite(file.get(), "x", -1), WRONG_PARAMETER_ERROR);
    EXPECT_EQ(positionOf(file), 0);
}

TEST_F(TableFileWriting, AtTheEndGrowsTheSizeAndInTheMiddleDoesNot) {
    EXPECT_EQ(writeBytes(file, fromHex("aa bb")), NO_ERROR);
    EXPECT_EQ(tableFileCachedSize(file.get()), 100);
    EXPECT_EQ(positionOf(file), 2);
    ASSERT_EQ(tableFileSeekSet(file.get(), 99), NO_ERROR);
    EXPECT_EQ(writeBytes(file, fromHex("cc dd")), NO_ERROR);
    EXPECT_EQ(tableFileCachedSize(file.get()), 101);
    EXPECT_EQ(positionOf(file), 101);
    EXPECT_EQ(tableFileFlush(file.get()), NO_ERROR);
    Bytes expected = pattern(101);
    expected[0] = 0xaa;
    expected[1] = 0xbb;
    expected[99] = 0xcc;
    expected[100] = 0xdd;
    EXPECT_EQ(toHex(readFile(path)), toHex(expected));
}

TEST_F(TableFileWriting, NothingChangesNothing) {
    EXPECT_EQ(tableFileWrite(file.get(), "", 0), NO_ERROR);
    EXPECT_EQ(tableFileFlush(file.get()), NO_ERROR);
    EXPECT_EQ(toHex(readFile(path)), toHex(pattern(100)));
}

TEST_F(TableFileWriting, UpTo4096BytesAreGatheredUntilTheFlush) {
    ASSERT_EQ(tableFileSeekEnd(file.get(), 0), NO_ERROR);
    ASSERT_EQ(writeBytes(file, pattern(1)), NO_ERROR);
    ASSERT_EQ(writeBytes(file, pattern(4095)), NO_ERROR);
    EXPECT_EQ(platform.count(FileCall::writeAt), 0);
    ASSERT_EQ(tableFileFlush(file.get()), NO_ERROR);
    ASSERT_EQ(platform.count(FileCall::writeAt), 1) << "gathered bytes go out in one call";
    EXPECT_EQ(platform.calls(FileCall::writeAt)[0].offset, 100);
    EXPECT_EQ(platform.calls(FileCall::writeAt)[0].length, 4096);
    EXPECT_EQ(readFile(path).size(), 4196U);
}

TEST_F(TableFileWriting, AnAppendIsOneSystemCallWhateverItsSize) {
    for (const std::size_t size : {1UL, 4096UL, 4097UL, 100000UL, 3000000UL}) {
        platform.clear();
        ASSERT_EQ(tableFileSeekEnd(file.get(), 0), NO_ERROR);
        ASSERT_EQ(writeBytes(file, pattern(size)), NO_ERROR);
        ASSERT_EQ(tableFileFlush(file.get()), NO_ERROR);
        EXPECT_EQ(platform.sequence(), "writeAt") << size << " bytes";
    }
}

TEST_F(TableFileWriting, GatheredBytesGoOutBeforeALargeWrite) {
    ASSERT_EQ(tableFileSeekEnd(file.get(), 0), NO_ERROR);
    ASSERT_EQ(writeBytes(file, pattern(50, 1)), NO_ERROR);
    ASSERT_EQ(writeBytes(file, pattern(5000, 2)), NO_ERROR);
    ASSERT_EQ(writeBytes(file, pattern(50, 3)), NO_ERROR);
    ASSERT_EQ(tableFileFlush(file.get()), NO_ERROR);
    const Bytes written = readFile(path);
    ASSERT_EQ(written.size(), 5200U);
    EXPECT_EQ(hexOf(written, 100, 50), toHex(pattern(50, 1)));
    EXPECT_EQ(hexOf(written, 150, 5000), toHex(pattern(5000, 2)));
    EXPECT_EQ(hexOf(written, 5150, 50), toHex(pattern(50, 3)));
}

TEST_F(TableFileWriting, AReadFollowedByAWriteAtTheSamePositionWritesThereAndNotBehindTheBuffer) {
    EXPECT_EQ(readHex(file, 10), hexOf(pattern(100), 0, 10));
    EXPECT_EQ(writeBytes(file, fromHex("aa bb")), NO_ERROR);
    EXPECT_EQ(tableFileFlush(file.get()), NO_ERROR);
    EXPECT_EQ(platform.calls(FileCall::writeAt)[0].offset, 10);
    const int reads = platform.count(FileCall::readAt);
    EXPECT_EQ(readHex(file, 2), hexOf(pattern(100), 12, 2));
    EXPECT_GT(platform.count(FileCall::readAt), reads) << "changing to writing has to drop what was read ahead";
    ASSERT_EQ(tableFileSeekSet(file.get(), 9), NO_ERROR);
    EXPECT_EQ(readHex(file, 4), hexOf(pattern(100), 9, 1) + " aa bb " + hexOf(pattern(100), 12, 1));
}

TEST_F(TableFileWriting, WrittenBytesAreReadBackBeforeAnyFlush) {
    EXPECT_EQ(writeBytes(file, fromHex("aa bb")), NO_ERROR);
    ASSERT_EQ(tableFileSeekSet(file.get(), 0), NO_ERROR);
    EXPECT_EQ(readHex(file, 3), "aa bb " + hexOf(pattern(100), 2, 1));
    Bytes bytes(2);
    std::int64_t count = 0;
    ASSERT_EQ(tableFileSeekSet(file.get(), 50), NO_ERROR);
    EXPECT_EQ(writeBytes(file, fromHex("cc dd")), NO_ERROR);
    EXPECT_EQ(tableFileReadAt(file.get(), 50, bytes.data(), 2, &count), NO_ERROR);
    EXPECT_EQ(toHex(bytes), "cc dd");
    EXPECT_EQ(positionOf(file), 52);
}

TEST_F(TableFileWriting, TheSizeCountsGatheredBytes) {
    ASSERT_EQ(tableFileSeekEnd(file.get(), 0), NO_ERROR);
    ASSERT_EQ(writeBytes(file, pattern(20)), NO_ERROR);
    std::int64_t size = 0;
    EXPECT_EQ(tableFileRefreshSize(file.get(), &size), NO_ERROR);
    EXPECT_EQ(size, 120);
    EXPECT_EQ(tableFileCachedSize(file.get()), 120);
}

TEST_F(TableFileWriting, InterruptedAndPartialWritesAreContinued) {
    platform.limitTransfer(7);
    platform.failNth(FileCall::writeAt, 1, EINTR);
    platform.failNth(FileCall::writeAt, 3, EINTR);
    EXPECT_EQ(writeBytes(file, pattern(100, 9)), NO_ERROR);
    EXPECT_EQ(tableFileFlush(file.get()), NO_ERROR);
    EXPECT_EQ(writeBytes(file, pattern(5000, 8)), NO_ERROR);
    Bytes expected = pattern(100, 9);
    const Bytes second = pattern(5000, 8);
    expected.insert(expected.end(), second.begin(), second.end());
    EXPECT_EQ(toHex(readFile(path)), toHex(expected));
}

// Failures.

TEST_F(TableFileWriting, ASmallWriteFailsAtTheFlushAndPositionAndSizeAreTheSystemsAgain) {
    ASSERT_EQ(tableFileSeekEnd(file.get(), 0), NO_ERROR);
    platform.limitTransfer(30);
    platform.failNth(FileCall::writeAt, 2, ENOSPC);
    EXPECT_EQ(writeBytes(file, pattern(50)), NO_ERROR);
    EXPECT_EQ(positionOf(file), 150);
    EXPECT_EQ(tableFileFlush(file.get()), FILE_FLUSH_ERROR);
    EXPECT_EQ(file->physicalPos, 130) << "30 bytes reached the file";
    EXPECT_EQ(positionOf(file), 130);
    EXPECT_EQ(tableFileCachedSize(file.get()), 130);
    EXPECT_EQ(readFile(path).size(), 130U);
}

TEST_F(TableFileWriting, AfterAFailedFlushTheGatheredBytesAreGone) {
    ASSERT_EQ(tableFileSeekEnd(file.get(), 0), NO_ERROR);
    platform.failNth(FileCall::writeAt, 1, ENOSPC);
    ASSERT_EQ(writeBytes(file, pattern(50)), NO_ERROR);
    ASSERT_EQ(tableFileFlush(file.get()), FILE_FLUSH_ERROR);
    EXPECT_EQ(tableFileCachedSize(file.get()), 100);
    EXPECT_EQ(tableFileFlush(file.get()), NO_ERROR);
    EXPECT_EQ(platform.count(FileCall::writeAt), 1) << "discarded bytes were written after all";
    EXPECT_EQ(writeBytes(file, fromHex("aa bb")), NO_ERROR);
    EXPECT_EQ(tableFileFlush(file.get()), NO_ERROR);
    Bytes expected = pattern(100);
    expected.push_back(0xaa);
    expected.push_back(0xbb);
    EXPECT_EQ(toHex(readFile(path)), toHex(expected)) << "the next write goes on where the file ends";
}

TEST_F(TableFileWriting, AWriteOf4096BytesFailsAtTheFlushAndOf4097AtTheWrite) {
    platform.failAll(FileCall::writeAt, ENOSPC);
    EXPECT_EQ(writeBytes(file, pattern(4096)), NO_ERROR);
    EXPECT_EQ(tableFileFlush(file.get()), FILE_FLUSH_ERROR);
    ASSERT_EQ(tableFileSeekSet(file.get(), 0), NO_ERROR);
    EXPECT_EQ(writeBytes(file, pattern(4097)), FILE_WRITE_ERROR);
    EXPECT_EQ(tableFileFlush(file.get()), NO_ERROR) << "nothing is left to flush";
}

TEST_F(TableFileWriting, AFailedLargeWriteLeavesTheStreamsRealPositionAndTheOldSize) {
    ASSERT_EQ(tableFileSeekEnd(file.get(), 0), NO_ERROR);
    platform.limitTransfer(3000);
    platform.failNth(FileCall::writeAt, 2, ENOSPC);
    EXPECT_EQ(writeBytes(file, pattern(5000)), FILE_WRITE_ERROR);
    EXPECT_EQ(file->physicalPos, 3100);
    EXPECT_EQ(file->pendingOffset, 0);
    EXPECT_EQ(tableFileCachedSize(file.get()), 100);
    EXPECT_EQ(readFile(path).size(), 3100U);
}

TEST_F(TableFileWriting, ALargeWriteWhoseGatheredBytesFailIsAWriteErrorAndDiscardsThem) {
    ASSERT_EQ(writeBytes(file, pattern(50, 9)), NO_ERROR);
    platform.failNth(FileCall::writeAt, 1, ENOSPC);
    EXPECT_EQ(writeBytes(file, pattern(5000, 8)), FILE_WRITE_ERROR);
    EXPECT_EQ(file->physicalPos, 0);
    EXPECT_EQ(positionOf(file), 0);
    EXPECT_EQ(tableFileCachedSize(file.get()), 100);
    EXPECT_EQ(tableFileFlush(file.get()), NO_ERROR);
    EXPECT_EQ(toHex(readFile(path)), toHex(pattern(100)));
}

TEST_F(TableFileWriting, GatheredBytesThatFailInASeekAreASeekError) {
    ASSERT_EQ(writeBytes(file, pattern(50, 9)), NO_ERROR);
    ASSERT_EQ(tableFileSeekSet(file.get(), 80), NO_ERROR);
    platform.failNth(FileCall::writeAt, 1, ENOSPC);
    const DebugLog log;
    std::string printed;
    {
        const CapturedOutput errors(stderr);
        EXPECT_EQ(writeBytes(file, pattern(5)), FILE_SEEK_ERROR);
        printed = errors.text();
    }
    EXPECT_EQ(log.lines(),
              (std::vector<std::string>{debugLine("tableFileSeekSync", "tableFileRealSeek() failed. Returning 11"),
                                        debugLine("tableFileWrite", "syncing position failed")}));
    EXPECT_EQ(printed, std::string("tableFileRealSeek(): ") + std::strerror(ENOSPC) + "\n");
    EXPECT_EQ(positionOf(file), 80) << "the virtual position stays";
    EXPECT_EQ(writeBytes(file, fromHex("aa")), NO_ERROR);
    EXPECT_EQ(tableFileFlush(file.get()), NO_ERROR);
    Bytes expected = pattern(100);
    expected[80] = 0xaa;
    EXPECT_EQ(toHex(readFile(path)), toHex(expected));
}

TEST_F(TableFileWriting, WritingReadingAndFlushingLogNothing) {
    const DebugLog log;
    ASSERT_EQ(writeBytes(file, pattern(50)), NO_ERROR);
    ASSERT_EQ(writeBytes(file, pattern(5000)), NO_ERROR);
    ASSERT_EQ(tableFileFlush(file.get()), NO_ERROR);
    ASSERT_EQ(tableFileSeekSet(file.get(), 0), NO_ERROR);
    EXPECT_EQ(readHex(file, 50), toHex(pattern(50)));
    EXPECT_EQ(log.text(), "");
}

TEST(TableFileSizeLimit, AWriteBeyondTheProcesssLimitIsAnErrorAndNotTheEndOfTheProcess) {
    const TemporaryDirectory directory;
    const std::string path = directory.file("orders");
    EXPECT_EQ(runInChild([&] {
                  ::signal(SIGXFSZ, SIG_DFL);
                  platform_ignoreFileSizeSignal();
                  log_setFacility(nullptr);
                  TableFile* file = nullptr;
                  if (tableFileOpen(&file, path.c_str(), OpenMode::create, nullptr) != NO_ERROR) {
                      return 1;
                  }
                  const rlimit limit{10000, 10000};
                  if (::setrlimit(RLIMIT_FSIZE, &limit) != 0) {
                      return 2;
                  }
                  const Bytes bytes = pattern(9990);
                  if (tableFileWrite(file, bytes.data(), 9990) != NO_ERROR || tableFileFlush(file) != NO_ERROR) {
                      return 3;
                  }
                  if (tableFileWrite(file, bytes.data(), 50) != NO_ERROR) {
                      return 4;
                  }
                  return tableFileFlush(file) == FILE_FLUSH_ERROR && tableFileCachedSize(file) == 10000 ? 0 : 5;
              }),
              0);
    EXPECT_EQ(readFile(path).size(), 10000U);
}

}  // namespace
}  // namespace tabulo::internal::test
