// The slots at the beginning of an index: their bytes, and which of two holds.
#include "index/index_slot.h"

#include <gtest/gtest.h>

#include <set>

#include "tests/support/bytes.h"

namespace tabulo::internal::test {
namespace {

IndexSlot slotOf(std::uint64_t generation, const std::vector<IndexRun>& runs = {{2, 5, 0, 16}, {7, 2, 16, 3}}) {
    IndexSlot slot;
    slot.generation = generation;
    slot.fileKey = 0x1112'1314'1516'1718;
    slot.identity = 0x2122'2324'2526'2728;
    slot.lastFooter = 0x3132'3334'3536'3738;
    slot.coveredEnd = 0x0102'0304;
    slot.runs = runs;
    for (const IndexRun& run : runs) {
        slot.coveredBlocks += run.blocks;
    }
    return slot;
}

// What a file holds that has this page for a slot, and no other.
std::optional<IndexSlot> readAlone(const IndexPage& page) {
    return indexSlot_choose({page, IndexPage{}});
}

TEST(IndexSlotBytes, AreThoseOfTheMap) {
    const IndexPage page = indexSlot_write(slotOf(9));
    // The magic to the number of runs, then the two runs, without the checksum in front.
    const Bytes expected = fromHex(
        "31 54 42 49 44 58 31 01"
        "09 00 00 00 00 00 00 00"
        "18 17 16 15 14 13 12 11"
        "28 27 26 25 24 23 22 21"
        "38 37 36 35 34 33 32 31"
        "04 03 02 01 00 00 00 00"
        "13 00 00 00  02 00 00 00"
        "02 00 00 00  05 00 00 00  00 00 00 00  10 00 00 00"
        "07 00 00 00  02 00 00 00  10 00 00 00  03 00 00 00");
    const std::span<const std::uint8_t> written = std::span(page.bytes).subspan(8);
    EXPECT_EQ(toHex(written.first(expected.size())), toHex(expected));
    for (const std::uint8_t byte : written.subspan(expected.size())) {
        ASSERT_EQ(byte, 0) << "nothing stands behind the runs";
    }
}

TEST(IndexSlotBytes, AreReadAsTheyWereWritten) {
    EXPECT_EQ(readAlone(indexSlot_write(slotOf(9))), slotOf(9));
    EXPECT_EQ(readAlone(indexSlot_write(slotOf(1, {}))), slotOf(1, {}));
    std::vector<IndexRun> most;
    for (std::uint32_t i = 0; i < MOST_INDEX_RUNS; ++i) {
        most.push_back({2 + i, 1, i, 1});
    }
    EXPECT_EQ(readAlone(indexSlot_write(slotOf(2, most))), slotOf(2, most));
}

TEST(IndexSlotBytes, WithAChangedByteAreNotRead) {
    IndexPage page = indexSlot_write(slotOf(9));
    for (std::size_t at = 0; at < INDEX_PAGE_SIZE; ++at) {
        page.bytes[at] ^= 0x40;
        ASSERT_FALSE(readAlone(page).has_value()) << "byte " << at;
        page.bytes[at] ^= 0x40;
    }
    EXPECT_TRUE(readAlone(page).has_value());
}

TEST(IndexSlotBytes, CutAnywhereAreNotRead) {
    const IndexPage page = indexSlot_write(slotOf(9));
    for (std::size_t length = 0; length < INDEX_RUNS_OFFSET + 2 * INDEX_RUN_SIZE; ++length) {
        IndexPage cut;
        std::copy_n(page.bytes.begin(), length, cut.bytes.begin());
        if (length < INDEX_RUNS_OFFSET + 2 * INDEX_RUN_SIZE - 3) {  // the last three bytes are 0
            EXPECT_FALSE(readAlone(cut).has_value()) << length << " bytes";
        }
        EXPECT_EQ(indexSlot_isOne(cut), length >= 16) << "told by the magic alone, of " << length << " bytes";
    }
}

TEST(IndexSlotBytes, OfRunsThatDoNotFollowEachOtherAreNotRead) {
    const std::vector<std::vector<IndexRun>> wrong = {
        {{2, 5, 1, 16}},                                   // does not begin with block 0
        {{2, 5, 0, 16}, {7, 2, 17, 3}},                    // a gap
        {{2, 5, 0, 16}, {7, 2, 15, 3}},                    // an overlap
        {{2, 5, 16, 3}, {7, 2, 0, 16}},                    // in another order
        {{2, 5, 0, 0}},                                    // no block
        {{2, 0, 0, 16}},                                   // no page
        {{2, 5, 0, 16}, {7, 2, 16, 0}},                    // no block in the last one
        {{2, 5, 0, 0xFFFF'FFFF}, {7, 2, 0xFFFF'FFFF, 1}},  // more blocks than can be counted
    };
    for (std::size_t i = 0; i < wrong.size(); ++i) {
        EXPECT_FALSE(readAlone(indexSlot_write(slotOf(1, wrong[i]))).has_value()) << "case " << i;
    }
}

TEST(IndexSlotBytes, WhoseCoveredBlocksAreNotThoseOfTheRunsAreNotRead) {
    IndexSlot slot = slotOf(1);
    slot.coveredBlocks += 1;
    EXPECT_FALSE(readAlone(indexSlot_write(slot)).has_value());
    slot.coveredBlocks -= 2;
    EXPECT_FALSE(readAlone(indexSlot_write(slot)).has_value());
    slot = slotOf(1);
    slot.coveredEnd = -1;
    EXPECT_FALSE(readAlone(indexSlot_write(slot)).has_value());
}

TEST(IndexSlotChoice, IsTheHigherGenerationWhereverItStands) {
    const IndexPage older = indexSlot_write(slotOf(8));
    const IndexPage newer = indexSlot_write(slotOf(9, {{2, 1, 0, 1}}));
    EXPECT_EQ(indexSlot_choose({older, newer})->generation, 9U);
    EXPECT_EQ(indexSlot_choose({newer, older})->generation, 9U);
    const IndexPage beyond32Bits = indexSlot_write(slotOf(0x1'0000'0000));
    EXPECT_EQ(indexSlot_choose({beyond32Bits, newer})->generation, 0x1'0000'0000U);
}

TEST(IndexSlotChoice, IsTheSoundOneOfTwo) {
    const IndexPage older = indexSlot_write(slotOf(8));
    IndexPage newer = indexSlot_write(slotOf(9));
    newer.bytes[100] ^= 1;
    EXPECT_EQ(indexSlot_choose({older, newer})->generation, 8U);
    EXPECT_EQ(indexSlot_choose({newer, older})->generation, 8U);
    EXPECT_EQ(indexSlot_choose({IndexPage{}, older})->generation, 8U);
    EXPECT_FALSE(indexSlot_choose({newer, newer}).has_value());
    EXPECT_FALSE(indexSlot_choose({IndexPage{}, IndexPage{}}).has_value());
}

TEST(IndexPageSeed, TellsFilesRunsAndPagesApart) {
    std::set<std::uint64_t> seeds;
    std::size_t count = 0;
    for (std::uint64_t key = 1; key <= 4; ++key) {
        IndexSlot slot;
        slot.fileKey = key;
        for (const IndexRun& run : {IndexRun{2, 9, 0, 1}, IndexRun{2, 9, 0, 2}, IndexRun{2, 9, 1, 1}}) {
            for (std::uint32_t page = 0; page < run.pages; ++page) {
                seeds.insert(indexRun_pageSeed(slot, run, page));
                count += 1;
            }
        }
    }
    EXPECT_EQ(seeds.size(), count);
}

TEST(IndexPageSeed, IsTheSameWhereverTheRunStandsInTheFile) {
    IndexSlot slot;
    slot.fileKey = 5;
    EXPECT_EQ(indexRun_pageSeed(slot, {2, 9, 3, 4}, 6), indexRun_pageSeed(slot, {70, 9, 3, 4}, 6));
}

}  // namespace
}  // namespace tabulo::internal::test
