// Finding the place of a uniform id in a table.
#pragma once

#include <cstdint>

#include "core/error_codes.h"
#include "messagetable/frame_place.h"

namespace tabulo::internal {

struct MessageTable;

// Where a reader that counts messages goes on.
struct UniformPlace {
    std::int64_t offset = 0;   // file offset at which reading goes on
    std::int64_t ordinal = 0;  // number of the next message in the table, from 0 on
    // Bytes between the offset and the next frame: 8 at the start of a block (its length word), footerSize + 8 behind
    // the last frame of a full one, 0 otherwise.
    std::int32_t skip = 0;
    FramePlace frame{};  // the same place as that of the next frame
};

// The place of the first message, in file order, whose uniform id is at or above `id` (signed); the end of the data
// when there is none. Closed blocks are passed by their footers; uniform ids need not be sorted. The view is refreshed
// first.
//
// NULL_POINTER_ERROR; MASTER_INACTIVE_ERROR without an active file; the codes of mt_refresh and of reading
// (block_cursor.h); CONSISTENCY_ERROR for a frame in the way that does not decode, HEADER_CORRUPTED_ERROR for a damaged
// block; OUT_OF_MEMORY_ERROR. On failure *place is unchanged.
ErrorCode mt_findUniformId(MessageTable* table, std::int32_t id, UniformPlace* place) noexcept;

}  // namespace tabulo::internal
