#include <gtest/gtest.h>

#include <cerrno>
#include <limits>

#include "storage/table_file.h"
#include "storage/table_file_internal.h"
#include "tests/storage/open_table_file.h"
#include "tests/support/bytes.h"
#include "tests/support/debug_log.h"
#include "tests/support/fault_platform.h"
#include "tests/support/log_capture.h"
#include "tests/support/temporary_directory.h"

namespace tabulo::internal::test {
namespace {

constexpr std::int64_t LARGEST = std::numeric_limits<std::int64_t>::max();
constexpr std::int64_t SMALLEST = std::numeric_limits<std::int64_t>::min();

std::string refusal(const char* function, std::int64_t offset, std::int64_t newPos, std::int64_t start,
                    std::int64_t size) {
    return debugLine(function, "offset=" + std::to_string(offset) + ": can't seek to newPos=" + std::to_string(newPos) +
                                   " when ranges are [" + std::to_string(start) + ".." + std::to_string(size) +
                                   "]. Returning VSEEK_ERROR.");
}

class TableFileSeek : public ::testing::Test {
  protected:
    void SetUp() override { writeFile(path, pattern(100)); }

    const TemporaryDirectory directory;
    const std::string path = directory.file("orders");
};

TEST_F(TableFileSeek, SeekingToExactlyTheEndSucceeds) {
    for (const OpenMode mode : {OpenMode::read, OpenMode::write}) {
        const TableFilePtr file = openTableFile(path, mode);
        EXPECT_EQ(tableFileSeekSet(file.get(), 100), NO_ERROR) << "mode " << openMode_number(mode);
        EXPECT_EQ(positionOf(file), 100);
        EXPECT_EQ(tableFileSeekEnd(file.get(), 0), NO_ERROR);
        EXPECT_EQ(positionOf(file), 100);
    }
}

TEST_F(TableFileSeek, SeekingOneByteBeyondTheEndOfAWritableFileIsRefused) {
    const TableFilePtr file = openTableFile(path, OpenMode::write);
    ASSERT_EQ(tableFileSeekSet(file.get(), 40), NO_ERROR);
    DebugLog log;
    EXPECT_EQ(tableFileSeekSet(file.get(), 101), VSEEK_ERROR);
    EXPECT_EQ(log.lines(), std::vector<std::string>{refusal("tableFileSeekSet", 101, 101, 0, 100)});
    log.clear();
    EXPECT_EQ(tableFileSeekCur(file.get(), 61), VSEEK_ERROR);
    EXPECT_EQ(log.lines(), std::vector<std::string>{refusal("tableFileSeekCur", 61, 101, 0, 100)});
    log.clear();
    EXPECT_EQ(tableFileSeekEnd(file.get(), 1), VSEEK_ERROR);
    EXPECT_EQ(log.lines(), std::vector<std::string>{refusal("tableFileSeekEnd", 1, 101, 0, 100)});
    EXPECT_EQ(positionOf(file), 40) << "a refused seek moves nothing";
}

TEST_F(TableFileSeek, AWritableFileDoesNotAskForItsSizeAgain) {
    const TableFilePtr file = openTableFile(path, OpenMode::write);
    appendFile(path, pattern(50));
    EXPECT_EQ(tableFileSeekSet(file.get(), 101), VSEEK_ERROR);
    EXPECT_EQ(tableFileCachedSize(file.get()), 100);
}

TEST_F(TableFileSeek, BeyondTheKnownEndOfAReadOnlyFileThatHasGrownSucceeds) {
    const TableFilePtr file = openTableFile(path, OpenMode::read);
    appendFile(path, pattern(50));
    const DebugLog log;
    EXPECT_EQ(tableFileSeekSet(file.get(), 101), NO_ERROR);
    EXPECT_EQ(log.lines(), std::vector<std::string>{debugLine(
                               "tableFileSeekSet", "file size change was detected: old size=100, new size=150.")});
    EXPECT_EQ(positionOf(file), 101);
    EXPECT_EQ(tableFileCachedSize(file.get()), 150);
}

TEST_F(TableFileSeek, EachSeekNamesItselfWhenItSeesTheFileGrow) {
    const TableFilePtr file = openTableFile(path, OpenMode::read);
    DebugLog log;
    appendFile(path, pattern(50));
    EXPECT_EQ(tableFileSeekCur(file.get(), 101), NO_ERROR);
    EXPECT_EQ(log.lines(), std::vector<std::string>{debugLine(
                               "tableFileSeekCur", "file size change was detected: old size=100, new size=150.")});
    log.clear();
    appendFile(path, pattern(50));
    EXPECT_EQ(tableFileSeekEnd(file.get(), 1), NO_ERROR);
    EXPECT_EQ(log.lines(), std::vector<std::string>{debugLine(
                               "tableFileSeekEnd", "file size change was detected: old size=150, new size=200.")});
    EXPECT_EQ(positionOf(file), 151) << "the end that counts is the one known when the seek was asked for";
}

TEST_F(TableFileSeek, BeyondTheNewEndOfAReadOnlyFileIsRefusedWithTheNewSize) {
    const TableFilePtr file = openTableFile(path, OpenMode::read);
    appendFile(path, pattern(50));
    const DebugLog log;
    EXPECT_EQ(tableFileSeekSet(file.get(), 151), VSEEK_ERROR);
    const std::vector<std::string> expected = {
        debugLine("tableFileSeekSet", "file size change was detected: old size=100, new size=150."),
        refusal("tableFileSeekSet", 151, 151, 0, 150),
    };
    EXPECT_EQ(log.lines(), expected);
    EXPECT_EQ(positionOf(file), 0);
}

TEST_F(TableFileSeek, AReadOnlyFileThatHasNotGrownLogsTheRefusalOnly) {
    const TableFilePtr file = openTableFile(path, OpenMode::read);
    const DebugLog log;
    EXPECT_EQ(tableFileSeekSet(file.get(), 101), VSEEK_ERROR);
    EXPECT_EQ(log.lines(), std::vector<std::string>{refusal("tableFileSeekSet", 101, 101, 0, 100)});
}

TEST_F(TableFileSeek, SuccessfulSeeksWithinTheKnownSizeLogNothingAndCallNoSystem) {
    for (const OpenMode mode : {OpenMode::read, OpenMode::write}) {
        const TableFilePtr file = openTableFile(path, mode);
        const DebugLog log;
        const FaultPlatform platform;
        EXPECT_EQ(tableFileSeek(file.get(), 100, SEEK_FROM_START), NO_ERROR);
        EXPECT_EQ(tableFileSeek(file.get(), -70, SEEK_FROM_CURRENT), NO_ERROR);
        EXPECT_EQ(positionOf(file), 30);
        EXPECT_EQ(tableFileSeek(file.get(), -1, SEEK_FROM_END), NO_ERROR);
        EXPECT_EQ(positionOf(file), 99);
        EXPECT_EQ(tableFileSkip(file.get(), 1), NO_ERROR);
        EXPECT_EQ(platform.sequence(), "") << "mode " << openMode_number(mode);
        EXPECT_EQ(log.text(), "") << "mode " << openMode_number(mode);
        EXPECT_EQ(file->physicalPos, 0) << "the stream was moved";
    }
}

TEST_F(TableFileSeek, AnUnknownWhenceIsAWrongParameter) {
    const TableFilePtr file = openTableFile(path, OpenMode::read);
    EXPECT_EQ(tableFileSeek(file.get(), 0, -1), WRONG_PARAMETER_ERROR);
    EXPECT_EQ(tableFileSeek(file.get(), 0, 3), WRONG_PARAMETER_ERROR);
}

TEST_F(TableFileSeek, PositionsBelowTheRangeStartAreRefused) {
    const TableFilePtr file = openTableFile(path, OpenMode::write);
    EXPECT_EQ(tableFileSetRangeStart(file.get(), 40), 0);
    EXPECT_EQ(tableFileSeekSet(file.get(), 40), NO_ERROR) << "the start itself is allowed";
    DebugLog log;
    EXPECT_EQ(tableFileSeekCur(file.get(), -1), VSEEK_ERROR);
    EXPECT_EQ(log.lines(), std::vector<std::string>{refusal("tableFileSeekCur", -1, 39, 40, 100)});
    EXPECT_EQ(tableFileSetRangeStart(file.get(), 10), 40) << "the previous start is handed back";
    EXPECT_EQ(tableFileSeekSet(file.get(), 10), NO_ERROR);
    EXPECT_EQ(tableFileSeekEnd(file.get(), -91), VSEEK_ERROR);
}

TEST_F(TableFileSeek, NegativePositionsAreRefused) {
    const TableFilePtr file = openTableFile(path, OpenMode::read);
    const DebugLog log;
    EXPECT_EQ(tableFileSeekSet(file.get(), -1), VSEEK_ERROR);
    EXPECT_EQ(log.lines(), std::vector<std::string>{refusal("tableFileSeekSet", -1, -1, 0, 100)});
}

TEST_F(TableFileSeek, OffsetsThatOverflowAreRefused) {
    for (const OpenMode mode : {OpenMode::read, OpenMode::write}) {
        const TableFilePtr file = openTableFile(path, mode);
        ASSERT_EQ(tableFileSeekSet(file.get(), 50), NO_ERROR);
        for (const std::int64_t offset : {LARGEST, LARGEST - 49, SMALLEST, SMALLEST + 1}) {
            EXPECT_EQ(tableFileSeekSet(file.get(), offset), VSEEK_ERROR) << offset;
            EXPECT_EQ(tableFileSeekCur(file.get(), offset), VSEEK_ERROR) << offset;
            EXPECT_EQ(tableFileSeekEnd(file.get(), offset), VSEEK_ERROR) << offset;
            EXPECT_EQ(positionOf(file), 50);
        }
    }
}

TEST_F(TableFileSeek, SkippingStopsAtTheCachedSize) {
    const TableFilePtr file = openTableFile(path, OpenMode::read);
    ASSERT_EQ(tableFileSeekSet(file.get(), 90), NO_ERROR);
    appendFile(path, pattern(50));
    EXPECT_EQ(tableFileSkip(file.get(), 11), FILE_SIZE_ERROR) << "the cached size decides";
    EXPECT_EQ(tableFileSkip(file.get(), LARGEST), FILE_SIZE_ERROR);
    EXPECT_EQ(positionOf(file), 90);
    EXPECT_EQ(tableFileSkip(file.get(), 10), NO_ERROR);
    EXPECT_EQ(positionOf(file), 100);
    EXPECT_EQ(tableFileSkip(file.get(), 0), NO_ERROR);
    EXPECT_EQ(tableFileSkip(file.get(), -1), WRONG_PARAMETER_ERROR);
}

TEST_F(TableFileSeek, PositionsBeyondFourGigabytesAreReachedAndPrintedWhole) {
    const std::int64_t size = 5'000'000'000;
    const TableFilePtr writer = openTableFile(path, OpenMode::write);
    ASSERT_EQ(tableFileTruncate(writer.get(), size), NO_ERROR);
    ASSERT_EQ(tableFileSeekEnd(writer.get(), 0), NO_ERROR);
    ASSERT_EQ(writeBytes(writer, fromHex("aa bb cc")), NO_ERROR);
    const TableFilePtr reader = openTableFile(path, OpenMode::read);
    ASSERT_EQ(tableFileFlush(writer.get()), NO_ERROR);
    DebugLog log;
    ASSERT_EQ(tableFileSeekSet(reader.get(), size + 1), NO_ERROR);
    EXPECT_EQ(log.lines(),
              std::vector<std::string>{debugLine(
                  "tableFileSeekSet", "file size change was detected: old size=5000000000, new size=5000000003.")});
    EXPECT_EQ(readHex(reader, 5), "bb cc");
    log.clear();
    EXPECT_EQ(tableFileSeekCur(reader.get(), 4'294'967'296), VSEEK_ERROR);
    EXPECT_EQ(log.lines(),
              std::vector<std::string>{refusal("tableFileSeekCur", 4'294'967'296, 9'294'967'299, 0, 5'000'000'003)});
    ASSERT_EQ(tableFileTruncate(writer.get(), 100), NO_ERROR);
}

TEST_F(TableFileSeek, ASizeThatCannotBeAskedIsReported) {
    const TableFilePtr file = openTableFile(path, OpenMode::read);
    FaultPlatform platform;
    platform.failAll(FileCall::size, EIO);
    std::int64_t size = -1;
    EXPECT_EQ(tableFileSeekSet(file.get(), 101), SYSTEM_FILE_ERROR);
    EXPECT_EQ(tableFileRefreshSize(file.get(), &size), SYSTEM_FILE_ERROR);
    EXPECT_EQ(tableFileGetSize(file.get(), &size), SYSTEM_FILE_ERROR);
    EXPECT_EQ(tableFileCachedSize(file.get()), 100);
    EXPECT_EQ(positionOf(file), 0);
}

TEST_F(TableFileSeek, TheSizeOfAWritableFileIsTheCachedOneAndOfAReadOnlyFileTheSystems) {
    const TableFilePtr writer = openTableFile(path, OpenMode::write);
    const TableFilePtr reader = openTableFile(path, OpenMode::read);
    appendFile(path, pattern(7));
    const FaultPlatform platform;
    std::int64_t size = 0;
    EXPECT_EQ(tableFileGetSize(writer.get(), &size), NO_ERROR);
    EXPECT_EQ(size, 100);
    EXPECT_EQ(platform.count(FileCall::size), 0);
    EXPECT_EQ(tableFileCachedSize(reader.get()), 100);
    EXPECT_EQ(tableFileGetSize(reader.get(), &size), NO_ERROR);
    EXPECT_EQ(size, 107);
    EXPECT_EQ(tableFileCachedSize(reader.get()), 107);
    EXPECT_EQ(tableFileRefreshSize(writer.get(), &size), NO_ERROR);
    EXPECT_EQ(size, 107);
    EXPECT_EQ(tableFileCachedSize(writer.get()), 107);
}

TEST_F(TableFileSeek, TheStreamGoesNowhereForNoTableAnUnknownBeginningOrAPlaceThatCannotBe) {
    const TableFilePtr file = openTableFile(path, OpenMode::read);
    ASSERT_EQ(tableFileRealSeek(file.get(), 30, SEEK_FROM_START), NO_ERROR);
    EXPECT_EQ(tableFileRealSeek(nullptr, 0, SEEK_FROM_START), NULL_POINTER_ERROR);
    EXPECT_EQ(tableFileRealSeek(file.get(), 0, 3), WRONG_PARAMETER_ERROR);
    EXPECT_EQ(tableFileRealSeek(file.get(), 0, -1), WRONG_PARAMETER_ERROR);
    EXPECT_EQ(tableFileRealSeek(file.get(), -31, SEEK_FROM_CURRENT), FILE_SEEK_ERROR);
    EXPECT_EQ(tableFileRealSeek(file.get(), -101, SEEK_FROM_END), FILE_SEEK_ERROR);
    EXPECT_EQ(tableFileRealSeek(file.get(), LARGEST, SEEK_FROM_END), FILE_SEEK_ERROR);
    EXPECT_EQ(file->stream.position, 30);
    EXPECT_EQ(tableFileSetRangeStart(nullptr, 40), 0);
}

}  // namespace
}  // namespace tabulo::internal::test
