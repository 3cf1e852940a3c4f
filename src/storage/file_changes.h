// Waiting for table files to change: a wait that ends early when one of them is written or cut, by whatever process, or
// when another thread asks for it.
//
// No change is lost when, in this order, a file is watched, fileChanges_take is called, the files are looked at, and
// then fileChanges_wait: whatever the look has not seen ends that wait, and is handed over by the next
// fileChanges_take. Both may also come for nothing: for what the look has seen already, or for half a message.
//
// Where changes are not reported, waits last their whole time unless another thread ends them: where the system has no
// such reports or refuses them, for a file of a network, and in a child process that has inherited the object. The
// first refusal is told with a NOTE. None of this fails.
//
// One thread at a time uses the object; fileChanges_wake may come from any thread.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <map>
#include <mutex>

#include "storage/table_file.h"

namespace tabulo::internal {

inline constexpr int NO_FILE_WATCH = -1;
// Ends for nothing lie at least so far apart, in nanoseconds.
inline constexpr std::int64_t EARLY_ENDS_APART = 1000000;

enum class WaitEnd { over, changed, woken };

struct FileChanges {
    FileChanges() = default;
    FileChanges(const FileChanges&) = delete;
    FileChanges& operator=(const FileChanges&) = delete;
    ~FileChanges();

    const char* function = "";     // names the NOTE
    bool isTold = false;           // the NOTE
    std::map<int, int> watches;    // by their numbers, how many of our files each one is for
    std::int64_t earliestEnd = 0;  // of the next wait, if it is to end early
    std::mutex access;             // of what follows, which fileChanges_wake uses
    std::condition_variable woken;
    bool isWoken = false;
    int queue = -1;  // -1: no changes are reported, and there is no waker
    int waker = -1;
    unsigned long owner = 0;  // the process that both belong to
};

// Begins, with a NOTE of `function` when changes are not reported. What was begun before ends.
void fileChanges_open(FileChanges* changes, const char* function) noexcept;
// Ends all watches. The object can be waited with, and opened again.
void fileChanges_close(FileChanges* changes) noexcept;

// Watches an open file, whatever becomes of its name, and gives the watch's number; NO_FILE_WATCH when its changes are
// not reported, or for null.
int fileChanges_watch(FileChanges* changes, const TableFile* file) noexcept;
// Ends one watch of a file; also one that the system has ended itself. NO_FILE_WATCH is none.
void fileChanges_unwatch(FileChanges* changes, int watch) noexcept;
// True when changes of the files that are watched end a wait.
bool fileChanges_areReported(FileChanges* changes) noexcept;

// Takes the changes up to now, which end no wait any more, and calls `changed` with the watch of each, some of them
// again and again. False when any file may have changed: what changed is not known, or is not reported at all.
bool fileChanges_take(FileChanges* changes, void* owner, void (*changed)(void* owner, int watch)) noexcept;
// Waits for a change since the last fileChanges_take, or for fileChanges_wake since the last wait that it ended, at
// most so many nanoseconds. After an end by a change it does not end by one again for EARLY_ENDS_APART, unless
// fileChanges_found has been called meanwhile.
WaitEnd fileChanges_wait(FileChanges* changes, std::int64_t nanoseconds) noexcept;
// A look has found what was waited for.
void fileChanges_found(FileChanges* changes) noexcept;
// Ends the wait under way, or the next one. May be called from any thread.
void fileChanges_wake(FileChanges* changes) noexcept;

}  // namespace tabulo::internal
