#include "query/iterator_step.h"

#include <algorithm>

#include "messagetable/known_blocks.h"
#include "query/known_pass.h"

namespace tabulo::internal {

namespace {

// The block that a walk backward ends with.
std::int64_t firstBlock(const MessageTableIterator* iterator) {
    return std::max(iterator->firstBlock, std::int64_t{iterator->reader->storage->headerSize});
}

bool isFull(const MessageTableIterator* iterator) {
    return iterator->indexInBlock == iterator->reader->layout.messagesPerBlock;
}

bool isDone(const MessageTableIterator* iterator) {
    return iterator->place == IteratorPlace::done || iterator->place == IteratorPlace::gone;
}

// The file's size of this moment. A file that is shorter than the iterator's place was dropped.
ErrorCode checkPlace(MessageTableIterator* iterator, TableFile* file, std::int64_t place, std::int64_t* size) {
    const ErrorCode code = tableFileGetSize(file, size);
    if (code == NO_ERROR && *size < place) {
        iterator->place = IteratorPlace::gone;
    }
    return code;
}

// What a failure at the block at hand comes to: nothing, when the file was dropped.
ErrorCode unlessDropped(MessageTableIterator* iterator, TableFile* file, ErrorCode code) {
    std::int64_t size = 0;
    const ErrorCode sized = checkPlace(iterator, file, iterator->cursor.block.start, &size);
    if (sized != NO_ERROR) {
        return sized;
    }
    return isDone(iterator) ? NO_ERROR : code;
}

// Asks about a closed block, whose footer has just been read.
ErrorCode isSkipped(const MessageTableIterator* iterator, bool* skipped) {
    if (iterator->asksKnown) {
        mt_knownBlocks(iterator->table).add(iterator->cursor);
    }
    Visit answer = Visit::goOn;
    ErrorCode code = NO_ERROR;
    if (iterator->match.onBlock != nullptr) {
        code = iterator->match.onBlock(iterator->match.owner, iterator->reader->summary, &answer);
    }
    *skipped = answer == Visit::skipBlock;
    return code;
}

// Asks about the message that was decoded last.
ErrorCode matchMessage(MessageTableIterator* iterator, bool* end) {
    iterator->indexInBlock += 1;
    Visit answer = Visit::goOn;
    const ErrorCode code = iterator->match.onMessage(
        iterator->match.owner, message_view(iterator->current, iterator->reader->layout), &answer);
    *end = answer != Visit::stop;
    return code;
}

void enterBlock(MessageTableIterator* iterator, const FrameCursor& frames) {
    iterator->frames = frames;
    iterator->indexInBlock = 0;
    iterator->place = IteratorPlace::inBlock;
    indexedWalk_enterBlock(iterator);
}

// To the next block; to the same one when it is not complete.
ErrorCode loadForward(MessageTableIterator* iterator, TableFile* file) {
    BlockReader* reader = iterator->reader.get();
    const Block& block = iterator->cursor.block;
    ErrorCode code = blockCursor_next(&iterator->cursor, file);
    const std::int64_t framesStart = block_framesStart(block);
    if (code != NO_ERROR || block.state == BlockState::damaged) {
        return unlessDropped(iterator, file, code != NO_ERROR ? code : block.damage);
    }
    if (!block_isClosed(block)) {
        // The open block, or nothing yet. It is not asked about: it may grow.
        std::int64_t size = 0;
        code = checkPlace(iterator, file, block.start, &size);
        // Where nothing stood when the block was looked for, the next call looks again: it may have come since.
        if (code == NO_ERROR && block.state == BlockState::open && size > framesStart) {
            enterBlock(iterator, frameCursor_forward(reader, file, framesStart, size, SCAN_PIECE_SIZE));
        }
        return code;
    }
    bool skipped = false;
    code = isSkipped(iterator, &skipped);
    if (code == NO_ERROR && !skipped) {
        enterBlock(iterator, frameCursor_forward(reader, file, framesStart, block.framesEnd, BLOCK_PIECE_SIZE));
    }
    return code;
}

// Reads on from the frames' place up to `end`, without what was read ahead: a recovery may have put other frames there.
void readOnTo(FrameCursor* frames, std::int64_t end) {
    frames->end = end;
    frames->pieceStart = frames->position;
    frames->pieceEnd = frames->position;
}

// The frames of the open block do not reach the file's end: it may have been closed meanwhile, or dropped, or be
// damaged. *retry is set when there is more to read.
ErrorCode lookAgain(MessageTableIterator* iterator, TableFile* file, bool* retry) {
    const Block& block = iterator->cursor.block;
    const ErrorCode code = blockCursor_refresh(&iterator->cursor, file);
    if (code != NO_ERROR) {
        return code;
    }
    if (block.state == BlockState::gone) {
        iterator->place = IteratorPlace::gone;
        return NO_ERROR;
    }
    readOnTo(&iterator->frames, block.framesEnd);
    *retry = block.framesEnd > iterator->frames.position;
    return *retry ? NO_ERROR : block.damage;
}

// No whole frame stands at the cursor. In the open block that may be the end for now; *retry is set when there is more
// to read. A closed block must hold what its footer says, unless its file was dropped.
ErrorCode frameMissing(MessageTableIterator* iterator, TableFile* file, ErrorCode missing, bool* retry) {
    const Block& block = iterator->cursor.block;
    FrameCursor& frames = iterator->frames;
    std::int64_t size = 0;
    *retry = false;
    ErrorCode code = checkPlace(iterator, file, frames.position, &size);
    if (code != NO_ERROR || isDone(iterator)) {
        return code;
    }
    if (block.state == BlockState::damaged) {
        return block.damage;
    }
    if (block_isClosed(block)) {
        if (size < frames.end) {
            iterator->place = IteratorPlace::gone;
        }
        return isDone(iterator) ? NO_ERROR : missing;
    }
    *retry = size > frames.end;
    if (*retry) {
        readOnTo(&frames, size);
    } else if (frames.position < size) {
        code = lookAgain(iterator, file, retry);
    }
    // A block without a message yet is opened again by the next call: it may be closed, and skipped, by then.
    if (!*retry && iterator->indexInBlock == 0 && !isDone(iterator) && block.state == BlockState::open) {
        iterator->place = IteratorPlace::betweenBlocks;
    }
    return code;
}

// All messages of the block at hand have been looked at: goes on behind it, when it is complete.
ErrorCode finishForward(MessageTableIterator* iterator, TableFile* file) {
    const Block& block = iterator->cursor.block;
    const std::int64_t place = iterator->frames.position;
    if (block.state == BlockState::open) {
        std::int64_t size = 0;
        ErrorCode code = checkPlace(iterator, file, place, &size);
        bool more = false;
        if (code == NO_ERROR && !isDone(iterator) && place < size) {
            code = lookAgain(iterator, file, &more);
        }
        if (code != NO_ERROR || isDone(iterator)) {
            return code;
        }
    }
    if (block.state == BlockState::damaged) {
        return block.damage;
    }
    if (block_isClosed(block) && place != block.framesEnd) {
        return CONSISTENCY_ERROR;
    }
    // The footer follows, also when the block's length word is not written yet; but it may itself be half written.
    if (iterator->cursor.position != block.start) {
        iterator->place = IteratorPlace::betweenBlocks;
    }
    return NO_ERROR;
}

// Looks at the messages of the block at hand, until one matches, the block is done with or nothing more is there.
ErrorCode walkForward(MessageTableIterator* iterator, TableFile* file, bool* end) {
    iterator->frames.file = file;
    while (!isFull(iterator)) {
        if (iterator->indexed.isInBlock && !indexedWalk_nextFrame(iterator)) {
            break;
        }
        ErrorCode code = frameCursor_next(&iterator->frames, &iterator->current);
        const bool isOpen = !block_isClosed(iterator->cursor.block);
        if (code == NO_DATA_ERROR || (code == CONSISTENCY_ERROR && isOpen)) {
            bool retry = false;
            code = frameMissing(iterator, file, code, &retry);
            if (code != NO_ERROR || !retry) {
                return code;
            }
            continue;
        }
        if (code == NO_ERROR) {
            code = matchMessage(iterator, end);
        }
        if (code != NO_ERROR || !*end) {
            return code;
        }
    }
    return finishForward(iterator, file);
}

// The block that a backward walk begins with. Blocks may have been closed since the iterator was opened: it is the one
// that is open now, or a place where none stands yet; or the one that was given.
ErrorCode readOpenBlock(MessageTableIterator* iterator, TableFile* file) {
    BlockCursor& cursor = iterator->cursor;
    for (;;) {
        const ErrorCode code = blockCursor_next(&cursor, file);
        if (code != NO_ERROR || cursor.position == cursor.block.start || iterator->startIsLast) {
            return code;
        }
    }
}

// The block at hand has just been read: asks about it, when it is closed.
ErrorCode startBackward(MessageTableIterator* iterator, TableFile* file) {
    const Block& block = iterator->cursor.block;
    iterator->place = IteratorPlace::betweenBlocks;
    if (block.state == BlockState::gone) {
        iterator->place = IteratorPlace::gone;
        return NO_ERROR;
    }
    if (block.state == BlockState::open && block.damage != NO_ERROR && iterator->end == INT64_MAX) {
        iterator->endCode = block.damage;
        iterator->endOffset = block.framesEnd;
    }
    bool skipped = block.messageCount == 0 && block.state != BlockState::damaged;
    if (block_isClosed(block)) {
        const ErrorCode code = isSkipped(iterator, &skipped);
        if (code != NO_ERROR) {
            return code;
        }
    }
    if (!skipped) {
        enterBlock(iterator, frameCursor_backward(iterator->reader.get(), file, block_framesStart(block),
                                                  block.framesEnd, BLOCK_PIECE_SIZE));
    }
    return NO_ERROR;
}

// To the block that the walk begins with, or to the one before the block at hand; the iterator is done at the header.
ErrorCode stepBack(MessageTableIterator* iterator, TableFile* file) {
    if (iterator->place != IteratorPlace::beforeStart) {
        indexedWalk_backward(iterator, file, firstBlock(iterator));
        if (iterator->asksKnown) {
            knownPass_backward(iterator, file, firstBlock(iterator));
        }
    }
    const BlockCursor before = iterator->cursor;
    ErrorCode code = NO_ERROR;
    if (iterator->place == IteratorPlace::beforeStart) {
        code = readOpenBlock(iterator, file);
    } else if (before.block.start <= firstBlock(iterator)) {
        iterator->place = IteratorPlace::done;
        return iterator->endCode;
    } else {
        iterator->place = IteratorPlace::betweenBlocks;
        code = blockCursor_previous(&iterator->cursor, file);
    }
    if (code == NO_ERROR) {
        return startBackward(iterator, file);
    }
    iterator->cursor = before;  // a further call tries again
    return unlessDropped(iterator, file, code);
}

// A frame of the block at hand cannot be read from behind.
ErrorCode failBackward(MessageTableIterator* iterator, TableFile* file, ErrorCode failure) {
    const Block& block = iterator->cursor.block;
    const bool isMissing = failure == NO_DATA_ERROR;
    if (block.state == BlockState::damaged && (isMissing || failure == CONSISTENCY_ERROR)) {
        return unlessDropped(iterator, file, block.damage);
    }
    if (!isMissing) {
        return failure;
    }
    std::int64_t size = 0;
    const ErrorCode sized = checkPlace(iterator, file, iterator->frames.position, &size);
    return sized != NO_ERROR ? sized : (isDone(iterator) ? NO_ERROR : failure);
}

ErrorCode walkBackward(MessageTableIterator* iterator, TableFile* file, bool* end) {
    const Block& block = iterator->cursor.block;
    iterator->frames.file = file;
    while (block.state == BlockState::damaged || iterator->indexInBlock < block.messageCount) {
        if (iterator->indexed.isInBlock && !indexedWalk_previousFrame(iterator)) {
            return NO_ERROR;
        }
        ErrorCode code = frameCursor_previous(&iterator->frames, &iterator->current);
        code = code == NO_ERROR ? matchMessage(iterator, end) : failBackward(iterator, file, code);
        if (code != NO_ERROR || !*end || isDone(iterator)) {
            return code;
        }
    }
    return iterator->frames.position == iterator->frames.begin ? NO_ERROR : CONSISTENCY_ERROR;
}

}  // namespace

ErrorCode iteratorStep_forward(MessageTableIterator* iterator, TableFile* file, bool* end) noexcept {
    for (;;) {
        if (iterator->place != IteratorPlace::inBlock) {
            indexedWalk_forward(iterator, file);
            if (iterator->asksKnown) {
                knownPass_forward(iterator, file);
            }
            if (iterator->cursor.position + BLOCK_LENGTH_SIZE >= iterator->end) {
                iterator->place = IteratorPlace::done;
                return NO_ERROR;
            }
            const ErrorCode code = loadForward(iterator, file);
            const bool isAhead = iterator->cursor.position != iterator->cursor.block.start;
            if (code != NO_ERROR || isDone(iterator) || (iterator->place != IteratorPlace::inBlock && !isAhead)) {
                return code;
            }
            if (iterator->place != IteratorPlace::inBlock) {
                continue;  // a block that was skipped
            }
        }
        const ErrorCode code = walkForward(iterator, file, end);
        if (code != NO_ERROR || !*end || iterator->place != IteratorPlace::betweenBlocks ||
            iterator->cursor.position == iterator->cursor.block.start) {
            return code;
        }
    }
}

ErrorCode iteratorStep_loaded(MessageTableIterator* iterator, bool* end) noexcept {
    while (iterator->place == IteratorPlace::inBlock && !iterator->indexed.isInBlock && !isFull(iterator) &&
           frameCursor_nextLoaded(&iterator->frames, &iterator->current)) {
        const ErrorCode code = matchMessage(iterator, end);
        if (code != NO_ERROR || !*end) {
            return code;
        }
    }
    return NO_ERROR;
}

ErrorCode iteratorStep_backward(MessageTableIterator* iterator, TableFile* file, bool* end) noexcept {
    for (;;) {
        if (iterator->place == IteratorPlace::inBlock) {
            const ErrorCode code = walkBackward(iterator, file, end);
            if (code != NO_ERROR || !*end || isDone(iterator)) {
                return code;
            }
        }
        const ErrorCode code = stepBack(iterator, file);
        if (code != NO_ERROR || isDone(iterator)) {
            return code;
        }
    }
}

}  // namespace tabulo::internal
