// Tells what a crash leaves behind an append from what it cannot have left.
//
// A writer that is killed, or a machine that stops, leaves behind the last complete frame at most the beginning of what
// was being appended, or zero bytes where the file system had extended the file but not written the data yet. That may
// be cut without more. Anything else is damage, and worth keeping for whoever has to explain it.
#pragma once

#include <cstdint>

#include "core/error_codes.h"
#include "messagetable/frame.h"
#include "storage/table_file.h"

namespace tabulo::internal {

// *torn is true when the bytes from `start` to `end` (the file's end) are fewer than 8, zero bytes only, or the
// beginning of one frame: its msgLen is at least the smallest frame's and reaches beyond the file's end, every field
// that is there fits into it, and no whole frame stands in it. (A frame whose msgLen was damaged to a larger one can
// look like a beginning, but whole messages may follow it. Too many bytes that could be a length count as one.)
// FILE_READ_ERROR, SYSTEM_FILE_ERROR.
ErrorCode tornTail_check(TableFile* file, const MessageTableLayout& layout, std::int64_t start, std::int64_t end,
                         bool* torn) noexcept;

// As tornTail_check for the first two cases only.
ErrorCode tornTail_isEmpty(TableFile* file, std::int64_t start, std::int64_t end, bool* empty) noexcept;

}  // namespace tabulo::internal
