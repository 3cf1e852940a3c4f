#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>

#include "core/log.h"
#include "storage/table_file.h"
#include "tests/storage/open_table_file.h"
#include "tests/support/allocation_failure.h"
#include "tests/support/bytes.h"
#include "tests/support/child_process.h"
#include "tests/support/debug_log.h"
#include "tests/support/fault_platform.h"
#include "tests/support/log_capture.h"
#include "tests/support/temporary_directory.h"

namespace tabulo::internal::test {
namespace {

class TableFileOpening : public ::testing::Test {
  protected:
    ErrorCode open(OpenMode mode) { return tableFileOpen(&file, path.c_str(), mode, &created); }
    void TearDown() override {
        if (file != nullptr) {
            EXPECT_EQ(tableFileClose(file), NO_ERROR);
        }
    }

    const TemporaryDirectory directory;
    const std::string path = directory.file("orders");
    TableFile* file = nullptr;
    bool created = false;
};

TEST_F(TableFileOpening, ForReadingAMissingFileFailsWithAWarningAndCreatesNothing) {
    const LogCapture log;
    created = true;
    EXPECT_EQ(open(OpenMode::read), FILE_OPEN_ERROR);
    EXPECT_EQ(file, nullptr);
    EXPECT_FALSE(created);
    EXPECT_FALSE(std::filesystem::exists(path));
    EXPECT_EQ(log.all(),
              std::vector<std::string>{warningLine("tableFileOpen", "fopen() failed: No such file or directory")});
}

TEST_F(TableFileOpening, WorksInAProcessWithoutStandardInput) {
    const int result = runInChild([&] {
        log_debug("tests", "the log is open, and does not take the descriptor.\n");
        ::close(STDIN_FILENO);
        if (open(OpenMode::create) != NO_ERROR || file->stream.descriptor != STDIN_FILENO) {
            return 1;
        }
        std::int64_t size = -1;
        const bool isRead = tableFileWrite(file, "text", 4) == NO_ERROR && tableFileFlush(file) == NO_ERROR &&
                            tableFileGetSize(file, &size) == NO_ERROR && size == 4;
        return isRead && tableFileClose(file) == NO_ERROR ? 0 : 2;
    });
    EXPECT_EQ(result, 0);
}

TEST_F(TableFileOpening, ForWritingAMissingFileIsCreatedAndReported) {
    const LogCapture log;
    const DebugLog debug;
    ASSERT_EQ(open(OpenMode::write), NO_ERROR);
    EXPECT_TRUE(created);
    EXPECT_EQ(tableFileGetMode(file), OpenMode::create) << "a created file has mode 2";
    EXPECT_TRUE(std::filesystem::exists(path));
    EXPECT_TRUE(log.all().empty());
    const std::string descriptor = std::to_string(file->stream.descriptor);
    const std::vector<std::string> expected = {
        debugLine("FileOpen", "opening file '" + path + "' in mode 1 (r+b)"),
        debugLine("FileOpen", "opening file '" + path + "' in mode 2 (w+b)"),
        debugLine("FileOpen", "returning OK (fd=" + descriptor + ")"),
    };
    EXPECT_EQ(debug.lines(), expected);
}

TEST_F(TableFileOpening, ForWritingAnExistingFileKeepsItsContent) {
    writeFile(path, pattern(100));
    created = true;
    const DebugLog debug;
    ASSERT_EQ(open(OpenMode::write), NO_ERROR);
    EXPECT_FALSE(created);
    EXPECT_EQ(tableFileGetMode(file), OpenMode::write);
    EXPECT_EQ(tableFileCachedSize(file), 100);
    EXPECT_EQ(toHex(readFile(path)), toHex(pattern(100)));
    EXPECT_EQ(debug.lines().size(), 2U);
}

TEST_F(TableFileOpening, CreatingEmptiesAnExistingFile) {
    writeFile(path, pattern(100));
    ASSERT_EQ(open(OpenMode::create), NO_ERROR);
    EXPECT_TRUE(created);
    EXPECT_EQ(tableFileGetMode(file), OpenMode::create);
    EXPECT_EQ(tableFileCachedSize(file), 0);
    EXPECT_EQ(readFile(path).size(), 0U);
}

TEST_F(TableFileOpening, ForReadingTakesTheSizeAndStartsAtZero) {
    writeFile(path, pattern(100));
    const DebugLog debug;
    ASSERT_EQ(open(OpenMode::read), NO_ERROR);
    EXPECT_EQ(tableFileGetMode(file), OpenMode::read);
    EXPECT_EQ(file->rangeStart, 0);
    EXPECT_EQ(file->size, 100);
    EXPECT_EQ(file->physicalPos, 0);
    EXPECT_EQ(file->pendingOffset, 0);
    EXPECT_EQ(file->flushesCount, 0);
    EXPECT_EQ(file->lastSyncTime, 0);
    EXPECT_EQ(file->lastOperation, TableFileOperation::none);
    const std::vector<std::string> expected = {
        debugLine("FileOpen", "opening file '" + path + "' in mode 0 (rb)"),
        debugLine("FileOpen", "returning OK (fd=" + std::to_string(file->stream.descriptor) + ")"),
    };
    EXPECT_EQ(debug.lines(), expected);
}

TEST_F(TableFileOpening, TheFileIsClosedOnExecInEveryMode) {
    writeFile(path, pattern(10));
    for (const OpenMode mode : {OpenMode::read, OpenMode::write, OpenMode::create}) {
        ASSERT_EQ(open(mode), NO_ERROR);
        EXPECT_NE(::fcntl(file->stream.descriptor, F_GETFD) & FD_CLOEXEC, 0) << "mode " << openMode_number(mode);
        ASSERT_EQ(tableFileClose(file), NO_ERROR);
        file = nullptr;
    }
    std::filesystem::remove(path);
    ASSERT_EQ(open(OpenMode::write), NO_ERROR);
    EXPECT_NE(::fcntl(file->stream.descriptor, F_GETFD) & FD_CLOEXEC, 0) << "a created file";
}

TEST_F(TableFileOpening, ADirectoryIsRefusedInEveryMode) {
    std::filesystem::create_directory(path);
    for (const OpenMode mode : {OpenMode::read, OpenMode::write, OpenMode::create}) {
        const LogCapture log;
        EXPECT_EQ(open(mode), FILE_OPEN_ERROR) << "mode " << openMode_number(mode);
        EXPECT_EQ(file, nullptr) << "mode " << openMode_number(mode);
        EXPECT_EQ(log.warnings(),
                  std::vector<std::string>{warningLine("tableFileOpen", "fopen() failed: Is a directory")});
    }
}

TEST_F(TableFileOpening, AnUnknownModeOrNoPathIsAWrongParameter) {
    const LogCapture log;
    file = reinterpret_cast<TableFile*>(this);
    EXPECT_EQ(open(OpenMode{-1}), WRONG_PARAMETER_ERROR);
    EXPECT_EQ(file, nullptr) << "what stood there before must not be taken for a file";
    EXPECT_EQ(open(OpenMode{3}), WRONG_PARAMETER_ERROR);
    EXPECT_EQ(tableFileOpen(&file, nullptr, OpenMode::create, &created), WRONG_PARAMETER_ERROR);
    EXPECT_TRUE(created) << "created tells of mode 2 even then";
    EXPECT_EQ(tableFileOpen(&file, nullptr, OpenMode::write, &created), WRONG_PARAMETER_ERROR);
    EXPECT_FALSE(created);
    EXPECT_FALSE(std::filesystem::exists(path));
    EXPECT_TRUE(log.all().empty());
}

TEST_F(TableFileOpening, WithoutAPlaceForTheFileIsANullPointer) {
    EXPECT_EQ(tableFileOpen(nullptr, path.c_str(), OpenMode::create, &created), NULL_POINTER_ERROR);
    EXPECT_FALSE(std::filesystem::exists(path));
}

TEST_F(TableFileOpening, CreatedMayBeLeftOut) {
    EXPECT_EQ(tableFileOpen(&file, path.c_str(), OpenMode::write, nullptr), NO_ERROR);
}

TEST_F(TableFileOpening, InAMissingDirectoryFailsInEveryMode) {
    const std::string inside = directory.file("missing/orders");
    for (const OpenMode mode : {OpenMode::read, OpenMode::write, OpenMode::create}) {
        const LogCapture log;
        EXPECT_EQ(tableFileOpen(&file, inside.c_str(), mode, nullptr), FILE_OPEN_ERROR)
            << "mode " << openMode_number(mode);
        EXPECT_EQ(log.warnings(),
                  std::vector<std::string>{warningLine("tableFileOpen", "fopen() failed: No such file or directory")})
            << "mode " << openMode_number(mode) << ": one warning, also when two modes were tried";
    }
}

TEST_F(TableFileOpening, APathWithPercentSignsIsNoFormat) {
    const std::string odd = directory.file("100%s%n");
    const LogCapture log;
    const DebugLog debug;
    ASSERT_EQ(tableFileOpen(&file, odd.c_str(), OpenMode::create, nullptr), NO_ERROR);
    EXPECT_EQ(debug.lines()[0], debugLine("FileOpen", "opening file '" + odd + "' in mode 2 (w+b)"));
}

TEST_F(TableFileOpening, ForWritingWithoutPermissionCreatesNothingAndLeavesTheFileAlone) {
    writeFile(path, pattern(100));
    FaultPlatform platform;
    platform.failAll(FileCall::open, EACCES);
    const LogCapture log;
    EXPECT_EQ(open(OpenMode::write), FILE_OPEN_ERROR);
    EXPECT_EQ(file, nullptr);
    EXPECT_EQ(platform.count(FileCall::truncate), 0);
    for (const RecordedCall& call : platform.calls(FileCall::open)) {
        EXPECT_EQ(call.access, FileAccess::readWrite) << "creation was tried though the file may exist";
    }
    EXPECT_EQ(log.all(), std::vector<std::string>{warningLine("tableFileOpen", "fopen() failed: Permission denied")});
    EXPECT_EQ(toHex(readFile(path)), toHex(pattern(100)));
}

TEST_F(TableFileOpening, AFileThatAppearsBetweenTheTwoAttemptsIsNotEmptied) {
    writeFile(path, pattern(100));
    FaultPlatform platform;
    platform.failNth(FileCall::open, 1, ENOENT);  // as if it had not been there a moment ago
    const LogCapture log;
    EXPECT_EQ(open(OpenMode::write), FILE_OPEN_ERROR);
    EXPECT_EQ(toHex(readFile(path)), toHex(pattern(100)));
    EXPECT_EQ(log.all(), std::vector<std::string>{warningLine("tableFileOpen", "fopen() failed: File exists")});
}

TEST_F(TableFileOpening, AFileIsEmptiedOnlyUnderItsLock) {
    writeFile(path, pattern(100));
    FaultPlatform platform;
    ASSERT_EQ(open(OpenMode::create), NO_ERROR);
    ASSERT_GE(platform.calls().size(), 3U);
    EXPECT_EQ(platform.sequence().substr(0, 18), "open lock truncate");
    EXPECT_EQ(platform.calls()[0].access, FileAccess::createOrOpen);
    EXPECT_EQ(platform.calls()[2].offset, 0);
}

TEST_F(TableFileOpening, AFileThatCannotBeEmptiedIsClosedAgain) {
    writeFile(path, pattern(100));
    FaultPlatform platform;
    platform.failNth(FileCall::truncate, 1, EIO);
    const LogCapture log;
    EXPECT_EQ(open(OpenMode::create), FILE_OPEN_ERROR);
    EXPECT_EQ(platform.count(FileCall::close), 1) << "the descriptor leaks";
    EXPECT_EQ(log.warnings(),
              std::vector<std::string>{warningLine("tableFileOpen", "fopen() failed: Input/output error")});
}

TEST_F(TableFileOpening, AFileWithoutAReadableSizeIsClosedAgain) {
    writeFile(path, pattern(100));
    FaultPlatform platform;
    platform.failNth(FileCall::size, 1, EIO);
    const LogCapture log;
    EXPECT_EQ(open(OpenMode::read), FILE_OPEN_ERROR);
    EXPECT_EQ(platform.count(FileCall::close), 1) << "the descriptor leaks";
    EXPECT_EQ(file, nullptr);
}

TEST_F(TableFileOpening, AnInterruptedOpenIsRepeated) {
    writeFile(path, pattern(100));
    FaultPlatform platform;
    platform.failNth(FileCall::open, 1, EINTR);
    platform.failNth(FileCall::lock, 1, EINTR);
    platform.failNth(FileCall::size, 1, EINTR);
    EXPECT_EQ(open(OpenMode::write), NO_ERROR);
    EXPECT_FALSE(created);
}

TEST_F(TableFileOpening, WithoutMemoryGivesOutOfMemory) {
    ErrorCode code = NO_ERROR;
    {
        const AllocationFailure failure(1);
        code = open(OpenMode::create);
    }
    EXPECT_EQ(code, OUT_OF_MEMORY_ERROR);
    EXPECT_EQ(file, nullptr);
    EXPECT_FALSE(std::filesystem::exists(path));
}

TEST(TableFile, EveryOperationRefusesANullFile) {
    char byte = 0;
    std::int64_t number = 0;
    EXPECT_EQ(tableFileClose(nullptr), NULL_POINTER_ERROR);
    EXPECT_EQ(tableFileSeek(nullptr, 0, SEEK_FROM_START), NULL_POINTER_ERROR);
    EXPECT_EQ(tableFileSeekSet(nullptr, 0), NULL_POINTER_ERROR);
    EXPECT_EQ(tableFileSeekCur(nullptr, 0), NULL_POINTER_ERROR);
    EXPECT_EQ(tableFileSeekEnd(nullptr, 0), NULL_POINTER_ERROR);
    EXPECT_EQ(tableFileTell(nullptr, &number), NULL_POINTER_ERROR);
    EXPECT_EQ(tableFileRead(nullptr, &byte, 1, &number), NULL_POINTER_ERROR);
    EXPECT_EQ(tableFileReadExact(nullptr, &byte, 1), NULL_POINTER_ERROR);
    EXPECT_EQ(tableFileReadChecked(nullptr, &byte, 1), NULL_POINTER_ERROR);
    EXPECT_EQ(tableFileReadBackward(nullptr, &byte, 1), NULL_POINTER_ERROR);
    EXPECT_EQ(tableFileReadAt(nullptr, 0, &byte, 1, &number), NULL_POINTER_ERROR);
    EXPECT_EQ(tableFileSkip(nullptr, 1), NULL_POINTER_ERROR);
    EXPECT_EQ(tableFileWrite(nullptr, &byte, 1), NULL_POINTER_ERROR);
    EXPECT_EQ(tableFileFlush(nullptr), NULL_POINTER_ERROR);
    EXPECT_EQ(tableFileTruncate(nullptr, 0), NULL_POINTER_ERROR);
    EXPECT_EQ(tableFileGetSize(nullptr, &number), NULL_POINTER_ERROR);
    EXPECT_EQ(tableFileRefreshSize(nullptr, &number), NULL_POINTER_ERROR);
    EXPECT_EQ(tableFileFollowEnd(nullptr), NULL_POINTER_ERROR);
}

}  // namespace
}  // namespace tabulo::internal::test
