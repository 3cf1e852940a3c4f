#include <array>
#include <bit>
#include <optional>
#include <utility>

#include "api/call.h"
#include "api/open_table.h"
#include "api/reader_state.h"
#include "api/work_watch.h"
#include "core/bloom_filter.h"
#include "tabulo/reader.h"

namespace tabulo {

namespace api {

struct BlocksState {
    std::shared_ptr<ReaderState> reader;
    internal::BlockReaderPtr blocks;
    internal::BlockCursor cursor;
    WorkWatch watch;
    std::int64_t nextOrdinal = 0;
    std::int64_t givenOpen = -1;  // file offset of the open block that was given last
    BlockRecord record;
    bool isCurrent = false;
    Ending ending = Ending::none;
    std::optional<Error> damage;

    explicit BlocksState(Work work) : watch(std::move(work)) {}
};

namespace {

using State = BlocksState;

Number numberOf(const internal::NumericValue& value) {
    return value.type == internal::NumericType::longValue ? Number(value.longValue) : Number(value.doubleValue);
}

std::int32_t bitsSet(const std::uint8_t* bytes, std::size_t count) {
    std::int32_t bits = 0;
    for (std::size_t i = 0; i < count; ++i) {
        bits += std::popcount(bytes[i]);
    }
    return bits;
}

std::int32_t filterBitsSet(const internal::BlockSummary& summary, std::size_t filter) {
    constexpr std::size_t SIZE = internal::BLOOM_FILTER_STORED_SIZE;
    constexpr std::size_t BITS_AT = sizeof(std::uint32_t);
    if (summary.storedFilters != nullptr) {
        return bitsSet(summary.storedFilters + filter * SIZE + BITS_AT, SIZE - BITS_AT);
    }
    std::int32_t bits = 0;
    for (const std::uint32_t word : summary.filters[filter].words) {
        bits += std::popcount(word);
    }
    return bits;
}

void takeRanges(const internal::BlockSummary& summary, const internal::MessageTableLayout& layout,
                BlockRecord* record) {
    const internal::RangeRecord& low = summary.minimum;
    const internal::RangeRecord& high = summary.maximum;
    record->seqNums = {low.seqNum, high.seqNum};
    record->uniformIds = {low.uniformId, high.uniformId};
    record->times = {low.timestamp, high.timestamp};
    for (std::size_t i = 0; i < messageClassCount; ++i) {
        const bool hasIds = low.connMsgIds[i] <= high.connMsgIds[i];
        record->ids[i] =
            hasIds ? std::optional(ValueRange<std::int32_t>{low.connMsgIds[i], high.connMsgIds[i]}) : std::nullopt;
    }
    record->numbers.resize(static_cast<std::size_t>(layout.numericFieldCount));
    for (std::size_t i = 0; i < record->numbers.size(); ++i) {
        const internal::NumericValue& first = low.numericValues[i];
        const bool hasValue = first.type != internal::NumericType::absent;
        record->numbers[i] = hasValue
                                 ? std::optional(ValueRange<Number>{numberOf(first), numberOf(high.numericValues[i])})
                                 : std::nullopt;
    }
    record->filterBitsSet.resize(static_cast<std::size_t>(layout.summarisedStringFieldCount));
    for (std::size_t i = 0; i < record->filterBitsSet.size(); ++i) {
        record->filterBitsSet[i] = filterBitsSet(summary, i);
    }
}

void takeBlock(State* state) {
    const internal::Block& block = state->cursor.block;
    const internal::MessageTableLayout& layout = state->reader->table->numbers;
    BlockRecord& record = state->record;
    record.ordinal = state->nextOrdinal;
    record.firstMessage = record.ordinal * layout.messagesPerBlock;
    record.offset = block.start;
    record.closed = block_isClosed(block);
    state->givenOpen = record.closed ? -1 : block.start;
    record.length = block.framesEnd - block.start + (record.closed ? state->blocks->footerSize : 0);
    record.messageCount = block.messageCount;
    takeRanges(state->blocks->summary, layout, &record);
    state->isCurrent = true;
}

[[noreturn]] void failDamaged(State* state, const Call& call) {
    try {
        const internal::Block& block = state->cursor.block;
        const bool isOpen = block.state == internal::BlockState::open;
        call.fail(block.damage, isOpen ? block.framesEnd : block.start);
    } catch (const Error& error) {
        state->damage = error;
        throw;
    }
}

// True when the file ends before the block at hand: the table was emptied under it.
bool isDropped(const Call& call, const State& state) {
    std::int64_t size = 0;
    call.check(internal::tableFileGetSize(openTable_file(state.reader->open.get()), &size));
    return state.cursor.block.state == internal::BlockState::gone || size < state.cursor.block.start;
}

// To the next block. What is wrong with the open one is told behind it.
void step(State* state) {
    const Call call(state->reader->path);
    const internal::Block& block = state->cursor.block;
    if (!state->watch.goOn(state->cursor.position - reader_begin(*state->reader).block,
                           state->nextOrdinal * state->reader->table->numbers.messagesPerBlock)) {
        state->ending = Ending::stopped;
        state->watch.rethrow();
        return;
    }
    internal::TableFile* file = openTable_file(state->reader->open.get());
    do {
        call.check(internal::blockCursor_next(&state->cursor, file));
        // The open block that was given last may have been closed since: then the one behind it is next.
    } while (block.start == state->givenOpen && state->cursor.position != block.start);
    if (block.state != internal::BlockState::damaged && block.start != state->givenOpen && block.messageCount > 0) {
        takeBlock(state);
        state->nextOrdinal += 1;
    } else if (isDropped(call, *state)) {
        state->ending = Ending::dropped;
    } else if (block.damage != internal::NO_ERROR) {
        failDamaged(state, call);
    } else {
        state->ending = Ending::data;
    }
}

// From the block with this offset and ordinal on.
std::unique_ptr<BlocksState> blocks_open(const std::shared_ptr<ReaderState>& reader, std::int64_t first,
                                         std::int64_t ordinal, Work work) {
    const Call call(reader->path);
    auto state = std::make_unique<BlocksState>(std::move(work));
    state->reader = reader;
    state->blocks.reset(internal::blockReader_create(internal::mt_storage(reader->open.get()), reader->table->numbers));
    if (state->blocks == nullptr) {
        call.fail(internal::OUT_OF_MEMORY_ERROR);
    }
    std::int64_t size = 0;
    call.check(internal::tableFileGetSize(openTable_file(reader->open.get()), &size));
    state->nextOrdinal = ordinal;
    state->watch.begin(std::max<std::int64_t>(0, size - reader_begin(*reader).block));
    state->cursor = internal::blockCursor_at(state->blocks.get(), first, internal::BlockCursor::OpenBlocks::scanned,
                                             internal::BlockCursor::ZeroWords::judged);
    return state;
}

}  // namespace

}  // namespace api

Blocks Reader::blocks(Work work) {
    api::use(state_, "the reader");
    return Blocks(api::blocks_open(state_, api::reader_begin(*state_).block, 0, std::move(work)));
}

Blocks Reader::blocksFrom(const BlockRecord& block, Work work) {
    api::use(state_, "the reader");
    const api::Call call(state_->path);
    internal::TableFile* file = api::openTable_file(state_->open.get());
    const std::int64_t first = api::reader_begin(*state_).block;
    if (block.offset != first &&
        (block.offset < first ||
         internal::mfr_loadPreviousFooter(state_->blocks.get(), file, block.offset) != internal::NO_ERROR)) {
        call.fail(internal::VSEEK_ERROR, block.offset, "no block ends in front of it");
    }
    return Blocks(api::blocks_open(state_, block.offset, block.ordinal, std::move(work)));
}

Blocks::Blocks(std::unique_ptr<api::BlocksState> state) noexcept : state_(std::move(state)) {
}
Blocks::Blocks(Blocks&&) noexcept = default;
Blocks& Blocks::operator=(Blocks&&) noexcept = default;
Blocks::~Blocks() = default;

const BlockRecord* Blocks::next() {
    api::BlocksState& state = api::use(state_, "the blocks");
    state.isCurrent = false;
    if (state.damage.has_value()) {
        throw Error(*state.damage);
    }
    if (state.ending == Ending::none || state.ending == Ending::data) {
        state.ending = Ending::none;
        api::step(&state);
    }
    return current();
}

const BlockRecord* Blocks::current() const noexcept {
    return state_ != nullptr && state_->isCurrent ? &state_->record : nullptr;
}

Blocks::Iterator Blocks::begin() {
    if (!api::use(state_, "the blocks").isCurrent) {
        next();
    }
    return Iterator(this);
}

Ending Blocks::ending() const noexcept {
    return state_ == nullptr ? Ending::none : state_->ending;
}

}  // namespace tabulo
