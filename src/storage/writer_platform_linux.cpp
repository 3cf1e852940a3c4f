#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <memory>
#include <new>
#include <string>
#include <string_view>

#include "storage/lock_list.h"
#include "storage/network_platform.h"
#include "storage/writer_platform.h"

namespace tabulo::internal {

namespace {

// Of all processes that this one can see.
constexpr const char* LOCK_LIST = "/proc/locks";
// The namespace of the processes of the whole machine; in any other one the list leaves out what is outside.
constexpr std::string_view WHOLE_MACHINE = "pid:[4026531836]";
// A list that changes while it is read may miss a lock: it is believed when it has none several times.
constexpr int LOOKS = 3;

// Closes a descriptor that is only read, also when there is no memory for what it gives.
struct ReadDescriptor {
    explicit ReadDescriptor(int opened) noexcept : number(opened) {}
    ~ReadDescriptor() {
        if (number >= 0) {
            (void)::close(number);
        }
    }
    ReadDescriptor(const ReadDescriptor&) = delete;
    ReadDescriptor& operator=(const ReadDescriptor&) = delete;

    const int number;
};

bool readWhole(const char* path, std::string* content) {
    const ReadDescriptor descriptor(::open(path, O_RDONLY | O_CLOEXEC));
    if (descriptor.number < 0) {
        return false;
    }
    content->clear();
    std::array<char, 65536> piece;
    ssize_t count = 0;
    while ((count = ::read(descriptor.number, piece.data(), piece.size())) != 0) {
        if (count > 0) {
            content->append(piece.data(), static_cast<std::size_t>(count));
        } else if (errno != EINTR) {
            break;
        }
    }
    return count == 0;
}

bool seesAllProcesses() {
    std::array<char, 64> name;
    const ssize_t length = ::readlink("/proc/self/ns/pid", name.data(), name.size());
    return length > 0 && std::string_view(name.data(), static_cast<std::size_t>(length)) == WHOLE_MACHINE;
}

// Whether a process holds a writer's lock on the file, told from its descriptors.
WriterPresence findDescriptor(std::int64_t process, const struct stat& file) {
    const std::string folder = "/proc/" + std::to_string(process);
    const std::unique_ptr<DIR, int (*)(DIR*)> descriptors(::opendir((folder + "/fd").c_str()), &::closedir);
    if (descriptors == nullptr) {
        return WriterPresence::unknown;
    }
    while (const dirent* entry = ::readdir(descriptors.get())) {
        struct stat status {};
        std::string locks;
        if (::stat((folder + "/fd/" + entry->d_name).c_str(), &status) == 0 && status.st_dev == file.st_dev &&
            status.st_ino == file.st_ino && readWhole((folder + "/fdinfo/" + entry->d_name).c_str(), &locks) &&
            locks.find(" FLOCK ") != std::string::npos) {
            return WriterPresence::yes;
        }
    }
    return WriterPresence::no;
}

WriterPresence findInList(const std::string& list, const struct stat& file) {
    const LockedFile locked{major(file.st_dev), minor(file.st_dev), file.st_ino};
    WriterPresence presence = WriterPresence::no;
    for (const WriterLock& lock : lockList_writers(list, locked)) {
        const WriterPresence found = lock.sameDevice ? WriterPresence::yes : findDescriptor(lock.process, file);
        if (found == WriterPresence::yes) {
            return found;
        }
        presence = found == WriterPresence::unknown ? found : presence;
    }
    return presence;
}

WriterPresence find(const char* path, const struct stat& file) {
    std::string list;
    for (int look = 0; look < LOOKS; ++look) {
        if (!readWhole(LOCK_LIST, &list)) {
            return WriterPresence::unknown;
        }
        const WriterPresence presence = findInList(list, file);
        if (presence != WriterPresence::no) {
            return presence;
        }
    }
    return seesAllProcesses() && !networkPlatform_isShared(path) ? WriterPresence::no : WriterPresence::unknown;
}

}  // namespace

SystemError writerPlatform_find(const char* path, WriterPresence* presence) noexcept {
    *presence = WriterPresence::unknown;
    struct stat file {};
    if (::stat(path, &file) != 0) {
        return errno;
    }
    if (S_ISDIR(file.st_mode)) {
        return EISDIR;
    }
    try {
        *presence = find(path, file);
    } catch (const std::bad_alloc&) {
        *presence = WriterPresence::unknown;
    }
    return 0;
}

}  // namespace tabulo::internal
