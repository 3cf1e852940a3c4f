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

namespace tabulo::internal::test {
namespace {

class FailedCommit : public ::testing::Test {
  protected:
    void SetUp() override {
        writeFile(path, pattern(100));
        file = openTableFile(path, OpenMode::write);
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
    // One line was written since the last look: a WARNING of this function with the path and the system's words.
    void expectTold(const std::string& words, const std::string& function = "tableFileFlush") {
        const std::vector<std::string> lines = log.all();
        EXPECT_EQ(log.warnings(), lines) << "a failed commit is a WARNING";
        ASSERT_EQ(lines.size(), 1U);
        EXPECT_TRUE(lines[0].starts_with(warningLine(function, ""))) << lines[0];
        EXPECT_NE(lines[0].find(path), std::string::npos) << lines[0];
        EXPECT_NE(lines[0].find(words), std::string::npos) << lines[0];
        log.clear();
    }
    void expectNothingTold() const { EXPECT_EQ(log.all(), std::vector<std::string>{}); }

    FaultPlatform platform;
    const TemporaryDirectory directory;
    const std::string path = directory.file("orders");
    TableFilePtr file;
    LogCapture log;
};

TEST_F(FailedCommit, IsToldOnceWithThePathAndTheSystemsWords) {
    platform.failAll(FileCall::sync, EIO);
    writeOn();
    expectTold("Input/output error");
    writeOn();
    platform.failAll(FileCall::sync, ENOSPC);
    writeOn();
    expectNothingTold();
}

TEST_F(FailedCommit, IsToldAgainOnlyBehindOneThatSucceeded) {
    for (const int error : {EIO, ENOSPC}) {
        platform.failAll(FileCall::sync, error);
        writeOn();
        writeOn();
        expectTold(filePlatform_errorText(error));
        platform.failAll(FileCall::sync, 0);
        writeOn();
        expectNothingTold();
    }
}

TEST_F(FailedCommit, OfTheFilesNameIsToldToo) {
    platform.failAll(FileCall::syncDirectory, EIO);
    writeOn();
    expectTold("Input/output error");
}

TEST_F(FailedCommit, WhenTheFileIsClosedIsToldToo) {
    tableFileSetSyncPolicy(true, 0, 100);
    writeOn();
    expectNothingTold();
    platform.failAll(FileCall::sync, EIO);
    file.reset();
    expectTold("Input/output error", "tableFileClose");
}

TEST_F(FailedCommit, WhenTheFileIsClosedIsNotToldAgain) {
    platform.failAll(FileCall::sync, EIO);
    writeOn();
    expectTold("Input/output error");
    tableFileSetSyncPolicy(true, 0, 100);
    writeOn();
    file.reset();
    EXPECT_EQ(platform.count(FileCall::sync), 2) << "the close commits";
    expectNothingTold();
}

TEST_F(FailedCommit, ThatIsInterruptedIsRepeatedAndNotTold) {
    platform.failNth(FileCall::sync, 1, EINTR);
    writeOn();
    EXPECT_EQ(platform.count(FileCall::sync), 2);
    expectNothingTold();
}

TEST_F(FailedCommit, OutsideAnyPolicyIsToldToo) {
    tableFileSetSyncPolicy(false, 0, 0);
    platform.failAll(FileCall::sync, EIO);
    (void)tableFileCommit(file.get(), "mtX_recover");
    expectTold("Input/output error", "mtX_recover");
    (void)tableFileCommit(file.get(), "mtX_recover");
    expectNothingTold();
}

}  // namespace
}  // namespace tabulo::internal::test
