#include "storage/lock_list.h"

#include <gtest/gtest.h>

#include <string>

namespace tabulo::internal::test {
namespace {

const LockedFile FILE_1234{0xfe, 0x10, 1234};

std::size_t countWriters(const std::string& list) {
    return lockList_writers(list, FILE_1234).size();
}

TEST(LockList, FindsTheWriterThatHoldsALock) {
    const auto writers = lockList_writers(
        "1: POSIX  ADVISORY  READ  7 08:01:99 128 128\n"
        "2: FLOCK  ADVISORY  WRITE 4242 fe:10:1234 0 EOF\n",
        FILE_1234);
    ASSERT_EQ(writers.size(), 1u);
    EXPECT_EQ(writers[0].process, 4242);
    EXPECT_TRUE(writers[0].sameDevice);
}

TEST(LockList, TellsALockOnAnotherDeviceFromOneOnTheSame) {
    for (const char* device : {"fe:11", "ff:10", "00:10"}) {
        const auto writers =
            lockList_writers(std::string("1: FLOCK  ADVISORY  WRITE 1 ") + device + ":1234 0 EOF\n", FILE_1234);
        ASSERT_EQ(writers.size(), 1u) << device;
        EXPECT_FALSE(writers[0].sameDevice) << device;
    }
}

TEST(LockList, PassesOverLocksOfOtherKindsAndOfOtherFiles) {
    EXPECT_EQ(countWriters("1: POSIX  ADVISORY  WRITE 4242 fe:10:1234 0 EOF\n"), 0u);
    EXPECT_EQ(countWriters("1: FLOCK  ADVISORY  READ  4242 fe:10:1234 0 EOF\n"), 0u);
    EXPECT_EQ(countWriters("1: FLOCK  ADVISORY  WRITE 4242 fe:10:12345 0 EOF\n"), 0u);
    EXPECT_EQ(countWriters("1: OFDLCK ADVISORY  WRITE -1 fe:10:1234 0 EOF\n"), 0u);
}

TEST(LockList, PassesOverALockThatIsOnlyWaitedFor) {
    EXPECT_EQ(countWriters("1: -> FLOCK  ADVISORY  WRITE 4242 fe:10:1234 0 EOF\n"), 0u);
}

TEST(LockList, ReadsALineWithoutAnEndAndLinesOfAnotherForm) {
    EXPECT_EQ(countWriters(""), 0u);
    EXPECT_EQ(countWriters("\n\n"), 0u);
    EXPECT_EQ(countWriters("1: FLOCK  ADVISORY  WRITE"), 0u);
    EXPECT_EQ(countWriters("1: FLOCK  ADVISORY  WRITE x fe:10:1234 0 EOF"), 0u);
    EXPECT_EQ(countWriters("1: FLOCK  ADVISORY  WRITE 1 fe:10 0 EOF"), 0u);
    EXPECT_EQ(countWriters("1: FLOCK  ADVISORY  WRITE 1 <none>:0 0 EOF"), 0u);
    EXPECT_EQ(countWriters("1: FLOCK  ADVISORY  WRITE 1 fe:10:99999999999999999999 0 EOF"), 0u);
    EXPECT_EQ(countWriters("no list at all\n1: FLOCK  ADVISORY  WRITE 1 fe:10:1234 0 EOF"), 1u);
}

TEST(LockList, FindsSeveralWritersOfOneFileNumber) {
    EXPECT_EQ(countWriters("1: FLOCK  ADVISORY  WRITE 1 fe:10:1234 0 EOF\n"
                           "2: FLOCK  ADVISORY  WRITE 2 fe:11:1234 0 EOF\n"),
              2u);
}

}  // namespace
}  // namespace tabulo::internal::test
