#include "tabulo/follower.h"

#include <algorithm>
#include <atomic>
#include <deque>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "api/call.h"
#include "api/followed_table.h"
#include "storage/file_changes.h"

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
    internal::FileChanges changes;
    bool isWatching = false;     // `changes` is open: since the first wait
    Clock::time_point nextLook;  // all tables were seen empty, and need no look before, unless one changes
};

namespace {

using State = FollowerState;

// Between two looks at tables that have nothing new: where the system reports changes, to see what it does not report,
// another file at a table's path; and where it does not.
constexpr std::chrono::milliseconds LONG_PAUSE(500);
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
    (void)internal::fileChanges_take(&state->changes, nullptr, [](void*, int) {});  // it looks at all of them
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
    internal::fileChanges_found(&state->changes);
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
    state->nextLook = {};
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
            state->nextLook = Clock::now() + LONG_PAUSE;
            return std::nullopt;
        }
        lookRound(state);
    }
}

enum class Reports { none, fresh, all };

// Watches what is not watched yet. Fresh: a table that may have changed before it was.
Reports watchTables(State* state) {
    const Call call;
    const std::lock_guard lock(state->mutex);
    if (!state->isWatching) {
        state->isWatching = true;
        internal::fileChanges_open(&state->changes, "Follower::next");
    }
    Reports reports = internal::fileChanges_areReported(&state->changes) ? Reports::all : Reports::none;
    bool isFresh = false;
    for (const auto& table : state->tables) {
        if (table->isOut) {
            internal::fileChanges_unwatch(&state->changes, std::exchange(table->watch, internal::NO_FILE_WATCH));
            continue;
        }
        isFresh = followedTable_watch(table.get(), &state->changes) || isFresh;
        reports = followedTable_isReported(*table) ? reports : Reports::none;
    }
    return isFresh ? Reports::fresh : reports;
}

// Waits until it is time for another look, at most until the deadline. False when that is over.
bool pause(State* state, Clock::time_point deadline) {
    if (Clock::now() >= deadline) {
        return false;
    }
    const Reports reports = watchTables(state);
    if (reports == Reports::fresh) {
        state->nextLook = {};
        return true;
    }
    const auto now = Clock::now();
    const auto end = reports == Reports::all ? state->nextLook : now + PAUSE;
    const std::chrono::nanoseconds rest = std::min(deadline, end) - now;
    const internal::WaitEnd reason =
        internal::fileChanges_wait(&state->changes, std::max<std::int64_t>(rest.count(), 0));
    if (reports == Reports::none || reason != internal::WaitEnd::over) {
        state->nextLook = {};
    }
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
    internal::fileChanges_wake(&state.changes);
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
        const bool isDue = timeout.count() <= 0 || api::Clock::now() >= state.nextLook;
        if (const std::optional<FollowEvent> event = isDue ? api::look(&state) : std::nullopt) {
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
        state_->isStopped = true;
        internal::fileChanges_wake(&state_->changes);
    }
}

}  // namespace tabulo
