// Saves a stretch of a table file beside it before recovery removes or overwrites it.
#pragma once

#include <cstdint>
#include <string>

#include "core/error_codes.h"
#include "storage/table_file.h"

namespace tabulo::internal {

// Copies `length` bytes from `offset` into a new file "<table>.cut-<offset>", or with "-1", "-2", ... behind it when
// that exists already, commits it to the disk and sets *savedPath. FILE_OPEN_ERROR, FILE_READ_ERROR, FILE_WRITE_ERROR,
// OUT_OF_MEMORY_ERROR; an incomplete copy is removed again.
ErrorCode salvage_save(TableFile* file, std::int64_t offset, std::int64_t length, std::string* savedPath) noexcept;

}  // namespace tabulo::internal
