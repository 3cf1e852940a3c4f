#include "messagetable/table_walk.h"

#include "messagetable/block_cursor.h"
#include "messagetable/frame_cursor.h"

namespace tabulo::internal {

namespace {

enum class Direction { forward, backward };

// One walk.
struct Walk {
    BlockReader* reader;
    const MessageVisitor* visitor;
    Direction direction;
    WalkFile file;
};

ErrorCode follow(Walk* walk, ErrorCode code, Visit answer) {
    return walkFile_follow(&walk->file, code, answer);
}

FrameCursor framesOf(const Walk& walk, const Block& block) {
    const auto start = walk.direction == Direction::forward ? frameCursor_forward : frameCursor_backward;
    return start(walk.reader, walk.file.file, block_framesStart(block), block.framesEnd, BLOCK_PIECE_SIZE);
}

// What ends the messages of a block before all of them were shown: another process has cut the open block since it was
// scanned, or the damage of a damaged block was reached, which is told behind this.
bool endsBlock(const Block& block, ErrorCode code) {
    const bool isBroken = code == NO_DATA_ERROR || code == CONSISTENCY_ERROR;
    return (block.state == BlockState::open && code == NO_DATA_ERROR) ||
           (block.state == BlockState::damaged && isBroken);
}

ErrorCode walkMessages(Walk* walk, const Block& block) {
    const auto step = walk->direction == Direction::forward ? frameCursor_next : frameCursor_previous;
    const MessageTableLayout& layout = walk->reader->layout;
    const bool isDamaged = block.state == BlockState::damaged;
    FrameCursor cursor = framesOf(*walk, block);
    DecodedMessage message;
    for (std::int32_t i = 0; i < (isDamaged ? layout.messagesPerBlock : block.messageCount); ++i) {
        cursor.file = walk->file.file;
        ErrorCode code = step(&cursor, &message);
        if (endsBlock(block, code)) {
            return NO_ERROR;
        }
        if (code == NO_ERROR) {
            Visit answer = Visit::goOn;
            code = walk->visitor->onMessage(walk->visitor->owner, message_view(message, layout), &answer);
            code = follow(walk, code, answer);
        }
        if (code != NO_ERROR || walk->file.ended) {
            walk->file.ended = true;
            return code;
        }
    }
    const bool wholeStretch = isDamaged || cursor.position == cursor.begin || cursor.position == cursor.end;
    walk->file.ended = !wholeStretch;
    return wholeStretch ? NO_ERROR : CONSISTENCY_ERROR;
}

ErrorCode walkBlock(Walk* walk, const Block& block) {
    if (block.state != BlockState::damaged) {
        Visit answer = Visit::goOn;
        ErrorCode code = NO_ERROR;
        if (walk->visitor->onBlock != nullptr) {
            code = walk->visitor->onBlock(walk->visitor->owner, walk->reader->summary, &answer);
        }
        code = follow(walk, code, answer);
        if (code != NO_ERROR || walk->file.ended || answer == Visit::skipBlock) {
            return code;
        }
    }
    const ErrorCode code = walkMessages(walk, block);
    if (block.state == BlockState::damaged && code == NO_ERROR && !walk->file.ended) {
        walk->file.ended = true;
        return block.damage;
    }
    return code;
}

bool holdsMessages(const Block& block) {
    return block.messageCount > 0 || block.state == BlockState::damaged;
}

}  // namespace

ErrorCode walkFile_begin(BlockReader* reader, WalkFile* file) noexcept {
    *file = {reader->storage, reader->storage->openings};
    return walkFile_follow(file, NO_ERROR, Visit::goOn);
}

ErrorCode walkFile_follow(WalkFile* file, ErrorCode code, Visit answer) noexcept {
    if (code != NO_ERROR || answer == Visit::stop) {
        file->ended = true;
        return code;
    }
    file->file = tableStorage_master(file->storage);
    if (file->file == nullptr) {
        file->ended = true;
        return MASTER_INACTIVE_ERROR;
    }
    file->ended = file->storage->openings != file->openings;
    return NO_ERROR;
}

ErrorCode mfr_readForward(BlockReader* reader, std::int64_t startBlock, const MessageVisitor& visitor) noexcept {
    Walk walk{reader, &visitor, Direction::forward, {}};
    BlockCursor cursor =
        blockCursor_at(reader, startBlock, BlockCursor::OpenBlocks::scanned, BlockCursor::ZeroWords::judged);
    ErrorCode code = walkFile_begin(reader, &walk.file);
    while (code == NO_ERROR && !walk.file.ended) {
        code = blockCursor_next(&cursor, walk.file.file);
        const Block block = cursor.block;
        if (code == NO_ERROR && holdsMessages(block)) {
            code = walkBlock(&walk, block);
        }
        if (code == NO_ERROR && !walk.file.ended && cursor.position == block.start) {
            return block.damage;  // the open block, nothing, or a table that was dropped: the data ends here
        }
    }
    return code;
}

ErrorCode mfr_readBackward(BlockReader* reader, std::int64_t startBlock, const MessageVisitor& visitor) noexcept {
    Walk walk{reader, &visitor, Direction::backward, {}};
    BlockCursor cursor =
        blockCursor_at(reader, startBlock, BlockCursor::OpenBlocks::scanned, BlockCursor::ZeroWords::judged);
    ErrorCode code = walkFile_begin(reader, &walk.file);
    if (code != NO_ERROR || walk.file.ended || startBlock < reader->storage->headerSize) {
        return code;
    }
    ErrorCode damage = NO_ERROR;  // behind the open block, told when all before it has been shown
    code = blockCursor_next(&cursor, walk.file.file);
    while (code == NO_ERROR && cursor.block.state != BlockState::gone) {
        const Block block = cursor.block;
        if (block.state == BlockState::open && damage == NO_ERROR) {
            damage = block.damage;
        }
        if (holdsMessages(block)) {
            code = walkBlock(&walk, block);
        }
        if (code != NO_ERROR || walk.file.ended) {
            return code;
        }
        if (block.start <= reader->storage->headerSize) {
            return damage;
        }
        code = blockCursor_previous(&cursor, walk.file.file);
    }
    return code;
}

}  // namespace tabulo::internal
