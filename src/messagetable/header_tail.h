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

struct HeaderTail {
    TableStorage* storage = nullptr;  // borrowed
    std::int64_t offset = 0;          // of the tail in every file
    std::int32_t size = 0;
    ByteStreamPtr stream;
};
using HeaderTailPtr = std::unique_ptr<HeaderTail>;

// A tail writer; null when memory is short.
HeaderTailPtr headerTail_create(TableStorage* storage, std::int64_t offset, std::int32_t size) noexcept;
// Fills the writer's stream with the three records; the result is the stream's error.
ErrorCode headerTail_fill(HeaderTail* tail, const BlockInfo& blockInfo, const DataInfo& dataInfo,
                          const mthStaticIndexes& indexes) noexcept;
// Takes the three records from a stream. STREAM_NOT_ENOUGH_DATA_ERROR, records unchanged.
ErrorCode headerTail_parse(KSVByteStream* stream, BlockInfo* blockInfo, DataInfo* dataInfo,
                           mthStaticIndexes* indexes) noexcept;
// Writes the writer's stream to every active file and flushes it. A file that fails is closed and dropped with a
// WARNING; NO_ERROR when any file took it, else the last file's code, FILE_WRITE_ERROR without an active file.
ErrorCode tv_saveData(HeaderTail* tail) noexcept;

}  // namespace tabulo::internal
