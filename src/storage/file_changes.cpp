#include "storage/file_changes.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <limits>
#include <new>

#include "core/log.h"
#include "core/platform.h"
#include "storage/change_platform.h"
#include "storage/file_platform.h"

namespace tabulo::internal {

namespace {

// Longer ones could not be added to the time of the clock.
constexpr std::int64_t LONGEST_WAIT = std::numeric_limits<std::int64_t>::max() / 2;

constexpr std::size_t REPORTS = 256;
// Who writes without a rest must not keep a reader here.
constexpr int MOST_TAKES = 256;

template <typename Call>
SystemError repeat(Call call) {
    SystemError error = call();
    while (filePlatform_isInterrupted(error)) {
        error = call();
    }
    return error;
}

void tell(FileChanges* changes, const char* files, SystemError error) {
    if (!changes->isTold) {
        changes->isTold = true;
        log_note(changes->function,
                 "Changes of %s are not reported (%s): what is stored there is seen when a pause is over.\n", files,
                 filePlatform_errorText(error));
    }
}

// Closes both descriptors. Watches are not ended one by one: a child process must not end those of its parent.
void closeBoth(FileChanges* changes) {
    const std::lock_guard lock(changes->access);
    for (int* descriptor : {&changes->queue, &changes->waker}) {
        if (*descriptor >= 0) {
            (void)changePlatform().close(*descriptor);  // nothing was written to it that could be lost
            *descriptor = -1;
        }
    }
    changes->watches.clear();
}

void giveUp(FileChanges* changes, SystemError error) {
    closeBoth(changes);
    tell(changes, "files", error);
}

// The queue, or -1. A child process would take its parent's reports away.
int usableQueue(FileChanges* changes) {
    if (changes->queue >= 0 && changes->owner != platform_processId()) {
        closeBoth(changes);
    }
    return changes->queue;
}

// The wait where no changes are reported.
WaitEnd waitPlainly(FileChanges* changes, std::int64_t nanoseconds) {
    std::unique_lock lock(changes->access);
    const bool isWoken = changes->woken.wait_for(lock, std::chrono::nanoseconds(std::min(nanoseconds, LONGEST_WAIT)),
                                                 [changes] { return changes->isWoken; });
    changes->isWoken = false;
    return isWoken ? WaitEnd::woken : WaitEnd::over;
}

// One wait of the platform, again for as long as it is interrupted.
SystemError waitOnce(FileChanges* changes, std::int64_t end, bool forChanges, WaitEnd* reason) {
    const ChangePlatform& platform = changePlatform();
    *reason = WaitEnd::over;
    bool isChanged = false;
    bool isWoken = false;
    while (!isChanged && !isWoken) {
        const std::int64_t rest = end - platform.now();
        if (rest <= 0) {
            return {};
        }
        const SystemError error =
            platform.wait(forChanges ? changes->queue : -1, changes->waker, rest, &isChanged, &isWoken);
        if (error.failed() && !filePlatform_isInterrupted(error)) {
            return error;
        }
    }
    if (!isWoken) {
        *reason = WaitEnd::changed;
        return {};
    }
    *reason = WaitEnd::woken;
    const std::lock_guard lock(changes->access);
    changes->isWoken = false;
    return repeat([&] { return platform.calm(changes->waker); });
}

}  // namespace

FileChanges::~FileChanges() {
    fileChanges_close(this);
}

void fileChanges_open(FileChanges* changes, const char* function) noexcept {
    fileChanges_close(changes);
    changes->function = function;
    changes->isTold = false;
    const ChangePlatform& platform = changePlatform();
    int queue = -1;
    int waker = -1;
    SystemError error = repeat([&] { return platform.openQueue(&queue); });
    if (!error.failed()) {
        error = repeat([&] { return platform.openWaker(&waker); });
    }
    {
        const std::lock_guard lock(changes->access);
        changes->queue = queue;
        changes->waker = waker;
        changes->owner = platform_processId();
        if (changes->isWoken && waker >= 0) {  // before there was a waker
            (void)repeat([&] { return platform.wake(waker); });
        }
    }
    if (error.failed()) {
        giveUp(changes, error);
    }
}

void fileChanges_close(FileChanges* changes) noexcept {
    closeBoth(changes);
    changes->earliestEnd = 0;
}

int fileChanges_watch(FileChanges* changes, const TableFile* file) noexcept {
    const int queue = usableQueue(changes);
    if (queue < 0 || file == nullptr) {
        return NO_FILE_WATCH;
    }
    int watch = NO_FILE_WATCH;
    const SystemError error = repeat([&] { return changePlatform().watch(queue, file->stream.descriptor, &watch); });
    if (error.failed()) {
        tell(changes, file->path.c_str(), error);
        return NO_FILE_WATCH;
    }
    try {
        changes->watches[watch] += 1;
    } catch (const std::bad_alloc&) {
        return NO_FILE_WATCH;  // a watch that the system keeps ends waits for nothing at worst
    }
    return watch;
}

void fileChanges_unwatch(FileChanges* changes, int watch) noexcept {
    const int queue = usableQueue(changes);
    const auto found = changes->watches.find(watch);
    if (queue < 0 || found == changes->watches.end() || --found->second > 0) {
        return;
    }
    changes->watches.erase(found);
    (void)repeat([&] { return changePlatform().unwatch(queue, watch); });  // it may have ended with its file
}

bool fileChanges_areReported(FileChanges* changes) noexcept {
    return usableQueue(changes) >= 0;
}

bool fileChanges_take(FileChanges* changes, void* owner, void (*changed)(void* owner, int watch)) noexcept {
    const int queue = usableQueue(changes);
    bool isKnown = queue >= 0;
    std::array<int, REPORTS> watches;
    std::size_t count = watches.size();
    for (int take = 0; queue >= 0 && count == watches.size(); ++take) {
        if (take == MOST_TAKES) {
            return false;
        }
        const SystemError error = repeat([&] { return changePlatform().take(queue, watches, &count); });
        if (error.failed()) {
            giveUp(changes, error);
            return false;
        }
        for (std::size_t i = 0; i < count; ++i) {
            isKnown = isKnown && watches[i] != UNKNOWN_WATCH;
            changed(owner, watches[i]);
        }
    }
    return isKnown;
}

WaitEnd fileChanges_wait(FileChanges* changes, std::int64_t nanoseconds) noexcept {
    if (usableQueue(changes) < 0) {
        return waitPlainly(changes, nanoseconds);
    }
    const std::int64_t end = changePlatform().now() + std::min(nanoseconds, LONGEST_WAIT);
    WaitEnd reason = WaitEnd::over;
    SystemError error = waitOnce(changes, std::min(end, changes->earliestEnd), false, &reason);
    if (!error.failed() && reason == WaitEnd::over) {
        error = waitOnce(changes, end, true, &reason);
    }
    if (error.failed()) {
        const std::int64_t rest = std::max<std::int64_t>(end - changePlatform().now(), 0);
        giveUp(changes, error);
        return reason == WaitEnd::over ? waitPlainly(changes, rest) : reason;
    }
    if (reason == WaitEnd::changed) {
        changes->earliestEnd = changePlatform().now() + EARLY_ENDS_APART;
    }
    return reason;
}

void fileChanges_found(FileChanges* changes) noexcept {
    changes->earliestEnd = 0;
}

void fileChanges_wake(FileChanges* changes) noexcept {
    const std::lock_guard lock(changes->access);
    changes->isWoken = true;
    changes->woken.notify_all();
    if (changes->waker >= 0 && changes->owner == platform_processId()) {
        (void)repeat([&] { return changePlatform().wake(changes->waker); });  // a full waker is awake
    }
}

}  // namespace tabulo::internal
