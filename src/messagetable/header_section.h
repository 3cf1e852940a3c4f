// Writing, checking and loading the message-table section of a file's header: what a message table does for its storage
// (table_header.h has the byte map).
#pragma once

#include <cstdint>

#include "core/byte_stream.h"
#include "core/error_codes.h"
#include "storage/table_file.h"

namespace tabulo::internal {

struct MessageTable;

// Appends a new section behind the generic header that the stream already holds; resets the table's bookkeeping, static
// indexes and frame writer. The result is the stream's error; WRONG_PARAMETER_ERROR for an impossible layout.
ErrorCode mtX_writeHeader(MessageTable* table, KSVByteStream* stream) noexcept;

// Checks the section at `offset` of the stream that holds the file's beginning, field by field against the table's
// configuration; on success the table's bookkeeping and static indexes hold the stored values. The first failure is
// returned: FILE_SIZE_ERROR (nothing behind the generic header; lastBlockEnd or dataEnd do not fit the file),
// STREAM_NOT_ENOUGH_DATA_ERROR (cut section), TABLE_TYPE_ERROR, HEADER_CORRUPTED_ERROR (impossible layout; the section
// does not end where the header does; negative messageCount), CONFIG_MISMATCH_ERROR, and with a WARNING
// STRING_FIELDS_COUNT_MISMATCH_ERROR, NUMERIC_FIELDS_COUNT_MISMATCH_ERROR, NUMERIC_FIELDS_NAMES_MISMATCH_ERROR,
// STRING_FIELDS_NAMES_MISMATCH_ERROR.
ErrorCode mtX_verify(MessageTable* table, TableFile* file, KSVByteStream* stream, std::int32_t offset) noexcept;

// Takes over the stored records; for a file that is open for writing also brings the frame writer to the state of the
// open block, which must reach exactly to the file's end: anything else is FILE_SIZE_ERROR, and recovery's to mend. The
// table changes only when all of it succeeds.
ErrorCode mtX_load(MessageTable* table, TableFile* file, KSVByteStream* stream, std::int32_t offset) noexcept;

// Makes the tail writer.
ErrorCode mtX_prepareTail(MessageTable* table, std::int32_t headerEnd) noexcept;

// Resets bookkeeping, static indexes, frame writer and view to those of a table without messages.
void mtX_resetState(MessageTable* table) noexcept;

}  // namespace tabulo::internal
