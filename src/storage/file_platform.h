// The platform seam for files: everything that the file layer asks of the operating system.
//
// One source per platform fills the record, with what POSIX gives to all of them (file_platform_posix.h). All
// operations return 0 or the system's error number; interrupted calls (EINTR) and short transfers are the caller's to
// repeat. Tests install a record of their own to make the n-th call fail.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "core/system_error.h"

namespace tabulo::internal {

enum class FileAccess {
    read,          // existing file, read-only
    readWrite,     // existing file
    createNew,     // read and write; refused when the file exists
    createOrOpen,  // read and write; an existing file keeps its content
};

struct FilePlatform {
    // Opens a file; its descriptor does not outlive an exec. A directory is refused.
    SystemError (*open)(const char* path, FileAccess access, int* descriptor);
    // Takes the exclusive lock of a writer without waiting; 0 also where the file system knows no locks.
    SystemError (*lock)(int descriptor);
    SystemError (*unlock)(int descriptor);
    // Transfers up to `length` bytes at an absolute offset; 0 bytes read is the end of the file.
    SystemError (*readAt)(int descriptor, void* buffer, std::size_t length, std::int64_t offset,
                          std::size_t* transferred);
    SystemError (*writeAt)(int descriptor, const void* buffer, std::size_t length, std::int64_t offset,
                           std::size_t* transferred);
    // Commits the file's data, and what is needed to find it, to the disk.
    SystemError (*sync)(int descriptor);
    // Commits the directory entry of a path to the disk.
    SystemError (*syncDirectory)(const char* path);
    SystemError (*truncate)(int descriptor, std::int64_t length);
    SystemError (*size)(int descriptor, std::int64_t* size);
    // Sets *same to whether a path leads to this very file. The error of a path that leads nowhere.
    SystemError (*isAt)(int descriptor, const char* path, bool* same);
    SystemError (*close)(int descriptor);
    SystemError (*remove)(const char* path);
    // Gives a file another name, which takes the place of a file that has it.
    SystemError (*rename)(const char* from, const char* to);
    // Seconds since the epoch.
    std::int64_t (*now)();
    // True for a file that was last written before this machine was started: what had not been committed to the disk
    // may be there by halves. False also when that cannot be told.
    bool (*writtenBeforeStart)(int descriptor);
};

// The record in use.
const FilePlatform& filePlatform() noexcept;
// Installs another record, which must stay alive; null brings the system's own back. Returns the previous one.
// No caller of ours: it is for tests.
const FilePlatform* filePlatform_install(const FilePlatform* platform) noexcept;
// The record of the operating system.
const FilePlatform& filePlatform_system() noexcept;

// Adds the names of a folder's entries, in no order. Throws std::bad_alloc, where the standard library's own iterator
// over a folder would end the process.
SystemError filePlatform_list(const char* folder, std::vector<std::string>* names);
// The system's text for an error number.
const char* filePlatform_errorText(SystemError error) noexcept;
// True for the error number of a lock that somebody else holds, and of a disk or a quota that is full.
bool filePlatform_isLocked(SystemError error) noexcept;
bool filePlatform_isFull(SystemError error) noexcept;
// True for the error number of an interrupted call.
bool filePlatform_isInterrupted(SystemError error) noexcept;
// Makes a call, which returns an error number, again for as long as it is interrupted. What it asks for, and of which
// file, is kept with the error of a call that is refused (systemError_keep); a null path is one that nobody knows.
template <typename Call>
SystemError filePlatform_repeat(const char* what, const char* path, Call call) {
    SystemError error = call();
    while (filePlatform_isInterrupted(error)) {
        error = call();
    }
    if (error.failed()) {
        systemError_keep(error, what, path);
    }
    return error;
}
// True for the error number of a file that does not exist.
bool filePlatform_isMissing(SystemError error) noexcept;
// True for the error number of a file that exists already.
bool filePlatform_isExisting(SystemError error) noexcept;

}  // namespace tabulo::internal
