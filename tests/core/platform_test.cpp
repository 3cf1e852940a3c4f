#include "core/platform.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <unistd.h>

#include <string>

#include "tests/support/bytes.h"
#include "tests/support/child_process.h"
#include "tests/support/temporary_directory.h"

namespace tabulo::internal::test {
namespace {

// The soft limit of open files that a process with these limits has after asking for `count`; 0 when it cannot be set
// up.
rlim_t limitAfterRaising(rlim_t soft, rlim_t hard, std::uint64_t count) {
    rlimit limit{soft, hard};
    if (::setrlimit(RLIMIT_NOFILE, &limit) != 0) {
        return 0;
    }
    platform_raiseOpenFileLimit(count);
    ::getrlimit(RLIMIT_NOFILE, &limit);
    return limit.rlim_cur;
}

TEST(Platform, TheProcessIdIsTheSystems) {
    EXPECT_EQ(platform_processId(), static_cast<unsigned long>(::getpid()));
}

TEST(Platform, ALowOpenFileLimitIsRaised) {
    EXPECT_EQ(runInChild([] { return limitAfterRaising(100, 4096, 2048) == 2048 ? 0 : 1; }), 0);
}

TEST(Platform, AHigherOpenFileLimitIsNeverLowered) {
    EXPECT_EQ(runInChild([] { return limitAfterRaising(3000, 4096, 2048) == 3000 ? 0 : 1; }), 0);
    EXPECT_EQ(runInChild([] { return limitAfterRaising(2048, 2048, 2048) == 2048 ? 0 : 1; }), 0);
}

TEST(Platform, AHardLimitThatStandsIsTakenWhole) {
    EXPECT_EQ(runInChild([] {
                  // Without privileges the hard limit cannot be raised.
                  if (::geteuid() == 0 && ::setuid(65534) != 0) {
                      return 0;
                  }
                  return limitAfterRaising(100, 500, 2048) == 500 ? 0 : 1;
              }),
              0);
}

TEST(Platform, TheFileSizeSignalAtItsDefaultIsIgnored) {
    EXPECT_EQ(runInChild([] {
                  ::signal(SIGXFSZ, SIG_DFL);
                  platform_ignoreFileSizeSignal();
                  return ::signal(SIGXFSZ, SIG_DFL) == SIG_IGN ? 0 : 1;
              }),
              0);
}

void handleFileSize(int) {
}

TEST(Platform, AHandlerOfTheFileSizeSignalStays) {
    EXPECT_EQ(runInChild([] {
                  ::signal(SIGXFSZ, handleFileSize);
                  platform_ignoreFileSizeSignal();
                  return ::signal(SIGXFSZ, SIG_DFL) == handleFileSize ? 0 : 1;
              }),
              0);
}

TEST(Platform, ALogThatCannotBeOpenedIsNone) {
    const TemporaryDirectory directory;
    EXPECT_EQ(platform_openLog(directory.path().c_str()), nullptr);
    EXPECT_EQ(platform_openLog(directory.file("missing/x.log").c_str()), nullptr);
}

}  // namespace
}  // namespace tabulo::internal::test
