// The platform seam for changes of files: what the waiting for them (file_changes.h) asks of the operating system.
//
// One source per platform fills the record; one without such reports refuses openQueue. All operations but `now` return
// 0 or the system's error number; interrupted calls (EINTR) are the caller's to repeat. Tests install a record of their
// own to refuse calls, or to see which are made.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "core/system_error.h"

namespace tabulo::internal {

inline constexpr int UNKNOWN_WATCH = -1;

struct ChangePlatform {
    // Makes a queue for reports of changes; its descriptor does not outlive an exec.
    SystemError (*openQueue)(int* queue);
    // From now on writes to the file of a descriptor, and cuts of it, are reported to the queue, whatever becomes of
    // its name and of the descriptor; reading is not. A file that is watched already keeps its watch's number. Refused
    // for a file system whose files other machines may change.
    SystemError (*watch)(int queue, int descriptor, int* watch);
    // Refused for a watch that has ended with its file.
    SystemError (*unwatch)(int queue, int watch);
    // Takes reports from the queue, as many as `watches` has room for: the watches' numbers, one for each report, in
    // the order of the changes. UNKNOWN_WATCH stands for reports that the queue had no room for. Fewer than there is
    // room for are all there were.
    SystemError (*take)(int queue, std::span<int> watches, std::size_t* count);
    // Makes what another thread ends a wait with; its descriptor does not outlive an exec.
    SystemError (*openWaker)(int* waker);
    // Ends the wait under way, and the later ones until it is calmed.
    SystemError (*wake)(int waker);
    SystemError (*calm)(int waker);
    // Waits until the queue (-1 for none) holds a change or the waker was woken, at most so many nanoseconds, and sets
    // both to whether it is so.
    SystemError (*wait)(int queue, int waker, std::int64_t nanoseconds, bool* isChanged, bool* isWoken);
    // Of a queue or a waker. A queue's watches end with its last descriptor.
    SystemError (*close)(int descriptor);
    // Nanoseconds of a clock that only goes forward.
    std::int64_t (*now)();
};

// The record in use.
const ChangePlatform& changePlatform() noexcept;
// Installs another record, which must stay alive; null brings the system's own back. No caller of ours: it is for
// tests.
void changePlatform_install(const ChangePlatform* platform) noexcept;
// The record of the operating system.
const ChangePlatform& changePlatform_system() noexcept;

}  // namespace tabulo::internal
