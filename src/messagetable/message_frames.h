// The frame writer and reader (mfr) of a message table: blocks of frames in the storage's files.
//
// A table owns one for writing; every walk uses one of its own. It holds the summary of the block it is at and one byte
// stream, in which each append is assembled and into which frames and footers are read.
#pragma once

#include <cstdint>
#include <memory>

#include "core/byte_stream.h"
#include "core/error_codes.h"
#include "core/handle.h"
#include "messagetable/block_summary.h"
#include "storage/table_storage.h"

namespace tabulo::internal {

struct MessageFrames {
    TableStorage* storage = nullptr;  // borrowed; null for the throw-away writer that measures a footer
    MessageTableLayout layout;
    ByteStreamPtr stream;
    BlockSummary summary;   // of the open block (writing) or of the block last read
    BlockSummary fallback;  // the summary as it was before a block-closing message, to go back to when no file takes it
    std::int32_t footerSize = 0;
    // What stands behind the footer last read: the start of the next block and its length word, so that a walk forward
    // reads each closed block's summary with one read. 0 is not known.
    std::int64_t nextBlockStart = 0;
    std::uint64_t nextBlockLength = 0;
    // The message that a scan of an open block added last, by which a later scan knows that it goes on in the same
    // block.
    MessageMetadata lastScanned;
    std::int32_t lastScannedLength = 0;  // of its frame
};

// A frame writer over a storage, owned by the caller. The footer size is taken from the storage or, when that has none,
// computed and recorded there; without a storage it is 0. Null for an impossible layout or when memory is short.
MessageFrames* mfr_create(TableStorage* storage, const MessageTableLayout* layout) noexcept;
// Frees it; null is accepted.
void mfr_destroy(MessageFrames* mfr) noexcept;

using MessageFramesPtr = Handle<MessageFrames, mfr_destroy>;

// Bytes of a footer of this layout, its block length included; 0 when memory is short or the layout is impossible.
std::int32_t mfrX_footerSize(const MessageTableLayout* layout) noexcept;
// Empties the block summary and the filters; the static indexes only without keepStaticIndexes.
void mfr_reset(MessageFrames* mfr, bool keepStaticIndexes) noexcept;
// mfr_reset with the static indexes.
void mfr_resetAll(MessageFrames* mfr) noexcept;

// Appends one message to every active file, master first, with one write and one flush each, and adds it to the
// summary. The message that fills a block takes the footer along in the same write; then the block's length word is
// patched. Sets *blockEnd to the file offset behind the footer, or 0 when no block was closed, and *bytesWritten to the
// bytes appended. A file that fails a step is cut back to where it ended before, closed and dropped with a WARNING; the
// result is NO_ERROR when any file took the message, else the last file's code, or FILE_WRITE_ERROR without an active
// file. STREAM_EXTENSION_ERROR when the frame cannot be encoded. After a failure the writer is as it was before the
// call.
ErrorCode mfr_writeMessage(MessageFrames* mfr, const MessageMetadata* metadata, const StringField* stringFields,
                           const NumericValue* numericFields, std::int64_t* blockEnd,
                           std::int64_t* bytesWritten) noexcept;

// The length of the block in the summary when it is closed: length word, frames and footer.
std::uint64_t mfr_closedBlockLength(const MessageFrames* mfr) noexcept;

}  // namespace tabulo::internal
