// Recovery of a message table file that was not closed cleanly.
//
// The file's blocks are walked from the header's end: a closed block costs its length word and its footer, the frames
// of the first block that is not closed are read one by one. From them the header's records are rebuilt, and the file
// is cut behind the last complete frame. Stored records are never trusted. The writes come in this order, so that a
// crash inside recovery is recovered again to the same result:
//
//   1. for every full block that was never closed: its footer, a flush, its length word
//   2. the open block's length word, 0, when the block holds messages
//   3. the header's section, a flush
//   4. the cut
//
// What a crash leaves behind an append is cut without more (torn_tail.h). All other bytes that would be cut or
// overwritten are first saved beside the table, as "<table>.cut-<offset>", with a WARNING; when they cannot be saved,
// recovery ends and the file stays as it is.
#pragma once

#include "core/error_codes.h"
#include "messagetable/header_section.h"
#include "storage/table_file.h"

namespace tabulo::internal {

// Recovers `file`, which is open for writing, and loads it as mtX_load does; the storage's headerSize follows a header
// that had to be rebuilt. FILE_SIZE_ERROR when nothing stands behind
// the generic header; HEADER_CORRUPTED_ERROR when the stored section is whole and of another layout (nothing is
// touched); WRONG_PARAMETER_ERROR when it is cut and the configuration's would be larger than a header may be;
// OUT_OF_MEMORY_ERROR, the codes of reading, of saving (salvage.h), of tableFileWrite, tableFileFlush,
// tableFileTruncate and mtX_load. After any error nothing further is written or cut.
ErrorCode mtX_recover(const SectionOwner& owner, TableFile* file, LoadedTable* loaded) noexcept;

}  // namespace tabulo::internal
