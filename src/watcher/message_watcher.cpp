#include "watcher/message_watcher.h"

#include <algorithm>
#include <deque>
#include <limits>
#include <mutex>
#include <new>
#include <optional>

#include "core/log.h"
#include "storage/change_platform.h"
#include "storage/file_changes.h"

namespace tabulo::internal {

// What a watch and a request to end it share.
struct WatcherState {
    enum class Phase { idle, running, stopping };

    std::mutex access;
    Phase phase = Phase::idle;  // guarded by `access`
    FileChanges changes;        // of the files that are watched
};

namespace {

using Phase = WatcherState::Phase;

// Goes from one phase to another; false, and nothing changes, from any other.
bool advance(WatcherState* state, Phase from, Phase to) {
    const std::lock_guard lock(state->access);
    if (state->phase != from) {
        return false;
    }
    state->phase = to;
    return true;
}

bool isStopping(WatcherState* state) {
    const std::lock_guard lock(state->access);
    return state->phase == Phase::stopping;
}

constexpr const char* START = "messageWatcher_startWatching";
constexpr std::int32_t NO_ID = -1;
constexpr std::int32_t FIRST_ID = 1;  // what the starting id -1 stands for
constexpr std::int32_t PASSES_WITHOUT_PAUSE = 10;
constexpr std::int64_t NANOSECONDS_IN_A_MILLISECOND = 1000000;

// One run of a watcher.
struct Watch {
    MessageWatcher* watcher = nullptr;
    const std::int32_t* startingIds = nullptr;
    const WatchListener* listener = nullptr;
    std::int32_t stop = 0;
    std::optional<std::int32_t> lastDelivered;  // forgotten at a gap
    std::int32_t lastThrough = NO_ID;           // for the line at the end
    // When the pause ends that a change has interrupted, on the clock of the changes.
    std::optional<std::int64_t> pauseEnd;
    bool looksAtAll = true;  // the next pass, and not only at what has changed since it was seen empty
};

const TableFile* fileOf(const TableReader& reader) {
    return tableStorage_master(mt_storage(reader.table));
}

// Notes which tables may have something new, before a pass looks at them.
void takeChanges(Watch* watch) {
    MessageWatcher* watcher = watch->watcher;
    // In a backlog every file is looked at, and there is no wait that a change could end.
    if (watcher->idlePasses == 0 && std::all_of(watcher->readers.begin(), watcher->readers.end(),
                                                [](const auto& reader) { return reader->mayHaveMore; })) {
        return;
    }
    const bool areKnown = fileChanges_take(&watcher->state->changes, watcher, [](void* owner, int changed) {
        const auto& byWatch = static_cast<MessageWatcher*>(owner)->byWatch;
        const auto [first, last] = byWatch.equal_range(changed);
        std::for_each(first, last, [](const auto& entry) { entry.second->mayHaveMore = true; });
    });
    for (const auto& reader : watcher->readers) {
        const bool isUnwatched = reader->watch == NO_FILE_WATCH || fileOf(*reader) == nullptr;
        reader->mayHaveMore = reader->mayHaveMore || watch->looksAtAll || !areKnown || isUnwatched;
    }
    watch->looksAtAll = false;
}

std::int32_t effectiveId(std::int32_t startingId) {
    return startingId == NO_ID ? FIRST_ID : startingId;
}

void logStart(std::int32_t count, const std::int32_t* ids) {
    log_debug(START, "Watcher started from uniformIds = [ ");
    log_warningWrite("Tabulo/C: Watcher started from uniformIds = [ ");
    for (std::int32_t i = 0; i < count; ++i) {
        log_write("%d ", ids[i]);
        log_warningWrite("%d ", ids[i]);
    }
    log_write("]\n");
    log_warningWrite("]\n");
}

void logEnd(const Watch& watch, ErrorCode code) {
    if (code == NO_ERROR) {
        log_warningWrite("Tabulo/C: Watcher asked to stop. Last sent uniformId = %d\n", watch.lastThrough);
    } else {
        log_warningWrite("Tabulo/C: Watcher stopped due to error %d. Last sent uniformId = %d\n", code,
                         watch.lastThrough);
    }
}

// The reader with the smallest next uniform id, or null when none has a message.
ErrorCode findNextUniformId(MessageWatcher* watcher, TableReader** found) {
    log_debug("findNextUniformId", "looking for nextUniformId...\n");
    *found = nullptr;
    ErrorCode code = NO_ERROR;
    for (const auto& reader : watcher->readers) {
        if (!reader->mayHaveMore) {
            continue;
        }
        code = tableReader_peek(reader.get());
        if (code == NO_DATA_ERROR) {
            code = NO_ERROR;
            reader->mayHaveMore = false;
            continue;
        }
        if (code != NO_ERROR) {
            *found = nullptr;
            break;
        }
        if (*found == nullptr || reader->message.metadata.uniformId < (*found)->message.metadata.uniformId) {
            *found = reader.get();
        }
    }
    log_debug("findNextUniformId", "found nextUniformId = %d at reader %d, error code = %d.\n",
              *found == nullptr ? NO_ID : (*found)->message.metadata.uniformId,
              *found == nullptr ? static_cast<std::int32_t>(watcher->readers.size()) : (*found)->index, code);
    return code;
}

// Points the message's fields at copies of their texts, which no refill moves.
ErrorCode copyTexts(MessageWatcher* watcher, DecodedMessage* message, std::int32_t fieldCount) {
    std::size_t size = 0;
    for (std::int32_t i = 0; i < fieldCount; ++i) {
        size += stringField_bytes(message->stringFields[static_cast<std::size_t>(i)]).size();
    }
    try {
        watcher->texts.resize(size);
    } catch (const std::bad_alloc&) {
        return OUT_OF_MEMORY_ERROR;
    }
    std::size_t offset = 0;
    for (std::int32_t i = 0; i < fieldCount; ++i) {
        StringField& field = message->stringFields[static_cast<std::size_t>(i)];
        const std::string_view bytes = stringField_bytes(field);
        if (!bytes.empty()) {
            bytes.copy(watcher->texts.data() + offset, bytes.size());
            field.text = watcher->texts.data() + offset;
            offset += bytes.size();
        }
    }
    return NO_ERROR;
}

// Before a failure ends the watch: what comes of this call changes nothing.
void handOnGathered(const Watch& watch) {
    std::int32_t ignored = 0;
    (void)watch.listener->onIdle(watch.listener->owner, &ignored);  // the failure before it is what ends the watch
}

// Delivers the reader's message, unless its id opens a gap: then that is logged, and the next pass delivers it.
ErrorCode deliver(Watch* watch, TableReader* reader) {
    const std::int32_t id = reader->message.metadata.uniformId;
    if (watch->lastDelivered.has_value() && std::int64_t{id} != std::int64_t{*watch->lastDelivered} + 1) {
        log_debug(START, "uniform id gap occured: prevUniformId = %d, nextUniformId = %d\n", *watch->lastDelivered, id);
        watch->lastDelivered.reset();
        watch->looksAtAll = true;
        return NO_ERROR;
    }
    watch->lastDelivered = id;
    watch->lastThrough = id;
    watch->watcher->idlePasses = 0;
    watch->pauseEnd.reset();
    fileChanges_found(&watch->watcher->state->changes);
    log_debug(START, "uniformId = %d, reader src = %d.\n", id, reader->index);
    const MessageTableLayout& layout = mt_layout(reader->table);
    DecodedMessage message = reader->message;
    ErrorCode code = copyTexts(watch->watcher, &message, layout.stringFieldCount);
    if (code != NO_ERROR) {
        handOnGathered(*watch);
        return code;
    }
    tableReader_consume(reader);
    if (id >= effectiveId(watch->startingIds[reader->index])) {
        code = watch->listener->onMessage(watch->listener->owner, message_view(message, layout), reader->index,
                                          &watch->stop);
    }
    return code;
}

// Waits until the pause is over, a file that is followed changes, or the watch is asked to stop.
void waitForPauseEnd(Watch* watch) {
    const std::int64_t rest = *watch->pauseEnd - changePlatform().now();
    if (rest <= 0 || fileChanges_wait(&watch->watcher->state->changes, rest) == WaitEnd::over) {
        watch->pauseEnd.reset();
        watch->looksAtAll = true;  // whatever is reported
    }
}

// The pause behind a pass that found nothing. A pass that a change has brought is none of those that are counted, and
// what is left of its pause follows: so the pauses end when they would have ended without it.
void pause(Watch* watch) {
    MessageWatcher* watcher = watch->watcher;
    if (watch->pauseEnd.has_value()) {
        waitForPauseEnd(watch);
        return;
    }
    if (watcher->idlePasses < std::numeric_limits<std::int32_t>::max()) {
        watcher->idlePasses += 1;
    }
    const std::int64_t milliseconds = messageWatcher_pauseAfter(watcher->idlePasses);
    if (milliseconds > 0 && watcher->pause != nullptr) {
        watcher->pause(milliseconds);
    } else if (milliseconds > 0) {
        watch->pauseEnd = changePlatform().now() + milliseconds * NANOSECONDS_IN_A_MILLISECOND;
        waitForPauseEnd(watch);
    }
}

// A pass that found nothing.
ErrorCode idle(Watch* watch) {
    ErrorCode code = watch->listener->onIdle(watch->listener->owner, &watch->stop);
    code = code == NO_DATA_ERROR ? NO_ERROR : code;
    if (code == NO_ERROR && watch->stop == 0 && !isStopping(watch->watcher->state.get())) {
        pause(watch);
    }
    return code;
}

// Before the readers are positioned: what is stored from then on ends a pause.
void watchFiles(MessageWatcher* watcher) {
    watcher->byWatch.clear();
    if (watcher->pause != nullptr) {
        return;
    }
    FileChanges* changes = &watcher->state->changes;
    fileChanges_open(changes, START);
    for (const auto& reader : watcher->readers) {
        reader->watch = fileChanges_watch(changes, fileOf(*reader));
        watcher->byWatch.emplace(reader->watch, reader.get());
    }
}

ErrorCode positionReaders(Watch* watch) {
    for (const auto& reader : watch->watcher->readers) {
        const ErrorCode code = tableReader_position(reader.get(), effectiveId(watch->startingIds[reader->index]));
        if (code != NO_ERROR) {
            return code;
        }
    }
    return NO_ERROR;
}

ErrorCode run(Watch* watch) {
    ErrorCode code = NO_ERROR;
    while ((code == NO_ERROR || code == NO_DATA_ERROR) && watch->stop == 0) {
        takeChanges(watch);  // what changes from here on ends the wait behind this pass
        TableReader* reader = nullptr;
        code = findNextUniformId(watch->watcher, &reader);
        if (code != NO_ERROR) {
            handOnGathered(*watch);
            return code;
        }
        code = reader != nullptr ? deliver(watch, reader) : idle(watch);
        if (isStopping(watch->watcher->state.get())) {
            watch->stop = 1;
        }
    }
    return code;
}

// The watch with its beginning and its end. The listener may destroy tables and the watcher: their memory stays until
// then.
ErrorCode runAndLog(Watch* watch, std::int32_t count) {
    MessageWatcher* watcher = watch->watcher;
    watcher->idlePasses = 0;
    ErrorCode code = INDEX_OUT_OF_BOUNDS_ERROR;
    if (count >= static_cast<std::int32_t>(watcher->readers.size())) {
        try {
            std::deque<MessageTableUse> uses;
            for (const auto& reader : watcher->readers) {
                uses.emplace_back(reader->table);
            }
            watchFiles(watcher);
            code = positionReaders(watch);
            if (code == NO_ERROR) {
                code = run(watch);
            }
        } catch (const std::bad_alloc&) {
            code = OUT_OF_MEMORY_ERROR;
        }
    }
    if (watch->stop != 0 && code == NO_DATA_ERROR) {
        code = NO_ERROR;
    }
    logEnd(*watch, code);
    watcher->idlePasses = 0;
    fileChanges_close(&watcher->state->changes);
    return code;
}

}  // namespace

MessageWatcher* messageWatcher_create(MessageTable* const* tables, std::int32_t count) noexcept {
    if (count < 0 || (tables == nullptr && count > 0)) {
        return nullptr;
    }
    try {
        auto watcher = std::make_unique<MessageWatcher>();
        watcher->state = std::make_shared<WatcherState>();
        for (std::int32_t i = 0; i < count; ++i) {
            auto reader = std::make_unique<TableReader>();
            if (tables[i] == nullptr || tableReader_init(reader.get(), tables[i], i) != NO_ERROR) {
                return nullptr;
            }
            watcher->readers.push_back(std::move(reader));
        }
        return watcher.release();
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

void messageWatcher_destroy(MessageWatcher* watcher) noexcept {
    if (watcher == nullptr) {
        return;
    }
    const std::shared_ptr<WatcherState> state = watcher->state;  // the watch may be gone behind the next line
    if (advance(state.get(), Phase::running, Phase::stopping) || isStopping(state.get())) {
        fileChanges_wake(&state->changes);
        return;
    }
    delete watcher;
}

ErrorCode messageWatcher_startWatching(MessageWatcher* watcher, std::int32_t count, const std::int32_t* startingIds,
                                       const WatchListener& listener) noexcept {
    if (watcher == nullptr || listener.onMessage == nullptr || listener.onIdle == nullptr ||
        (startingIds == nullptr && count > 0)) {
        return NULL_POINTER_ERROR;
    }
    if (!advance(watcher->state.get(), Phase::idle, Phase::running)) {
        return WRONG_PARAMETER_ERROR;
    }
    logStart(count, startingIds);
    Watch watch;
    watch.watcher = watcher;
    watch.startingIds = startingIds;
    watch.listener = &listener;
    const ErrorCode code = runAndLog(&watch, count);
    const std::shared_ptr<WatcherState> state = watcher->state;
    if (!advance(state.get(), Phase::running, Phase::idle)) {
        delete watcher;  // it was asked to stop; an idle one is its owner's again
    }
    return code;
}

std::int64_t messageWatcher_pauseAfter(std::int32_t idlePasses) noexcept {
    return idlePasses <= PASSES_WITHOUT_PAUSE ? 0 : std::int64_t{idlePasses} * 20 + 50;
}

}  // namespace tabulo::internal
