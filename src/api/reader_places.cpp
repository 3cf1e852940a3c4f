#include <optional>
#include <string>

#include "api/open_table.h"
#include "api/reader_state.h"
#include "index/side_index.h"
#include "messagetable/frame_cursor.h"
#include "messagetable/frame_place.h"

namespace tabulo::api {

namespace {

[[noreturn]] void failPlace(const Call& call, const Position& position, std::string why) {
    call.fail(internal::VSEEK_ERROR, position.offset,
              "no message can stand at block " + std::to_string(position.block) + ", offset " +
                  std::to_string(position.offset) + ": " + std::move(why));
}

internal::BlockCursor cursorAt(const ReaderState& reader, std::int64_t block) {
    return internal::blockCursor_at(reader.blocks.get(), block, internal::BlockCursor::OpenBlocks::scanned,
                                    internal::BlockCursor::ZeroWords::judged);
}

// How a way through the blocks ended.
enum class Way {
    there,    // a block begins there
    past,     // the blocks pass over it, or end before it
    damaged,  // a damaged block is in the way
};

// Steps from the cursor's place to the block at `block`, and counts.
Way stepTo(const Call& call, internal::BlockCursor* cursor, internal::TableFile* file, std::int64_t block,
           std::int64_t* steps) {
    while (cursor->position < block) {
        const std::int64_t start = cursor->position;
        call.check(internal::blockCursor_next(cursor, file));
        if (cursor->block.state == internal::BlockState::damaged) {
            return Way::damaged;
        }
        if (cursor->position == start) {
            return Way::past;
        }
        *steps += 1;
    }
    return cursor->position == block ? Way::there : Way::past;
}

// Steps as stepTo with the length words alone: the usual case, with 8 bytes read a block that no side index covers,
// from the block to which they have led last if it still has a footer in front of it. False when they do not lead
// there.
bool leadTo(const Call& call, const ReaderState& reader, internal::TableFile* file, std::int64_t block,
            std::int64_t* steps) {
    std::int64_t size = 0;
    call.check(internal::tableFileGetSize(file, &size));
    std::int64_t position = reader_begin(reader).block;
    *steps = 0;
    if (const auto index = internal::sideIndex_of(reader.open.get(), file); index != nullptr) {
        const std::optional<std::uint32_t> before = index->blocksBefore(block);
        const std::optional<std::int64_t> start = before.has_value() ? index->blockStart(*before) : std::nullopt;
        if (start.has_value() && *start <= block) {
            position = *start;
            *steps = *before;
        }
    }
    const ReaderState::LedTo led = reader.led;
    if (led.block > position && led.block <= block && led.block <= size &&
        internal::mfr_loadPreviousFooter(reader.blocks.get(), file, led.block) == internal::NO_ERROR) {
        position = led.block;
        *steps = led.steps;
    }
    for (; position < block && block <= size; ++*steps) {
        std::uint64_t length = 0;
        call.check(internal::blockReader_readWord(file, position, &length));
        if (!internal::blockReader_isLength(*reader.blocks, length, size - position)) {
            return false;
        }
        position += static_cast<std::int64_t>(length);
    }
    if (position == block) {
        reader.led = {block, *steps};
    }
    return position == block;
}

// True when a block begins there. Where damage is in the way from the beginning, the footer in front of the block and
// the block itself decide.
bool isBlock(const Call& call, const ReaderState& reader, internal::TableFile* file, std::int64_t block) {
    std::int64_t steps = 0;
    if (leadTo(call, reader, file, block, &steps)) {
        return true;
    }
    internal::BlockCursor cursor = cursorAt(reader, reader_begin(reader).block);
    const Way way = stepTo(call, &cursor, file, block, &steps);
    if (way != Way::damaged) {
        return way == Way::there;
    }
    internal::BlockCursor there = cursorAt(reader, block);
    call.check(internal::blockCursor_next(&there, file));
    return internal::mfr_loadPreviousFooter(reader.blocks.get(), file, block) == internal::NO_ERROR ||
           block_isClosed(there.block);
}

// Looks for the place among the frames of its block.
void checkFrame(const Call& call, const ReaderState& reader, internal::TableFile* file, const Position& position) {
    internal::BlockCursor cursor = cursorAt(reader, position.block);
    call.check(internal::blockCursor_next(&cursor, file));
    std::int64_t end = cursor.block.framesEnd;
    if (cursor.block.state == internal::BlockState::open) {
        call.check(internal::tableFileGetSize(file, &end));
    }
    internal::FrameCursor frames = internal::frameCursor_forward(
        reader.blocks.get(), file, position.block + internal::BLOCK_LENGTH_SIZE, end, internal::SCAN_PIECE_SIZE);
    internal::DecodedMessage message;
    std::int32_t index = 0;
    while (frames.position < position.offset && index < reader.table->numbers.messagesPerBlock) {
        const internal::ErrorCode code = internal::frameCursor_next(&frames, &message);
        if (code == internal::NO_DATA_ERROR && !internal::block_isClosed(cursor.block)) {
            failPlace(call, position, "the data ends at " + std::to_string(frames.position));
        }
        if (code != internal::NO_ERROR) {
            call.fail(code, frames.position);
        }
        ++index;
    }
    blockReader_forgetFrames(reader.blocks.get());
    if (frames.position != position.offset) {
        failPlace(call, position, "a message or a footer stands around it");
    }
    if (index == reader.table->numbers.messagesPerBlock) {
        failPlace(call, position, "a footer stands there");
    }
}

// True for the place where the next message will stand, which can lie beyond the file: behind a full block whose footer
// is not there yet.
bool isEnd(const ReaderState& reader, const Position& position) {
    const internal::ErrorCode code = internal::mt_refresh(reader.open.get());
    const internal::FramePlace next = internal::mt_nextPlace(reader.open.get());
    return (code == internal::NO_ERROR || code == internal::CONSISTENCY_ERROR) && next.block == position.block &&
           next.frame == position.offset;
}

}  // namespace

Position reader_begin(const ReaderState& reader) noexcept {
    const internal::FramePlace place = internal::framePlace_first(internal::mt_storage(reader.open.get())->headerSize);
    return {place.block, place.frame};
}

Position reader_end(const Call& call, const ReaderState& reader) {
    call.check(internal::mt_refresh(reader.open.get()));
    const internal::FramePlace place = internal::mt_nextPlace(reader.open.get());
    return {place.block, place.frame};
}

void reader_checkPlace(const Call& call, const ReaderState& reader, const Position& position) {
    internal::TableFile* file = openTable_file(reader.open.get());
    std::int64_t size = 0;
    call.check(internal::tableFileGetSize(file, &size));
    if (position.block > size && isEnd(reader, position)) {
        return;
    }
    const Position first = reader_begin(reader);
    if (position.block < first.block || position.block > size) {
        failPlace(call, position,
                  "blocks begin between " + std::to_string(first.block) + " and " + std::to_string(size));
    }
    if (position.offset - internal::BLOCK_LENGTH_SIZE < position.block) {
        failPlace(call, position, "messages stand behind their block's length");
    }
    if (!isBlock(call, reader, file, position.block)) {
        failPlace(call, position, "no block begins there");
    }
    if (position.offset != internal::framePlace_first(position.block).frame) {
        checkFrame(call, reader, file, position);
    }
}

std::int64_t reader_blocksBefore(const Call& call, const ReaderState& reader, std::int64_t block) {
    internal::TableFile* file = openTable_file(reader.open.get());
    std::int64_t ordinal = 0;
    if (leadTo(call, reader, file, block, &ordinal)) {
        return ordinal;
    }
    internal::BlockCursor cursor = cursorAt(reader, reader_begin(reader).block);
    ordinal = 0;
    const Way way = stepTo(call, &cursor, file, block, &ordinal);
    if (way == Way::damaged) {
        call.fail(cursor.block.damage, cursor.block.start, "the blocks in front of the message cannot be counted");
    }
    if (way == Way::past) {
        call.fail(internal::VSEEK_ERROR, block, "no block begins there any more: the table was dropped");
    }
    return ordinal;
}

}  // namespace tabulo::api
