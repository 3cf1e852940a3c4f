#include "tabulo/reader.h"

#include <algorithm>
#include <utility>

#include "api/layout.h"
#include "api/open_table.h"
#include "api/reader_state.h"
#include "api/sequence_point.h"
#include "api/table_index.h"
#include "index/side_index.h"
#include "index/uniform_lookup.h"
#include "messagetable/frame_cursor.h"
#include "messagetable/static_indexes.h"

namespace tabulo {

namespace api {

namespace {

// Takes over a table that was opened with this layout.
std::shared_ptr<ReaderState> readerOf(const Call& call, const std::filesystem::path& path, Layout layout,
                                      internal::MessageTablePtr table) {
    auto state = std::make_shared<ReaderState>();
    state->path = path;
    state->table = std::make_shared<TableState>();
    state->table->numbers = layout_numbers(layout);
    state->table->layout = std::move(layout);
    state->table->name = path.filename().string();
    state->blocks.reset(internal::blockReader_create(internal::mt_storage(table.get()), state->table->numbers));
    if (state->blocks == nullptr) {
        call.fail(internal::OUT_OF_MEMORY_ERROR);
    }
    state->table->footerSize = state->blocks->footerSize;
    state->open = std::move(table);
    return state;
}

ReaderState& opened(const std::shared_ptr<ReaderState>& state) {
    return use(state, "the reader");
}

const internal::mthStaticIndexes& indexesOf(const Call& call, const ReaderState& state) {
    call.check(internal::mt_refresh(state.open.get()));
    return internal::mt_staticIndexes(state.open.get());
}

std::optional<SequencePoint> pointSince(const std::shared_ptr<ReaderState>& state, internal::SeqNumKind kind,
                                        std::int64_t since) {
    const ReaderState& reader = opened(state);
    const Call call(reader.path);
    const std::optional<SequencePoint> point = sequencePoint_of(indexesOf(call, reader), kind);
    return point.has_value() && point->time >= since ? point : std::nullopt;
}

// Moves the cursor to the block with this number, or behind those that the side index covers; the number of the block
// that it has come to.
std::int64_t startByIndex(const ReaderState& reader, std::int64_t block, internal::BlockCursor* cursor) {
    const auto index = internal::sideIndex_of(reader.open.get(), openTable_file(reader.open.get()));
    if (index == nullptr) {
        return 0;
    }
    const auto reached = static_cast<std::uint32_t>(std::min<std::int64_t>(block, index->blocks()));
    const std::optional<std::int64_t> start = index->blockStart(reached);
    cursor->position = start.value_or(cursor->position);
    return start.has_value() ? reached : 0;
}

// The place of the message `index` of the block at the cursor; none when the block holds fewer.
std::optional<Position> placeInBlock(const Call& call, const internal::BlockCursor& cursor, internal::TableFile* file,
                                     std::int64_t index) {
    const internal::Block& block = cursor.block;
    if (block.damage != internal::NO_ERROR && index >= block.messageCount) {
        call.fail(block.damage, block.framesEnd);
    }
    if (index >= block.messageCount) {
        return std::nullopt;
    }
    internal::FrameCursor frames = internal::frameCursor_forward(cursor.reader, file, block_framesStart(block),
                                                                 block.framesEnd, internal::SCAN_PIECE_SIZE);
    internal::DecodedMessage message;
    for (std::int64_t i = 0; i < index; ++i) {
        const internal::ErrorCode code = internal::frameCursor_next(&frames, &message);
        if (code != internal::NO_ERROR) {
            call.fail(code, frames.position);
        }
    }
    blockReader_forgetFrames(cursor.reader);
    return Position{block.start, frames.position};
}

}  // namespace

std::shared_ptr<ReaderState> reader_open(const std::filesystem::path& path) {
    const std::string checked = checkedPath(path);
    const Call call(path);
    StoredHeader header;
    internal::MessageTablePtr table = openTable_asStored(call, checked, &header);
    return readerOf(call, path, std::move(header.layout), std::move(table));
}

}  // namespace api

Reader::Reader(const std::filesystem::path& path) : state_(api::reader_open(path)) {
}

Reader::Reader(const std::filesystem::path& path, const Layout& layout) {
    const std::string checked = api::checkedPath(path);
    const api::Call call(path);
    internal::TableConfigPtr config = api::layout_configure(layout, checked, internal::FilePresence::existing);
    internal::MessageTablePtr table = api::openTable(call, std::move(config), internal::OpenMode::read);
    state_ = api::readerOf(call, path, layout, std::move(table));
}

Reader::Reader(Reader&&) noexcept = default;
Reader& Reader::operator=(Reader&&) noexcept = default;
Reader::~Reader() = default;

const std::filesystem::path& Reader::path() const {
    return api::opened(state_).path;
}

const std::string& Reader::table() const {
    return api::opened(state_).table->name;
}

const Layout& Reader::layout() const {
    return api::opened(state_).table->layout;
}

std::optional<std::int32_t> Reader::lastId(MessageClass messageClass) {
    const api::ReaderState& state = api::opened(state_);
    if (className(messageClass).empty()) {
        api::refuse("there is no class " + std::to_string(static_cast<std::int32_t>(messageClass)));
    }
    const api::Call call(state.path);
    const std::int32_t id = api::indexesOf(call, state).connMsgIds[static_cast<std::size_t>(messageClass)];
    return id < 0 ? std::nullopt : std::optional(id);
}

std::optional<std::int32_t> Reader::lastUniformId() {
    const api::ReaderState& state = api::opened(state_);
    const api::Call call(state.path);
    const std::int32_t id = api::indexesOf(call, state).lastUniform;
    return id == 0 ? std::nullopt : std::optional(id);
}

std::optional<SequencePoint> Reader::lastGood(std::int64_t since) {
    return api::pointSince(state_, internal::LAST_GOOD, since);
}

std::optional<SequencePoint> Reader::firstPending(std::int64_t since) {
    return api::pointSince(state_, internal::FIRST_PEND, since);
}

std::optional<SequencePoint> Reader::lastPending(std::int64_t since) {
    return api::pointSince(state_, internal::LAST_PEND, since);
}

void Reader::useIndex(bool use) noexcept {
    if (state_ != nullptr) {
        internal::mt_useSideIndex(state_->open.get(), use);
    }
}

void Reader::keepIndex(const Work& work) {
    api::ReaderState& state = api::opened(state_);
    const api::Call call(state.path);
    if (state.index == nullptr) {
        state.index = api::tableIndex_open(call, state.path, state.open.get());
    }
    api::tableIndex_update(call, state.index.get(), state.open.get(), api::EVERY_BLOCK, work);
}

Position Reader::begin() const {
    return api::reader_begin(api::opened(state_));
}

Position Reader::end() {
    const api::ReaderState& state = api::opened(state_);
    const api::Call call(state.path);
    return api::reader_end(call, state);
}

Position Reader::positionOfUniformId(std::int32_t uniformId) {
    const api::ReaderState& state = api::opened(state_);
    const api::Call call(state.path);
    internal::UniformPlace place;
    call.check(internal::mt_findUniformId(state.open.get(), uniformId, &place));
    return {place.frame.block, place.frame.frame};
}

std::optional<Position> Reader::positionOf(std::int64_t ordinal) {
    api::ReaderState& state = api::opened(state_);
    if (ordinal < 0) {
        api::refuse(Code::indexOutOfBounds, "the message " + std::to_string(ordinal) + " was asked for");
    }
    const api::Call call(state.path);
    internal::TableFile* file = api::openTable_file(state.open.get());
    const std::int64_t messagesPerBlock = state.table->numbers.messagesPerBlock;
    internal::BlockCursor cursor =
        internal::blockCursor_at(state.blocks.get(), Reader::begin().block, internal::BlockCursor::OpenBlocks::scanned,
                                 internal::BlockCursor::ZeroWords::judged);
    for (std::int64_t block = api::startByIndex(state, ordinal / messagesPerBlock, &cursor);; ++block) {
        const std::int64_t start = cursor.position;
        call.check(internal::blockCursor_next(&cursor, file));
        const bool isThere = block == ordinal / messagesPerBlock;
        if (isThere || cursor.position == start) {
            return api::placeInBlock(call, cursor, file, isThere ? ordinal % messagesPerBlock : messagesPerBlock);
        }
    }
}

}  // namespace tabulo
