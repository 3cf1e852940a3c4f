#include "query/listed_read.h"

#include "messagetable/block_cursor.h"
#include "messagetable/frame_jump.h"
#include "messagetable/table_walk.h"

namespace tabulo::internal {

namespace {

struct Reading {
    BlockReader* reader;
    SideIndex* index;
    const MessageVisitor* visitor;
    WalkFile file;
    ListedRead* result;
};

// The block as the index has it, with its footer in the reader's summary; false when it is not there.
bool findBlock(const Reading& reading, std::uint32_t number, IndexedBlock* marks, Block* block) {
    const std::optional<std::int64_t> start = reading.index->blockStart(number);
    if (!start.has_value() || !reading.index->read(number, marks)) {
        return false;
    }
    BlockCursor cursor =
        blockCursor_at(reading.reader, *start, BlockCursor::OpenBlocks::unread, BlockCursor::ZeroWords::judged);
    const ErrorCode code = blockCursor_next(&cursor, reading.file.file);
    *block = cursor.block;
    return code == NO_ERROR && block->state == BlockState::closed &&
           block->framesEnd + reading.reader->footerSize == marks->end();
}

// Calls the visitor, and looks whether the file is still there.
template <typename Call>
ErrorCode ask(Reading* reading, Visit* answer, Call call) {
    *answer = Visit::goOn;
    const ErrorCode code = walkFile_follow(&reading->file, call(answer), *answer);
    reading->result->isOver = reading->file.ended;
    return code;
}

// The listed messages of one block. *found is false when one of them is not where the index has it.
ErrorCode showMessages(Reading* reading, const IndexedBlock& marks, const Block& block,
                       std::span<const std::uint32_t> messages, bool* found) {
    const MessageTableLayout& layout = reading->reader->layout;
    const auto perBlock = static_cast<std::uint32_t>(layout.messagesPerBlock);
    FrameCursor frames = frameCursor_forward(reading->reader, reading->file.file, block_framesStart(block),
                                             block.framesEnd, BLOCK_PIECE_SIZE);
    DecodedMessage message;
    std::int32_t number = 0;
    for (const std::uint32_t wanted : messages) {
        const auto target = static_cast<std::int32_t>(wanted % perBlock);
        std::int32_t pieceSize = 0;
        const FrameMark mark = indexedBlock_markBefore(marks, layout, target, &pieceSize);
        frames.file = reading->file.file;
        *found = frameJump_forward(&frames, mark, pieceSize, target, &number, &message) == NO_ERROR &&
                 frameCursor_next(&frames, &message) == NO_ERROR;
        if (!*found) {
            return NO_ERROR;
        }
        number += 1;
        reading->result->shownThere += 1;
        Visit answer = Visit::goOn;
        const ErrorCode code = ask(reading, &answer, [&](Visit* said) {
            return reading->visitor->onMessage(reading->visitor->owner, message_view(message, layout), said);
        });
        if (reading->result->isOver) {
            return code;
        }
    }
    return NO_ERROR;
}

}  // namespace

ErrorCode listedRead_forward(BlockReader* reader, SideIndex* index, std::span<const std::uint32_t> messages,
                             const MessageVisitor& visitor, ListedRead* result) noexcept {
    const auto perBlock = static_cast<std::uint32_t>(reader->layout.messagesPerBlock);
    Reading reading{reader, index, &visitor, {}, result};
    ErrorCode code = walkFile_begin(reader, &reading.file);
    result->isOver = reading.file.ended;
    result->nextBlock = reader->storage->headerSize;
    while (!result->isOver && !messages.empty()) {
        const std::uint32_t number = messages.front() / perBlock;
        std::size_t count = 1;
        while (count < messages.size() && messages[count] / perBlock == number) {
            ++count;
        }
        IndexedBlock marks;
        Block block;
        bool found = findBlock(reading, number, &marks, &block);
        if (!found) {
            return NO_ERROR;
        }
        result->nextBlock = block.start;
        Visit answer = Visit::goOn;
        code =
            ask(&reading, &answer, [&](Visit* said) { return visitor.onBlock(visitor.owner, reader->summary, said); });
        if (!result->isOver && answer == Visit::goOn) {
            code = showMessages(&reading, marks, block, messages.first(count), &found);
        }
        if (result->isOver || !found) {
            return code;
        }
        result->nextBlock = marks.end();
        result->shownThere = 0;
        messages = messages.subspan(count);
    }
    result->nextBlock = result->isOver ? result->nextBlock : index->end();
    return code;
}

}  // namespace tabulo::internal
