#include "messagetable/table_walk.h"

#include "messagetable/block_reader.h"

namespace tabulo::internal {

namespace {

using FrameStep = ErrorCode (*)(FrameCursor* cursor, DecodedMessage* message);

// One walk. The operation may write to, drop or destroy the table: the file is fetched anew behind every call of it.
struct Walk {
    MessageFrames* mfr;
    MatchOperation operation;
    void* context;
    std::int64_t openings;  // of the storage, when the walk began
    TableFile* file = nullptr;
    bool ended = false;  // the operation asked to stop, an error occurred, or the table was dropped
};

// Ends the walk when the file it walks is gone: silently when the table was dropped and its file opened anew.
ErrorCode fetchFile(Walk* walk) {
    const TableStorage* storage = walk->mfr->storage;
    walk->file = tableStorage_master(storage);
    if (walk->file == nullptr) {
        walk->ended = true;
        return MASTER_INACTIVE_ERROR;
    }
    walk->ended = storage->openings != walk->openings;
    return NO_ERROR;
}

// Asks the operation about a block (summary) or a message.
ErrorCode ask(Walk* walk, const BlockSummary* summary, const DecodedMessage* message, std::int32_t* answer) {
    const MessageTableLayout& layout = walk->mfr->layout;
    *answer = MATCH_NO;
    const ErrorCode code =
        message == nullptr
            ? walk->operation(answer, walk->context, summary, nullptr, nullptr, 0, nullptr, 0)
            : walk->operation(answer, walk->context, nullptr, &message->metadata, message->stringFields.data(),
                              layout.stringFieldCount, message->numericFields.data(), layout.numericFieldCount);
    if (code != NO_ERROR || *answer == MATCH_YES) {
        walk->ended = true;
        return code;
    }
    return fetchFile(walk);
}

ErrorCode walkMessages(Walk* walk, FrameCursor cursor, FrameStep step, const BlockView& block) {
    DecodedMessage message;
    for (std::int32_t i = 0; i < block.messageCount; ++i) {
        cursor.file = walk->file;
        ErrorCode code = step(&cursor, &message);
        if (code == NO_DATA_ERROR && !block.closed) {
            return NO_ERROR;  // another process has cut the open block since it was scanned
        }
        std::int32_t answer = MATCH_NO;
        if (code == NO_ERROR) {
            code = ask(walk, nullptr, &message, &answer);
        }
        if (code != NO_ERROR || walk->ended) {
            walk->ended = true;
            return code;
        }
    }
    const bool wholeStretch = cursor.position == cursor.begin || cursor.position == cursor.end;
    walk->ended = !wholeStretch;
    return wholeStretch ? NO_ERROR : CONSISTENCY_ERROR;
}

ErrorCode walkBlock(Walk* walk, const BlockView& block, bool backward) {
    std::int32_t answer = MATCH_NO;
    const ErrorCode code = ask(walk, &walk->mfr->summary, nullptr, &answer);
    if (code != NO_ERROR || walk->ended || answer == MATCH_STOP) {
        return code;
    }
    const std::int64_t begin = blockView_framesStart(block);
    const std::int64_t end = blockView_framesEnd(block);
    return backward ? walkMessages(walk, frameCursor_backward(walk->mfr, walk->file, begin, end, BLOCK_PIECE_SIZE),
                                   frameCursor_previous, block)
                    : walkMessages(walk, frameCursor_forward(walk->mfr, walk->file, begin, end, BLOCK_PIECE_SIZE),
                                   frameCursor_next, block);
}

// A damaged frame in the open block: what stands before it has been walked, the damage is told.
ErrorCode endOfScan(const BlockView& block) {
    return block.scanEnd == CONSISTENCY_ERROR ? CONSISTENCY_ERROR : NO_ERROR;
}

}  // namespace

ErrorCode mfr_readForward(MessageFrames* mfr, std::int64_t startBlock, MatchOperation operation,
                          void* context) noexcept {
    Walk walk{mfr, operation, context, mfr->storage->openings};
    ErrorCode code = fetchFile(&walk);
    std::int64_t position = startBlock;
    while (code == NO_ERROR && !walk.ended) {
        BlockView block;
        code = mfr_readBlockFooter(mfr, walk.file, position, true, &block);
        if (code != NO_ERROR) {
            return code == NO_DATA_ERROR ? NO_ERROR : code;
        }
        if (block.messageCount > 0) {
            code = walkBlock(&walk, block, false);
        }
        if (code == NO_ERROR && !walk.ended && block.messageCount < mfr->layout.messagesPerBlock) {
            return endOfScan(block);
        }
        // Also behind a full block whose length word is not patched yet.
        position = blockView_next(block, mfr);
    }
    return code;
}

ErrorCode mfr_readBackward(MessageFrames* mfr, std::int64_t startBlock, MatchOperation operation,
                           void* context) noexcept {
    Walk walk{mfr, operation, context, mfr->storage->openings};
    ErrorCode code = fetchFile(&walk);
    if (code != NO_ERROR || walk.ended || startBlock < mfr->storage->headerSize) {
        return code;
    }
    ErrorCode scanEnd = NO_ERROR;
    BlockView block;
    code = mfr_readBlockFooter(mfr, walk.file, startBlock, true, &block);
    if (code == NO_DATA_ERROR) {
        code = NO_ERROR;  // no open block stands here yet
    }
    while (code == NO_ERROR) {
        scanEnd = scanEnd == NO_ERROR ? endOfScan(block) : scanEnd;
        if (block.messageCount > 0) {
            code = walkBlock(&walk, block, true);
        }
        if (code != NO_ERROR || walk.ended) {
            return code;
        }
        if (block.start <= mfr->storage->headerSize) {
            return scanEnd;
        }
        mfr_reset(mfr, false);
        code = mfr_readPreviousBlock(mfr, walk.file, block.start, true, &block);
    }
    return code;
}

}  // namespace tabulo::internal
