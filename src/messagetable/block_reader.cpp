#include "messagetable/block_reader.h"

#include <cstring>

#include "storage/byte_stream_file.h"

namespace tabulo::internal {

namespace {

std::int64_t bytesInFrontOfPage(std::int64_t offset) {
    constexpr std::int64_t PAGE_SIZE = 4096;  // the smallest that systems have
    return PAGE_SIZE - offset % PAGE_SIZE;
}

ErrorCode readLengthWord(TableFile* file, std::int64_t offset, std::uint64_t* length) {
    std::int64_t count = 0;
    *length = 0;
    const ErrorCode code = tableFileReadAt(file, offset, length, BLOCK_LENGTH_SIZE, &count);
    if (code != NO_ERROR) {
        return code;
    }
    return count == BLOCK_LENGTH_SIZE ? NO_ERROR : NO_DATA_ERROR;
}

// The footer that ends at `end`, alone in the stream. With `ahead` the length word behind it is read along, if it is
// there.
ErrorCode readFooterBytes(MessageFrames* mfr, TableFile* file, std::int64_t end, bool ahead) {
    KSVByteStream* stream = mfr->stream.get();
    const std::int64_t offset = end - mfr->footerSize;
    const std::int32_t behind = ahead && tableFileCachedSize(file) - end >= BLOCK_LENGTH_SIZE ? BLOCK_LENGTH_SIZE : 0;
    mfr->summary.storedFilters = nullptr;
    mfr->nextBlockStart = 0;
    const ErrorCode code = byteStream_readFromFileAt(stream, file, offset, mfr->footerSize + behind);
    if (code != NO_ERROR) {
        return code;
    }
    if (byteStream_unread(stream) < mfr->footerSize) {
        return HEADER_CORRUPTED_ERROR;
    }
    if (byteStream_unread(stream) == mfr->footerSize + BLOCK_LENGTH_SIZE) {
        mfr->nextBlockStart = end;
        std::memcpy(&mfr->nextBlockLength, byteStream_buffer(stream) + mfr->footerSize, BLOCK_LENGTH_SIZE);
    }
    byteStream_resetWrite(stream, mfr->footerSize);
    return NO_ERROR;
}

ErrorCode takeFooter(MessageFrames* mfr, std::uint64_t length, BlockView* block) {
    const ErrorCode code = blockSummary_readFooter(&mfr->summary, mfr->layout, mfr->stream.get(), length);
    if (code == NO_ERROR) {
        block->closed = true;
        block->messageCount = mfr->summary.messageCount;
        block->frameBytes = static_cast<std::int64_t>(mfr->summary.frameBytes);
    }
    return code;
}

// The size is asked again only when the cached one cannot hold the block: another process may have appended it.
ErrorCode hasBlock(MessageFrames* mfr, TableFile* file, std::int64_t blockStart, std::uint64_t length, bool* there) {
    *there = mfr_isBlockLength(mfr, length, tableFileCachedSize(file) - blockStart);
    if (*there) {
        return NO_ERROR;
    }
    std::int64_t size = 0;
    const ErrorCode code = tableFileGetSize(file, &size);
    *there = code == NO_ERROR && mfr_isBlockLength(mfr, length, size - blockStart);
    return code;
}

// The closed block of this length, from its footer, and the length word behind it.
ErrorCode readClosedBlock(MessageFrames* mfr, TableFile* file, std::uint64_t length, BlockView* block) {
    bool there = false;
    ErrorCode code = hasBlock(mfr, file, block->start, length, &there);
    if (code != NO_ERROR) {
        return code;
    }
    if (!there) {
        return HEADER_CORRUPTED_ERROR;
    }
    code = readFooterBytes(mfr, file, block->start + static_cast<std::int64_t>(length), true);
    return code == NO_ERROR ? takeFooter(mfr, length, block) : code;
}

// Adds the frames from the cursor on to the summary, until the block is full or no complete frame stands there.
ErrorCode addFrames(MessageFrames* mfr, FrameCursor* cursor, ErrorCode* scanEnd) {
    *scanEnd = NO_ERROR;
    DecodedMessage message;
    while (mfr->summary.messageCount < mfr->layout.messagesPerBlock) {
        const ErrorCode code = frameCursor_next(cursor, &message);
        if (code == NO_DATA_ERROR || code == CONSISTENCY_ERROR) {
            *scanEnd = code;
            return NO_ERROR;
        }
        if (code != NO_ERROR) {
            return code;
        }
        blockSummary_add(&mfr->summary, mfr->layout, message.metadata, message.stringFields.data(),
                         message.numericFields.data(), message.frameLength);
        mfr->lastScanned = message.metadata;
        mfr->lastScannedLength = message.frameLength;
    }
    return NO_ERROR;
}

ErrorCode scanOpenBlock(MessageFrames* mfr, TableFile* file, BlockView* block) {
    std::int64_t size = 0;
    ErrorCode code = tableFileGetSize(file, &size);
    if (code == NO_ERROR) {
        code = mfr_scanFrames(mfr, file, blockView_framesStart(*block), size, &block->scanEnd);
    }
    block->messageCount = mfr->summary.messageCount;
    block->frameBytes = static_cast<std::int64_t>(mfr->summary.frameBytes);
    return code;
}

// The length of the block that starts at a torn length word, told by its frames and its footer; 0 when the word is
// something else.
ErrorCode findTornLength(MessageFrames* mfr, TableFile* file, std::int64_t blockStart, std::uint64_t word,
                         std::uint64_t* length) {
    *length = 0;
    std::int64_t size = 0;
    if (bytesInFrontOfPage(blockStart) >= BLOCK_LENGTH_SIZE) {
        return NO_ERROR;
    }
    ErrorCode code = tableFileGetSize(file, &size);
    FrameCursor cursor = frameCursor_forward(mfr, file, blockStart + BLOCK_LENGTH_SIZE, size, SCAN_PIECE_SIZE);
    mfr->summary.storedFilters = nullptr;
    DecodedMessage message;
    for (std::int32_t i = 0; i < mfr->layout.messagesPerBlock && code == NO_ERROR; ++i) {
        code = frameCursor_next(&cursor, &message);
    }
    const std::int64_t end = cursor.position + mfr->footerSize;
    std::uint64_t repeated = 0;
    if (code == NO_ERROR) {
        code = readLengthWord(file, end - BLOCK_LENGTH_SIZE, &repeated);
    }
    if (code == NO_ERROR && repeated == static_cast<std::uint64_t>(end - blockStart) &&
        mfr_isTornLengthWord(blockStart, word, repeated)) {
        *length = repeated;
    }
    return code == NO_DATA_ERROR || code == CONSISTENCY_ERROR ? NO_ERROR : code;
}

bool isDamage(ErrorCode code) {
    return code == HEADER_CORRUPTED_ERROR || code == CONSISTENCY_ERROR;
}

// A block whose length word is not 0.
ErrorCode readByWord(MessageFrames* mfr, TableFile* file, std::uint64_t word, BlockView* block) {
    const ErrorCode closed = readClosedBlock(mfr, file, word, block);
    if (!isDamage(closed)) {
        return closed;
    }
    std::uint64_t length = 0;
    const ErrorCode code = findTornLength(mfr, file, block->start, word, &length);
    if (code != NO_ERROR || length == 0) {
        return code == NO_ERROR ? closed : code;
    }
    block->tornWord = true;
    return readClosedBlock(mfr, file, length, block);
}

}  // namespace

bool mfr_isTornLengthWord(std::int64_t offset, std::uint64_t word, std::uint64_t length) noexcept {
    const std::int64_t inFront = bytesInFrontOfPage(offset);
    if (inFront >= BLOCK_LENGTH_SIZE || word == length) {
        return false;
    }
    const std::uint64_t front = (std::uint64_t{1} << (8 * inFront)) - 1;
    return word == (length & front) || word == (length & ~front);
}

std::int64_t blockView_framesStart(const BlockView& block) noexcept {
    return block.start + BLOCK_LENGTH_SIZE;
}

std::int64_t blockView_framesEnd(const BlockView& block) noexcept {
    return blockView_framesStart(block) + block.frameBytes;
}

std::int64_t blockView_next(const BlockView& block, const MessageFrames* mfr) noexcept {
    return blockView_framesEnd(block) + mfr->footerSize;
}

bool mfr_isBlockLength(const MessageFrames* mfr, std::uint64_t length, std::int64_t available) noexcept {
    const MessageTableLayout& layout = mfr->layout;
    const std::int64_t smallestFrame = mfr_minimumFrameSize(layout.stringFieldCount, layout.numericFieldCount);
    const std::int64_t smallest =
        BLOCK_LENGTH_SIZE + mfr->footerSize + std::int64_t{layout.messagesPerBlock} * smallestFrame;
    return available >= smallest && length >= static_cast<std::uint64_t>(smallest) &&
           length <= static_cast<std::uint64_t>(available);
}

ErrorCode mfr_scanFrames(MessageFrames* mfr, TableFile* file, std::int64_t framesStart, std::int64_t end,
                         ErrorCode* scanEnd) noexcept {
    mfr_reset(mfr, true);
    FrameCursor cursor = frameCursor_forward(mfr, file, framesStart, end, SCAN_PIECE_SIZE);
    return addFrames(mfr, &cursor, scanEnd);
}

ErrorCode mfr_continueScan(MessageFrames* mfr, TableFile* file, std::int64_t framesStart, std::int64_t end,
                           ErrorCode* scanEnd, bool* same) noexcept {
    const std::int64_t scanned = framesStart + static_cast<std::int64_t>(mfr->summary.frameBytes);
    FrameCursor cursor = frameCursor_forward(mfr, file, scanned - mfr->lastScannedLength, end, SCAN_PIECE_SIZE);
    DecodedMessage message;
    const ErrorCode code = frameCursor_next(&cursor, &message);
    *same = code == NO_ERROR && cursor.position == scanned && message.metadata == mfr->lastScanned;
    if (*same) {
        return addFrames(mfr, &cursor, scanEnd);
    }
    return code == CONSISTENCY_ERROR || code == NO_DATA_ERROR ? NO_ERROR : code;
}

ErrorCode mfr_readBlockFooter(MessageFrames* mfr, TableFile* file, std::int64_t blockStart, bool scanOpen,
                              BlockView* block) noexcept {
    *block = BlockView{};
    block->start = blockStart;
    if (mfr->nextBlockStart == blockStart && mfr->nextBlockLength != 0) {
        const ErrorCode code = readClosedBlock(mfr, file, mfr->nextBlockLength, block);
        if (!isDamage(code)) {
            return code;
        }
        // Damage, or the file was cut or dropped since the word was read: the word of now decides.
    }
    std::uint64_t length = 0;
    const ErrorCode code = readLengthWord(file, blockStart, &length);
    if (code != NO_ERROR) {
        return code;
    }
    if (length == 0) {
        return scanOpen ? scanOpenBlock(mfr, file, block) : NO_DATA_ERROR;
    }
    return readByWord(mfr, file, length, block);
}

ErrorCode mfr_readPreviousBlock(MessageFrames* mfr, TableFile* file, std::int64_t blockEnd, bool scanOpen,
                                BlockView* block) noexcept {
    *block = BlockView{};
    block->start = blockEnd;
    const std::int64_t available = blockEnd - mfr->storage->headerSize;
    if (available < mfr->footerSize) {
        return HEADER_CORRUPTED_ERROR;
    }
    ErrorCode code = readFooterBytes(mfr, file, blockEnd, false);
    if (code != NO_ERROR) {
        return code;
    }
    std::uint64_t length = 0;
    std::memcpy(&length, byteStream_buffer(mfr->stream.get()) + mfr->footerSize - BLOCK_LENGTH_SIZE, BLOCK_LENGTH_SIZE);
    if (!mfr_isBlockLength(mfr, length, available)) {
        return HEADER_CORRUPTED_ERROR;
    }
    block->start = blockEnd - static_cast<std::int64_t>(length);
    std::uint64_t leadingLength = 0;
    code = readLengthWord(file, block->start, &leadingLength);
    if (code != NO_ERROR || leadingLength == length) {
        return code == NO_ERROR ? takeFooter(mfr, length, block) : code;
    }
    // A full block whose length word is not written yet, or damage: its beginning decides.
    return mfr_readBlockFooter(mfr, file, block->start, scanOpen, block);
}

ErrorCode mfr_loadPreviousFooter(MessageFrames* mfr, TableFile* file, std::int64_t lastBlockEnd) noexcept {
    if (lastBlockEnd <= mfr->storage->headerSize) {
        mthStaticIndexes_init(&mfr->summary.staticIndexes);
        return NO_ERROR;
    }
    BlockView block;
    const ErrorCode code = mfr_readPreviousBlock(mfr, file, lastBlockEnd, false, &block);
    if (code == NO_ERROR && (block.tornWord || blockView_next(block, mfr) != lastBlockEnd)) {
        return HEADER_CORRUPTED_ERROR;
    }
    return code == NO_DATA_ERROR ? HEADER_CORRUPTED_ERROR : code;
}

ErrorCode mfr_loadOpenBlock(MessageFrames* mfr, TableFile* file, std::int64_t lastBlockEnd, BlockView* block) noexcept {
    // The attempt to read a footer may leave a summary half filled; its static indexes are set only when it succeeds.
    ErrorCode code = mfr_readBlockFooter(mfr, file, lastBlockEnd, false, block);
    if (code == NO_ERROR || code == FILE_READ_ERROR || code == SYSTEM_FILE_ERROR || code == OUT_OF_MEMORY_ERROR) {
        return code;
    }
    *block = BlockView{};
    block->start = lastBlockEnd;
    mfr_reset(mfr, true);
    return scanOpenBlock(mfr, file, block);
}

}  // namespace tabulo::internal
