// Moves an iterator over closed blocks that it need not read, because what the table knows of them (known_blocks.h)
// rules them out. What is known is compared with the file before it is used; the visitor is told of each block.
#pragma once

#include <cstdint>

#include "query/message_table_iterator.h"
#include "storage/table_file.h"

namespace tabulo::internal {

// From the block that the cursor's next step would read: the step then reads the first one that may match, or the one
// behind all that are known.
void knownPass_forward(MessageTableIterator* iterator, TableFile* file) noexcept;
// From the block in front of the one at hand, not beyond the one at `firstBlock`: the last one that was passed becomes
// the block at hand, of which nothing but its start is set.
void knownPass_backward(MessageTableIterator* iterator, TableFile* file, std::int64_t firstBlock) noexcept;

}  // namespace tabulo::internal
