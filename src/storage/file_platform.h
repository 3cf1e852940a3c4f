// The platform seam for files: everything that the file layer asks of the operating system.
//
// One source per platform fills the record. All operations return 0 or the system's error number; interrupted calls
// (EINTR) and short transfers are the caller's to repeat. Tests install a record of their own to make the n-th call
// fail.
#pragma once

#include <cstddef>
#include <cstdint>

namespace tabulo {

enum class FileAccess {
    read,          // existing file, read-only
    readWrite,     // existing file
    createNew,     // read and write; refused when the file exists
    createOrOpen,  // read and write; an existing file keeps its content
};

struct FilePlatform {
    // Opens a file; its descriptor does not outlive an exec. A directory is refused.
    int (*open)(const char* path, FileAccess access, int* descriptor);
    // Takes the exclusive lock of a writer without waiting; 0 also where the file system knows no locks.
    int (*lock)(int descriptor);
    int (*unlock)(int descriptor);
    // Transfers up to `length` bytes at an absolute offset; 0 bytes read is the end of the file.
    int (*readAt)(int descriptor, void* buffer, std::size_t length, std::int64_t offset, std::size_t* transferred);
    int (*writeAt)(int descriptor, const void* buffer, std::size_t length, std::int64_t offset,
                   std::size_t* transferred);
    // Commits the file's data, and what is needed to find it, to the disk.
    int (*sync)(int descriptor);
    // Commits the directory entry of a path to the disk.
    int (*syncDirectory)(const char* path);
    int (*truncate)(int descriptor, std::int64_t length);
    int (*size)(int descriptor, std::int64_t* size);
    int (*close)(int descriptor);
    int (*remove)(const char* path);
    // Seconds since the epoch.
    std::int64_t (*now)();
    // True for a file that was last written before this machine was started: what had not been committed to the disk
    // may be there by halves. False also when that cannot be told.
    bool (*writtenBeforeStart)(int descriptor);
};

// The record in use.
const FilePlatform& filePlatform() noexcept;
// Installs another record, which must stay alive; null brings the system's own back. Returns the previous one.
const FilePlatform* filePlatform_install(const FilePlatform* platform) noexcept;
// The record of the operating system.
const FilePlatform& filePlatform_system() noexcept;

// The system's text for an error number.
const char* filePlatform_errorText(int error) noexcept;
// True for the error number of an interrupted call.
bool filePlatform_isInterrupted(int error) noexcept;
// Makes a call, which returns an error number, again for as long as it is interrupted.
template <typename Call>
int filePlatform_repeat(Call call) {
    int error = call();
    while (filePlatform_isInterrupted(error)) {
        error = call();
    }
    return error;
}
// True for the error number of a file that does not exist.
bool filePlatform_isMissing(int error) noexcept;
// True for the error number of a file that exists already.
bool filePlatform_isExisting(int error) noexcept;

}  // namespace tabulo
