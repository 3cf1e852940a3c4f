// What a table's readers have seen of its closed blocks, so that a later query need not read the footers of those that
// it cannot match.
//
// Kept are blocks that stand one behind the other, with the ranges of sequence numbers, uniform ids and times that
// their footers tell, and the bytes of the last one's footer. Closed blocks change only when the table is dropped, or
// recovered, by somebody: whoever leaves blocks unread for what is kept reads that last footer first (confirm).
// Likewise a block joins those that are kept only when that footer has been seen to stand since the walk was asked last
// (ask): else blocks of two contents of a table could stand side by side, and the newer footer speak for both.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "messagetable/block_cursor.h"
#include "messagetable/block_reader.h"

namespace tabulo::internal {

// No more blocks are kept than this, which are 32 million messages in blocks of 1000: less than 2 MiB.
inline constexpr std::size_t MOST_KNOWN_BLOCKS = 32'768;

struct KnownBlock {
    std::int64_t start = 0;  // file offset of the length word
    std::int64_t end = 0;    // behind the footer
    std::int32_t smallestSeqNum = 0;
    std::int32_t largestSeqNum = 0;
    std::int32_t smallestUniformId = 0;
    std::int32_t largestUniformId = 0;
    std::int64_t smallestTime = 0;
    std::int64_t largestTime = 0;
};

class KnownBlocks {
  public:
    // Forgets everything when the storage was opened anew since the last call.
    void follow(const TableStorage& storage) noexcept;
    // Makes room for the blocks that the file can have, as far as there is memory: add takes none.
    void reserve(const BlockReader& reader, const TableFile& file) noexcept;
    // A walk has been asked for its next message: until then anybody may have written another content.
    void ask() noexcept { isConfirmed_ = false; }
    // Keeps the closed block at the cursor, whose footer its reader has just read, when it stands in front of those
    // that are kept or behind them, these are confirmed, and there is room. The last one that is kept is compared: all
    // are forgotten for another one in its place.
    void add(const BlockCursor& cursor) noexcept;
    // Whether the last footer stands in the file as it was kept: all is forgotten when it does not, or cannot be read.
    // The reader's footer and what it has read ahead are gone.
    bool confirm(BlockReader* reader, TableFile* file) noexcept;
    // Confirms, unless that is done, when the next block that is read is the one behind all that are kept, or in front.
    void confirmBefore(std::int64_t start, BlockReader* reader, TableFile* file) noexcept;
    void confirmBehind(std::int64_t end, BlockReader* reader, TableFile* file) noexcept;

    std::size_t count() const noexcept { return inFront_.size() + behind_.size(); }
    // In the order of the file.
    const KnownBlock& at(std::size_t number) const noexcept;
    // The number of the block that begins, or ends, at this file offset.
    std::optional<std::size_t> beginningAt(std::int64_t offset) const noexcept;
    std::optional<std::size_t> endingAt(std::int64_t offset) const noexcept;

  private:
    void forget() noexcept;
    bool isLastFooter(const BlockReader& reader) const noexcept;

    // Each begins where the one before ends; those in front of the first one that was kept stand in reverse.
    std::vector<KnownBlock> inFront_;
    std::vector<KnownBlock> behind_;
    std::vector<std::uint8_t> lastFooter_;
    bool isConfirmed_ = false;   // the last footer was seen since a walk was asked
    std::int64_t openings_ = 0;  // of the storage, when the blocks were seen
};

// A summary that says of a block what is kept of it: what is not kept rules nothing out.
void knownBlock_summarise(const KnownBlock& block, BlockSummary* summary) noexcept;

}  // namespace tabulo::internal
