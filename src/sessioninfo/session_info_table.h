// A session info table: up to 32 signed 64-bit values of a session's state, each addressed by an integer tag.
//
// A file, in the machine's byte order, G = 19 bytes of generic header (generic_header.h):
//
//   offset   width  field
//        G       4  type name length, always 17
//      G+4      17  "SessionInfoTable" and a NUL
//     G+21       4  field count N, 1 to 32
//     G+25     4xN  the tags, in the table's order
//   H=G+25+4N  8xN  the values; value i belongs to tag i
//
// H is the header size that the generic header stores. A consistent file is exactly H + 8 x N bytes long, or H bytes
// before the first write (all values 0). A write rewrites the whole value area in place, with one call to the system.
//
// Created -> si_init (files open, values loaded) -> reads and writes -> si_uninit or si_destroy. One thread at a time
// uses a table. Other processes may read while one writes: in a table opened for reading every si_read loads the values
// again.
#pragma once

#include <array>
#include <cstdint>
#include <memory>

#include "core/error_codes.h"
#include "storage/table_storage.h"

namespace tabulo::internal {

struct SessionInfoTable {
    TableStoragePtr storage;
    std::int32_t fieldCount = 0;
    std::array<std::int32_t, MAX_SESSION_INFO_TAGS> tags{};    // in stored order
    std::array<std::int64_t, MAX_SESSION_INFO_TAGS> values{};  // values[i] belongs to tags[i]
};

// A table without files, owned by the caller. The configuration is the table's in every case. Null for a null
// configuration or when memory is short.
SessionInfoTable* si_create(KSVTboTableConfig* config) noexcept;
// Frees the table and closes what is open; null is accepted.
void si_destroy(SessionInfoTable* table) noexcept;

// Sets all values to 0 and opens the files in a mode of tableFileOpen; an existing file's values and tags replace the
// table's. A file whose value area has the wrong size is recovered when it is opened for writing: whole values are
// kept, the rest is 0. NULL_POINTER_ERROR; the codes of tableStorage_init; TABLE_TYPE_ERROR, HEADER_CORRUPTED_ERROR,
// STREAM_NOT_ENOUGH_DATA_ERROR for a damaged or cut type record; CONFIG_MISMATCH_ERROR, with a WARNING, when the file
// lacks a configured tag; FILE_READ_ERROR for a cut value area opened for reading. After a failure the table has its
// configured tags.
ErrorCode si_init(SessionInfoTable* table, OpenMode mode) noexcept;
// Closes the files and keeps the object. The codes of tableStorage_uninit.
ErrorCode si_uninit(SessionInfoTable* table) noexcept;

// The values of `count` tags, in the caller's order. In a table opened for reading they are those of the file at this
// moment. NULL_POINTER_ERROR: table, or a null array with a count above 0; WRONG_PARAMETER_ERROR: a negative count;
// NO_DATA_ERROR: a tag that the table lacks; MASTER_INACTIVE_ERROR: opened for reading without an active file; the
// codes of reading; OUT_OF_MEMORY_ERROR. On failure `values` is unchanged.
ErrorCode si_read(SessionInfoTable* table, std::int32_t count, const std::int32_t* tags, std::int64_t* values) noexcept;

// Sets the values of `count` tags (of a tag given twice the last one wins) and writes all values to every active file.
// A table opened for reading is reopened for writing by each call; a refused reopen leaves it readable.
// NULL_POINTER_ERROR and WRONG_PARAMETER_ERROR as si_read, WRONG_PARAMETER_ERROR also for a tag that the table lacks
// (nothing changes); the codes of tableStorage_ensureMode; FILE_WRITE_ERROR without an active file, else the last
// file's code when no file took the write: the values in memory are then the new ones.
ErrorCode si_write(SessionInfoTable* table, std::int32_t count, const std::int32_t* tags,
                   const std::int64_t* values) noexcept;

// Sets every value to 0 and writes them; the files stay. The codes of si_write.
ErrorCode si_drop(SessionInfoTable* table) noexcept;

}  // namespace tabulo::internal
