// The blocks of a run, and the levels of ranges above them.
#include "index/block_map.h"

#include <cmath>
#include <limits>
#include <random>

#include "messagetable/range_compare.h"
#include "tests/index/run_file.h"
#include "tests/support/test_run.h"

namespace tabulo::internal::test {
namespace {

constexpr MessageTableLayout LAYOUT{1000, 4, 2, 2};

// Ranges as a footer may have them: mostly in order, now and then damaged, with or without ids and numbers.
class RandomBlocks {
  public:
    explicit RandomBlocks(std::uint32_t seed) : random_(seed) {}

    IndexedBlock next() {
        IndexedBlock block;
        block.start = start_;
        block.length = 100 + below(1'000'000);
        start_ += block.length;
        block.uniformIdsAscend = below(2) == 0;
        for (std::uint32_t& count : block.classCounts) {
            count = static_cast<std::uint32_t>(below(1000));
        }
        const bool isDamaged = below(50) == 0;
        setRange(&block.minimum.seqNum, &block.maximum.seqNum, isDamaged);
        setRange(&block.minimum.uniformId, &block.maximum.uniformId, isDamaged);
        setRange(&block.minimum.timestamp, &block.maximum.timestamp, isDamaged);
        for (std::size_t i = 0; i < block.minimum.connMsgIds.size(); ++i) {
            setRange(&block.minimum.connMsgIds[i], &block.maximum.connMsgIds[i], below(3) == 0);  // or no id
        }
        for (std::size_t i = 0; i < 2; ++i) {
            setNumbers(&block.minimum.numericValues[i], &block.maximum.numericValues[i]);
        }
        for (std::size_t i = 0; i < FRAME_MARKS; ++i) {
            block.frameOffsets[i] = static_cast<std::uint32_t>(8 + 40 * i);
        }
        return block;
    }
    std::int32_t below(std::int32_t count) {
        return static_cast<std::int32_t>(random_() % static_cast<std::uint32_t>(count));
    }

