// The side index of a table as queries use it: a file beside the table's, its path with INDEX_SUFFIX behind it, from
// which messages are found without reading the blocks that do not hold them.
//
// It is never needed and never an error. What it says holds only while it belongs to what the table's file holds:
// sideIndex_of reads that again for each query. A page that is damaged or cannot be read ends its use: an answer that
// was given before stays true.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "index/block_map.h"
#include "index/index_pages.h"
#include "index/key_map.h"
#include "messagetable/frame_jump.h"
#include "messagetable/message_table.h"

namespace tabulo::internal {

inline constexpr std::string_view INDEX_SUFFIX = ".idx";

// Whether nothing that lies within some ranges, which may be those of several blocks, can be wanted.
struct RangeRule {
    void* owner = nullptr;
    bool (*rulesOut)(void* owner, const RangeRecord& minimum, const RangeRecord& maximum) = nullptr;
};

class SideIndex {
  public:
    // Throws std::bad_alloc.
    SideIndex(std::string path, IndexPages pages, const IndexSlotPages& slotPages, const MessageTableLayout& layout);

    const IndexSlot& slot() const noexcept { return pages_.slot(); }
    // True when the path leads to this file still, and its slots are the same.
    bool isCurrent() const noexcept;

    // The table's first blocks, all of them closed, and the file offset behind them.
    std::uint32_t blocks() const noexcept { return slot().coveredBlocks; }
    std::int64_t end() const noexcept { return slot().coveredEnd; }
    std::uint64_t messages() const noexcept;
    // How many pages its answers have read from the file.
    std::int64_t pagesRead() const noexcept { return pages_.pagesRead(); }

    // The functions below give none, or false, when a page is not sound.

    bool read(std::uint32_t block, IndexedBlock* found);
    // Where a block begins; the end for the number behind the last one.
    std::optional<std::int64_t> blockStart(std::uint32_t block);
    // How many blocks begin before this file offset.
    std::optional<std::uint32_t> blocksBefore(std::int64_t offset);
    // The first block from `block` on, or the last one before it, whose ranges do not rule it out; blocks() when there
    // is none.
    std::optional<std::uint32_t> next(std::uint32_t block, const RangeRule& rule);
    std::optional<std::uint32_t> previous(std::uint32_t block, const RangeRule& rule);

    // Sets *found to the numbers in the table, ascending, of the messages with a key in one of the ranges. False also
    // when there are more than `most`. Throws std::bad_alloc.
    bool collect(std::uint32_t part, std::span<const KeyRange> ranges, std::size_t most,
                 std::vector<std::uint32_t>* found);
    // The number in the table of a message of the block's run with the lowest key from `key` on; blocks() x
    // messagesPerBlock when there is none.
    std::optional<std::uint64_t> lowest(std::uint32_t part, std::uint32_t block, std::uint32_t key);

  private:
    const IndexRun* runOf(std::uint32_t block) const noexcept;

    std::string path_;
    IndexSlotPages slotPages_;  // as they were read
    MessageTableLayout layout_;
    IndexPages pages_;
};

// The index beside the table's open file, when there is one and it belongs to what the file holds now; null otherwise,
// also when memory is short. The table keeps what was read of it for the next query.
std::shared_ptr<SideIndex> sideIndex_of(MessageTable* table, TableFile* file) noexcept;

// The frames of a block that can be reached at once.
// The last mark at or in front of a message, and the first one behind it; *pieceSize is the distance between them.
FrameMark indexedBlock_markBefore(const IndexedBlock& block, const MessageTableLayout& layout, std::int32_t number,
                                  std::int32_t* pieceSize) noexcept;
FrameMark indexedBlock_markBehind(const IndexedBlock& block, const MessageTableLayout& layout, std::int64_t framesEnd,
                                  std::int32_t number, std::int32_t* pieceSize) noexcept;

}  // namespace tabulo::internal
