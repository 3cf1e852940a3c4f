#include <algorithm>
#include <limits>
#include <optional>
#include <utility>

#include "api/call.h"
#include "api/open_table.h"
#include "api/query_state.h"
#include "api/reader_state.h"
#include "api/table_index.h"
#include "api/work_watch.h"
#include "query/match.h"
#include "query/message_table_iterator.h"
#include "tabulo/reader.h"

namespace tabulo {

namespace api {

struct MessagesState {
    std::shared_ptr<ReaderState> reader;
    internal::MessageTableIteratorPtr iterator;  // goes before the reader
    const bool backward;
    const bool inverted;
    bool selectsAll = false;                                      // there is no condition to be asked
    std::int64_t first = 0;                                       // file offsets: messages in front of it are left out,
    std::int64_t end = std::numeric_limits<std::int64_t>::max();  // and those from it on
    WorkWatch watch;
    std::int64_t watchedFrom = 0;  // file offset at which the work begins

    internal::MessagePlace place;  // of the message that was looked at last
    MessageState message;
    MessageView view{&message};
    bool isCurrent = false;
    Ending ending = Ending::none;
    bool isLast = false;  // the current message is the last one
    bool isOver = false;  // told by the visitor: the walk is to end here
    std::optional<Error> damage;

    std::int64_t block = -1;    // the one at hand
    bool knowsOrdinal = false;  // of that block
    std::int64_t blockOrdinal = -1;
    std::int64_t blocksRead = 0;
    std::int64_t blocksSkipped = 0;
    std::int64_t messagesRead = 0;

