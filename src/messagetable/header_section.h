// Writing, checking and loading the message-table section of a file's header: what a message table does for its storage
// (table_header.h has the byte map).
#pragma once

#include <cstdint>

#include "core/byte_stream.h"
#include "core/error_codes.h"
#include "messagetable/block_reader.h"
#include "messagetable/header_tail.h"
#include "storage/table_storage.h"

namespace tabulo::internal {

// Whose section it is; both are borrowed.
struct SectionOwner {
    const MessageTableHeader& header;  // layout and names of the configuration
    TableStorage* storage;
};

// What a file has been found to hold.
struct LoadedTable {
    TailRecords records;
    BlockReaderPtr openBlock;  // its summary is that of the open block; null for a file that is open read-only
};

// Appends a new section behind the generic header that the stream already holds, and sets *records to those of a table
// without messages. The result is the stream's error; WRONG_PARAMETER_ERROR for an impossible layout, records
// unchanged.
ErrorCode mtX_writeHeader(const MessageTableHeader& header, KSVByteStream* stream, TailRecords* records) noexcept;

// Checks the section at `offset` of the stream that holds the file's beginning, field by field against the owner's
// configuration; on success *records are the stored ones. The first failure is returned: FILE_SIZE_ERROR (nothing
// behind the generic header; lastBlockEnd or dataEnd do not fit the file), STREAM_NOT_ENOUGH_DATA_ERROR (cut section),
// TABLE_TYPE_ERROR, HEADER_CORRUPTED_ERROR (impossible layout; the section does not end where the header does; negative
// messageCount), CONFIG_MISMATCH_ERROR, and with a WARNING STRING_FIELDS_COUNT_MISMATCH_ERROR,
// NUMERIC_FIELDS_COUNT_MISMATCH_ERROR, NUMERIC_FIELDS_NAMES_MISMATCH_ERROR, STRING_FIELDS_NAMES_MISMATCH_ERROR.
ErrorCode mtX_verify(const SectionOwner& owner, TableFile* file, KSVByteStream* stream, std::int32_t offset,
                     TailRecords* records) noexcept;

// Takes the stored records; of a file that is open for writing also the open block, which must reach exactly to the
// file's end: anything else is FILE_SIZE_ERROR, and recovery's to mend. *loaded changes only when all of it succeeds.
ErrorCode mtX_load(const SectionOwner& owner, TableFile* file, KSVByteStream* stream, std::int32_t offset,
                   LoadedTable* loaded) noexcept;

// Reads a section up to its end, without looking at what it says: the layout and the records. The codes of the stream.
ErrorCode headerSection_skim(KSVByteStream* stream, std::int32_t offset, MessageTableLayout* layout,
                             TailRecords* records) noexcept;

}  // namespace tabulo::internal
