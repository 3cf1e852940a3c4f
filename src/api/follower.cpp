#include "tabulo/follower.h"

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "api/call.h"
#include "api/followed_table.h"

namespace tabulo {

namespace api {

using Clock = std::chrono::steady_clock;

struct FollowerState {
    std::mutex mutex;  // of `tables`, which other threads may add to
    std::vector<std::unique_ptr<FollowedTable>> tables;
    std::deque<FollowEvent> events;
    FollowedTable* given = nullptr;             // whose message was given last, and is still lent
    std::optional<std::int64_t> lastUniformId;  // of the message that was given last
    std::atomic<bool> isStopped{false};
    std::mutex waitMutex;
    std::condition_variable stopped;
};

namespace {

using State = FollowerState;

// Between two looks at tables that have nothing new.
constexpr std::chrono::milliseconds PAUSE(1);
// A limit in time that is no limit; deadlines beyond it could not be counted.
constexpr std::chrono::hours NO_LIMIT(24 * 365 * 100);

FollowedTable& tableAt(const State& state, std::size_t index) {
    if (index >= state.tables.size()) {
        refuse(Code::indexOutOfBounds,
               "the table " + std::to_string(index) + " of " + std::to_string(state.tables.size()) + " was asked for");
    }
    return *state.tables[index];
}

// Does something with a table; one that fails is left out.
template <typename Operation>
void tryTable(FollowedTable* table, const Operation& operation) {
    try {
        operation(table);
    } catch (...) {
        table->isOut = true;
        table->pending = nullptr;
        throw;
    }
}

// One look at every table that has no message waiting.
void lookRound(State* state) {
    for (const auto& table : state->tables) {
        if (!table->isOut) {
            tryTable(table.get(), followedTable_measure);
        }
    }
    for (const auto& table : state->tables) {
        if (!table->isOut) {
            tryTable(table.get(), [&](FollowedTable* one) { followedTable_look(one, &state->events); });
        }
    }
}

// The table whose message is next; null when none has one.
FollowedTable* firstOf(const State& state) {
    FollowedTable* first = nullptr;
    for (const auto& table : state.tables) {
        const bool waits = !table->isOut && table->pending != nullptr;
        if (waits && (first == nullptr || table->pending->uniformId() < first->pending->uniformId())) {
            first = table.get();
        }
    }
    return first;
}

// True when no message with a smaller id can be in a table that was seen empty: the id follows the last one; every
// table has a message waiting; or this one was already there when the last look at all tables began.
bool mayGive(const State& state, const FollowedTable& table) {
    const MessageView& message = *table.pending;
    return (state.lastUniformId.has_value() && message.uniformId() == *state.lastUniformId + 1) ||
           message.position().offset < table.fileEnd ||
           std::all_of(state.tables.begin(), state.tables.end(),
                       [](const auto& other) { return other->isOut || other->pending != nullptr; });
}

FollowEvent give(State* state, FollowedTable* table) {
    state->given = table;
    state->lastUniformId = table->pending->uniformId();
    return {FollowEventKind::message, table->index, table->pending};
}

// The message that was lent last goes back, and its table shows the next one.
void takeBack(State* state) {
    FollowedTable* table = std::exchange(state->given, nullptr);
    if (table != nullptr) {
        followedTable_take(table);
    }
    if (table != nullptr && !table->isOut) {
        tryTable(table, [&](FollowedTable* one) { followedTable_look(one, &state->events); });
    }
    for (const auto& each : state->tables) {
        if (each->isOut) {
            followedTable_close(each.get());
        }
    }
}

std::optional<FollowEvent> look(State* state) {
    const std::lock_guard lock(state->mutex);
    takeBack(state);
    for (bool isFresh = false;; isFresh = true) {
        if (!state->events.empty()) {
            const FollowEvent event = state->events.front();
            state->events.pop_front();
            return event;
        }
        FollowedTable* first = firstOf(*state);
        if (first != nullptr && mayGive(*state, *first)) {
            return give(state, first);
        }
        if (first == nullptr && isFresh) {
            return std::nullopt;
        }
        lookRound(state);
    }
}

// Waits a little. False when the time is over.
bool pause(State* state, Clock::time_point deadline) {
    const auto now = Clock::now();
    if (now >= deadline) {
        return false;
    }
    std::unique_lock lock(state->waitMutex);
    state->stopped.wait_until(lock, std::min(deadline, now + PAUSE), [&] { return state->isStopped.load(); });
    return true;
}

}  // namespace

}  // namespace api

FollowFrom FollowFrom::beginning() noexcept {
    return {};
}

FollowFrom FollowFrom::end() noexcept {
    FollowFrom from;
    from.kind_ = Kind::end;
    return from;
}

FollowFrom FollowFrom::position(const Position& position) noexcept {
    FollowFrom from;
    from.kind_ = Kind::position;
    from.position_ = position;
    return from;
}

FollowFrom FollowFrom::uniformId(std::int32_t uniformId) noexcept {
    FollowFrom from;
    from.kind_ = Kind::uniformId;
    from.uniformId_ = uniformId;
    return from;
}

Follower::Follower() : state_(std::make_unique<api::FollowerState>()) {
}
Follower::Follower(Follower&&) noexcept = default;
Follower& Follower::operator=(Follower&&) noexcept = default;
Follower::~Follower() = default;

std::size_t Follower::add(const std::filesystem::path& path, const FollowFrom& from) {
    api::FollowerState& state = api::use(state_, "the follower");
    std::unique_ptr<api::FollowedTable> table = api::followedTable_open(path, from);
    const std::lock_guard lock(state.mutex);
    const std::size_t index = state.tables.size();
    table->index = index;
    table->shown->index = index;
    state.tables.push_back(std::move(table));
    return index;
}

void Follower::remove(std::size_t table) {
    api::FollowerState& state = api::use(state_, "the follower");
    const std::lock_guard lock(state.mutex);
    api::FollowedTable& removed = api::tableAt(state, table);
    removed.isOut = true;
    std::erase_if(state.events, [&](const FollowEvent& event) { return event.table == table; });
}

std::size_t Follower::tableCount() const {
    api::FollowerState& state = api::use(state_, "the follower");
    const std::lock_guard lock(state.mutex);
    return state.tables.size();
}

const std::filesystem::path& Follower::path(std::size_t table) const {
    api::FollowerState& state = api::use(state_, "the follower");
    const std::lock_guard lock(state.mutex);
    return api::tableAt(state, table).path;
}

const Layout& Follower::layout(std::size_t table) const {
    api::FollowerState& state = api::use(state_, "the follower");
    const std::lock_guard lock(state.mutex);
    return api::tableAt(state, table).shown->layout;
}

Position Follower::position(std::size_t table) const {
    api::FollowerState& state = api::use(state_, "the follower");
    const std::lock_guard lock(state.mutex);
    const api::FollowedTable& asked = api::tableAt(state, table);
    return state.given == &asked ? asked.pending->next() : asked.position;
}

FollowEvent Follower::next(std::chrono::milliseconds timeout) {
    api::FollowerState& state = api::use(state_, "the follower");
    const auto deadline =
        api::Clock::now() + std::clamp<std::chrono::milliseconds>(timeout, std::chrono::milliseconds(0), api::NO_LIMIT);
    do {
        if (state.isStopped) {
            return {FollowEventKind::stopped, 0, nullptr};
        }
        if (const std::optional<FollowEvent> event = api::look(&state)) {
            return *event;
        }
    } while (api::pause(&state, deadline));
    return {FollowEventKind::timedOut, 0, nullptr};
}

FollowEvent Follower::next() {
    return next(api::NO_LIMIT);
}

void Follower::stop() noexcept {
    if (state_ != nullptr) {
        const std::lock_guard lock(state_->waitMutex);
        state_->isStopped = true;
        state_->stopped.notify_all();
    }
}

}  // namespace tabulo
