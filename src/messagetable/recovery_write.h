// What recovery writes over, and the copies it keeps of it.
//
// Recovery overwrites only what a crash can have left; what it could not have left is damage, and is saved beside the
// table first (salvage.h).
#pragma once

#include <cstdint>

#include "core/error_codes.h"
#include "storage/table_file.h"

namespace tabulo::internal {

// Saves the `length` bytes at `offset` as "<table>.cut-<offset>", with a WARNING that names the copy. The codes of
// salvage_save; then nothing was saved.
ErrorCode recoveryWrite_save(TableFile* file, std::int64_t offset, std::int64_t length) noexcept;

// Saves what stands at `offset` before `bytes` overwrite it, unless it is the same, the beginning of the same, or zero
// bytes. The codes of recoveryWrite_save and of reading; OUT_OF_MEMORY_ERROR.
ErrorCode recoveryWrite_saveOverwritten(TableFile* file, std::int64_t offset, const std::uint8_t* bytes,
                                        std::int64_t length) noexcept;

// Writes `bytes` at `offset` and flushes. The codes of tableFileSeekSet, tableFileWrite and tableFileFlush.
ErrorCode recoveryWrite_at(TableFile* file, std::int64_t offset, const void* bytes, std::int64_t length) noexcept;

// Replaces the leading length word of the block at `block`; saves the word that stands there, unless it is 0, the right
// one or a torn one, which a crash can have left. The codes of recoveryWrite_save, of tableFileReadAt and of
// recoveryWrite_at.
ErrorCode recoveryWrite_lengthWord(TableFile* file, std::int64_t block, std::uint64_t length) noexcept;

}  // namespace tabulo::internal
