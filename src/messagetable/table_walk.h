// Walks over a whole table, block by block, asking a match operation about each block and each message.
//
// A walk reads the master file with a frame reader of its own; it never moves a writer's place. The operation may use
// the table: when it drops it, the walk ends without an error, when it closes the file, with MASTER_INACTIVE_ERROR. A
// walk ends silently only at the end of the data. A damaged footer, a frame that does not decode and a failed read are
// returned, behind the messages that could be read before them.
#pragma once

#include <cstdint>

#include "core/error_codes.h"
#include "messagetable/match_result.h"
#include "messagetable/message_frames.h"

namespace tabulo::internal {

// From startBlock on, or back from startBlock to the header's end. A block is asked about once, with its summary (an
// open one is scanned for it), and only when it holds messages; then each of its messages, in order.
// MASTER_INACTIVE_ERROR without a master file; the operation's own codes; HEADER_CORRUPTED_ERROR, CONSISTENCY_ERROR,
// NO_DATA_ERROR (a cut frame inside a closed block), FILE_READ_ERROR, SYSTEM_FILE_ERROR, OUT_OF_MEMORY_ERROR.
ErrorCode mfr_readForward(MessageFrames* mfr, std::int64_t startBlock, MatchOperation operation,
                          void* context) noexcept;
ErrorCode mfr_readBackward(MessageFrames* mfr, std::int64_t startBlock, MatchOperation operation,
                           void* context) noexcept;

}  // namespace tabulo::internal
