// Appending frames in batches: the same file as message by message, with one write for each block.
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <random>

#include "tabulo/writer.h"
#include "tests/api/api_test.h"
#include "tests/support/fault_platform.h"
#include "tests/support/test_run.h"

namespace tabulo::test {
namespace {

using internal::test::FaultPlatform;
using internal::test::FileCall;
using internal::test::RecordedCall;

class ApiAppendFrames : public TableTest {
  protected:
    // The bytes of a table that was written message by message.
    Bytes oneByOne(std::int32_t last, bool closed = true) const {
        const TemporaryDirectory other;
        Writer writer = Writer::create(other.file("orders"), layout);
        for (std::int32_t n = 1; n <= last; ++n) {
            writer.append(SimpleMessage(n).message);
        }
        if (closed) {
            writer.close();
        }
        return readFile(other.file("orders"));
    }
};

TEST_F(ApiAppendFrames, MakeTheSameFileAsSingleAppendsWhateverTheBatches) {
    const std::uint32_t seed = internal::test::testSeed();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    for (int round = 0; round < 60; ++round) {
        layout.messagesPerBlock = std::uniform_int_distribution(1, 6)(random);
        const std::int32_t last = std::uniform_int_distribution(0, 20)(random);
        const std::filesystem::path file = directory.file("t" + std::to_string(round));
        Writer writer = Writer::create(file, layout);
        std::int32_t next = 1;
        while (next <= last) {
            const std::int32_t count = std::min(std::uniform_int_distribution(0, 14)(random), last - next + 1);
            if (count == 1 && random() % 2 == 0) {
                writer.append(SimpleMessage(next).message);
            } else {
                EXPECT_EQ(writer.appendFrames(simpleFrames(layout, next, next + count - 1)), count);
            }
            next += count;
            EXPECT_EQ(difference(readFile(file.string()), oneByOne(next - 1, false)), "");
        }
        writer.close();
        ASSERT_EQ(difference(readFile(file.string()), oneByOne(last)), "")
            << last << " messages, " << layout.messagesPerBlock << " per block";
    }
}

TEST_F(ApiAppendFrames, TakeOneWriteForEachBlockThatTheyReach) {
    layout = ordersLayout(1000);
    Writer writer = Writer::create(path(), layout);
    EXPECT_EQ(writer.appendFrames(simpleFrames(layout, 1, 400)), 400);
    const std::vector<std::byte> frames = simpleFrames(layout, 401, 2500);
    std::vector<std::int64_t> sizes;
    {
        FaultPlatform platform;
        EXPECT_EQ(writer.appendFrames(frames), 2100);
        std::int64_t end = static_cast<std::int64_t>(0);
        for (const RecordedCall& call : platform.calls(FileCall::writeAt)) {
            if (call.offset >= end) {  // not the length word or the tail, which are written in place
                sizes.push_back(call.length);
                end = call.offset + call.length;
            }
        }
        EXPECT_EQ(platform.count(FileCall::writeAt), 3 + 2 * 2) << "three appends, two words and two tails";
    }
    EXPECT_EQ(sizes.size(), 3u);
}

TEST_F(ApiAppendFrames, StoreNothingOfABatchWithAFrameThatIsNotWhole) {
    layout = ordersLayout(2);
    Writer writer = Writer::create(path(), layout);
    EXPECT_EQ(writer.appendFrames({}), 0);
    const Bytes before = fileBytes();
    const std::vector<std::byte> whole = simpleFrames(layout, 1, 7);
    const auto start = static_cast<std::int64_t>(simpleFrames(layout, 1, 6).size());
    std::vector<std::byte> frames(whole.begin(), whole.end() - 1);
    Error error = errorOf([&] { writer.appendFrames(frames); });
    EXPECT_EQ(error.code(), Code::noData);
    EXPECT_EQ(error.offset(), start);
    EXPECT_EQ(error.stored(), 0);
    frames = whole;
    frames.back() ^= std::byte{0xFF};
    error = errorOf([&] { writer.appendFrames(frames); });
    EXPECT_EQ(error.code(), Code::consistency);
    EXPECT_EQ(error.offset(), start);
    EXPECT_EQ(error.stored(), 0);
    EXPECT_EQ(difference(fileBytes(), before), "");
    EXPECT_EQ(writer.appendFrames(whole), 7);
    writer.close();
    EXPECT_EQ(difference(fileBytes(), oneByOne(7)), "");
}

TEST_F(ApiAppendFrames, OfAnotherLayoutAreRefused) {
    Writer writer = Writer::create(path(), layout);
    Layout other = layout;
    other.texts.push_back("Side");
    EXPECT_TABULO_ERROR(consistency, writer.appendFrames(simpleFrames(other, 1, 1)));
}

// Fails each call to the system of one batch in turn: what the Error says is stored is what a reader finds.
void failEveryCall(const std::filesystem::path& directory, const Layout& layout, FileCall call, int error) {
    for (int n = 1; n < 100; ++n) {
        const std::filesystem::path file = directory / (std::string(fileCallName(call)) + std::to_string(n));
        Writer writer = Writer::create(file, layout);
        writer.appendFrames(simpleFrames(layout, 1, 2));
        std::int64_t stored = 0;
        std::optional<Error> failure;
        bool reached = false;
        {
            FaultPlatform platform;
            platform.failNth(call, n, error);
            try {
                stored = writer.appendFrames(simpleFrames(layout, 3, 14));
            } catch (const Error& thrown) {
                failure = thrown;
                stored = thrown.stored();
            }
            reached = platform.count(call) >= n;
        }
        if (!reached) {
            ASSERT_GT(n, 1) << "no such call is made";
            return;
        }
        const TableInfo info = inspect(file);
        EXPECT_EQ(info.messageCount, 2 + stored) << fileCallName(call) << " " << n;
        EXPECT_FALSE(info.problem.has_value());
        ASSERT_TRUE(failure.has_value()) << fileCallName(call) << " " << n << " failed unnoticed";
        EXPECT_EQ(failure->systemText(), "No space left on device");
        EXPECT_EQ(failure->path(), file);
        EXPECT_TABULO_ERROR(fileWrite, writer.appendFrames(simpleFrames(layout, 1, 1)));
    }
    FAIL() << "the calls do not end";
}

TEST_F(ApiAppendFrames, AreInTheFileByWholeWritesOnlyWhenTheSystemRefusesOne) {
    failEveryCall(directory.path(), layout, FileCall::writeAt, ENOSPC);
}

}  // namespace
}  // namespace tabulo::test
