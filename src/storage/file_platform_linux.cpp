#include <sys/file.h>
#include <sys/stat.h>

#include <cerrno>
#include <ctime>

#include "storage/file_platform_posix.h"

namespace tabulo::internal {

namespace {

// flock, not fcntl: fcntl locks vanish when any other descriptor of the file is closed in this process.
SystemError linux_lock(int descriptor) {
    if (::flock(descriptor, LOCK_EX | LOCK_NB) == 0) {
        return 0;
    }
    const int error = errno;
    return error == ENOLCK || error == EOPNOTSUPP || error == ENOSYS ? 0 : error;
}

SystemError linux_unlock(int descriptor) {
    return ::flock(descriptor, LOCK_UN) == 0 ? 0 : errno;
}

bool linux_writtenBeforeStart(int descriptor) {
    struct stat status {};
    timespec now{};
    timespec sinceStart{};
    if (::fstat(descriptor, &status) != 0 || ::clock_gettime(CLOCK_REALTIME, &now) != 0 ||
        ::clock_gettime(CLOCK_BOOTTIME, &sinceStart) != 0) {
        return false;
    }
    return status.st_mtim.tv_sec < now.tv_sec - sinceStart.tv_sec;
}

constexpr FilePlatform systemPlatform{
    posix_open,  linux_lock,          linux_unlock,   posix_readAt, posix_writeAt,
    posix_sync,  posix_syncDirectory, posix_truncate, posix_size,   posix_isAt,
    posix_close, posix_remove,        posix_rename,   posix_now,    linux_writtenBeforeStart};

}  // namespace

const FilePlatform& filePlatform_system() noexcept {
    return systemPlatform;
}

}  // namespace tabulo::internal
