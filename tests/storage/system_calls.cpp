#include "tests/storage/system_calls.h"

#include <sys/file.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>

namespace tabulo::internal::test {

SystemCalls systemCalls;

}  // namespace tabulo::internal::test

// The C library's functions of these names are replaced for this test program.
extern "C" {

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
