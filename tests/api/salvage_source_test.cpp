// What salvaging tells of the places of messages and gaps.
#include <gtest/gtest.h>

#include "tests/api/damaged_table.h"

namespace tabulo::test {
namespace {

using internal::test::patchFile;
using internal::test::pattern;

using ApiSalvageSource = TableTest;

TEST_F(ApiSalvageSource, TellsTheNextWholeMessageBehindGapsThatTakeAWholeBlockAndTheBeginningOfAnother) {
    const std::vector<std::vector<std::byte>> frames = eachFrame(layout, 9);
    writeTable(path(), layout, frames);
    const TablePlan plan(layout, frames);
    for (const std::size_t lost : {2U, 3U, 4U, 5U, 6U}) {
        patchFile(path().string(), plan.frames[lost].begin, pattern(4, 9));
    }
    const Salvaged salvaged = salvageAll(path());
    EXPECT_EQ(salvaged.ids(), (std::vector<std::int32_t>{1, 2, 8, 9})) << salvaged.text();
    ASSERT_EQ(salvaged.gaps.size(), 3U) << salvaged.text();
    for (const Gap& gap : salvaged.gaps) {
        EXPECT_EQ(gap.uniformIdBefore, 2) << salvaged.text();
        EXPECT_EQ(gap.uniformIdBehind, 8) << salvaged.text();
    }
}

TEST_F(ApiSalvageSource, TellsTheMessageThatStandsInFrontOfAGapInItsOwnFile) {
    layout = ordersLayout(100);
    const std::vector<std::vector<std::byte>> frames = eachFrame(layout, 9);
    writeTable(path(), layout, frames);
    const TablePlan plan(layout, frames);
    const std::size_t begin = plan.frames[3].begin;
    Bytes cut = fileBytes();
    cut.erase(cut.begin(), cut.begin() + static_cast<std::ptrdiff_t>(begin));
    const std::string file = directory.file("orders.cut-" + std::to_string(begin));
    internal::test::writeFile(file, cut);
    patchFile(file, plan.frames[6].begin - begin, pattern(4, 9));
    // Others have been written in the place of messages 4 to 9.
    std::filesystem::remove(path());
    std::vector<std::vector<std::byte>> others = frames;
    for (std::size_t i = 3; i < others.size(); ++i) {
        others[i] = simpleFrames(layout, static_cast<std::int32_t>(i) + 101, static_cast<std::int32_t>(i) + 101);
    }
    writeTable(path(), layout, others);
    const Salvaged salvaged = salvageAll(path());
    ASSERT_EQ(salvaged.gaps.size(), 1U) << salvaged.text();
    EXPECT_EQ(salvaged.gaps[0].offset, static_cast<std::int64_t>(plan.frames[6].begin));
    EXPECT_EQ(salvaged.gaps[0].uniformIdBefore, 6) << salvaged.text();
    EXPECT_EQ(salvaged.gaps[0].uniformIdBehind, 8) << salvaged.text();
}

TEST_F(ApiSalvageSource, TellsTheBlockOfTheMessagesBehindAGapInABlockThatACutFileBeginsWith) {
    const std::vector<std::vector<std::byte>> frames = eachFrame(layout, 9);
    writeTable(path(), layout, frames);
    const TablePlan plan(layout, frames);
    const std::size_t begin = plan.blocks[1];
    Bytes cut = fileBytes();
    cut.erase(cut.begin(), cut.begin() + static_cast<std::ptrdiff_t>(begin));
    const std::string file = directory.file("orders.cut-" + std::to_string(begin));
    internal::test::writeFile(file, cut);
    patchFile(file, 0, pattern(8, 77));
    patchFile(file, plan.frames[4].begin - begin, pattern(4, 9));
    std::filesystem::resize_file(path(), begin);
    const Salvaged salvaged = salvageAll(path());
    EXPECT_EQ(salvaged.ids(), (std::vector<std::int32_t>{1, 2, 3, 4, 6, 7, 8, 9})) << salvaged.text();
    for (const Salvaged::Item& item : salvaged.messages) {
        const auto block = static_cast<std::size_t>(item.uniformId - 1) / 3;
        EXPECT_EQ(item.position.block, static_cast<std::int64_t>(plan.blocks[block])) << item.uniformId;
    }
    ASSERT_EQ(salvaged.gaps.size(), 1U) << salvaged.text();
    EXPECT_EQ(salvaged.gaps[0].offset, static_cast<std::int64_t>(plan.frames[4].begin));
}

// Zero bytes do not tell how many messages they were: what stands between two such gaps has no number.
TEST_F(ApiSalvageSource, CountsTheMessagesOfABlockFromItsBeginningAndItsEndUpToGapsOfUnknownNumbers) {
    layout = ordersLayout(9);
    const std::vector<std::vector<std::byte>> frames = eachFrame(layout, 9);
    writeTable(path(), layout, frames);
    const TablePlan plan(layout, frames);
    for (const std::size_t lost : {1U, 5U}) {
        patchFile(path().string(), plan.frames[lost].begin, Bytes(frames[lost].size(), 0));
    }
    const Salvaged salvaged = salvageAll(path());
    ASSERT_EQ(salvaged.ids(), (std::vector<std::int32_t>{1, 3, 4, 5, 7, 8, 9})) << salvaged.text();
    std::vector<std::int64_t> ordinals;
    for (const Salvaged::Item& item : salvaged.messages) {
        ordinals.push_back(item.ordinal);
    }
    EXPECT_EQ(ordinals, (std::vector<std::int64_t>{0, -1, -1, -1, 6, 7, 8})) << salvaged.text();
}

}  // namespace
}  // namespace tabulo::test
