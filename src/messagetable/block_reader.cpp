#include "messagetable/block_reader.h"

#include <cstring>
#include <new>

#include "core/log.h"
#include "messagetable/block_writer.h"
#include "messagetable/frame_cursor.h"
#include "messagetable/table_header.h"
#include "storage/byte_stream_file.h"

namespace tabulo::internal {

namespace {

std::int64_t bytesInFrontOfPage(std::int64_t offset) {
    constexpr std::int64_t PAGE_SIZE = 4096;  // the smallest that systems have
    return PAGE_SIZE - offset % PAGE_SIZE;
}

// The footer that ends at `end`, alone in its stream. With `ahead` the length word behind it is read along, if it is
// there.
ErrorCode readFooterBytes(BlockReader* reader, TableFile* file, std::int64_t end, bool ahead) {
    KSVByteStream* stream = reader->footer.get();
    const std::int64_t offset = end - reader->footerSize;
    const std::int32_t behind = ahead && tableFileCachedSize(file) - end >= BLOCK_LENGTH_SIZE ? BLOCK_LENGTH_SIZE : 0;
    reader->summary.storedFilters = nullptr;
    reader->nextBlockStart = 0;
    const ErrorCode code = byteStream_readFromFileAt(stream, file, offset, reader->footerSize + behind);
    if (code != NO_ERROR) {
        return code;
    }
    if (byteStream_unread(stream) < reader->footerSize) {
        return HEADER_CORRUPTED_ERROR;
    }
    if (byteStream_unread(stream) == reader->footerSize + BLOCK_LENGTH_SIZE) {
        reader->nextBlockStart = end;
        std::memcpy(&reader->nextBlockLength, byteStream_buffer(stream) + reader->footerSize, BLOCK_LENGTH_SIZE);
    }
    byteStream_resetWrite(stream, reader->footerSize);
    return NO_ERROR;
}

// The size is asked again only when the cached one cannot hold the block: another process may have appended it.
ErrorCode hasBlock(const BlockReader& reader, TableFile* file, std::int64_t start, std::uint64_t length, bool* there) {
    *there = blockReader_isLength(reader, length, tableFileCachedSize(file) - start);
    if (*there) {
        return NO_ERROR;
    }
    std::int64_t size = 0;
    const ErrorCode code = tableFileGetSize(file, &size);
    *there = code == NO_ERROR && blockReader_isLength(reader, length, size - start);
    return code;
}

// Adds the frames from the cursor on to the summary, until the block is full or no complete frame stands there.
ErrorCode addFrames(BlockReader* reader, FrameCursor* cursor, ErrorCode* scanEnd) {
    *scanEnd = NO_ERROR;
    DecodedMessage message;
    while (reader->summary.messageCount < reader->layout.messagesPerBlock) {
        const ErrorCode code = frameCursor_next(cursor, &message);
        if (code == NO_DATA_ERROR || code == CONSISTENCY_ERROR) {
            *scanEnd = code;
            return NO_ERROR;
        }
        if (code != NO_ERROR) {
            return code;
        }
        blockSummary_add(&reader->summary, reader->layout, message_view(message, reader->layout), message.frameLength);
        reader->lastScanned = message.metadata;
        reader->lastScannedLength = message.frameLength;
    }
    return NO_ERROR;
}

}  // namespace

BlockReader* blockReader_create(TableStorage* storage, const MessageTableLayout& layout) noexcept {
    if (mtLayout_check(&layout) != NO_ERROR) {
        return nullptr;
    }
    BlockReaderPtr reader(new (std::nothrow) BlockReader);
    if (reader == nullptr) {
        return nullptr;
    }
    reader->storage = storage;
    reader->layout = layout;
    reader->footerSize = blockWriter_footerSize(storage, layout);
    if (reader->footerSize == 0) {
        return nullptr;
    }
    reader->footer.reset(byteStream_create(reader->footerSize + BLOCK_LENGTH_SIZE));
    reader->frames.reset(byteStream_create(0));
    const bool complete = reader->footer != nullptr && reader->frames != nullptr &&
                          blockSummary_init(&reader->summary, layout) == NO_ERROR;
    return complete ? reader.release() : nullptr;
}

BlockReader* mfr_createReader(TableStorage* storage, const MessageTableLayout& layout) noexcept {
    log_debug("+ mfr_create", "storage=%p, config=%p.\n", static_cast<void*>(storage),
              static_cast<const void*>(&layout));
    BlockReader* reader = blockReader_create(storage, layout);
    log_debug("- mfr_create", "self=%p, inited=%d.\n", static_cast<void*>(reader), reader != nullptr ? 1 : 0);
    return reader;
}

void blockReader_destroy(BlockReader* reader) noexcept {
    delete reader;
}

bool blockReader_isLength(const BlockReader& reader, std::uint64_t length, std::int64_t available) noexcept {
    const MessageTableLayout& layout = reader.layout;
    const std::int64_t smallestFrame = mfr_minimumFrameSize(layout.stringFieldCount, layout.numericFieldCount);
    const std::int64_t smallest =
        BLOCK_LENGTH_SIZE + reader.footerSize + std::int64_t{layout.messagesPerBlock} * smallestFrame;
    return available >= smallest && length >= static_cast<std::uint64_t>(smallest) &&
           length <= static_cast<std::uint64_t>(available);
}

bool lengthWord_isTorn(std::int64_t offset, std::uint64_t word, std::uint64_t length) noexcept {
    const std::int64_t inFront = bytesInFrontOfPage(offset);
    if (inFront >= BLOCK_LENGTH_SIZE || word == length) {
        return false;
    }
    const std::uint64_t front = (std::uint64_t{1} << (8 * inFront)) - 1;
    return word == (length & front) || word == (length & ~front);
}

ErrorCode blockReader_readWord(TableFile* file, std::int64_t offset, std::uint64_t* word) noexcept {
    std::int64_t count = 0;
    const ErrorCode code = tableFileReadAt(file, offset, word, BLOCK_LENGTH_SIZE, &count);
    if (code != NO_ERROR) {
        return code;
    }
    return count == BLOCK_LENGTH_SIZE ? NO_ERROR : NO_DATA_ERROR;
}

ErrorCode blockReader_readFooter(BlockReader* reader, TableFile* file, std::int64_t start,
                                 std::uint64_t length) noexcept {
    bool there = false;
    ErrorCode code = hasBlock(*reader, file, start, length, &there);
    if (code != NO_ERROR) {
        return code;
    }
    if (!there) {
        return HEADER_CORRUPTED_ERROR;
    }
    code = readFooterBytes(reader, file, start + static_cast<std::int64_t>(length), true);
    return code == NO_ERROR ? blockReader_takeFooter(reader, length) : code;
}

ErrorCode blockReader_readFooterBefore(BlockReader* reader, TableFile* file, std::int64_t end,
                                       std::uint64_t* length) noexcept {
    const ErrorCode code = readFooterBytes(reader, file, end, false);
    if (code == NO_ERROR) {
        std::memcpy(length, byteStream_buffer(reader->footer.get()) + reader->footerSize - BLOCK_LENGTH_SIZE,
                    BLOCK_LENGTH_SIZE);
    }
    return code;
}

ErrorCode blockReader_takeFooter(BlockReader* reader, std::uint64_t length) noexcept {
    return blockSummary_readFooter(&reader->summary, reader->layout, reader->footer.get(), length);
}

ErrorCode blockReader_findTornLength(BlockReader* reader, TableFile* file, std::int64_t start, std::uint64_t word,
                                     std::uint64_t* length) noexcept {
    *length = 0;
    std::int64_t size = 0;
    if (bytesInFrontOfPage(start) >= BLOCK_LENGTH_SIZE) {
        return NO_ERROR;
    }
    ErrorCode code = tableFileGetSize(file, &size);
    FrameCursor cursor = frameCursor_forward(reader, file, start + BLOCK_LENGTH_SIZE, size, SCAN_PIECE_SIZE);
    DecodedMessage message;
    for (std::int32_t i = 0; i < reader->layout.messagesPerBlock && code == NO_ERROR; ++i) {
        code = frameCursor_next(&cursor, &message);
    }
    const std::int64_t end = cursor.position + reader->footerSize;
    std::uint64_t repeated = 0;
    if (code == NO_ERROR) {
        code = blockReader_readWord(file, end - BLOCK_LENGTH_SIZE, &repeated);
    }
    if (code == NO_ERROR && repeated == static_cast<std::uint64_t>(end - start) &&
        lengthWord_isTorn(start, word, repeated)) {
        *length = repeated;
    }
    return code == NO_DATA_ERROR || code == CONSISTENCY_ERROR ? NO_ERROR : code;
}

void blockReader_forgetFrames(BlockReader* reader) noexcept {
    constexpr std::int32_t KEPT = 4 * SCAN_PIECE_SIZE;
    byteStream_giveBack(reader->frames.get(), KEPT);
}

ErrorCode blockReader_scan(BlockReader* reader, TableFile* file, std::int64_t framesStart, std::int64_t end,
                           ErrorCode* scanEnd) noexcept {
    blockSummary_reset(&reader->summary, true);
    FrameCursor cursor = frameCursor_forward(reader, file, framesStart, end, SCAN_PIECE_SIZE);
    const ErrorCode code = addFrames(reader, &cursor, scanEnd);
    if (cursor.pieceEnd > cursor.pieceStart) {
        blockReader_forgetFrames(reader);
    }
    return code;
}

ErrorCode blockReader_continueScan(BlockReader* reader, TableFile* file, std::int64_t framesStart, std::int64_t end,
                                   ErrorCode* scanEnd, bool* same) noexcept {
    const std::int64_t scanned = framesStart + static_cast<std::int64_t>(reader->summary.frameBytes);
    FrameCursor cursor = frameCursor_forward(reader, file, scanned - reader->lastScannedLength, end, SCAN_PIECE_SIZE);
    DecodedMessage message;
    ErrorCode code = frameCursor_next(&cursor, &message);
    *same = code == NO_ERROR && cursor.position == scanned && message.metadata == reader->lastScanned;
    if (*same) {
        code = addFrames(reader, &cursor, scanEnd);
        blockReader_forgetFrames(reader);
        return code;
    }
    return code == CONSISTENCY_ERROR || code == NO_DATA_ERROR ? NO_ERROR : code;
}

}  // namespace tabulo::internal
