// A file that mode 1 does not find and cannot create: what is said of it.
#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>

#include "storage/table_file.h"
#include "tests/support/bytes.h"
#include "tests/support/debug_log.h"
#include "tests/support/fault_platform.h"
#include "tests/support/log_capture.h"
#include "tests/support/temporary_directory.h"

namespace tabulo::internal::test {
namespace {

class FailedCreation : public ::testing::Test {
  protected:
    ErrorCode open(const std::string& path, OpenMode mode) {
        created = false;
        return tableFileOpen(&file, path.c_str(), mode, &created);
    }

    const TemporaryDirectory directory;
    const LogCapture log;
    FaultPlatform platform;
    TableFile* file = nullptr;
    bool created = false;
};

TEST_F(FailedCreation, InADirectoryThatIsMissingIsReportedAsACreation) {
    EXPECT_EQ(open(directory.file("missing/orders"), OpenMode::write), FILE_OPEN_ERROR);
    EXPECT_EQ(file, nullptr);
    EXPECT_TRUE(created);
    EXPECT_EQ(log.all(),
              std::vector<std::string>{warningLine("tableFileOpen", "fopen() failed: No such file or directory")});
}

TEST_F(FailedCreation, ThatTheSystemRefusesIsReportedAsACreation) {
    platform.failNth(FileCall::open, 2, EACCES);
    EXPECT_EQ(open(directory.file("orders"), OpenMode::write), FILE_OPEN_ERROR);
    EXPECT_EQ(file, nullptr);
    EXPECT_TRUE(created);
    EXPECT_FALSE(std::filesystem::exists(directory.file("orders")));
}

TEST_F(FailedCreation, WhoseLockIsAnothersIsReportedAsACreation) {
    platform.failAll(FileCall::lock, EWOULDBLOCK);
    EXPECT_EQ(open(directory.file("orders"), OpenMode::write), FILE_OPEN_ERROR);
    EXPECT_TRUE(created);
}

TEST_F(FailedCreation, IsNoneWhenTheFirstTryFailsForAnotherReason) {
    writeFile(directory.file("orders"), pattern(10));
    platform.failNth(FileCall::open, 1, EACCES);
    EXPECT_EQ(open(directory.file("orders"), OpenMode::write), FILE_OPEN_ERROR);
    EXPECT_FALSE(created);
    EXPECT_EQ(open(directory.file("missing"), OpenMode::read), FILE_OPEN_ERROR);
    EXPECT_FALSE(created);
}

}  // namespace
}  // namespace tabulo::internal::test
