// Finding the place of a uniform id in a table.
#pragma once

#include <cstdint>

#include "core/error_codes.h"

namespace tabulo::internal {

struct MessageTable;

// The place of the first message, in file order, whose uniform id is at or above `id` (signed); the end of the data
// when there is none. Closed blocks are passed by their footers; uniform ids need not be sorted. The view is refreshed
// first.
//
//   *offset   file offset at which reading goes on
//   *ordinal  number of the next message in the table, from 0 on
//   *skip     bytes between the offset and the next frame: 8 at the start of a block (its length word), footerSize + 8
//             behind the last frame of a full one, 0 otherwise
//
// NULL_POINTER_ERROR; MASTER_INACTIVE_ERROR without an active file; the codes of mt_refresh and of reading
// (table_walk.h); OUT_OF_MEMORY_ERROR.
ErrorCode mt_findUniformId(MessageTable* table, std::int32_t id, std::int64_t* offset, std::int64_t* ordinal,
                           std::int32_t* skip) noexcept;

}  // namespace tabulo::internal
