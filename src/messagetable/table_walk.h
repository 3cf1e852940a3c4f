// Walks over a whole table, block by block, showing each block and each message to a visitor.
//
// A walk reads the master file with a block reader of its own; it never moves a writer's place. The visitor may use the
// table: when it drops it, the walk ends without an error, when it closes the file, with MASTER_INACTIVE_ERROR. A walk
// ends silently only at the end of the data. A damaged block, a frame that does not decode and a failed read are
// returned, behind the messages that could be read before them.
#pragma once

#include <cstdint>

#include "core/error_codes.h"
#include "messagetable/block_reader.h"
#include "messagetable/message_visitor.h"

namespace tabulo::internal {

// From startBlock on, or back from startBlock to the header's end. A block is shown once, with its summary (an open one
// is scanned for it), and only when it holds messages; then each of its messages, in order. MASTER_INACTIVE_ERROR
// without a master file; the visitor's own codes; HEADER_CORRUPTED_ERROR, CONSISTENCY_ERROR, NO_DATA_ERROR (a cut frame
// inside a closed block), FILE_READ_ERROR, SYSTEM_FILE_ERROR, OUT_OF_MEMORY_ERROR.
ErrorCode mfr_readForward(BlockReader* reader, std::int64_t startBlock, const MessageVisitor& visitor) noexcept;
ErrorCode mfr_readBackward(BlockReader* reader, std::int64_t startBlock, const MessageVisitor& visitor) noexcept;

}  // namespace tabulo::internal
