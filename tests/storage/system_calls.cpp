#include "tests/storage/system_calls.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <string_view>

namespace tabulo::internal::test {

SystemCalls systemCalls;

}  // namespace tabulo::internal::test

// The C library's functions of these names are replaced for this test program.
extern "C" {

int open(const char* path, int flags, ...) {
    mode_t mode = 0;
    if ((flags & O_CREAT) != 0) {
        std::va_list rest;
        va_start(rest, flags);
        mode = va_arg(rest, mode_t);
        va_end(rest);
    }
    if (std::string_view(path) == "/proc/locks" && tabulo::internal::test::systemCalls.emptyLists > 0) {
        tabulo::internal::test::systemCalls.emptyLists -= 1;
        path = "/dev/null";
    } else if (std::string_view(path) == "/proc/locks" && tabulo::internal::test::systemCalls.lockList != nullptr) {
        path = tabulo::internal::test::systemCalls.lockList;
    }
    return static_cast<int>(::syscall(SYS_openat, AT_FDCWD, path, flags, mode));
}

int flock(int descriptor, int operation) noexcept {
    if ((operation & LOCK_UN) == 0 && tabulo::internal::test::systemCalls.lockError != 0) {
        errno = tabulo::internal::test::systemCalls.lockError;
        return -1;
    }
    return static_cast<int>(::syscall(SYS_flock, descriptor, operation));
}

int fdatasync(int descriptor) {
    tabulo::internal::test::systemCalls.dataSyncs += 1;
    tabulo::internal::test::systemCalls.lastSynced = descriptor;
    return static_cast<int>(::syscall(SYS_fdatasync, descriptor));
}

int fsync(int descriptor) {
    tabulo::internal::test::systemCalls.fullSyncs += 1;
    return static_cast<int>(::syscall(SYS_fsync, descriptor));
}
}
