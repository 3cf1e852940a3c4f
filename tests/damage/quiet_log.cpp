// The library's DEBUG lines of hundreds of thousands of openings would fill the disk: the log file of this process is
// made a way to nowhere before the first line is written.
#include <gtest/gtest.h>

#include <filesystem>

#include "tests/support/debug_log.h"

namespace tabulo::internal::test {
namespace {

class QuietLog : public ::testing::Environment {
  public:
    void SetUp() override {
        path_ = DebugLog().path();
        std::filesystem::remove(path_);  // of a process of the same number that crashed
        std::filesystem::create_symlink("/dev/null", path_);
    }
    void TearDown() override { std::filesystem::remove(path_); }

  private:
    std::string path_;
};

const ::testing::Environment* const quietLog = ::testing::AddGlobalTestEnvironment(new QuietLog);

}  // namespace
}  // namespace tabulo::internal::test