  private:
    template <typename T>
    void setRange(T* minimum, T* maximum, bool isTurned) {
        const auto low = static_cast<T>(below(10'000) - 5000);
        const auto high = static_cast<T>(low + below(50) + 1);
        *minimum = isTurned ? high : low;
        *maximum = isTurned ? low : high;
    }
    void setNumbers(NumericValue* minimum, NumericValue* maximum) {
        const std::int64_t low = below(10'000) - 5000;
        const std::int64_t high = low + below(50);
        switch (below(8)) {
            case 0:
                *minimum = {};
                *maximum = {};
                break;
            case 1:
                *minimum = numericValue_ofLong(low);
                *maximum = numericValue_ofDouble(1.5);
                break;
            case 2:
                *minimum = numericValue_ofDouble(std::nan(""));
                *maximum = numericValue_ofDouble(static_cast<double>(high));
                break;
            case 3:
            case 4:
                *minimum = numericValue_ofDouble(static_cast<double>(low) + 0.5);
                *maximum = numericValue_ofDouble(static_cast<double>(high) + 0.5);
                break;
            default:
                *minimum = numericValue_ofLong(low);
                *maximum = numericValue_ofLong(high);
        }
    }

    std::mt19937 random_;
    std::int64_t start_ = 200;
};

// Whether ranges tell that a number in [low, high] is not there: the rule of the queries, told once more.
bool rulesOutNumber(const NumericValue& minimum, const NumericValue& maximum, std::int64_t low, std::int64_t high) {
    if (minimum.type == NumericType::absent && maximum.type == NumericType::absent) {
        return true;
    }
    if (minimum.type != maximum.type) {
        return false;
    }
    if (minimum.type == NumericType::longValue) {
        return range_compare(low, high, minimum.longValue, maximum.longValue) != 0;
    }
    return range_compare(static_cast<double>(low), static_cast<double>(high), minimum.doubleValue,
                         maximum.doubleValue) != 0;
}

// What of some values from `low` to `high` the ranges rule out, a letter for each kind.
std::string ruledOut(const RangeRecord& minimum, const RangeRecord& maximum, std::int32_t low, std::int32_t high) {
    std::string found;
    found += range_compare(low, high, minimum.seqNum, maximum.seqNum) != 0 ? "s" : "-";
    found += range_compare(low, high, minimum.uniformId, maximum.uniformId) != 0 ? "u" : "-";
    found += range_compare<std::int64_t>(low, high, minimum.timestamp, maximum.timestamp) != 0 ? "t" : "-";
    for (std::size_t i = 0; i < minimum.connMsgIds.size(); ++i) {
        const bool isNone = minimum.connMsgIds[i] > maximum.connMsgIds[i];
        const bool isOutside = range_compare(low, high, minimum.connMsgIds[i], maximum.connMsgIds[i]) != 0;
        found += isNone || isOutside ? "c" : "-";
    }
    for (std::size_t i = 0; i < 2; ++i) {
        found += rulesOutNumber(minimum.numericValues[i], maximum.numericValues[i], low, high) ? "n" : "-";
    }
    return found;
}

class BlockMapTest : public RunFileTest {
  protected:
    IndexRun write(const std::vector<IndexedBlock>& blocks) {
        return writeRun(static_cast<std::uint32_t>(blocks.size()), [&](RunWriter* run) {
            BlockMapWriter writer(run, LAYOUT);
            for (const IndexedBlock& block : blocks) {
                writer.add(block);
            }
            return std::vector<IndexPart>{writer.finish()};
        });
    }
};

void expectSame(const IndexedBlock& found, const IndexedBlock& expected) {
    EXPECT_EQ(found.start, expected.start);
    EXPECT_EQ(found.length, expected.length);
    EXPECT_EQ(found.uniformIdsAscend, expected.uniformIdsAscend);
    EXPECT_EQ(found.classCounts, expected.classCounts);
    EXPECT_EQ(found.frameOffsets, expected.frameOffsets);
    for (std::int32_t low = -5100; low < 5100; low += 20) {
        EXPECT_EQ(ruledOut(found.minimum, found.maximum, low, low + 3),
                  ruledOut(expected.minimum, expected.maximum, low, low + 3));
    }
}

TEST_F(BlockMapTest, GivesEveryBlockAsItWasAdded) {
    const std::uint32_t seed = testSeed();
    for (const std::size_t count : {1U, 2U, 9U, 10U, 11U, 12U, 30U}) {
        RandomBlocks random(seed);
        std::vector<IndexedBlock> blocks;
        for (std::size_t i = 0; i < count; ++i) {
            blocks.push_back(random.next());
        }
        const IndexRun run = write(blocks);
        IndexPages pages = open();
        BlockMap map(&pages, run, LAYOUT);
        IndexedBlock found;
        for (std::size_t i = 0; i < count; ++i) {
            ASSERT_TRUE(map.read(static_cast<std::uint32_t>(i), &found));
            expectSame(found, blocks[i]);
        }
        EXPECT_FALSE(map.read(static_cast<std::uint32_t>(count), &found)) << "there are " << count;
        EXPECT_FALSE(map.read(0xFFFF'FFFF, &found));
    }
}

TEST_F(BlockMapTest, KeepsTheLargestNumbersThatABlockCanHave) {
    IndexedBlock block;
    block.start = INT64_MAX - 1000;
    block.length = 1000;
    block.classCounts.fill(UINT32_MAX);
    block.frameOffsets.fill(UINT32_MAX);
    block.minimum.timestamp = INT64_MIN;
    block.maximum.timestamp = INT64_MAX;
    const IndexRun run = write({block});
    IndexPages pages = open();
    IndexedBlock found;
    ASSERT_TRUE(BlockMap(&pages, run, LAYOUT).read(0, &found));
    EXPECT_EQ(found.end(), INT64_MAX);
    EXPECT_EQ(found.classCounts, block.classCounts);
    EXPECT_EQ(found.frameOffsets, block.frameOffsets);
    EXPECT_EQ(found.minimum.timestamp, INT64_MIN);
    EXPECT_EQ(found.maximum.timestamp, INT64_MAX);
}

TEST_F(BlockMapTest, TakesNoBlockThatCannotBe) {
    IndexedBlock block;
    block.start = INT64_MAX - 999;
    block.length = 1000;
    IndexedBlock empty;
    empty.start = 100;
    IndexedBlock before;
    before.start = -1;
    before.length = 1000;
    const IndexRun run = write({block, empty, before});
    IndexPages pages = open();
    BlockMap map(&pages, run, LAYOUT);
    IndexedBlock found;
    EXPECT_FALSE(map.read(0, &found)) << "it ends behind what an offset can tell";
    EXPECT_FALSE(map.read(1, &found)) << "it has no byte";
    EXPECT_FALSE(map.read(2, &found)) << "it begins in front of the file";
}

TEST_F(BlockMapTest, AGroupNeverRulesOutWhatABlockOfItDoesNot) {
    const std::uint32_t seed = testSeed();
    RandomBlocks random(seed);
    std::vector<IndexedBlock> blocks;
    for (int i = 0; i < 700; ++i) {
        blocks.push_back(random.next());
    }
    const IndexRun run = write(blocks);
    IndexPages pages = open();
    BlockMap map(&pages, run, LAYOUT);
    ASSERT_GE(map.levelCount(), 3U);
    int ruledOutGroups = 0;
    for (std::size_t level = 1; level < map.levelCount(); ++level) {
        const auto span = static_cast<std::size_t>(map.span(level));
        for (std::size_t first = 0; first < blocks.size(); first += span) {
            BlockRanges group;
            ASSERT_TRUE(map.readRanges(level, static_cast<std::uint32_t>(first / span), &group));
            EXPECT_EQ(group.start, blocks[first].start);
            for (int i = 0; i < 30; ++i) {
                const std::int32_t low = random.below(12'000) - 6000;
                const std::int32_t high = low + random.below(3);
                const std::string byGroup = ruledOut(group.minimum, group.maximum, low, high);
                for (std::size_t n = first; n < std::min(first + span, blocks.size()); ++n) {
                    const std::string byBlock = ruledOut(blocks[n].minimum, blocks[n].maximum, low, high);
                    for (std::size_t kind = 0; kind < byGroup.size(); ++kind) {
                        ruledOutGroups += byGroup[kind] != '-' ? 1 : 0;
                        ASSERT_TRUE(byGroup[kind] == '-' || byBlock[kind] != '-')
                            << "level " << level << ", block " << n << ", " << low << " to " << high << ": " << byGroup
                            << " and " << byBlock;
                    }
                }
            }
        }
    }
    EXPECT_GT(ruledOutGroups, 0) << "groups that rule nothing out would pass, too";
}

TEST_F(BlockMapTest, AGroupOfBlocksInOrderHasTheRangeOfThemAll) {
    std::vector<IndexedBlock> blocks;
    for (std::int32_t i = 0; i < 40; ++i) {
        IndexedBlock block;
        block.start = 100 + i;
        block.length = 1;
        block.minimum.seqNum = 10 * i;
        block.maximum.seqNum = 10 * i + 9;
        block.minimum.connMsgIds.fill(1);
        block.maximum.connMsgIds.fill(0);  // none
        block.minimum.numericValues[0] = numericValue_ofLong(-i);
        block.maximum.numericValues[0] = numericValue_ofLong(i);
        blocks.push_back(block);
    }
    blocks[7].minimum.connMsgIds[0] = 50;
    blocks[7].maximum.connMsgIds[0] = 60;
    const IndexRun run = write(blocks);
    IndexPages pages = open();
    BlockMap map(&pages, run, LAYOUT);
    BlockRanges group;
    ASSERT_TRUE(map.readRanges(1, 0, &group));
    const auto last = static_cast<std::int32_t>(map.span(1)) - 1;
    EXPECT_EQ(group.minimum.seqNum, 0);
    EXPECT_EQ(group.maximum.seqNum, 10 * last + 9);
    EXPECT_EQ(group.minimum.numericValues[0].longValue, -last);
    EXPECT_EQ(group.maximum.numericValues[0].longValue, last);
    EXPECT_EQ(group.minimum.connMsgIds[0], 50) << "of the only block that has ids";
    EXPECT_EQ(group.maximum.connMsgIds[0], 60);
    EXPECT_GT(group.minimum.connMsgIds[1], group.maximum.connMsgIds[1]) << "no block has any";
    EXPECT_FALSE(map.readRanges(1, static_cast<std::uint32_t>((40 - 1) / map.span(1)) + 1, &group));
}

TEST_F(BlockMapTest, WithADamagedPageGivesNoneOfItsBlocksAndTheOthersAsBefore) {
    RandomBlocks random(1);
    std::vector<IndexedBlock> blocks;
    for (int i = 0; i < 30; ++i) {
        blocks.push_back(random.next());
    }
    const IndexRun run = write(blocks);
    flip(run, 2, 500);  // the second leaf
    IndexPages pages = open();
    BlockMap map(&pages, run, LAYOUT);
    const auto perLeaf = static_cast<std::uint32_t>(map.span(1));
    IndexedBlock found;
    for (std::uint32_t i = 0; i < 30; ++i) {
        EXPECT_EQ(map.read(i, &found), i / perLeaf != 1) << "block " << i;
    }
    BlockRanges ranges;
    EXPECT_TRUE(map.readRanges(1, 1, &ranges)) << "the level above is sound";
    flip(run, 0, 500);
    IndexPages withoutParts = open();
    EXPECT_FALSE(BlockMap(&withoutParts, run, LAYOUT).read(0, &found));
}

TEST(BlockMarks, AreAtMost64ForEverySizeOfABlock) {
    for (std::int32_t messages = 1; messages < 5000; ++messages) {
        const std::int32_t step = blockMap_markStep({messages, 4, 2, 0});
        const std::int32_t marks = (messages - 1) / step + 1;
        ASSERT_LE(marks, 64) << messages;
        ASSERT_TRUE(step == 1 || (messages - 1) / (step - 1) + 1 > 64) << "a smaller step would do for " << messages;
    }
}

}  // namespace
}  // namespace tabulo::internal::test
