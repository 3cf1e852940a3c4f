#include "adapters/quickfix/process_state.h"

#include <algorithm>
#include <atomic>
#include <limits>
#include <mutex>
#include <optional>
#include <tuple>

#include "adapters/quickfix/session_store.h"
#include "tabulo/error.h"
#include "tabulo/reader.h"
#include "tabulo/writer.h"

namespace tabulo::quickfix {

namespace {

struct Shared {
    std::mutex mutex;
    std::optional<SyncSetting> sync;
    std::atomic<std::int64_t> newestId{0};
};

Shared& shared() {
    static Shared state;
    return state;
}

std::int64_t newestIdIn(const std::filesystem::path& folder) {
    std::int64_t newest = 0;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        if (!entry.is_regular_file()) {
            continue;
        }
        try {
            // Not by inspect, which also asks the system who writes the table: that can take ten milliseconds.
            newest = std::max<std::int64_t>(newest, Reader(entry.path()).lastUniformId().value_or(0));
        } catch (const Error&) {
            continue;  // no table
        }
    }
    return newest;
}

SyncPolicy policyOf(const SyncSetting& sync) {
    if (sync.isAlways) {
        return SyncPolicy::always();
    }
    if (sync.messages > 0) {
        return SyncPolicy::after(sync.messages);
    }
    return sync.seconds > 0 ? SyncPolicy::every(std::chrono::seconds(sync.seconds)) : SyncPolicy::off();
}

auto fieldsOf(const SyncSetting& sync) {
    return std::tie(sync.isAlways, sync.messages, sync.seconds);
}

}  // namespace

void startUniformIdsAbove(const std::filesystem::path& folder) {
    std::atomic<std::int64_t>& next = shared().newestId;
    const std::int64_t newest = newestIdIn(folder);
    std::int64_t known = next;
    while (known < newest && !next.compare_exchange_weak(known, newest)) {
    }
}

std::int32_t nextUniformId() {
    const std::int64_t id = ++shared().newestId;
    if (id > std::numeric_limits<std::int32_t>::max()) {
        throw StoreFailure("all uniform ids are used up: move the tables to another folder and begin anew");
    }
    return static_cast<std::int32_t>(id);
}

void shareSync(const SyncSetting& sync) {
    Shared& state = shared();
    const std::scoped_lock lock(state.mutex);
    if (state.sync.has_value() && fieldsOf(*state.sync) != fieldsOf(sync)) {
        throw StoreFailure("TabuloSync holds for the whole process, and another session asks for something else");
    }
    if (!state.sync.has_value()) {
        setSyncPolicy(policyOf(sync));
        state.sync = sync;
    }
}

}  // namespace tabulo::quickfix
