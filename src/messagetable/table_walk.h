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

// The file of a walk. The visitor may write to, drop or destroy the table: it is fetched anew behind every call of it.
struct WalkFile {
    TableStorage* storage = nullptr;  // borrowed
    std::int64_t openings = 0;        // of the storage, when the walk began
    TableFile* file = nullptr;
    bool ended = false;  // the visitor asked to stop, an error occurred, or the table was dropped
};
// MASTER_INACTIVE_ERROR without a master file: the walk has ended then.
ErrorCode walkFile_begin(BlockReader* reader, WalkFile* file) noexcept;
// What the visitor's answer, or its failure, means for the walk: it has ended silently when the table was dropped and
// its file opened anew. MASTER_INACTIVE_ERROR when the file was closed; `code`.
ErrorCode walkFile_follow(WalkFile* file, ErrorCode code, Visit answer) noexcept;

// From startBlock on, or back from startBlock to the header's end. A block is shown once, with its summary (an open one
// is scanned for it), and only when it holds messages; then each of its messages, in order. MASTER_INACTIVE_ERROR
// without a master file; the visitor's own codes; HEADER_CORRUPTED_ERROR, CONSISTENCY_ERROR, NO_DATA_ERROR (a cut frame
// inside a closed block), FILE_READ_ERROR, SYSTEM_FILE_ERROR, OUT_OF_MEMORY_ERROR.
ErrorCode mfr_readForward(BlockReader* reader, std::int64_t startBlock, const MessageVisitor& visitor) noexcept;
ErrorCode mfr_readBackward(BlockReader* reader, std::int64_t startBlock, const MessageVisitor& visitor) noexcept;

}  // namespace tabulo::internal
