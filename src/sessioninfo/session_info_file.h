// What a session info table does for its storage: header, verification, loading and recovery of one file.
#pragma once

#include <cstdint>

#include "core/byte_stream.h"
#include "core/error_codes.h"
#include "sessioninfo/session_info_table.h"
#include "storage/table_storage.h"

namespace tabulo::internal {

// The five operations, for tableStorage_create; their owner is a SessionInfoTable.
extern const TableStorageOps sessionInfoOps;

// Takes count and tags from the configuration.
void siX_useConfiguredTags(SessionInfoTable* table) noexcept;

// Appends the type record of a new file. The result is the stream's error; WRONG_PARAMETER_ERROR for a table without
// tags. Called here only: through sessionInfoOps.
ErrorCode siX_writeConfig(SessionInfoTable* table, KSVByteStream* stream) noexcept;
// Checks the type record at `offset` against the configured tags and adopts the stored ones. The codes of
// siX_readTypeRecord; HEADER_CORRUPTED_ERROR when the record does not end where the header does; CONFIG_MISMATCH_ERROR,
// with a WARNING, for the first configured tag that the file lacks; FILE_SIZE_ERROR unless the file is exactly as long
// as its tags say. Called here only: through sessionInfoOps.
ErrorCode siX_verify(SessionInfoTable* table, TableFile* file, KSVByteStream* stream, std::int32_t offset) noexcept;
// Reads the type record again, then the values. FILE_SIZE_ERROR for a file without a type record; otherwise as
// siX_loadValues. Called here only: through sessionInfoOps.
ErrorCode siX_load(SessionInfoTable* table, TableFile* file, KSVByteStream* stream, std::int32_t offset) noexcept;
// Repairs the value area: keeps whole values, sets the rest to 0, cuts what is behind. A file whose type record is not
// in order is left alone, with its code. The codes of tableFileSeek, tableFileRead, tableFileWrite, tableFileFlush and
// tableFileTruncate; OUT_OF_MEMORY_ERROR. Called here only: through sessionInfoOps.
ErrorCode siX_recover(SessionInfoTable* table, TableFile* file) noexcept;
// Does nothing. Called here only: through sessionInfoOps.
ErrorCode siX_noop(SessionInfoTable* table) noexcept;

// Loads the values from a file; one without values leaves the table's as they are. A file that is held for reading is
// read once more when the first read fails: a writer may have been at it. FILE_READ_ERROR, VSEEK_ERROR,
// OUT_OF_MEMORY_ERROR, values unchanged.
ErrorCode siX_loadValues(SessionInfoTable* table, TableFile* file) noexcept;
// Writes the stream, which holds all values, over the value area and flushes it.
ErrorCode siX_writeValues(SessionInfoTable* table, TableFile* file, KSVByteStream* stream) noexcept;
// Appends all values. The result is the stream's error.
ErrorCode siX_serialise(const SessionInfoTable* table, KSVByteStream* stream) noexcept;

}  // namespace tabulo::internal
