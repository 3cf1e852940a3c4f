#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <cstring>
#include <ctime>

#include "storage/file_platform.h"

namespace tabulo {

namespace {

int openFlags(FileAccess access) {
    switch (access) {
        case FileAccess::read:
            return O_RDONLY;
        case FileAccess::readWrite:
            return O_RDWR;
        case FileAccess::createNew:
            return O_RDWR | O_CREAT | O_EXCL;
        case FileAccess::createOrOpen:
            return O_RDWR | O_CREAT;
    }
    return O_RDONLY;
}

int linux_open(const char* path, FileAccess access, int* descriptor) {
    const int opened = ::open(path, openFlags(access) | O_CLOEXEC, 0666);
    if (opened < 0) {
        return errno;
    }
    struct stat status {};
    // A directory can be opened for reading; it is no table.
    const int error = ::fstat(opened, &status) != 0 ? errno : (S_ISDIR(status.st_mode) ? EISDIR : 0);
    if (error != 0) {
        ::close(opened);
        return error;
    }
    *descriptor = opened;
    return 0;
}

// flock, not fcntl: fcntl locks vanish when any other descriptor of the file is closed in this process.
int linux_lock(int descriptor) {
    if (::flock(descriptor, LOCK_EX | LOCK_NB) == 0) {
        return 0;
    }
    const int error = errno;
    return error == ENOLCK || error == EOPNOTSUPP || error == ENOSYS ? 0 : error;
}

int linux_unlock(int descriptor) {
    return ::flock(descriptor, LOCK_UN) == 0 ? 0 : errno;
}

int linux_readAt(int descriptor, void* buffer, std::size_t length, std::int64_t offset, std::size_t* transferred) {
    const ssize_t count = ::pread(descriptor, buffer, length, offset);
    *transferred = count < 0 ? 0 : static_cast<std::size_t>(count);
    return count < 0 ? errno : 0;
}

int linux_writeAt(int descriptor, const void* buffer, std::size_t length, std::int64_t offset,
                  std::size_t* transferred) {
    const ssize_t count = ::pwrite(descriptor, buffer, length, offset);
    *transferred = count < 0 ? 0 : static_cast<std::size_t>(count);
    return count < 0 ? errno : 0;
}

int linux_sync(int descriptor) {
    return ::fdatasync(descriptor) == 0 ? 0 : errno;
}

int linux_syncDirectory(const char* path) {
    // No allocation: a flush must not fail for want of memory.
    std::array<char, PATH_MAX> directory{'.'};
    const char* slash = std::strrchr(path, '/');
    const std::size_t length = slash == nullptr ? 0 : static_cast<std::size_t>(slash + 1 - path);
    if (length >= directory.size()) {
        return ENAMETOOLONG;
    }
    std::memcpy(directory.data(), path, length);
    const int descriptor = ::open(directory.data(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (descriptor < 0) {
        return errno;
    }
    const int error = ::fsync(descriptor) == 0 ? 0 : errno;
    ::close(descriptor);
    return error;
}

int linux_truncate(int descriptor, std::int64_t length) {
    return ::ftruncate(descriptor, length) == 0 ? 0 : errno;
}

int linux_size(int descriptor, std::int64_t* size) {
    struct stat status {};
    if (::fstat(descriptor, &status) != 0) {
        return errno;
    }
    *size = status.st_size;
    return 0;
}

int linux_close(int descriptor) {
    // The descriptor is gone even when the call was interrupted; closing it again could hit somebody else's file.
    return ::close(descriptor) == 0 || errno == EINTR ? 0 : errno;
}

int linux_remove(const char* path) {
    return ::unlink(path) == 0 ? 0 : errno;
}

std::int64_t linux_now() {
    return static_cast<std::int64_t>(std::time(nullptr));
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

constexpr FilePlatform systemPlatform{linux_open,
                                      linux_lock,
                                      linux_unlock,
                                      linux_readAt,
                                      linux_writeAt,
                                      linux_sync,
                                      linux_syncDirectory,
                                      linux_truncate,
                                      linux_size,
                                      linux_close,
                                      linux_remove,
                                      linux_now,
                                      linux_writtenBeforeStart};

const FilePlatform* installedPlatform = &systemPlatform;

}  // namespace

const FilePlatform& filePlatform() noexcept {
    return *installedPlatform;
}

const FilePlatform* filePlatform_install(const FilePlatform* platform) noexcept {
    const FilePlatform* previous = installedPlatform;
    installedPlatform = platform == nullptr ? &systemPlatform : platform;
    return previous;
}

const FilePlatform& filePlatform_system() noexcept {
    return systemPlatform;
}

const char* filePlatform_errorText(int error) noexcept {
    return std::strerror(error);
}

bool filePlatform_isInterrupted(int error) noexcept {
    return error == EINTR;
}

bool filePlatform_isMissing(int error) noexcept {
    return error == ENOENT;
}

bool filePlatform_isExisting(int error) noexcept {
    return error == EEXIST;
}

}  // namespace tabulo
