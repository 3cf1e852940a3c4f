// Reading the list of file locks that the system keeps, one lock a line:
//
//   1: FLOCK  ADVISORY  WRITE 4242 fe:00:10953393 0 EOF
//
// number, kind, mode, access, process, device (two hexadecimal numbers) and file number, range. A lock that is waited
// for has "->" behind its number.
#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

namespace tabulo::internal {

// Which file a lock is on.
struct LockedFile {
    std::uint32_t deviceMajor = 0;
    std::uint32_t deviceMinor = 0;
    std::uint64_t number = 0;
};

// A writer's lock on a file of the number asked for. File systems may list another device than they tell elsewhere.
struct WriterLock {
    std::int64_t process = 0;
    bool sameDevice = false;
};

// The locks of the kind that writers take on files of this number. Lines of another form are passed over. Throws
// std::bad_alloc.
std::vector<WriterLock> lockList_writers(std::string_view list, const LockedFile& file);

}  // namespace tabulo::internal
