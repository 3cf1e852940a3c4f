// What an index knows of closed blocks: where they stand, their ranges, and where some of their frames begin.
//
// Leaf page: 8 checksum, 4 number of blocks, 4 zero, then a record for each block:
//   offset  width  field (machine byte order)
//        0      8  file offset of the block's length word
//        8      8  length of the block
//       16      4  1 when the uniform ids of the block's messages never fall, else 0
//       20     20  messages of each class, in class order
//       40    R    the footer's minimum record (block_summary.h; R is 36 + 9 x numericFieldCount)
//     40+R    R    the footer's maximum record
//    40+2R  4 x 64 offset in the block of the frames 0, S, 2 S and so on, where S is the smallest step that makes do
//    with
//                  64 of them; all 0 for a block of 4 GiB or more
//
// Page of a level above: 8 checksum, 4 number of entries, 4 zero, then for each page below the offset of its first
// block and the ranges of all its blocks: 8 + 2 R.
#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "index/index_pages.h"
#include "index/index_run.h"
#include "messagetable/block_summary.h"

namespace tabulo::internal {

inline constexpr std::size_t FRAME_MARKS = 64;

struct IndexedBlock {
    std::int64_t start = 0;
    std::int64_t length = 0;
    bool uniformIdsAscend = false;
    std::array<std::uint32_t, MESSAGE_CLASS_COUNT> classCounts{};
    RangeRecord minimum;
    RangeRecord maximum;
    std::array<std::uint32_t, FRAME_MARKS> frameOffsets{};

    std::int64_t end() const noexcept { return start + length; }
};

// The step between the frames whose offsets are kept.
inline std::int32_t blockMap_markStep(const MessageTableLayout& layout) noexcept {
    return (layout.messagesPerBlock - 1) / static_cast<std::int32_t>(FRAME_MARKS) + 1;
}

// The ranges of several blocks: nothing is outside of them that some block's own ranges do not rule out.
struct BlockRanges {
    std::int64_t start = 0;  // of the first block
    RangeRecord minimum;
    RangeRecord maximum;
};
// Called here only: tests look at what is joined.
void blockRanges_begin(BlockRanges* ranges, const IndexedBlock& block) noexcept;
// Called here only: as blockRanges_begin.
void blockRanges_add(BlockRanges* ranges, const RangeRecord& minimum, const RangeRecord& maximum) noexcept;

class BlockMapWriter {
  public:
    BlockMapWriter(RunWriter* run, const MessageTableLayout& layout);

    void add(const IndexedBlock& block);
    IndexPart finish();

  private:
    void putLeaf();

    RunWriter* run_;
    MessageTableLayout layout_;
    IndexPage page_;
    std::uint32_t count_ = 0;          // of the page
    std::vector<BlockRanges> ranges_;  // of the pages of the level at hand
    IndexPart part_;
};

// Reads the blocks of a run by their number in it.
class BlockMap {
  public:
    BlockMap(IndexPages* pages, const IndexRun& run, const MessageTableLayout& layout) noexcept;

    // False when the page is not sound.
    bool read(std::uint32_t block, IndexedBlock* found) noexcept;
    // Levels of pages: the leaves are level 0.
    std::size_t levelCount() const noexcept { return levels_.count; }
    // How many blocks stand under one entry of a level from 1 on.
    std::uint64_t span(std::size_t level) const noexcept;
    // The ranges under an entry of a level from 1 on.
    bool readRanges(std::size_t level, std::uint32_t entry, BlockRanges* found) noexcept;

  private:
    IndexPages* pages_;
    IndexRun run_;
    MessageTableLayout layout_;
    IndexLevels levels_;
};

}  // namespace tabulo::internal
