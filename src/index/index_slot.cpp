#include "index/index_slot.h"

namespace tabulo::internal {

namespace {

constexpr std::uint64_t SLOT_SEED = 0x51D1'0DE5;
constexpr std::size_t MAGIC_OFFSET = 8;
constexpr std::size_t GENERATION_OFFSET = 16;
constexpr std::size_t FILE_KEY_OFFSET = 24;
constexpr std::size_t IDENTITY_OFFSET = 32;
constexpr std::size_t LAST_FOOTER_OFFSET = 40;
constexpr std::size_t COVERED_END_OFFSET = 48;
constexpr std::size_t COVERED_BLOCKS_OFFSET = 56;
constexpr std::size_t RUN_COUNT_OFFSET = 60;

IndexRun readRun(const IndexPage& page, std::size_t at) {
    return {page.get<std::uint32_t>(at), page.get<std::uint32_t>(at + 4), page.get<std::uint32_t>(at + 8),
            page.get<std::uint32_t>(at + 12)};
}

// None for a page that is not sound, or whose runs do not follow each other.
std::optional<IndexSlot> readSlot(const IndexPage& page) {
    const auto runCount = page.get<std::uint32_t>(RUN_COUNT_OFFSET);
    if (!indexSlot_isOne(page) || runCount > MOST_INDEX_RUNS || !indexPage_isSound(page, SLOT_SEED)) {
        return std::nullopt;
    }
    IndexSlot slot;
    slot.generation = page.get<std::uint64_t>(GENERATION_OFFSET);
    slot.fileKey = page.get<std::uint64_t>(FILE_KEY_OFFSET);
    slot.identity = page.get<std::uint64_t>(IDENTITY_OFFSET);
    slot.lastFooter = page.get<std::uint64_t>(LAST_FOOTER_OFFSET);
    slot.coveredEnd = page.get<std::int64_t>(COVERED_END_OFFSET);
    slot.coveredBlocks = page.get<std::uint32_t>(COVERED_BLOCKS_OFFSET);
    std::uint64_t blocks = 0;
    for (std::uint32_t i = 0; i < runCount; ++i) {
        const IndexRun run = readRun(page, INDEX_RUNS_OFFSET + i * INDEX_RUN_SIZE);
        if (run.firstBlock != blocks || run.blocks == 0 || run.pages == 0 || run.firstPage < INDEX_SLOTS ||
            run.pages > UINT32_MAX - run.firstPage) {
            return std::nullopt;
        }
        blocks += run.blocks;
        slot.runs.push_back(run);
    }
    return blocks == slot.coveredBlocks && slot.coveredEnd >= 0 ? std::optional(std::move(slot)) : std::nullopt;
}

}  // namespace

IndexPage indexSlot_write(const IndexSlot& slot) noexcept {
    IndexPage page;
    page.put(MAGIC_OFFSET, INDEX_MAGIC);
    page.put(GENERATION_OFFSET, slot.generation);
    page.put(FILE_KEY_OFFSET, slot.fileKey);
    page.put(IDENTITY_OFFSET, slot.identity);
    page.put(LAST_FOOTER_OFFSET, slot.lastFooter);
    page.put(COVERED_END_OFFSET, slot.coveredEnd);
    page.put(COVERED_BLOCKS_OFFSET, slot.coveredBlocks);
    page.put(RUN_COUNT_OFFSET, static_cast<std::uint32_t>(slot.runs.size()));
    std::size_t at = INDEX_RUNS_OFFSET;
    for (const IndexRun& run : slot.runs) {
        for (const std::uint32_t number : {run.firstPage, run.pages, run.firstBlock, run.blocks}) {
            page.put(at, number);
            at += sizeof(number);
        }
    }
    indexPage_seal(&page, SLOT_SEED);
    return page;
}

bool indexSlot_isOne(const IndexPage& page) noexcept {
    return page.get<std::uint64_t>(MAGIC_OFFSET) == INDEX_MAGIC;
}

std::optional<IndexSlot> indexSlot_choose(const IndexSlotPages& pages) {
    std::optional<IndexSlot> one = readSlot(pages[0]);
    std::optional<IndexSlot> other = readSlot(pages[1]);
    const bool takesOther = other.has_value() && (!one.has_value() || one->generation < other->generation);
    return takesOther ? other : one;
}

std::uint64_t indexRun_pageSeed(const IndexSlot& slot, const IndexRun& run, std::uint32_t page) noexcept {
    return indexSeed(indexSeed(slot.fileKey, run.firstBlock), (std::uint64_t{run.blocks} << 32) + page);
}

}  // namespace tabulo::internal
