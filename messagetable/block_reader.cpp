#include "messagetable/block_reader.h"

#include "storage/byte_stream_file.h"

namespace tabulo {

namespace {

ErrorCode readLengthWord(TableFile* file, std::int64_t offset, std::uint64_t* length) {
    std::int64_t count = 0;
    *length = 0;
    const ErrorCode code = tableFileReadAt(file, offset, length, BLOCK_LENGTH_SIZE, &count);
    if (code != NO_ERROR) {
        return code;
    }
    return count == BLOCK_LENGTH_SIZE ? NO_ERROR : NO_DATA_ERROR;
}

ErrorCode readFooter(MessageFrames* mfr, TableFile* file, std::int64_t blockStart, std::uint64_t length) {
    KSVByteStream* stream = mfr->stream.get();
    const std::int64_t offset = blockStart + static_cast<std::int64_t>(length) - mfr->footerSize;
    const ErrorCode code = byteStream_readFromFileAt(stream, file, offset, mfr->footerSize);
    if (code != NO_ERROR) {
        return code;
    }
    if (byteStream_unread(stream) != mfr->footerSize) {
        return HEADER_CORRUPTED_ERROR;
    }
    return blockSummary_readFooter(&mfr->summary, mfr->layout, stream, length);
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

}  // namespace

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
    *scanEnd = NO_ERROR;
    FrameCursor cursor = frameCursor_forward(mfr, file, framesStart, end, SCAN_PIECE_SIZE);
    DecodedMessage message;
    while (mfr->summary.messageCount < mfr->layout.messagesPerBlock) {
        const ErrorCode code = frameCursor_next(&cursor, &message);
        if (code == NO_DATA_ERROR || code == CONSISTENCY_ERROR) {
            *scanEnd = code;
            return NO_ERROR;
        }
        if (code != NO_ERROR) {
            return code;
        }
        blockSummary_add(&mfr->summary, mfr->layout, message.metadata, message.stringFields.data(),
                         message.numericFields.data(), message.frameLength);
    }
    return NO_ERROR;
}

ErrorCode mfr_readBlockFooter(MessageFrames* mfr, TableFile* file, std::int64_t blockStart, bool scanOpen,
                              BlockView* block) noexcept {
    *block = BlockView{};
    block->start = blockStart;
    std::uint64_t length = 0;
    ErrorCode code = readLengthWord(file, blockStart, &length);
    if (code != NO_ERROR) {
        return code;
    }
    if (length == 0) {
        return scanOpen ? scanOpenBlock(mfr, file, block) : NO_DATA_ERROR;
    }
    bool there = false;
    code = hasBlock(mfr, file, blockStart, length, &there);
    if (code != NO_ERROR) {
        return code;
    }
    if (!there) {
        return HEADER_CORRUPTED_ERROR;
    }
    code = readFooter(mfr, file, blockStart, length);
    if (code == NO_ERROR) {
        block->closed = true;
        block->messageCount = mfr->summary.messageCount;
        block->frameBytes = static_cast<std::int64_t>(mfr->summary.frameBytes);
    }
    return code;
}

ErrorCode mfr_previousBlockStart(MessageFrames* mfr, TableFile* file, std::int64_t blockEnd,
                                 std::int64_t* blockStart) noexcept {
    std::uint64_t length = 0;
    const ErrorCode code = readLengthWord(file, blockEnd - BLOCK_LENGTH_SIZE, &length);
    if (code != NO_ERROR) {
        return code == NO_DATA_ERROR ? HEADER_CORRUPTED_ERROR : code;
    }
    if (!mfr_isBlockLength(mfr, length, blockEnd - mfr->storage->headerSize)) {
        return HEADER_CORRUPTED_ERROR;
    }
    *blockStart = blockEnd - static_cast<std::int64_t>(length);
    return NO_ERROR;
}

ErrorCode mfr_loadPreviousFooter(MessageFrames* mfr, TableFile* file, std::int64_t lastBlockEnd) noexcept {
    if (lastBlockEnd <= mfr->storage->headerSize) {
        mthStaticIndexes_init(&mfr->summary.staticIndexes);
        return NO_ERROR;
    }
    std::int64_t blockStart = 0;
    const ErrorCode code = mfr_previousBlockStart(mfr, file, lastBlockEnd, &blockStart);
    if (code != NO_ERROR) {
        return code;
    }
    BlockView block;
    const ErrorCode read = mfr_readBlockFooter(mfr, file, blockStart, false, &block);
    if (read == NO_ERROR && blockView_next(block, mfr) != lastBlockEnd) {
        return HEADER_CORRUPTED_ERROR;
    }
    return read == NO_DATA_ERROR ? HEADER_CORRUPTED_ERROR : read;
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

}  // namespace tabulo
