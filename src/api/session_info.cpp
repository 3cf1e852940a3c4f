#include "tabulo/session_info.h"

#include <algorithm>
#include <array>
#include <new>
#include <optional>
#include <utility>

#include "api/call.h"
#include "api/layout.h"
#include "api/stored_header.h"
#include "core/handle.h"
#include "sessioninfo/session_info_table.h"

namespace tabulo {

namespace api {

struct SessionInfoState {
    std::filesystem::path path;
    std::string name;
    std::vector<std::int32_t> tags;    // in the file's order
    std::vector<std::int64_t> values;  // of `tags`
    bool writable = false;
    internal::Handle<internal::SessionInfoTable, internal::si_destroy> table;
};

namespace {

using State = SessionInfoState;

constexpr int MOST_READS = 1000;

internal::SessionInfoTags checkedTags(std::span<const std::int32_t> tags) {
    if (tags.empty() || tags.size() > static_cast<std::size_t>(internal::MAX_SESSION_INFO_TAGS)) {
        refuse("a session info table has 1 to 32 tags, not " + std::to_string(tags.size()));
    }
    for (auto tag = tags.begin(); tag != tags.end(); ++tag) {
        if (std::find(tags.begin(), tag, *tag) != tag) {
            refuse("the tag " + std::to_string(*tag) + " is given twice");
        }
    }
    internal::SessionInfoTags checked;
    checked.tags.fill(0);
    checked.count = static_cast<std::int32_t>(tags.size());
    std::copy(tags.begin(), tags.end(), checked.tags.begin());
    return checked;
}

// The values of all tags as the table holds them, or as its file does when it is open for reading.
void load(const Call& call, State& state, std::vector<std::int64_t>* values) {
    call.check(internal::si_read(state.table.get(), static_cast<std::int32_t>(state.tags.size()), state.tags.data(),
                                 values->data()));
}

// A writer may replace the values while they are read: two answers that are the same are of one moment.
void refreshValues(const Call& call, State& state) {
    std::vector<std::int64_t> before(state.tags.size());
    std::vector<std::int64_t> values(state.tags.size());
    load(call, state, &before);
    for (int i = 0; i < MOST_READS; ++i) {
        load(call, state, &values);
        if (values == before || state.writable) {
            state.values = std::move(values);
            return;
        }
        before.swap(values);
    }
    call.fail(internal::FILE_READ_ERROR, std::nullopt, "the values are being replaced all the time");
}

std::unique_ptr<State> openTable(const Call& call, const std::filesystem::path& path, const std::string& checked,
                                 const internal::SessionInfoTags& tags, internal::OpenMode mode,
                                 internal::FilePresence presence) {
    internal::TableConfigPtr config = config_create(checked, presence);
    config->sessionInfoTags = tags;
    auto state = std::make_unique<State>();
    state->path = path;
    state->name = config->tableName;
    state->writable = mode != internal::OpenMode::read;
    state->table.reset(internal::si_create(config.release()));
    if (state->table == nullptr) {
        call.fail(internal::OUT_OF_MEMORY_ERROR);
    }
    call.check(internal::si_init(state->table.get(), mode));
    const internal::SessionInfoTable& table = *state->table;
    state->tags.assign(table.tags.begin(), table.tags.begin() + table.fieldCount);
    refreshValues(call, *state);
    return state;
}

std::unique_ptr<State> openAsStored(const std::filesystem::path& path, internal::OpenMode mode) {
    const std::string checked = checkedPath(path);
    const Call call(path);
    const StoredHeader header = storedHeader_read(call, checked, TableKind::sessionInfo);
    return openTable(call, path, checked, header.tags, mode, internal::FilePresence::existing);
}

std::optional<std::size_t> slotOf(const State& state, std::int32_t tag) {
    const auto found = std::find(state.tags.begin(), state.tags.end(), tag);
    return found == state.tags.end() ? std::nullopt
                                     : std::optional(static_cast<std::size_t>(found - state.tags.begin()));
}

std::int64_t valueOf(const State& state, std::int32_t tag) {
    const std::optional<std::size_t> slot = slotOf(state, tag);
    if (!slot.has_value()) {
        Call(state.path).fail(internal::NO_DATA_ERROR, std::nullopt, "the table has no tag " + std::to_string(tag));
    }
    return state.values[*slot];
}

void checkWritable(const Call& call, const State& state) {
    if (!state.writable) {
        call.fail(internal::READ_ONLY_ERROR);
    }
}

State& opened(const std::unique_ptr<State>& state) {
    return use(state, "the session info table");
}

}  // namespace

}  // namespace api

SessionInfo::SessionInfo(std::unique_ptr<api::SessionInfoState> state) noexcept : state_(std::move(state)) {
}
SessionInfo::SessionInfo(SessionInfo&&) noexcept = default;
SessionInfo& SessionInfo::operator=(SessionInfo&&) noexcept = default;
SessionInfo::~SessionInfo() = default;

SessionInfo SessionInfo::create(const std::filesystem::path& path, std::span<const std::int32_t> tags) {
    const std::string checked = api::checkedPath(path);
    const internal::SessionInfoTags checkedTags = api::checkedTags(tags);
    const api::Call call(path);
    return SessionInfo(
        api::openTable(call, path, checked, checkedTags, internal::OpenMode::write, internal::FilePresence::missing));
}

SessionInfo SessionInfo::open(const std::filesystem::path& path) {
    return SessionInfo(api::openAsStored(path, internal::OpenMode::read));
}

SessionInfo SessionInfo::openForWriting(const std::filesystem::path& path) {
    return SessionInfo(api::openAsStored(path, internal::OpenMode::write));
}

SessionInfo SessionInfo::openOrCreate(const std::filesystem::path& path, std::span<const std::int32_t> tags) {
    const std::string checked = api::checkedPath(path);
    const internal::SessionInfoTags checkedTags = api::checkedTags(tags);
    const api::Call call(path);
    return SessionInfo(
        api::openTable(call, path, checked, checkedTags, internal::OpenMode::write, internal::FilePresence::any));
}

const std::filesystem::path& SessionInfo::path() const {
    return api::opened(state_).path;
}

const std::string& SessionInfo::table() const {
    return api::opened(state_).name;
}

const std::vector<std::int32_t>& SessionInfo::tags() const {
    return api::opened(state_).tags;
}

bool SessionInfo::isWritable() const {
    return api::opened(state_).writable;
}

std::int64_t SessionInfo::read(std::int32_t tag) const {
    return api::valueOf(api::opened(state_), tag);
}

std::vector<std::int64_t> SessionInfo::read(std::span<const std::int32_t> tags) const {
    const api::SessionInfoState& state = api::opened(state_);
    std::vector<std::int64_t> values;
    values.reserve(tags.size());
    for (const std::int32_t tag : tags) {
        values.push_back(api::valueOf(state, tag));
    }
    return values;
}

std::vector<SessionValue> SessionInfo::values() const {
    const api::SessionInfoState& state = api::opened(state_);
    std::vector<SessionValue> values;
    for (std::size_t i = 0; i < state.tags.size(); ++i) {
        values.push_back({state.tags[i], state.values[i]});
    }
    return values;
}

void SessionInfo::refresh() {
    api::SessionInfoState& state = api::opened(state_);
    if (!state.writable) {
        const api::Call call(state.path);
        api::refreshValues(call, state);
    }
}

void SessionInfo::write(std::int32_t tag, std::int64_t value) {
    const SessionValue one{tag, value};
    write(std::span(&one, 1));
}

void SessionInfo::write(std::span<const SessionValue> values) {
    api::SessionInfoState& state = api::opened(state_);
    const api::Call call(state.path);
    api::checkWritable(call, state);
    std::vector<std::int64_t> changed = state.values;
    std::vector<bool> isGiven(state.tags.size());
    for (const SessionValue& value : values) {
        const std::optional<std::size_t> slot = api::slotOf(state, value.tag);
        if (!slot.has_value()) {
            call.fail(internal::WRONG_PARAMETER_ERROR, std::nullopt,
                      "the table has no tag " + std::to_string(value.tag));
        }
        changed[*slot] = value.value;
        isGiven[*slot] = true;
    }
    // Each tag once: there may be more values than the table's operation can count.
    std::vector<std::int32_t> tags;
    std::vector<std::int64_t> given;
    for (std::size_t i = 0; i < isGiven.size(); ++i) {
        if (isGiven[i]) {
            tags.push_back(state.tags[i]);
            given.push_back(changed[i]);
        }
    }
    state.values.swap(changed);
    call.check(
        internal::si_write(state.table.get(), static_cast<std::int32_t>(tags.size()), tags.data(), given.data()));
}

void SessionInfo::drop() {
    api::SessionInfoState& state = api::opened(state_);
    const api::Call call(state.path);
    api::checkWritable(call, state);
    state.values.assign(state.values.size(), 0);
    call.check(internal::si_drop(state.table.get()));
}

void SessionInfo::close() {
    if (state_ == nullptr) {
        return;
    }
    const std::unique_ptr<api::SessionInfoState> closing = std::move(state_);
    const api::Call call(closing->path);
    call.check(internal::si_uninit(closing->table.get()));
}

}  // namespace tabulo
