// What waiting for changes asks of the operating system, call by call.
#include "storage/change_platform.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <filesystem>
#include <string>

#include "tests/support/bytes.h"
#include "tests/support/child_process.h"
#include "tests/support/temporary_directory.h"

namespace tabulo::internal::test {
namespace {

class SystemsChangePlatform : public ::testing::Test {
  protected:
    void SetUp() override {
        ASSERT_FALSE(platform.openQueue(&queue).failed());
        ASSERT_FALSE(platform.openWaker(&waker).failed());
    }
    void TearDown() override {
        EXPECT_FALSE(platform.close(queue).failed());
        EXPECT_FALSE(platform.close(waker).failed());
    }

    const ChangePlatform& platform = changePlatform_system();
    int queue = -1;
    int waker = -1;
};

TEST_F(SystemsChangePlatform, WithoutTheSystemsViewOfItsDescriptorsNoFileCanBeWatched) {
    const TemporaryDirectory directory;
    writeFile(directory.file("table"), pattern(10));
    constexpr int NOT_ALLOWED = 77;
    const int result = runInChild([&] {
        const int descriptor = ::open(directory.file("table").c_str(), O_RDONLY | O_CLOEXEC);
        if (::chroot(directory.root().c_str()) != 0) {  // there is no /proc in it
            return NOT_ALLOWED;
        }
        int watch = UNKNOWN_WATCH;
        const bool isRefused = platform.watch(queue, descriptor, &watch).failed();
        return isRefused && watch == UNKNOWN_WATCH ? 0 : 1;
    });
    if (result == NOT_ALLOWED) {
        GTEST_SKIP() << "a process may change its root only with the rights for it";
    }
    EXPECT_EQ(result, 0);
}

TEST_F(SystemsChangePlatform, AnotherFileWhereTheDescriptorsShouldBeIsNotWatchedInstead) {
    const TemporaryDirectory directory;
    writeFile(directory.file("table"), pattern(10));
    constexpr int NOT_ALLOWED = 77;
    const int result = runInChild([&] {
        const int descriptor = ::open(directory.file("table").c_str(), O_RDONLY | O_CLOEXEC);
        std::filesystem::create_directories(directory.file("proc/self/fd"));
        writeFile(directory.file("proc/self/fd/" + std::to_string(descriptor)), pattern(10));
        if (::chroot(directory.root().c_str()) != 0) {
            return NOT_ALLOWED;
        }
        int watch = UNKNOWN_WATCH;
        const bool isRefused = platform.watch(queue, descriptor, &watch).failed();
        return isRefused && watch == UNKNOWN_WATCH ? 0 : 1;
    });
    if (result == NOT_ALLOWED) {
        GTEST_SKIP() << "a process may change its root only with the rights for it";
    }
    EXPECT_EQ(result, 0);
}

TEST_F(SystemsChangePlatform, AWakeIsNoErrorWhateverFailedBeforeItAndAlsoWhenTheWakerIsFull) {
    errno = EIO;
    EXPECT_EQ(platform.wake(waker).number, 0);
    constexpr std::uint64_t MOST = ~std::uint64_t{0} - 1;
    ASSERT_FALSE(platform.calm(waker).failed());
    ASSERT_EQ(::eventfd_write(waker, MOST), 0);
    EXPECT_EQ(platform.wake(waker).number, 0);
}

TEST_F(SystemsChangePlatform, AWaitCanHaveAnyLength) {
    ASSERT_FALSE(platform.wake(waker).failed());
    for (const std::int64_t nanoseconds : {std::int64_t{0}, std::int64_t{1}, std::int64_t{999'999'999},
                                           std::int64_t{1'000'000'000}, std::int64_t{1'000'000'001}, INT64_MAX}) {
        bool isChanged = false;
        bool isWoken = false;
        EXPECT_EQ(platform.wait(queue, waker, nanoseconds, &isChanged, &isWoken).number, 0) << nanoseconds;
        EXPECT_TRUE(isWoken) << nanoseconds;
        EXPECT_FALSE(isChanged) << nanoseconds;
    }
}

}  // namespace
}  // namespace tabulo::internal::test
