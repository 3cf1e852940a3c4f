#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <memory>

#include "storage/file_platform_posix.h"

namespace tabulo::internal {

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

const FilePlatform* installedPlatform = nullptr;  // null is the system's own

}  // namespace

SystemError posix_open(const char* path, FileAccess access, int* descriptor) {
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

SystemError posix_readAt(int descriptor, void* buffer, std::size_t length, std::int64_t offset,
                         std::size_t* transferred) {
    const ssize_t count = ::pread(descriptor, buffer, length, offset);
    *transferred = static_cast<std::size_t>(std::max<ssize_t>(count, 0));
    return count < 0 ? errno : 0;
}

SystemError posix_writeAt(int descriptor, const void* buffer, std::size_t length, std::int64_t offset,
                          std::size_t* transferred) {
    const ssize_t count = ::pwrite(descriptor, buffer, length, offset);
    *transferred = static_cast<std::size_t>(std::max<ssize_t>(count, 0));
    return count < 0 ? errno : 0;
}

SystemError posix_sync(int descriptor) {
    return ::fdatasync(descriptor) == 0 ? 0 : errno;
}

SystemError posix_syncDirectory(const char* path) {
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

SystemError posix_truncate(int descriptor, std::int64_t length) {
    return ::ftruncate(descriptor, length) == 0 ? 0 : errno;
}

SystemError posix_size(int descriptor, std::int64_t* size) {
    struct stat status {};
    if (::fstat(descriptor, &status) != 0) {
        return errno;
    }
    *size = status.st_size;
    return 0;
}

SystemError posix_isAt(int descriptor, const char* path, bool* same) {
    struct stat open {};
    struct stat found {};
    if (::fstat(descriptor, &open) != 0 || ::stat(path, &found) != 0) {
        return errno;
    }
    *same = open.st_dev == found.st_dev && open.st_ino == found.st_ino;
    return 0;
}

SystemError posix_close(int descriptor) {
    // The descriptor is gone even when the call was interrupted; closing it again could hit somebody else's file.
    return ::close(descriptor) == 0 || errno == EINTR ? 0 : errno;
}

SystemError posix_remove(const char* path) {
    return ::unlink(path) == 0 ? 0 : errno;
}

SystemError posix_rename(const char* from, const char* to) {
    return ::rename(from, to) == 0 ? 0 : errno;
}

std::int64_t posix_now() {
    return static_cast<std::int64_t>(std::time(nullptr));
}

const FilePlatform& filePlatform() noexcept {
    return installedPlatform == nullptr ? filePlatform_system() : *installedPlatform;
}

const FilePlatform* filePlatform_install(const FilePlatform* platform) noexcept {
    const FilePlatform* previous = &filePlatform();
    installedPlatform = platform;
    return previous;
}

SystemError filePlatform_list(const char* folder, std::vector<std::string>* names) {
    const std::unique_ptr<DIR, int (*)(DIR*)> entries(::opendir(folder), &::closedir);
    if (entries == nullptr) {
        return errno;
    }
    errno = 0;  // readdir leaves it at the end
    while (const dirent* entry = ::readdir(entries.get())) {
        names->emplace_back(entry->d_name);
        errno = 0;
    }
    return errno;
}

const char* filePlatform_errorText(SystemError error) noexcept {
    return std::strerror(error.number);
}

bool filePlatform_isLocked(SystemError error) noexcept {
    return error.number == EWOULDBLOCK;
}

bool filePlatform_isFull(SystemError error) noexcept {
    return error.number == ENOSPC || error.number == EDQUOT;
}

bool filePlatform_isInterrupted(SystemError error) noexcept {
    return error.number == EINTR;
}

bool filePlatform_isMissing(SystemError error) noexcept {
    return error.number == ENOENT;
}

bool filePlatform_isExisting(SystemError error) noexcept {
    return error.number == EEXIST;
}

}  // namespace tabulo::internal
