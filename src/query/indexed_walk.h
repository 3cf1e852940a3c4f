// What a side index (index/side_index.h) spares an iterator: blocks that hold nothing for it, and in the others the
// messages that it need not decode.
//
// The index is looked for at an iterator's first step. Blocks that may hold a match are read as without it, footer
// first; where anything is not as the index has it, the walk goes on from there without it.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "core/error_codes.h"
#include "index/side_index.h"
#include "storage/table_file.h"

namespace tabulo::internal {

struct MessageTableIterator;

struct IndexedWalk {
    bool mayAsk = false;               // what the conditions are decides
    std::shared_ptr<SideIndex> index;  // null: none is asked (any more)
    // The messages of the covered blocks, by their number in the table, that alone can match.
    bool isListed = false;
    std::vector<std::uint32_t> messages;
    std::uint32_t block = 0;  // the covered block that was moved to last,
    IndexedBlock marks;       // and what the index has of it
    // Only the listed messages of the block at hand, which is that one, are looked at.
    bool isInBlock = false;
    std::size_t left = 0;  // of those: forward the first one left, backward the number of them in front
};

// From the block that the cursor's next step would read to the first one that may match, or behind those covered.
void indexedWalk_forward(MessageTableIterator* iterator, TableFile* file) noexcept;
// From the block in front of the one at hand, not beyond the one at `firstBlock`, to the last one that may match: the
// one behind that becomes the block at hand, of which nothing but its start is set.
void indexedWalk_backward(MessageTableIterator* iterator, TableFile* file, std::int64_t firstBlock) noexcept;
// The iterator has entered the frames of the block at hand.
void indexedWalk_enterBlock(MessageTableIterator* iterator) noexcept;
// Moves the frames to the next message that may match, over those that cannot; false when there is none left.
bool indexedWalk_nextFrame(MessageTableIterator* iterator) noexcept;
bool indexedWalk_previousFrame(MessageTableIterator* iterator) noexcept;

}  // namespace tabulo::internal
