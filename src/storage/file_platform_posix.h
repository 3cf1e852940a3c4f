// The operations of a FilePlatform that every POSIX system has (file_platform.h tells what each does). A platform's own
// source takes them into its record beside what is its own.
#pragma once

#include <cstddef>
#include <cstdint>

#include "core/system_error.h"
#include "storage/file_platform.h"

namespace tabulo::internal {

SystemError posix_open(const char* path, FileAccess access, int* descriptor);
SystemError posix_readAt(int descriptor, void* buffer, std::size_t length, std::int64_t offset,
                         std::size_t* transferred);
SystemError posix_writeAt(int descriptor, const void* buffer, std::size_t length, std::int64_t offset,
                          std::size_t* transferred);
SystemError posix_sync(int descriptor);
SystemError posix_syncDirectory(const char* path);
SystemError posix_truncate(int descriptor, std::int64_t length);
SystemError posix_size(int descriptor, std::int64_t* size);
SystemError posix_isAt(int descriptor, const char* path, bool* same);
SystemError posix_close(int descriptor);
SystemError posix_remove(const char* path);
SystemError posix_rename(const char* from, const char* to);
std::int64_t posix_now();

}  // namespace tabulo::internal
