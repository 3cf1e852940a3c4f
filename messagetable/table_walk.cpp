#include "messagetable/table_walk.h"

#include "messagetable/block_reader.h"

namespace tabulo {

namespace {

using FrameStep = ErrorCode (*)(FrameCursor* cursor, DecodedMessage* message);

// Where one block leaves the walk.
struct BlockOutcome {
    ErrorCode code = NO_ERROR;
    bool ended = false;  // the operation asked to stop, or an error did
};

BlockOutcome walkMessages(FrameCursor cursor, FrameStep step, const BlockView& block, MatchOperation operation,
                          void* context) {
    const MessageTableLayout& layout = cursor.mfr->layout;
    DecodedMessage message;
    for (std::int32_t i = 0; i < block.messageCount; ++i) {
        ErrorCode code = step(&cursor, &message);
        if (code == NO_DATA_ERROR && !block.closed) {
            return {};  // another process has cut the open block since it was scanned
        }
        std::int32_t answer = MATCH_NO;
        if (code == NO_ERROR) {
            code = operation(&answer, context, nullptr, &message.metadata, message.stringFields.data(),
                             layout.stringFieldCount, message.numericFields.data(), layout.numericFieldCount);
        }
        if (code != NO_ERROR || answer == MATCH_YES) {
            return {code, true};
        }
    }
    const bool wholeStretch = cursor.position == cursor.begin || cursor.position == cursor.end;
    return wholeStretch ? BlockOutcome{} : BlockOutcome{CONSISTENCY_ERROR, true};
}

BlockOutcome walkBlock(MessageFrames* mfr, TableFile* file, const BlockView& block, bool backward,
                       MatchOperation operation, void* context) {
    std::int32_t answer = MATCH_NO;
    const ErrorCode code = operation(&answer, context, &mfr->summary, nullptr, nullptr, 0, nullptr, 0);
    if (code != NO_ERROR || answer == MATCH_YES) {
        return {code, true};
    }
    if (answer == MATCH_STOP) {
        return {};
    }
    const std::int64_t begin = blockView_framesStart(block);
    const std::int64_t end = blockView_framesEnd(block);
    return backward ? walkMessages(frameCursor_backward(mfr, file, begin, end, BLOCK_PIECE_SIZE), frameCursor_previous,
                                   block, operation, context)
                    : walkMessages(frameCursor_forward(mfr, file, begin, end, BLOCK_PIECE_SIZE), frameCursor_next,
                                   block, operation, context);
}

// A damaged frame in the open block: what stands before it has been walked, the damage is told.
ErrorCode endOfScan(const BlockView& block) {
    return block.scanEnd == CONSISTENCY_ERROR ? CONSISTENCY_ERROR : NO_ERROR;
}

}  // namespace

ErrorCode mfr_readForward(MessageFrames* mfr, std::int64_t startBlock, MatchOperation operation,
                          void* context) noexcept {
    TableFile* file = tableStorage_master(mfr->storage);
    if (file == nullptr) {
        return MASTER_INACTIVE_ERROR;
    }
    std::int64_t position = startBlock;
    for (;;) {
        BlockView block;
        const ErrorCode code = mfr_readBlockFooter(mfr, file, position, true, &block);
        if (code != NO_ERROR) {
            return code == NO_DATA_ERROR ? NO_ERROR : code;
        }
        if (block.messageCount > 0) {
            const BlockOutcome outcome = walkBlock(mfr, file, block, false, operation, context);
            if (outcome.ended) {
                return outcome.code;
            }
        }
        if (block.messageCount < mfr->layout.messagesPerBlock) {
            return endOfScan(block);
        }
        // Also behind a full block whose length word is not patched yet.
        position = blockView_next(block, mfr);
    }
}

ErrorCode mfr_readBackward(MessageFrames* mfr, std::int64_t startBlock, MatchOperation operation,
                           void* context) noexcept {
    TableFile* file = tableStorage_master(mfr->storage);
    if (file == nullptr) {
        return MASTER_INACTIVE_ERROR;
    }
    ErrorCode scanEnd = NO_ERROR;
    std::int64_t position = startBlock;
    while (position >= mfr->storage->headerSize) {
        BlockView block;
        ErrorCode code = mfr_readBlockFooter(mfr, file, position, true, &block);
        if (code == NO_ERROR && block.messageCount > 0) {
            const BlockOutcome outcome = walkBlock(mfr, file, block, true, operation, context);
            if (outcome.ended) {
                return outcome.code;
            }
        } else if (code != NO_ERROR && (code != NO_DATA_ERROR || position != startBlock)) {
            return code;
        }
        scanEnd = code == NO_ERROR && scanEnd == NO_ERROR ? endOfScan(block) : scanEnd;
        if (position <= mfr->storage->headerSize) {
            break;
        }
        std::int64_t previous = 0;
        code = mfr_previousBlockStart(mfr, file, position, &previous);
        if (code != NO_ERROR) {
            return code;
        }
        position = previous;
        mfr_reset(mfr, false);
    }
    return scanEnd;
}

}  // namespace tabulo
