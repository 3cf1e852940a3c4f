// What salvaging takes for a message behind damage.
#include <gtest/gtest.h>

#include "tests/api/damaged_table.h"

namespace tabulo::test {
namespace {

using internal::test::patchFile;

class ApiFrameHunt : public TableTest {
  protected:
    // The frame of a message with this id that takes `length` bytes.
    std::vector<std::byte> frameOf(std::int32_t id, std::size_t length) const {
        std::vector<std::byte> frame;
        encode({.uniformId = id, .wire = std::string_view()}, layout, frame);
        const std::string text(length - frame.size(), 'x');
        frame.clear();
        encode({.uniformId = id, .wire = text}, layout, frame);
        return frame;
    }
};

TEST_F(ApiFrameHunt, FindsAMessageWhoseLengthStandsAcrossTheEndOfWhatIsReadAtOnce) {
    constexpr std::size_t READ_AT_ONCE = 256 * 1024;
    // The search begins behind the damaged message's first byte; the last place of a stretch at which a whole length
    // stands is the fourth from its end.
    constexpr std::size_t DAMAGED = 1 + READ_AT_ONCE - 3;
    layout = ordersLayout(100);
    // Of the larger length only the last byte is not 0: without it no message is looked for.
    for (const std::size_t length : {std::size_t{200}, std::size_t{1} << 24}) {
        SCOPED_TRACE(length);
        const std::vector<std::vector<std::byte>> frames = {frameOf(1, DAMAGED), frameOf(2, length), frameOf(3, 200)};
        std::filesystem::remove(path());
        writeTable(path(), layout, frames);
        const Stretch damaged = TablePlan(layout, frames).frames[0];
        patchFile(path().string(), damaged.begin, Bytes(DAMAGED, 0));
        const Salvaged salvaged = salvageAll(path());
        EXPECT_EQ(salvaged.ids(), (std::vector<std::int32_t>{2, 3})) << salvaged.text();
        EXPECT_EQ(salvaged.result.gapBytes, static_cast<std::int64_t>(DAMAGED));
    }
}

TEST_F(ApiFrameHunt, FindsAMessageRightBehindAByteWithWhichALengthSeemsToBegin) {
    layout = ordersLayout(100);
    const std::vector<std::vector<std::byte>> frames = {frameOf(1, 200), frameOf(2, 200), frameOf(3, 60000)};
    writeTable(path(), layout, frames);
    // With a zero in front of it the length of message 2 reads as 51 200, for which there is room.
    const Stretch damaged = TablePlan(layout, frames).frames[0];
    patchFile(path().string(), damaged.begin, Bytes(damaged.end - damaged.begin, 0));
    const Salvaged salvaged = salvageAll(path());
    EXPECT_EQ(salvaged.ids(), (std::vector<std::int32_t>{2, 3})) << salvaged.text();
}

TEST_F(ApiFrameHunt, TellsDamagedMessagesThatStandOneBehindTheOtherAsOneGapOfAllTheirBytes) {
    layout = ordersLayout(100);
    const std::vector<std::vector<std::byte>> frames = eachFrame(layout, 9);
    writeTable(path(), layout, frames);
    const TablePlan plan(layout, frames);
    for (const std::size_t damaged : {3U, 4U, 5U}) {
        patchFile(path().string(), plan.frames[damaged].end - 4,
                  Bytes(4, 0));  // where it ends is told by the rest of it
    }
    const Salvaged salvaged = salvageAll(path());
    EXPECT_EQ(salvaged.ids(), (std::vector<std::int32_t>{1, 2, 3, 7, 8, 9})) << salvaged.text();
    ASSERT_EQ(salvaged.gaps.size(), 1U) << salvaged.text();
    EXPECT_EQ(salvaged.gaps[0].offset, static_cast<std::int64_t>(plan.frames[3].begin));
    EXPECT_EQ(salvaged.gaps[0].length, static_cast<std::int64_t>(plan.frames[5].end - plan.frames[3].begin))
        << "the gap does not reach to the next whole message";
}

}  // namespace
}  // namespace tabulo::test
