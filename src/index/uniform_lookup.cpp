#include "index/uniform_lookup.h"

#include <memory>
#include <optional>

#include "index/side_index.h"
#include "messagetable/block_cursor.h"
#include "messagetable/frame_cursor.h"
#include "messagetable/message_table.h"

namespace tabulo::internal {

namespace {

// The search, block by block.
struct Search {
    BlockCursor cursor;
    TableFile* file = nullptr;
    std::int32_t id = 0;
    std::int64_t blockOrdinal = 0;  // number of the first message of the block at hand
    UniformPlace* place = nullptr;
    bool found = false;  // the place is settled
};

const BlockReader& readerOf(const Search& search) {
    return *search.cursor.reader;
}

// The place of the frame at `frame`, the index-th of the block at hand, or of what will come there.
void settle(Search* search, std::int64_t frame, std::int32_t index) {
    const BlockReader& reader = readerOf(*search);
    const std::int64_t block = search->cursor.block.start;
    search->found = true;
    search->place->frame = framePlace_behind(block, frame, index, reader.layout, reader.footerSize);
    search->place->ordinal = search->blockOrdinal + index;
    search->place->offset = index == 0 ? block : frame;
    search->place->skip = index == 0 ? BLOCK_LENGTH_SIZE : 0;
    if (index == reader.layout.messagesPerBlock) {
        search->place->skip = reader.footerSize + BLOCK_LENGTH_SIZE;
    }
}

// Looks at the frames of [its beginning, end) of the block at hand; the end of those that are whole is in *frame, and
// their number in *index. *code tells what stands there: NO_ERROR when the block is full or the message was found.
ErrorCode findInFrames(Search* search, std::int64_t end, std::int64_t* frame, std::int32_t* index) {
    FrameCursor frames = frameCursor_forward(search->cursor.reader, search->file,
                                             block_framesStart(search->cursor.block), end, SCAN_PIECE_SIZE);
    DecodedMessage message;
    for (*index = 0; *index < readerOf(*search).layout.messagesPerBlock; ++*index) {
        *frame = frames.position;
        const ErrorCode code = frameCursor_next(&frames, &message);
        if (code != NO_ERROR) {
            return code;
        }
        if (message.metadata.uniformId >= search->id) {
            settle(search, *frame, *index);
            return NO_ERROR;
        }
    }
    *frame = frames.position;
    return NO_ERROR;
}

bool isMissing(ErrorCode code) {
    return code == NO_DATA_ERROR || code == CONSISTENCY_ERROR;
}

// A closed block that may hold the message. Its footer may promise one that is not there: the search then goes on.
ErrorCode findInClosedBlock(Search* search) {
    std::int64_t frame = 0;
    std::int32_t index = 0;
    const ErrorCode code = findInFrames(search, search->cursor.block.framesEnd, &frame, &index);
    return isMissing(code) ? CONSISTENCY_ERROR : code;
}

// The open block. Where its frames do not reach the file's end, it may have been closed meanwhile, or be damaged.
ErrorCode findInOpenBlock(Search* search) {
    Block& block = search->cursor.block;
    std::int64_t size = 0;
    std::int64_t frame = 0;
    std::int32_t index = 0;
    ErrorCode code = tableFileGetSize(search->file, &size);
    if (code == NO_ERROR) {
        code = findInFrames(search, size, &frame, &index);
    }
    if (search->found || (code != NO_ERROR && !isMissing(code))) {
        return code;
    }
    if (frame == size) {
        settle(search, frame, index);
        return NO_ERROR;
    }
    code = blockCursor_refresh(&search->cursor, search->file);
    if (code != NO_ERROR || block.damage != NO_ERROR) {
        return code != NO_ERROR ? code : block.damage;
    }
    if (block_isClosed(block)) {
        return findInClosedBlock(search);
    }
    if (block.state != BlockState::open) {
        settle(search, block.start, 0);
        return NO_ERROR;
    }
    code = findInFrames(search, block.framesEnd, &frame, &index);
    const bool isLast = search->cursor.position == block.start;
    if (!search->found && isLast && (code == NO_ERROR || isMissing(code))) {
        settle(search, frame, index);
        code = NO_ERROR;
    }
    return code;
}

ErrorCode searchBlock(Search* search) {
    const Block& block = search->cursor.block;
    switch (block.state) {
        case BlockState::closed:
        case BlockState::torn:
            return readerOf(*search).summary.maximum.uniformId < search->id ? NO_ERROR : findInClosedBlock(search);
        case BlockState::open:
            return findInOpenBlock(search);
        case BlockState::damaged:
            return block.damage;
        default:
            settle(search, block.start, 0);
            return NO_ERROR;
    }
}

// Whether no message of some blocks has an id from the search's on.
bool isBelow(void* owner, const RangeRecord& minimum, const RangeRecord& maximum) {
    return minimum.uniformId <= maximum.uniformId && maximum.uniformId < static_cast<Search*>(owner)->id;
}

// Settles the place by the index when the block's ids ascend, and a frame of it is the first one from the id on: the
// one with the lowest id there is, if it stands in this block. False when the block has to be searched.
bool settleByIndex(Search* search, SideIndex* index, std::uint32_t number) {
    IndexedBlock block;
    const auto perBlock = static_cast<std::uint64_t>(readerOf(*search).layout.messagesPerBlock);
    const std::optional<std::uint64_t> message = index->lowest(UNIFORM_ID_PART, number, keyOf(search->id));
    if (!index->read(number, &block) || !block.uniformIdsAscend || !message.has_value() ||
        *message / perBlock != number) {
        return false;
    }
    const auto target = static_cast<std::int32_t>(*message % perBlock);
    std::int32_t pieceSize = 0;
    const FrameMark mark = indexedBlock_markBefore(block, readerOf(*search).layout, target, &pieceSize);
    FrameCursor frames = frameCursor_forward(search->cursor.reader, search->file, block.start + BLOCK_LENGTH_SIZE,
                                             block.end() - readerOf(*search).footerSize, SCAN_PIECE_SIZE);
    std::int32_t at = 0;
    DecodedMessage decoded;
    if (frameJump_forward(&frames, mark, pieceSize, target, &at, &decoded) != NO_ERROR) {
        return false;
    }
    const std::int64_t frame = frames.position;
    if (frameCursor_next(&frames, &decoded) != NO_ERROR || decoded.metadata.uniformId < search->id) {
        return false;
    }
    search->cursor.block.start = block.start;
    settle(search, frame, target);
    return true;
}

// Goes to the first block that may hold the message, or settles its place.
void startByIndex(MessageTable* table, Search* search) {
    const std::shared_ptr<SideIndex> index = sideIndex_of(table, search->file);
    if (index == nullptr) {
        return;
    }
    const std::optional<std::uint32_t> block = index->next(0, {search, isBelow});
    const std::optional<std::int64_t> start = block.has_value() ? index->blockStart(*block) : std::nullopt;
    if (!start.has_value()) {
        return;
    }
    search->cursor.position = *start;
    search->blockOrdinal = std::int64_t{*block} * readerOf(*search).layout.messagesPerBlock;
    if (*block < index->blocks()) {
        (void)settleByIndex(search, index.get(), *block);  // else the search goes on there
    }
}

}  // namespace

ErrorCode mt_findUniformId(MessageTable* table, std::int32_t id, UniformPlace* place) noexcept {
    if (table == nullptr || place == nullptr) {
        return NULL_POINTER_ERROR;
    }
    ErrorCode code = mt_refresh(table);
    if (code != NO_ERROR) {
        return code;
    }
    TableStorage* storage = mt_storage(table);
    const BlockReaderPtr reader(mfr_createReader(storage, mt_layout(table)));
    if (reader == nullptr) {
        return OUT_OF_MEMORY_ERROR;
    }
    Search search;
    search.cursor = blockCursor_at(reader.get(), storage->headerSize, BlockCursor::OpenBlocks::unread,
                                   BlockCursor::ZeroWords::judged);
    search.file = tableStorage_master(storage);
    search.id = id;
    search.place = place;
    startByIndex(table, &search);
    while (code == NO_ERROR && !search.found) {
        code = blockCursor_next(&search.cursor, search.file);
        if (code == NO_ERROR) {
            code = searchBlock(&search);
        }
        search.blockOrdinal += reader->layout.messagesPerBlock;
    }
    return code;
}

}  // namespace tabulo::internal
