#include "query/iterator_step.h"

#include <algorithm>

namespace tabulo::internal {

namespace {

// What loading the block at hand came to.
enum class Loaded { frames, skipped, nothing };

std::int64_t headerEnd(const MessageTableIterator* iterator) {
    return iterator->table->storage->headerSize;
}

std::int32_t messagesPerBlock(const MessageTableIterator* iterator) {
    return iterator->reader->layout.messagesPerBlock;
}

// The file's size of this moment. A file that is shorter than the iterator's place was dropped: the iterator is done.
ErrorCode checkPlace(MessageTableIterator* iterator, TableFile* file, std::int64_t place, std::int64_t* size) {
    const ErrorCode code = tableFileGetSize(file, size);
    if (code == NO_ERROR && *size < place) {
        iterator->done = true;
    }
    return code;
}

// Asks about a closed block.
ErrorCode isSkipped(MessageTableIterator* iterator, bool* skipped) {
    std::int32_t answer = MATCH_NO;
    const ErrorCode code =
        iterator->match(&answer, iterator, &iterator->reader->summary, nullptr, nullptr, 0, nullptr, 0);
    *skipped = answer == MATCH_STOP;
    return code;
}

// Asks about the message that was decoded last.
ErrorCode matchMessage(MessageTableIterator* iterator, bool* end) {
    const MessageTableLayout& layout = iterator->reader->layout;
    const DecodedMessage& message = iterator->current;
    std::int32_t answer = MATCH_NO;
    const ErrorCode code =
        iterator->match(&answer, iterator, nullptr, &message.metadata, message.stringFields.data(),
                        layout.stringFieldCount, message.numericFields.data(), layout.numericFieldCount);
    *end = answer != MATCH_YES;
    return code;
}

void startBlock(MessageTableIterator* iterator, const FrameCursor& cursor) {
    iterator->cursor = cursor;
    iterator->indexInBlock = 0;
    iterator->blockLoaded = true;
}

void leaveBlock(MessageTableIterator* iterator, std::int64_t position) {
    iterator->position = position;
    iterator->indexInBlock = 0;
    iterator->blockLoaded = false;
}

// What a failed read at the iterator's place comes to: nothing, when the file was dropped.
ErrorCode unlessDropped(MessageTableIterator* iterator, TableFile* file, ErrorCode code) {
    std::int64_t size = 0;
    const ErrorCode sized = checkPlace(iterator, file, iterator->position, &size);
    if (sized != NO_ERROR) {
        return sized;
    }
    return iterator->done ? NO_ERROR : code;
}

ErrorCode loadForward(MessageTableIterator* iterator, TableFile* file, Loaded* loaded) {
    MessageFrames* reader = iterator->reader.get();
    iterator->position = std::max(iterator->position, headerEnd(iterator));
    *loaded = Loaded::nothing;
    ErrorCode code = mfr_readBlockFooter(reader, file, iterator->position, false, &iterator->block);
    if (code == NO_DATA_ERROR) {
        // The open block, or nothing yet. It is not asked about: it may grow.
        const std::int64_t framesStart = blockView_framesStart(iterator->block);
        std::int64_t size = 0;
        code = checkPlace(iterator, file, iterator->position, &size);
        if (code == NO_ERROR && size > framesStart) {
            startBlock(iterator, frameCursor_forward(reader, file, framesStart, size, SCAN_PIECE_SIZE));
            *loaded = Loaded::frames;
        }
        return code;
    }
    if (code != NO_ERROR) {
        return unlessDropped(iterator, file, code);
    }
    bool skipped = false;
    code = isSkipped(iterator, &skipped);
    *loaded = skipped ? Loaded::skipped : Loaded::frames;
    if (!skipped) {
        startBlock(iterator, frameCursor_forward(reader, file, blockView_framesStart(iterator->block),
                                                 blockView_framesEnd(iterator->block), BLOCK_PIECE_SIZE));
    }
    return code;
}

// No complete frame stands at the cursor. In the open block that is the end for now; *retry is set when the file has
// grown since. A closed block must hold what its footer says, unless its file was dropped.
ErrorCode frameMissing(MessageTableIterator* iterator, TableFile* file, bool* retry) {
    FrameCursor& cursor = iterator->cursor;
    *retry = false;
    std::int64_t size = 0;
    const ErrorCode code = checkPlace(iterator, file, cursor.position, &size);
    if (code != NO_ERROR || iterator->done) {
        return code;
    }
    if (iterator->block.closed) {
        iterator->done = size < cursor.end;
        return iterator->done ? NO_ERROR : NO_DATA_ERROR;
    }
    *retry = size > cursor.end;
    // What was read ahead of a half frame is read again: a recovery may have put another frame there.
    cursor.end = size;
    cursor.pieceStart = cursor.position;
    cursor.pieceEnd = cursor.position;
    // A block without a message yet is opened again by the next call: it may be closed, and skipped, by then.
    iterator->blockLoaded = *retry || iterator->indexInBlock > 0;
    return NO_ERROR;
}

// Looks at the messages of the block at hand; *finished when all of them have been.
ErrorCode walkForward(MessageTableIterator* iterator, TableFile* file, bool* end, bool* finished) {
    iterator->cursor.file = file;
    *finished = false;
    while (iterator->indexInBlock < messagesPerBlock(iterator)) {
        ErrorCode code = frameCursor_next(&iterator->cursor, &iterator->current);
        if (code == NO_DATA_ERROR) {
            bool retry = false;
            code = frameMissing(iterator, file, &retry);
            if (code != NO_ERROR || !retry) {
                return code;
            }
            continue;
        }
        if (code == NO_ERROR) {
            iterator->indexInBlock += 1;
            code = matchMessage(iterator, end);
        }
        if (code != NO_ERROR || !*end) {
            return code;
        }
    }
    *finished = true;
    const bool whole = !iterator->block.closed || iterator->cursor.position == iterator->cursor.end;
    return whole ? NO_ERROR : CONSISTENCY_ERROR;
}

// The block that a backward walk begins with. Blocks may have been closed since the iterator was opened: it is the one
// that is open now, or a place where none stands yet.
ErrorCode readOpenBlock(MessageTableIterator* iterator, TableFile* file) {
    MessageFrames* reader = iterator->reader.get();
    for (;;) {
        mfr_resetAll(reader);
        const ErrorCode code = mfr_readBlockFooter(reader, file, iterator->position, true, &iterator->block);
        const std::int64_t next = blockView_next(iterator->block, reader);
        const bool full = iterator->block.messageCount == messagesPerBlock(iterator);
        if (code != NO_ERROR || !full || next > tableFileCachedSize(file)) {
            return code == NO_DATA_ERROR ? NO_ERROR : code;
        }
        iterator->position = next;
    }
}

// The block at hand has just been read: asks about it, when it is closed.
ErrorCode startBackward(MessageTableIterator* iterator, TableFile* file) {
    const BlockView& block = iterator->block;
    leaveBlock(iterator, block.start);
    if (block.scanEnd == CONSISTENCY_ERROR) {
        iterator->endCode = CONSISTENCY_ERROR;
    }
    bool skipped = block.messageCount == 0;
    if (block.closed) {
        const ErrorCode code = isSkipped(iterator, &skipped);
        if (code != NO_ERROR) {
            return code;
        }
    }
    if (!skipped) {
        startBlock(iterator, frameCursor_backward(iterator->reader.get(), file, blockView_framesStart(block),
                                                  blockView_framesEnd(block), BLOCK_PIECE_SIZE));
    }
    return NO_ERROR;
}

// To the block that the walk begins with, or to the one before the block at hand; the iterator is done at the header.
ErrorCode stepBack(MessageTableIterator* iterator, TableFile* file) {
    ErrorCode code = NO_ERROR;
    if (!iterator->started) {
        code = readOpenBlock(iterator, file);
        iterator->started = code == NO_ERROR;
    } else if (iterator->position <= headerEnd(iterator)) {
        iterator->done = true;
        return iterator->endCode;
    } else {
        leaveBlock(iterator, iterator->position);
        code = mfr_readPreviousBlock(iterator->reader.get(), file, iterator->position, true, &iterator->block);
    }
    return code == NO_ERROR ? startBackward(iterator, file) : unlessDropped(iterator, file, code);
}

ErrorCode walkBackward(MessageTableIterator* iterator, TableFile* file, bool* end) {
    iterator->cursor.file = file;
    while (iterator->indexInBlock < iterator->block.messageCount) {
        ErrorCode code = frameCursor_previous(&iterator->cursor, &iterator->current);
        if (code == NO_ERROR) {
            iterator->indexInBlock += 1;
            code = matchMessage(iterator, end);
        } else if (code == NO_DATA_ERROR) {
            std::int64_t size = 0;
            const ErrorCode sized = checkPlace(iterator, file, iterator->cursor.position, &size);
            code = sized != NO_ERROR ? sized : (iterator->done ? NO_ERROR : code);
        }
        if (code != NO_ERROR || !*end || iterator->done) {
            return code;
        }
    }
    return iterator->cursor.position == iterator->cursor.begin ? NO_ERROR : CONSISTENCY_ERROR;
}

}  // namespace

ErrorCode iteratorStep_forward(MessageTableIterator* iterator, TableFile* file, bool* end) noexcept {
    for (;;) {
        if (!iterator->blockLoaded) {
            Loaded loaded = Loaded::nothing;
            const ErrorCode code = loadForward(iterator, file, &loaded);
            if (code != NO_ERROR || loaded == Loaded::nothing) {
                return code;
            }
            if (loaded == Loaded::skipped) {
                leaveBlock(iterator, blockView_next(iterator->block, iterator->reader.get()));
                continue;
            }
        }
        bool finished = false;
        const ErrorCode code = walkForward(iterator, file, end, &finished);
        if (code != NO_ERROR || !finished) {
            return code;
        }
        // The footer follows, also when the block's length word is not written yet; but it may itself be half written.
        const std::int64_t next = iterator->cursor.position + iterator->reader->footerSize;
        if (!iterator->block.closed) {
            std::int64_t size = 0;
            const ErrorCode sized = checkPlace(iterator, file, iterator->cursor.position, &size);
            if (sized != NO_ERROR || size < next) {
                return sized;
            }
        }
        leaveBlock(iterator, next);
    }
}

ErrorCode iteratorStep_backward(MessageTableIterator* iterator, TableFile* file, bool* end) noexcept {
    for (;;) {
        if (iterator->blockLoaded) {
            const ErrorCode code = walkBackward(iterator, file, end);
            if (code != NO_ERROR || !*end || iterator->done) {
                return code;
            }
        }
        const ErrorCode code = stepBack(iterator, file);
        if (code != NO_ERROR || iterator->done) {
            return code;
        }
    }
}

}  // namespace tabulo::internal
