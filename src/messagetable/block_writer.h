// Appends a message table's blocks to the storage's files.
//
// A table owns one. It holds the summary of the open block and one byte stream, in which each append is assembled, so
// that a stored message costs one write call for each file.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "core/byte_stream.h"
#include "core/error_codes.h"
#include "core/handle.h"
#include "messagetable/block_summary.h"
#include "storage/table_storage.h"

namespace tabulo::internal {

struct BlockWriter {
    TableStorage* storage = nullptr;  // borrowed; null for the throw-away writer that measures a footer
    MessageTableLayout layout;
    ByteStreamPtr stream;
    BlockSummary summary;  // of the open block
    BlockSummary
        fallback;  // the summary as it was before an append that closes a block, to go back to when no file takes it
    std::int32_t footerSize = 0;

    // A large frame of a batch is not copied: it is written between the stream's first bytes and the rest of them.
    std::span<const std::uint8_t> large{};  // the caller's, during the call; empty for none
    std::int32_t bytesBeforeLarge = 0;
};

// A writer over a storage, owned by the caller. The footer size is taken from the storage or, when that has none,
// computed and recorded there; without a storage it is 0. Null for an impossible layout or when memory is short.
BlockWriter* mfr_create(TableStorage* storage, const MessageTableLayout* layout) noexcept;
// Frees it; null is accepted.
void mfr_destroy(BlockWriter* writer) noexcept;
using BlockWriterPtr = Handle<BlockWriter, mfr_destroy>;

// Bytes of a footer of this layout, its block length included; 0 when memory is short or the layout is impossible.
// Called here only: others ask blockWriter_footerSize, which measures once.
std::int32_t mfrX_footerSize(const MessageTableLayout* layout) noexcept;
// The same, taken from the storage or recorded there.
std::int32_t blockWriter_footerSize(TableStorage* storage, const MessageTableLayout& layout) noexcept;

// Empties the block summary and the filters; the static indexes only without keepStaticIndexes. Called here only:
// others empty all of it, by mfr_resetAll.
void mfr_reset(BlockWriter* writer, bool keepStaticIndexes) noexcept;
// mfr_reset with the static indexes.
void mfr_resetAll(BlockWriter* writer) noexcept;

// What an append has done.
struct Appended {
    std::int64_t blockEnd = 0;  // file offset behind the footer, 0 when no block was closed
    std::int64_t bytes = 0;     // written to each file
};

// Appends one message to every active file, master first, with one write and one flush each, and adds it to the
// summary. The message that fills a block takes the footer along in the same write; then the block's length word is
// patched. A file that fails a step is cut back to where it ended before, closed and dropped with a WARNING; the
// result is NO_ERROR when any file took the message, else the last file's code, or FILE_WRITE_ERROR without an active
// file. STREAM_EXTENSION_ERROR when the frame cannot be encoded. After a failure the writer is as it was before the
// call.
ErrorCode mfr_writeMessage(BlockWriter* writer, const MessageView& message, Appended* appended) noexcept;

// A batch of frames larger than this goes to the system in several writes.
inline constexpr std::int64_t LARGEST_BATCH = std::int64_t{1} << 30;
// A frame of a batch that is at least this large is written on its own, past the stream.
inline constexpr std::int32_t LARGE_FRAME = std::int32_t{1} << 20;

// Appends encoded frames that stand one behind the other, as mfr_writeMessage would append each, but with one write and
// one flush: up to the end of the open block, or as many as one write takes (LARGEST_BATCH, at least one frame), or
// one that is large, which takes a write more. They
// must be whole and sound (blockWriter_checkFrames), and are stored as they are, also with bytes that encoding does not
// leave: behind a type's zero byte, flags other than 0 and 1. Sets *count and *taken to the frames and the bytes of
// `frames` that were appended, both 0 after a failure. All else as mfr_writeMessage.
ErrorCode blockWriter_writeFrames(BlockWriter* writer, std::span<const std::uint8_t> frames, std::int32_t* count,
                                  std::size_t* taken, Appended* appended) noexcept;
// Whether whole, sound frames of the layout fill these bytes exactly: NO_ERROR, or the code of mfr_decodeFrame for the
// first that is not, with *offset at it.
ErrorCode blockWriter_checkFrames(const MessageTableLayout& layout, std::span<const std::uint8_t> frames,
                                  std::size_t* offset) noexcept;
// Makes the room that the largest of the writes takes which such frames come to, so that memory cannot end between two
// of them. OUT_OF_MEMORY_ERROR.
ErrorCode blockWriter_makeRoom(BlockWriter* writer, std::span<const std::uint8_t> frames) noexcept;

}  // namespace tabulo::internal
