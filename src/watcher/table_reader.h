// Follows one table for the watcher: decodes its messages one after another from a buffer that is refilled from the
// file.
//
// The reader keeps a file offset of its own and reads fresh bytes at it, so nobody else who uses the table disturbs it.
// A message counts as there once its frame, with the bytes that separate it from the one before (a footer, a length
// word), is complete in the buffer. Length words and footers are stepped over, not read.
#pragma once

#include <cstdint>
#include <vector>

#include "core/error_codes.h"
#include "messagetable/frame.h"
#include "messagetable/message_table.h"
#include "storage/file_changes.h"

namespace tabulo::internal {

inline constexpr std::int32_t TABLE_READER_BUFFER = 16384;

struct TableReader {
    MessageTable* table = nullptr;  // borrowed
    std::int32_t index = 0;         // its place in the watcher
    std::int64_t ordinal = 0;       // number in the table of the next message
    std::int32_t skip = 0;          // separating bytes before its frame
    std::int64_t fileOffset = 0;    // behind the buffered bytes
    std::vector<std::uint8_t> buffer;
    std::int32_t readPointer = 0;  // first unconsumed byte
    std::int32_t pending = 0;      // unconsumed bytes
    bool grew = false;             // the last refill brought more bytes than were pending before
    bool decoded = false;          // `message` is the next one
    int watch = NO_FILE_WATCH;     // of its file
    bool mayHaveMore = true;       // false: the file has not changed since a look found nothing new
    DecodedMessage message;
};

// Prepares a reader with its buffer. OUT_OF_MEMORY_ERROR.
ErrorCode tableReader_init(TableReader* reader, MessageTable* table, std::int32_t index) noexcept;
// Positions the reader at the first message with a uniform id at or above `uniformId` and empties its buffer. The codes
// of mt_findUniformId.
ErrorCode tableReader_position(TableReader* reader, std::int32_t uniformId) noexcept;
// Decodes the next message, refilling the buffer as long as new bytes come. NO_DATA_ERROR when none is complete yet;
// MASTER_INACTIVE_ERROR, CONSISTENCY_ERROR, FILE_READ_ERROR, SYSTEM_FILE_ERROR, OUT_OF_MEMORY_ERROR. A file that is
// shorter than the reader's place was dropped: the reader goes on at its beginning.
ErrorCode tableReader_peek(TableReader* reader) noexcept;
// Steps behind the message that was peeked; its texts stay valid until the next peek.
void tableReader_consume(TableReader* reader) noexcept;

}  // namespace tabulo::internal
