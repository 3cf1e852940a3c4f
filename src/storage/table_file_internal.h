// Steps that the table file's sources share; not for other users.
#pragma once

#include <cstdint>

#include "core/error_codes.h"
#include "storage/table_file.h"

namespace tabulo::internal {

// NULL_POINTER_ERROR, SYSTEM_FILE_ERROR for a stream whose close failed, or NO_ERROR.
ErrorCode tableFile_check(const TableFile* file) noexcept;
// Moves the stream, with 64-bit offsets. WRONG_PARAMETER_ERROR for an unknown whence, FILE_SEEK_ERROR.
// Called here only: the other sources move the virtual position.
ErrorCode tableFileRealSeek(TableFile* file, std::int64_t offset, std::int32_t whence) noexcept;
// Brings the stream to the virtual position; with `force` also when they agree, since the stream has to change between
// reading and writing. FILE_SEEK_ERROR.
ErrorCode tableFileSeekSync(TableFile* file, bool force) noexcept;
// Cuts the stream's file, unless it has this length; the stream's position ends at `length` or stays where it was,
// whichever is lower. SYSTEM_FILE_ERROR for a closed stream, FILE_FLUSH_ERROR, FILE_TRUNCATE_ERROR. Called here only:
// by tableFileTruncate, which keeps the record right.
ErrorCode sys_ftruncate(FileStream* stream, std::int64_t length) noexcept;
// After gathered bytes were lost: takes position and size from the system again, and keeps the virtual position.
void tableFile_resetPosition(TableFile* file) noexcept;
// With the sync policy on, commits the flushes of a writable file that no physical sync has covered yet.
void tableFile_syncBeforeClose(TableFile* file) noexcept;

}  // namespace tabulo::internal
