#include "messagetable/block_cursor.h"

#include "messagetable/block_look.h"
#include "messagetable/torn_tail.h"

namespace tabulo::internal {

namespace {

using OpenBlocks = BlockCursor::OpenBlocks;
using ZeroWords = BlockCursor::ZeroWords;

std::int64_t headerEnd(const BlockCursor& cursor) {
    return cursor.reader->storage->headerSize;
}

bool isDamage(ErrorCode code) {
    return code == HEADER_CORRUPTED_ERROR || code == CONSISTENCY_ERROR;
}

void setDamaged(Block* block, ErrorCode code) {
    block->state = BlockState::damaged;
    block->damage = code;
}

// The block at hand is what `state` says, and the summary is that of its messages.
void setRead(BlockCursor* cursor, BlockState state) {
    const BlockSummary& summary = cursor->reader->summary;
    Block& block = cursor->block;
    block.state = state;
    block.damage = NO_ERROR;
    block.messageCount = summary.messageCount;
    block.framesEnd = block_framesStart(block) + static_cast<std::int64_t>(summary.frameBytes);
}

// The footer of the block at hand has been read, with this result: when that was possible the block is closed.
ErrorCode closedWith(BlockCursor* cursor, BlockState state, ErrorCode code) {
    if (code == NO_ERROR) {
        setRead(cursor, state);
    }
    return code;
}

// The table was dropped: what was read at this place means nothing.
void setGone(Block* block) {
    block->state = BlockState::gone;
    block->messageCount = 0;
    block->damage = NO_ERROR;
}

// Where the next step goes on: behind a block that is complete, else at the block at hand again.
void settlePosition(BlockCursor* cursor, TableFile* file) {
    const Block& block = cursor->block;
    const std::int64_t next = block.framesEnd + cursor->reader->footerSize;
    const bool isFull =
        block.state == BlockState::open && block.messageCount == cursor->reader->layout.messagesPerBlock;
    const bool isComplete = block_isClosed(block) || (isFull && next <= tableFileCachedSize(file));
    cursor->position = isComplete ? next : block.start;
}

ErrorCode scan(BlockCursor* cursor, TableFile* file, std::int64_t size, ErrorCode* scanEnd) {
    const ErrorCode code = blockReader_scan(cursor->reader, file, block_framesStart(cursor->block), size, scanEnd);
    setRead(cursor, BlockState::open);
    return code;
}

// The block at hand looks damaged: a second look tells whether the table was dropped meanwhile. A trailing length that
// led into another block (`end` as in judge) is itself damage.
ErrorCode confirmDamage(BlockCursor* cursor, TableFile* file, const BlockLook& seen, std::int64_t end) {
    TailRecords tail;
    std::int64_t size = 0;
    bool inside = false;
    ErrorCode code = blockLook_readTail(*cursor->reader, file, &tail);
    if (code == NO_ERROR) {
        code = tableFileGetSize(file, &size);
    }
    if (code == NO_ERROR && end == 0) {
        code = blockLook_liesInside(*cursor->reader, file, cursor->block.start, seen, &inside);
    }
    if (code == NO_ERROR && (inside || size < seen.size || tail.dataInfo.dataEnd < seen.tail.dataInfo.dataEnd ||
                             tail.blockInfo.lastBlockEnd < seen.tail.blockInfo.lastBlockEnd)) {
        setGone(&cursor->block);
    }
    return code;
}

// A closed block with a length word of 0, whose frames have just been scanned: its footer tells, or it is damaged.
// `end` is where a trailing length told that it ends, 0 when none did.
ErrorCode readByFooter(BlockCursor* cursor, TableFile* file, const BlockLook& seen, std::int64_t end) {
    BlockReader* reader = cursor->reader;
    Block& block = cursor->block;
    if (block.messageCount == reader->layout.messagesPerBlock) {
        const std::uint64_t length = blockSummary_closedLength(reader->summary, reader->footerSize);
        const ErrorCode code = blockReader_readFooter(reader, file, block.start, length);
        if (!isDamage(code)) {
            return closedWith(cursor, BlockState::torn, code);
        }
    }
    setDamaged(&block, HEADER_CORRUPTED_ERROR);
    if (end != 0) {
        block.framesEnd = end - reader->footerSize;
    }
    return confirmDamage(cursor, file, seen, end);
}

// The open block, whose frames have just been scanned: looks at what stands behind them.
ErrorCode checkOpenBlock(BlockCursor* cursor, TableFile* file, const BlockLook& seen) {
    Block& block = cursor->block;
    const bool isFull = block.messageCount == cursor->reader->layout.messagesPerBlock;
    if (isFull || block.framesEnd >= seen.size) {
        return NO_ERROR;
    }
    bool torn = false;
    const ErrorCode code = tornTail_check(file, cursor->reader->layout, block.framesEnd, seen.size, &torn);
    if (code != NO_ERROR || torn) {
        return code;
    }
    block.damage = CONSISTENCY_ERROR;
    return confirmDamage(cursor, file, seen, 0);
}

// A block whose length word is `word`, and not 0.
ErrorCode readByWord(BlockCursor* cursor, TableFile* file, std::uint64_t word) {
    Block& block = cursor->block;
    const ErrorCode closed = blockReader_readFooter(cursor->reader, file, block.start, word);
    if (!isDamage(closed)) {
        return closedWith(cursor, BlockState::closed, closed);
    }
    std::uint64_t length = 0;
    ErrorCode code = blockReader_findTornLength(cursor->reader, file, block.start, word, &length);
    if (code != NO_ERROR) {
        return code;
    }
    code = length == 0 ? closed : blockReader_readFooter(cursor->reader, file, block.start, length);
    if (isDamage(code)) {
        setDamaged(&block, code);
        return NO_ERROR;
    }
    return closedWith(cursor, BlockState::torn, code);
}

// A block whose length word was seen as 0 and whose frames do not reach the file's end.
ErrorCode judge(BlockCursor* cursor, TableFile* file, std::int64_t end) {
    BlockLook seen;
    ErrorCode code = blockLook_read(*cursor->reader, file, cursor->block.start, &seen);
    if (code != NO_ERROR) {
        return code;
    }
    if (seen.size < block_framesStart(cursor->block)) {
        setGone(&cursor->block);
        return NO_ERROR;
    }
    if (seen.word != 0) {
        return readByWord(cursor, file, seen.word);
    }
    ErrorCode scanEnd = NO_ERROR;
    code = scan(cursor, file, seen.size, &scanEnd);
    bool closed = end != 0;
    if (code == NO_ERROR && !closed) {
        code = blockLook_isClosed(*cursor->reader, file, cursor->block.start, seen, &closed);
    }
    if (code != NO_ERROR) {
        return code;
    }
    return closed ? readByFooter(cursor, file, seen, end) : checkOpenBlock(cursor, file, seen);
}

// A block whose length word is 0; `end` as in judge.
ErrorCode readZeroWord(BlockCursor* cursor, TableFile* file, std::int64_t end) {
    cursor->block.state = BlockState::open;
    if (cursor->openBlocks == OpenBlocks::unread) {
        return NO_ERROR;
    }
    std::int64_t size = 0;
    ErrorCode scanEnd = NO_ERROR;
    ErrorCode code = tableFileGetSize(file, &size);
    if (code == NO_ERROR) {
        code = scan(cursor, file, size, &scanEnd);
    }
    if (code != NO_ERROR || cursor->zeroWords == ZeroWords::open || (cursor->block.framesEnd == size && end == 0)) {
        return code;
    }
    return judge(cursor, file, end);
}

// The block that begins at the start of the block at hand. Where the word that was read along with the last footer
// shows damage, or the file was cut or dropped since, the word of now decides.
ErrorCode readBlock(BlockCursor* cursor, TableFile* file, std::int64_t end) {
    BlockReader* reader = cursor->reader;
    const std::int64_t start = cursor->block.start;
    if (reader->nextBlockStart == start && reader->nextBlockLength != 0) {
        const ErrorCode code = blockReader_readFooter(reader, file, start, reader->nextBlockLength);
        if (!isDamage(code)) {
            return closedWith(cursor, BlockState::closed, code);
        }
    }
    std::uint64_t word = 0;
    const ErrorCode code = blockReader_readWord(file, start, &word);
    if (code == NO_DATA_ERROR) {
        return NO_ERROR;  // BlockState::none
    }
    if (code != NO_ERROR) {
        return code;
    }
    return word == 0 ? readZeroWord(cursor, file, end) : readByWord(cursor, file, word);
}

ErrorCode step(BlockCursor* cursor, TableFile* file, std::int64_t start, std::int64_t end) {
    cursor->block = {};
    cursor->block.start = start;
    cursor->block.framesEnd = start + BLOCK_LENGTH_SIZE;
    const ErrorCode code = readBlock(cursor, file, end);
    if (code == NO_ERROR) {
        settlePosition(cursor, file);
    }
    return code;
}

}  // namespace

BlockCursor blockCursor_at(BlockReader* reader, std::int64_t position, OpenBlocks openBlocks,
                           ZeroWords zeroWords) noexcept {
    BlockCursor cursor;
    cursor.reader = reader;
    cursor.openBlocks = openBlocks;
    cursor.zeroWords = zeroWords;
    cursor.position = position;
    cursor.block.start = position;
    return cursor;
}

ErrorCode blockCursor_next(BlockCursor* cursor, TableFile* file) noexcept {
    return step(cursor, file, cursor->position, 0);
}

ErrorCode blockCursor_previous(BlockCursor* cursor, TableFile* file) noexcept {
    BlockReader* reader = cursor->reader;
    Block& block = cursor->block;
    const std::int64_t end = block.start;
    const std::int64_t available = end - headerEnd(*cursor);
    block = {};
    block.start = end;
    block.framesEnd = end;
    setDamaged(&block, HEADER_CORRUPTED_ERROR);
    if (available < reader->footerSize) {
        return NO_ERROR;
    }
    std::uint64_t length = 0;
    ErrorCode code = blockReader_readFooterBefore(reader, file, end, &length);
    if (code != NO_ERROR || !blockReader_isLength(*reader, length, available)) {
        return code == HEADER_CORRUPTED_ERROR ? NO_ERROR : code;
    }
    block.start = end - static_cast<std::int64_t>(length);
    std::uint64_t leading = 0;
    code = blockReader_readWord(file, block.start, &leading);
    if (code != NO_ERROR) {
        return code;
    }
    if (leading != length) {
        // A full block whose length word is not written yet, or damage: its beginning decides.
        return step(cursor, file, block.start, end);
    }
    code = blockReader_takeFooter(reader, length);
    if (isDamage(code)) {
        setDamaged(&block, code);
        return NO_ERROR;
    }
    return closedWith(cursor, BlockState::closed, code);
}

ErrorCode blockCursor_refresh(BlockCursor* cursor, TableFile* file) noexcept {
    const ErrorCode code = judge(cursor, file, 0);
    if (code == NO_ERROR) {
        settlePosition(cursor, file);
    }
    return code;
}

ErrorCode blockCursor_grow(BlockCursor* cursor, TableFile* file, bool* same) noexcept {
    const std::int64_t size = tableFileCachedSize(file);
    ErrorCode scanEnd = NO_ERROR;
    const ErrorCode code =
        blockReader_continueScan(cursor->reader, file, block_framesStart(cursor->block), size, &scanEnd, same);
    if (code != NO_ERROR || !*same) {
        return code;
    }
    setRead(cursor, BlockState::open);
    // A block that has become full has its footer behind its frames.
    const bool isFull = cursor->block.messageCount == cursor->reader->layout.messagesPerBlock;
    if (!isFull && cursor->block.framesEnd != size) {
        return blockCursor_refresh(cursor, file);
    }
    settlePosition(cursor, file);
    return NO_ERROR;
}

ErrorCode mfr_loadPreviousFooter(BlockReader* reader, TableFile* file, std::int64_t lastBlockEnd) noexcept {
    if (lastBlockEnd <= reader->storage->headerSize) {
        mthStaticIndexes_init(&reader->summary.staticIndexes);
        return NO_ERROR;
    }
    BlockCursor cursor = blockCursor_at(reader, lastBlockEnd, OpenBlocks::unread, ZeroWords::open);
    const ErrorCode code = blockCursor_previous(&cursor, file);
    if (code != NO_ERROR || cursor.block.state == BlockState::damaged) {
        return code != NO_ERROR ? code : cursor.block.damage;
    }
    const bool endsThere =
        cursor.block.state == BlockState::closed && cursor.block.framesEnd + reader->footerSize == lastBlockEnd;
    return endsThere ? NO_ERROR : HEADER_CORRUPTED_ERROR;
}

ErrorCode mfr_loadOpenBlock(BlockCursor* cursor, TableFile* file) noexcept {
    ErrorCode code = blockCursor_next(cursor, file);
    if (cursor->block.state == BlockState::none) {
        blockSummary_reset(&cursor->reader->summary, true);
    }
    if (code != NO_ERROR || cursor->block.state != BlockState::damaged) {
        return code;
    }
    std::uint64_t word = 0;
    code = blockReader_readWord(file, cursor->block.start, &word);
    if (code != NO_ERROR || word == 0) {
        return code == NO_DATA_ERROR ? NO_ERROR : code;
    }
    BlockLook seen;
    ErrorCode scanEnd = NO_ERROR;
    code = blockLook_readTail(*cursor->reader, file, &seen.tail);
    if (code == NO_ERROR) {
        code = tableFileGetSize(file, &seen.size);
    }
    if (code == NO_ERROR) {
        code = scan(cursor, file, seen.size, &scanEnd);
    }
    if (code == NO_ERROR) {
        code = checkOpenBlock(cursor, file, seen);
    }
    if (code == NO_ERROR) {
        settlePosition(cursor, file);
    }
    return code;
}

}  // namespace tabulo::internal
