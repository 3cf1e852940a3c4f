// What a side index holds, and of which table. It begins with two slots, of a page each; whoever writes overwrites the
// older one, so that a stopped writer leaves the other.
//
//   offset  width  field of a slot (machine byte order)
//        0      8  checksum (index_page.h), begun with SLOT_SEED
//        8      8  INDEX_MAGIC
//       16      8  generation: of two sound slots the higher one holds
//       24      8  file key: the seed of all other pages, drawn when the index was begun
//       32      8  identity of the table (table_identity.h)
//       40      8  checksum of the footer of the last covered block; 0 without one
//       48      8  file offset in the table behind the last covered block; 0 without one
//       56      4  covered blocks: the table's first ones
//       60      4  number of runs, R
//       64   16 R  runs, in the order of their blocks: first page in the index, pages, first block, blocks (4 bytes
//       each)
//
// Pages are counted from the file's beginning; the first of a run is behind the slots. Pages between runs are garbage.
// A run is described in index_run.h.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "index/index_page.h"

namespace tabulo::internal {

inline constexpr std::uint64_t INDEX_MAGIC = 0x0131'5844'4942'5431;  // "1TBIDX1" and 1, on a little-endian machine
inline constexpr std::uint32_t INDEX_SLOTS = 2;
inline constexpr std::size_t INDEX_RUN_SIZE = 16;
inline constexpr std::size_t INDEX_RUNS_OFFSET = 64;
inline constexpr std::size_t MOST_INDEX_RUNS = (INDEX_PAGE_SIZE - INDEX_RUNS_OFFSET) / INDEX_RUN_SIZE;
static_assert(MOST_INDEX_RUNS == 252);

struct IndexRun {
    std::uint32_t firstPage = 0;
    std::uint32_t pages = 0;
    std::uint32_t firstBlock = 0;
    std::uint32_t blocks = 0;

    bool operator==(const IndexRun&) const = default;
};

struct IndexSlot {
    std::uint64_t generation = 0;
    std::uint64_t fileKey = 0;
    std::uint64_t identity = 0;
    std::uint64_t lastFooter = 0;
    std::int64_t coveredEnd = 0;
    std::uint32_t coveredBlocks = 0;
    std::vector<IndexRun> runs;

    bool operator==(const IndexSlot&) const = default;
};

// The page of a slot, sealed. It has at most MOST_INDEX_RUNS runs.
IndexPage indexSlot_write(const IndexSlot& slot) noexcept;
// True when a page begins as that of a slot: then the file is an index, though maybe a damaged one.
bool indexSlot_isOne(const IndexPage& page) noexcept;
// The slot that holds of a file's two; none when neither is sound, with runs that follow each other from block 0 to the
// last covered one. Throws std::bad_alloc.
using IndexSlotPages = std::array<IndexPage, INDEX_SLOTS>;
static_assert(sizeof(IndexSlotPages) == INDEX_SLOTS * INDEX_PAGE_SIZE);
std::optional<IndexSlot> indexSlot_choose(const IndexSlotPages& pages);

// The seed of a page of a run, told by its number in the run: a run may be copied to another place in the file.
std::uint64_t indexRun_pageSeed(const IndexSlot& slot, const IndexRun& run, std::uint32_t page) noexcept;

}  // namespace tabulo::internal