    MessagesState(const QueryState& asked, Work work)
        : backward(asked.backward), inverted(asked.inverted), watch(std::move(work)) {}
};

namespace {

using State = MessagesState;

// What ends a walk on purpose; nobody sees it.
constexpr internal::ErrorCode WALK_OVER = internal::NO_DATA_ERROR;

internal::ErrorCode endWalk(State* state, Ending ending) {
    state->isOver = true;
    state->ending = ending;
    return WALK_OVER;
}

bool mayGoOn(State* state, std::int64_t offset) {
    const std::int64_t done = state->backward ? state->watchedFrom - offset : offset - state->watchedFrom;
    return state->watch.goOn(done, state->messagesRead);
}

// The walk has come to a block, which it has not seen before, or has left some unread.
void comeTo(State* state, std::int64_t block, std::int64_t count = 1) {
    if (!state->knowsOrdinal && state->message.blockOrdinal >= 0 && state->message.position.block == state->block) {
        state->knowsOrdinal = true;  // somebody has asked for it
        state->blockOrdinal = state->message.blockOrdinal;
    }
    state->block = block;
    state->blockOrdinal += state->backward ? -count : count;
}

internal::ErrorCode enterBlock(State* state, std::int64_t block) {
    comeTo(state, block);
    return mayGoOn(state, block) ? internal::NO_ERROR : endWalk(state, Ending::stopped);
}

// True when no message behind the one at this offset, in the walk's direction, is wanted. What stands there, damage
// included, does not concern the walk.
bool isLast(const State& state, std::int64_t offset) {
    return state.backward ? offset <= state.first : offset + state.iterator->current.frameLength >= state.end;
}

internal::ErrorCode onBlock(void* owner, const internal::BlockSummary& summary, internal::Visit* answer) {
    auto* state = static_cast<State*>(owner);
    const internal::MessageTableIterator& iterator = *state->iterator;
    const internal::Block& block = iterator.cursor.block;
    const internal::ErrorCode code = enterBlock(state, block.start);
    if (code != internal::NO_ERROR) {
        return code;
    }
    const bool isRead =
        state->inverted || internal::query_blockMayMatch(*iterator.conditions, summary, iterator.reader->layout);
    (isRead ? state->blocksRead : state->blocksSkipped) += 1;
    *answer = isRead ? internal::Visit::goOn : internal::Visit::skipBlock;
    return internal::NO_ERROR;
}

void onSkipped(void* owner, std::int64_t count) {
    constexpr std::int64_t NONE = -1;
    auto* state = static_cast<State*>(owner);
    comeTo(state, NONE, count);
    state->blocksSkipped += count;
}

internal::ErrorCode onMessage(void* owner, const internal::MessageView& message, internal::Visit* answer) {
    auto* state = static_cast<State*>(owner);
    const internal::MessageTableIterator& iterator = *state->iterator;
    state->place = internal::mtIterator_place(&iterator);
    const std::int64_t offset = state->place.frame.frame;
    if (iterator.cursor.block.start != state->block) {  // an open or a damaged one
        const internal::ErrorCode code = enterBlock(state, iterator.cursor.block.start);
        if (code != internal::NO_ERROR) {
            return code;
        }
        state->blocksRead += 1;
    }
    if (offset < state->first || offset >= state->end) {
        return isLast(*state, offset) ? endWalk(state, Ending::data) : internal::NO_ERROR;
    }
    state->messagesRead += 1;
    if (state->messagesRead % WorkWatch::messagesBetween == 0 && !mayGoOn(state, offset)) {
        return endWalk(state, Ending::stopped);
    }
    if (state->selectsAll || internal::query_messageMatches(*iterator.conditions, message) != state->inverted) {
        *answer = internal::Visit::stop;
        state->isLast = isLast(*state, offset);
        return internal::NO_ERROR;
    }
    return isLast(*state, offset) ? endWalk(state, Ending::data) : internal::NO_ERROR;
}

void showCurrent(State* state) {
    const internal::MessagePlace& place = state->place;
    MessageState& message = state->message;
    message.message = &state->iterator->current;
    message.frame = reinterpret_cast<const std::byte*>(place.bytes);
    message.position = {place.frame.block, place.frame.frame};
    message.indexInBlock = place.indexInBlock;
    message.blockOrdinal = state->knowsOrdinal ? state->blockOrdinal : -1;
    state->isCurrent = true;
}

bool isDamage(internal::ErrorCode code) {
    return code == internal::HEADER_CORRUPTED_ERROR || code == internal::CONSISTENCY_ERROR ||
           code == internal::NO_DATA_ERROR;
}

// The walk has failed. Damage stays damage; other failures may pass.
[[noreturn]] void failWalk(State* state, const Call& call, internal::ErrorCode code, std::int64_t offset) {
    try {
        call.fail(code, offset);
    } catch (const Error& error) {
        if (isDamage(code)) {
            state->damage = error;
        }
        throw;
    }
}

// Where the walk stands.
std::int64_t offsetOf(const internal::MessageTableIterator& iterator) {
    switch (iterator.place) {
        case internal::IteratorPlace::inBlock:
            return iterator.frames.position;
        case internal::IteratorPlace::done:
            return iterator.endOffset;
        default:
            return iterator.cursor.block.start;
    }
}

// All that was wanted has been given. A walk backward tells what it has met behind the table's last message.
void finish(State* state, const Call& call) {
    if (state->ending == Ending::data && state->iterator->endCode != internal::NO_ERROR) {
        failWalk(state, call, state->iterator->endCode, state->iterator->endOffset);
    }
}

// One step of the walk. True when a message has become current.
bool step(State* state) {
    const bool mayStep = !state->isLast && !state->watch.isStopped();
    bool end = true;
    internal::ErrorCode code =
        mayStep ? internal::mtIterator_nextLoaded(state->iterator.get(), &end) : internal::NO_ERROR;
    if (code == internal::NO_ERROR && !end) {
        return true;  // nothing was called that has anything to say: most messages are spared the Call
    }
    const Call call(state->reader->path);
    if (!mayStep) {
        (void)endWalk(state, state->isLast ? Ending::data : Ending::stopped);  // there is no walk to end by its code
        finish(state, call);
        return false;
    }
    if (code == internal::NO_ERROR) {
        code = internal::mtIterator_next(state->iterator.get(), &end);
    }
    state->watch.rethrow();
    if (state->isOver) {
        finish(state, call);
        return false;
    }
    if (code != internal::NO_ERROR) {
        failWalk(state, call, code, offsetOf(*state->iterator));
    }
    if (end) {
        const internal::IteratorPlace place = state->iterator->place;
        const bool isGone = place == internal::IteratorPlace::gone;
        state->ending = isGone ? Ending::dropped : Ending::data;
        state->isOver = isGone || place == internal::IteratorPlace::done;
    }
    return !end;
}

std::int64_t countBlocks(void* owner, std::int64_t block) {
    const auto* reader = static_cast<const ReaderState*>(owner);
    return reader_blocksBefore(Call(reader->path), *reader, block);
}

// The first place of what the walk covers, and the one behind it.
std::pair<internal::FramePlace, internal::FramePlace> boundWalk(const Call& call, State* state,
                                                                const QueryState& query) {
    ReaderState& reader = *state->reader;
    const Position first = query.from.value_or(reader_begin(reader));
    if (query.from.has_value()) {
        reader_checkPlace(call, reader, first);
    }
    if (query.before.has_value()) {
        reader_checkPlace(call, reader, *query.before);
        state->end = query.before->offset;
    }
    std::int64_t size = 0;
    call.check(internal::tableFileGetSize(openTable_file(reader.open.get()), &size));
    const std::int64_t end = std::min(size, state->end);
    state->first = query.from.has_value() ? first.offset : 0;
    state->watchedFrom = state->backward ? end : first.offset;
    state->watch.begin(std::max<std::int64_t>(0, end - first.offset));
    if (!state->backward) {
        // A block beyond the file follows a full one whose footer is not there yet: that one is waited at.
        const std::int64_t block = first.block <= size ? first.block : internal::mt_openBlockStart(reader.open.get());
        return {{block, first.offset}, {0, state->end}};
    }
    // What is wrong with the open block is told behind its messages.
    const internal::ErrorCode code = internal::mt_refresh(reader.open.get());
    if (code != internal::CONSISTENCY_ERROR) {
        call.check(code);
    }
    const std::int64_t last = internal::mt_openBlockStart(reader.open.get());
    const std::int64_t block = query.before.has_value() ? std::min(query.before->block, last) : last;
    return {{first.block, first.offset}, {block, state->end}};
}

}  // namespace

Messages reader_messages(const std::shared_ptr<ReaderState>& reader, const Query& query, Work work) {
    const Call call(reader->path);
    const QueryState& asked = query.state();
    if (reader->index != nullptr) {
        tableIndex_update(call, reader->index.get(), reader->open.get(), FOLLOWED_BLOCKS, {});
    }
    auto state = std::make_unique<MessagesState>(asked, std::move(work));
    state->reader = reader;
    internal::QueryConditionsPtr conditions = query_build(asked, *reader->table);
    state->selectsAll = !state->inverted && internal::query_isEmpty(*conditions);
    const auto [first, end] = boundWalk(call, state.get(), asked);
    state->knowsOrdinal = !state->backward && first.block == reader_begin(*reader).block;
    state->message.table = reader->table;
    state->message.counter = {countBlocks, reader};
    state->iterator.reset(internal::mtIterator_openAt(reader->open.get(), conditions.release(),
                                                      {state.get(), onBlock, onMessage, onSkipped}, first, end));
    if (state->iterator == nullptr) {
        call.fail(internal::OUT_OF_MEMORY_ERROR);
    }
    return Messages(std::move(state));
}

}  // namespace api

Messages Reader::messages(const Query& query, Work work) {
    api::use(state_, "the reader");
    return api::reader_messages(state_, query, std::move(work));
}

Messages::Messages(std::unique_ptr<api::MessagesState> state) noexcept : state_(std::move(state)) {
}
Messages::Messages(Messages&&) noexcept = default;
Messages& Messages::operator=(Messages&&) noexcept = default;
Messages::~Messages() = default;

const MessageView* Messages::next() {
    api::MessagesState& state = api::use(state_, "the messages");
    state.isCurrent = false;
    if (state.damage.has_value()) {
        throw Error(*state.damage);
    }
    if (!state.isOver) {
        state.ending = Ending::none;
        if (api::step(&state)) {
            api::showCurrent(&state);
        }
    }
    return current();
}

const MessageView* Messages::current() const noexcept {
    return state_ != nullptr && state_->isCurrent ? &state_->view : nullptr;
}

Messages::Iterator Messages::begin() {
    if (!api::use(state_, "the messages").isCurrent) {
        next();
    }
    return Iterator(this);
}

Ending Messages::ending() const noexcept {
    return state_ == nullptr ? Ending::none : state_->ending;
}

std::int64_t Messages::blocksRead() const noexcept {
    return state_ == nullptr ? 0 : state_->blocksRead;
}

std::int64_t Messages::blocksSkipped() const noexcept {
    return state_ == nullptr ? 0 : state_->blocksSkipped;
}

std::int64_t Messages::messagesRead() const noexcept {
    return state_ == nullptr ? 0 : state_->messagesRead;
}

}  // namespace tabulo
