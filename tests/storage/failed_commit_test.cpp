// Commits to the disk that the system reports as failed: told once, until one succeeds again; the write goes on.
#include <gtest/gtest.h>

#include <cerrno>

#include "storage/table_file.h"
#include "tests/storage/open_table_file.h"
#include "tests/support/bytes.h"
#include "tests/support/debug_log.h"
#include "tests/support/fault_platform.h"
#include "tests/support/log_capture.h"
#include "tests/support/temporary_directory.h"

namespace tabulo::test {
namespace {

class FailedCommit : public ::testing::Test {
  protected:
    void SetUp() override {
        writeFile(path, pattern(100));
        file = openTableFile(path, TABLE_FILE_WRITE);
        tableFileSetSyncPolicy(true, 0, 0);
        log.clear();
    }
    void TearDown() override {
        file.reset();
        tableFileSetSyncPolicy(false, 0, 0);
    }
    void writeOn() {
        ASSERT_EQ(writeBytes(file, pattern(10)), NO_ERROR);
        ASSERT_EQ(tableFileFlush(file.get()), NO_ERROR) << "the result of the commit is not the write's";
    }
    // `count` lines were written since the last call, each of which tells the path and the system's words.
    void expectTold(std::size_t count, const std::string& words) {
        const std::vector<std::string> lines = log.all();
        EXPECT_EQ(log.warnings(), lines) << "a failed commit is a WARNING";
        EXPECT_EQ(lines.size(), count);
        for (const std::string& line : lines) {
            EXPECT_TRUE(line.starts_with(warningLine("tableFileCommit", ""))) << line;
            EXPECT_NE(line.find(path), std::string::npos) << line;
            EXPECT_NE(line.find(words), std::string::npos) << line;
        }
        log.clear();
    }

    FaultPlatform platform;
    const TemporaryDirectory directory;
    const std::string path = directory.file("orders");
    TableFilePtr file;
    LogCapture log;
};

TEST_F(FailedCommit, IsToldOnceWithThePathAndTheSystemsWords) {
    platform.failAll(FileCall::sync, EIO);
    writeOn();
    expectTold(1, "Input/output error");
    writeOn();
    platform.failAll(FileCall::sync, ENOSPC);
    writeOn();
    expectTold(0, "");
}

TEST_F(FailedCommit, IsToldAgainOnlyBehindOneThatSucceeded) {
    for (const int error : {EIO, ENOSPC}) {
        platform.failAll(FileCall::sync, error);
        writeOn();
        writeOn();
        expectTold(1, filePlatform_errorText(error));
        platform.failAll(FileCall::sync, 0);
        writeOn();
        expectTold(0, "");
    }
}

TEST_F(FailedCommit, WhenTheFileIsClosedIsToldToo) {
    tableFileSetSyncPolicy(true, 0, 100);
    writeOn();
    expectTold(0, "");
    platform.failAll(FileCall::sync, EIO);
    file.reset();
    expectTold(1, "Input/output error");
}

TEST_F(FailedCommit, WhenTheFileIsClosedIsNotToldAgain) {
    platform.failAll(FileCall::sync, EIO);
    writeOn();
    expectTold(1, "Input/output error");
    tableFileSetSyncPolicy(true, 0, 100);
    writeOn();
    file.reset();
    EXPECT_EQ(platform.count(FileCall::sync), 2) << "the close commits";
    expectTold(0, "");
}

TEST_F(FailedCommit, ThatIsInterruptedIsRepeatedAndNotTold) {
    platform.failNth(FileCall::sync, 1, EINTR);
    writeOn();
    EXPECT_EQ(platform.count(FileCall::sync), 2);
    expectTold(0, "");
}

TEST_F(FailedCommit, OutsideAnyPolicyIsToldToo) {
    tableFileSetSyncPolicy(false, 0, 0);
    platform.failAll(FileCall::sync, EIO);
    tableFileCommit(file.get());
    expectTold(1, "Input/output error");
    tableFileCommit(file.get());
    expectTold(0, "");
}

}  // namespace
}  // namespace tabulo::test
