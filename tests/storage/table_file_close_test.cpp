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

class TableFileClosing : public ::testing::Test {
  protected:
    void SetUp() override {
        writeFile(path, pattern(100));
        ASSERT_EQ(tableFileOpen(&file, path.c_str(), OpenMode::write, nullptr), NO_ERROR);
        closingLine = debugLine("tableFileClose", "closing file (fd=" + std::to_string(file->stream.descriptor) + ")");
        log.clear();
    }

    FaultPlatform platform;
    const TemporaryDirectory directory;
    const std::string path = directory.file("orders");
    TableFile* file = nullptr;
    DebugLog log;
    std::string closingLine;
};

TEST_F(TableFileClosing, LogsItsTwoLines) {
    EXPECT_EQ(tableFileClose(file), NO_ERROR);
    EXPECT_EQ(log.lines(), (std::vector<std::string>{closingLine, debugLine("tableFileClose", "returning OK")}));
}

TEST_F(TableFileClosing, WritesWhatWasGathered) {
    ASSERT_EQ(tableFileSeekEnd(file, 0), NO_ERROR);
    ASSERT_EQ(tableFileWrite(file, "xyz", 3), NO_ERROR);
    EXPECT_EQ(tableFileClose(file), NO_ERROR);
    EXPECT_EQ(toHex(readFile(path)), toHex(pattern(100)) + " 78 79 7a");
}

TEST_F(TableFileClosing, AFailedCloseKeepsTheRecordAndASecondOneFreesIt) {
    platform.failAll(FileCall::close, EIO);
    EXPECT_EQ(tableFileClose(file), SYSTEM_FILE_ERROR);
    EXPECT_EQ(log.lines(), (std::vector<std::string>{
                               closingLine, debugLine("tableFileClose", "fclose() failed: Input/output error.")}));
    EXPECT_EQ(tableFileClose(file), NO_ERROR);
    EXPECT_EQ(platform.count(FileCall::close), 1) << "a descriptor that is gone was closed again";
    EXPECT_EQ(log.lines().back(), debugLine("tableFileClose", "returning OK"));
}

TEST_F(TableFileClosing, GatheredBytesThatCannotBeWrittenFailTheClose) {
    ASSERT_EQ(tableFileWrite(file, "xyz", 3), NO_ERROR);
    platform.failAll(FileCall::writeAt, ENOSPC);
    EXPECT_EQ(tableFileClose(file), SYSTEM_FILE_ERROR);
    EXPECT_EQ(log.lines().back(), debugLine("tableFileClose", "fclose() failed: No space left on device."));
    EXPECT_EQ(platform.count(FileCall::close), 1) << "the descriptor leaks";
    EXPECT_EQ(tableFileClose(file), NO_ERROR);
}

TEST_F(TableFileClosing, AFailedCloseReleasesTheLock) {
    platform.failAll(FileCall::close, EIO);
    ASSERT_EQ(tableFileClose(file), SYSTEM_FILE_ERROR);
    platform.clear();
    openTableFile(path, OpenMode::write).reset();
    EXPECT_EQ(tableFileClose(file), NO_ERROR);
}

TEST_F(TableFileClosing, AfterAFailedCloseEveryOtherOperationIsRefused) {
    platform.failNth(FileCall::close, 1, EIO);
    ASSERT_EQ(tableFileClose(file), SYSTEM_FILE_ERROR);
    platform.clear();
    char byte = 0;
    std::int64_t number = 0;
    EXPECT_EQ(tableFileSeek(file, 0, SEEK_FROM_START), SYSTEM_FILE_ERROR);
    EXPECT_EQ(tableFileSeekSet(file, 0), SYSTEM_FILE_ERROR);
    EXPECT_EQ(tableFileSeekCur(file, 0), SYSTEM_FILE_ERROR);
    EXPECT_EQ(tableFileSeekEnd(file, 0), SYSTEM_FILE_ERROR);
    EXPECT_EQ(tableFileTell(file, &number), SYSTEM_FILE_ERROR);
    EXPECT_EQ(tableFileRead(file, &byte, 1, &number), SYSTEM_FILE_ERROR);
    EXPECT_EQ(tableFileReadExact(file, &byte, 1), SYSTEM_FILE_ERROR);
    EXPECT_EQ(tableFileReadChecked(file, &byte, 1), SYSTEM_FILE_ERROR);
    EXPECT_EQ(tableFileReadBackward(file, &byte, 0), SYSTEM_FILE_ERROR);
    EXPECT_EQ(tableFileReadAt(file, 0, &byte, 1, &number), SYSTEM_FILE_ERROR);
    EXPECT_EQ(tableFileSkip(file, 1), SYSTEM_FILE_ERROR);
    EXPECT_EQ(tableFileWrite(file, &byte, 1), SYSTEM_FILE_ERROR);
    EXPECT_EQ(tableFileFlush(file), SYSTEM_FILE_ERROR);
    EXPECT_EQ(tableFileTruncate(file, 0), SYSTEM_FILE_ERROR);
    EXPECT_EQ(tableFileGetSize(file, &number), SYSTEM_FILE_ERROR);
    EXPECT_EQ(tableFileRefreshSize(file, &number), SYSTEM_FILE_ERROR);
    EXPECT_EQ(tableFileFollowEnd(file), SYSTEM_FILE_ERROR);
    EXPECT_EQ(platform.sequence(), "") << "a descriptor that is gone was used";
    EXPECT_EQ(toHex(readFile(path)), toHex(pattern(100)));
    EXPECT_EQ(tableFileClose(file), NO_ERROR);
}

}  // namespace
}  // namespace tabulo::internal::test
