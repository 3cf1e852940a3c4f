// The error that is kept of the first call that the system refuses.
#include "core/system_error.h"

#include <gtest/gtest.h>

#include <cerrno>

namespace tabulo::internal::test {
namespace {

class KeptSystemError : public ::testing::Test {
  protected:
    void SetUp() override { systemError_clear(); }
    void TearDown() override { systemError_clear(); }
};

TEST_F(KeptSystemError, IsTheFirstOneWithItsCallAndPath) {
    systemError_keep(EIO, "read", "/tables/orders");
    systemError_keep(ENOSPC, "write", "/tables/trades");
    EXPECT_EQ(systemError_first().number, EIO);
    EXPECT_STREQ(systemError_refused().what, "read");
    EXPECT_STREQ(systemError_refused().path, "/tables/orders");
}

TEST_F(KeptSystemError, WithoutAPathDoesNotHaveThatOfTheOneBefore) {
    systemError_keep(EIO, "read", "/tables/orders");
    systemError_clear();
    systemError_keep(EMFILE, "lock", nullptr);
    EXPECT_EQ(systemError_first().number, EMFILE);
    EXPECT_EQ(systemError_refused().path, nullptr);
    systemError_clear();
    systemError_keep(EIO, "read", "/tables/trades");
    EXPECT_STREQ(systemError_refused().path, "/tables/trades");
}

TEST_F(KeptSystemError, OfACallThatWasNotRefusedIsNone) {
    systemError_keep(0, "read", "/tables/orders");
    EXPECT_EQ(systemError_first().number, 0);
}

}  // namespace
}  // namespace tabulo::internal::test
