// The tail of the header's message-table section: the 88 bytes that are rewritten in place (table_header.h has the
// map).
#pragma once

#include <cstdint>
#include <memory>

#include "core/byte_stream.h"
#include "core/error_codes.h"
#include "messagetable/table_header.h"
#include "storage/table_storage.h"

namespace tabulo::internal {

// The three records of the tail.
struct TailRecords {
    BlockInfo blockInfo;
    DataInfo dataInfo;
    mthStaticIndexes staticIndexes;

    bool operator==(const TailRecords&) const = default;
};

// Appends the three records; the result is the stream's error.
ErrorCode headerTail_write(const TailRecords& records, KSVByteStream* stream) noexcept;
// Takes the three records from a stream. STREAM_NOT_ENOUGH_DATA_ERROR, records unchanged.
ErrorCode headerTail_parse(KSVByteStream* stream, TailRecords* records) noexcept;
// Reads the tail of a file whose header ends at `headerEnd`, with one call to the system. NO_DATA_ERROR, records
// unchanged, when the file ends before; the codes of tableFileReadAt.
ErrorCode headerTail_read(TableFile* file, std::int64_t headerEnd, TailRecords* records) noexcept;
// Where the open block begins by these records: lastBlockEnd, but never before the header's end (a new file's is 0).
std::uint64_t headerTail_openBlock(const TailRecords& records, std::int64_t headerEnd) noexcept;

// Writes the tail to the files of a storage.
struct HeaderTail {
    TableStorage* storage = nullptr;  // borrowed
    std::int64_t offset = 0;          // of the tail in every file
    ByteStreamPtr stream;
};
using HeaderTailPtr = std::unique_ptr<HeaderTail>;

// A tail writer; null when memory is short.
HeaderTailPtr headerTail_create(TableStorage* storage, std::int64_t offset) noexcept;
// Fills the writer's stream; the result is the stream's error.
ErrorCode headerTail_fill(HeaderTail* tail, const TailRecords& records) noexcept;
// Writes the writer's stream to every active file and flushes it. A file that fails is closed and dropped with a
// WARNING; NO_ERROR when any file took it, else the last file's code, FILE_WRITE_ERROR without an active file.
ErrorCode tv_saveData(HeaderTail* tail) noexcept;

}  // namespace tabulo::internal
