#include "api/file_bytes.h"

#include <gtest/gtest.h>

#include "api/stored_header.h"
#include "tests/api/api_test.h"
#include "tests/support/fault_platform.h"

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

// Values close to each other take one read of a long stretch; one that stands elsewhere takes its own bytes.
TEST(ApiFileBytes, ReadAStretchOfWhatComesNextAndNothingMoreOfWhatStandsFarAway) {
    const TemporaryDirectory directory;
    const std::string path = directory.file("bytes");
    internal::test::writeFile(path, Bytes(2'000'000, 1));
    const api::Call call;
    const api::FileHandle file = api::file_open(call, path);
    api::FileBytes bytes(call, file.get());
    std::uint64_t value = 0;
    const auto lengthsOf = [&](const std::vector<std::int64_t>& offsets) {
        const internal::test::FaultPlatform platform;
        for (const std::int64_t offset : offsets) {
            EXPECT_TRUE(bytes.get(offset, &value));
        }
        std::vector<std::int64_t> lengths;
        for (const internal::test::RecordedCall& read : platform.calls(internal::test::FileCall::readAt)) {
            lengths.push_back(read.length);
        }
        return lengths;
    };
    EXPECT_EQ(lengthsOf({1'500'000}), std::vector<std::int64_t>{8});
    const std::vector<std::int64_t> first = lengthsOf({0, 8, 100});
    ASSERT_EQ(first.size(), 1U);
    EXPECT_GT(first[0], 4096);
    EXPECT_EQ(lengthsOf({first[0] - 8}), std::vector<std::int64_t>{}) << "the stretch's last value";
    EXPECT_EQ(lengthsOf({first[0] - 4}), first) << "reaches over its end";
    EXPECT_EQ(lengthsOf({0}), std::vector<std::int64_t>{8}) << "stands in front of it";
}

}  // namespace
}  // namespace tabulo::test
