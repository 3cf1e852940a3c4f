// Stands between the library and four system calls that a test cannot make fail, or see, by ordinary means.
#pragma once

namespace tabulo::internal::test {

struct SystemCalls {
    int lockError = 0;               // flock fails with this error number when it asks for a lock
    int dataSyncs = 0;               // calls of fdatasync
    int fullSyncs = 0;               // calls of fsync
    int lastSynced = -1;             // the descriptor of the last fdatasync
    int emptyLists = 0;              // so many openings of the system's list of locks find nothing in it
    const char* lockList = nullptr;  // the path of a file that is opened in place of that list
};

extern SystemCalls systemCalls;

// Puts the calls back to normal at its end.
struct SystemCallsGuard {
    SystemCallsGuard() { systemCalls = {}; }
    ~SystemCallsGuard() { systemCalls = {}; }
    SystemCallsGuard(const SystemCallsGuard&) = delete;
    SystemCallsGuard& operator=(const SystemCallsGuard&) = delete;
};

}  // namespace tabulo::internal::test
