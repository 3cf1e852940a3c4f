#include "api/file_bytes.h"

#include <gtest/gtest.h>

#include "api/stored_header.h"
#include "tests/api/api_test.h"

namespace tabulo::test {
namespace {

TEST(ApiFileBytes, GiveNoValueThatReachesOverTheEndsOfTheFileAndLeaveItAsItWas) {
    const TemporaryDirectory directory;
    const std::string path = directory.file("bytes");
    constexpr std::int64_t SIZE = 20'000;
    internal::test::writeFile(path, Bytes(SIZE, 1));
    const api::Call call;
    const api::FileHandle file = api::file_open(call, path);
    // Near what was read last, and far from it.
    for (const std::int64_t before : {SIZE - 8, std::int64_t{0}}) {
        SCOPED_TRACE(before);
        for (const std::int64_t offset :
             {SIZE - 8, SIZE - 7, SIZE - 1, SIZE, SIZE + 1000, SIZE * 10, std::int64_t{-1}}) {
            api::FileBytes bytes(call, file.get());
            std::uint64_t value = 0;
            ASSERT_TRUE(bytes.get(before, &value));
            value = 77;
            const bool isThere = offset == SIZE - 8;
            EXPECT_EQ(bytes.get(offset, &value), isThere) << "at " << offset;
            EXPECT_EQ(value, isThere ? 0x0101010101010101U : 77U) << "at " << offset;
        }
    }
}

}  // namespace
}  // namespace tabulo::test
