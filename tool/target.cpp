#include "tool/target.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <utility>

#include "tool/listing.h"
#include "tool/status.h"

namespace tabulo::tool {

namespace {

constexpr std::size_t LARGEST_GATHERED = std::size_t{256} * 1024;

[[noreturn]] void fail(const std::filesystem::path& path, std::string_view what, int error) {
    throw Failure(fmt::format("{} cannot be {}: {}", shownText(path.string()), what, std::strerror(error)));
}

[[noreturn]] void failBecauseItExists(const std::filesystem::path& path) {
    throw Failure(fmt::format("{} exists, and is not overwritten", shownText(path.string())));
}

// The system's error number, or 0.
int writeAll(int descriptor, std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t count = ::write(descriptor, bytes.data(), bytes.size());
        if (count < 0 && errno != EINTR) {
            return errno;
        }
        bytes.remove_prefix(count < 0 ? 0 : static_cast<std::size_t>(count));
    }
    return 0;
}

std::filesystem::path folderOf(const std::filesystem::path& path) {
    return path.has_parent_path() ? path.parent_path() : ".";
}

// By which the system finds an open file that has no other name.
std::string nameOf(int descriptor) {
    return fmt::format("/proc/self/fd/{}", descriptor);
}

// Names in a folder are committed with the folder. Some file systems cannot; then they are as safe as they can be.
void commitFolderOf(const std::filesystem::path& path) {
    const int descriptor = ::open(folderOf(path).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (descriptor >= 0) {
        (void)::fsync(descriptor);
        ::close(descriptor);
    }
}

std::filesystem::path besides(const std::filesystem::path& path) {
    return path.parent_path() / fmt::format(".{}.unfinished-{}", path.filename().string(), ::getpid());
}

}  // namespace

TargetFile::TargetFile(std::filesystem::path path) : path_(std::move(path)), unfinished_(besides(path_)) {
    struct stat status {};
    if (::lstat(path_.c_str(), &status) == 0) {
        failBecauseItExists(path_);
    }
}

TargetFile::~TargetFile() {
    if (descriptor_ >= 0) {
        ::close(descriptor_);
    }
    if (!isFinished_ && !isNameless_) {
        ::unlink(unfinished_.c_str());
    }
}

// Without a name where it can get one later: by its descriptor's own, which not every system shows.
void TargetFile::make() {
    descriptor_ = ::open(folderOf(path_).c_str(), O_WRONLY | O_TMPFILE | O_CLOEXEC, 0666);
    isNameless_ = descriptor_ >= 0 && ::access(nameOf(descriptor_).c_str(), F_OK) == 0;
    if (isNameless_) {
        return;
    }
    if (descriptor_ >= 0) {
        ::close(descriptor_);
    }
    descriptor_ = ::open(unfinished_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    if (descriptor_ < 0) {
        fail(path_, "made", errno);
    }
}

void TargetFile::write(std::string_view bytes) {
    if (descriptor_ < 0) {
        make();
    }
    gathered_ += bytes;
    if (gathered_.size() >= LARGEST_GATHERED) {
        flush();
    }
}

void TargetFile::flush() {
    const int error = writeAll(descriptor_, gathered_);
    gathered_.clear();
    if (error != 0) {
        fail(path_, "written", error);
    }
}

void TargetFile::finish() {
    if (descriptor_ < 0) {
        descriptor_ = ::open(unfinished_.c_str(), O_WRONLY | O_CLOEXEC);  // somebody else has made it by its path
    }
    if (descriptor_ < 0) {
        fail(path_, "made", errno);
    }
    flush();
    if (::fsync(descriptor_) != 0) {
        fail(path_, "committed to the disk", errno);
    }
    isNameless_ ? giveName() : nameFinished(unfinished_, path_);
    isFinished_ = true;
}

void TargetFile::giveName() {
    const std::string name = nameOf(descriptor_);
    if (::linkat(AT_FDCWD, name.c_str(), AT_FDCWD, path_.c_str(), AT_SYMLINK_FOLLOW) != 0) {
        errno == EEXIST ? failBecauseItExists(path_) : fail(path_, "named", errno);
    }
    commitFolderOf(path_);
}

void commitFile(const std::filesystem::path& path) {
    const int descriptor = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (descriptor < 0) {
        fail(path, "opened", errno);
    }
    const int error = ::fsync(descriptor) == 0 ? 0 : errno;
    ::close(descriptor);
    if (error != 0) {
        fail(path, "committed to the disk", error);
    }
}

void nameFinished(const std::filesystem::path& unfinished, const std::filesystem::path& path) {
    const bool isFolder = std::filesystem::is_directory(unfinished);
    // A link is refused where something stands; a plain renaming would replace it. That of a folder replaces an empty
    // one only.
    if (!isFolder && ::link(unfinished.c_str(), path.c_str()) == 0) {
        ::unlink(unfinished.c_str());
    } else if (!isFolder && errno == EEXIST) {
        failBecauseItExists(path);
    } else if (isFolder ? ::rename(unfinished.c_str(), path.c_str()) != 0
                        : ::renameat2(AT_FDCWD, unfinished.c_str(), AT_FDCWD, path.c_str(), RENAME_NOREPLACE) != 0) {
        const bool exists = errno == EEXIST || errno == ENOTEMPTY || errno == ENOTDIR;
        exists ? failBecauseItExists(path) : fail(path, "named", errno);
    }
    commitFolderOf(path);
}

void replaceByFile(const std::filesystem::path& finished, const std::filesystem::path& path) {
    if (::rename(finished.c_str(), path.c_str()) != 0) {
        fail(path, "replaced", errno);
    }
    commitFolderOf(path);
}

void replaceFile(const std::filesystem::path& path, std::string_view bytes) {
    const std::filesystem::path beside = besides(path);
    const int descriptor = ::open(beside.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    if (descriptor < 0) {
        fail(path, "written", errno);
    }
    int error = writeAll(descriptor, bytes);
    if (error == 0 && ::fsync(descriptor) != 0) {
        error = errno;
    }
    ::close(descriptor);
    if (error == 0 && ::rename(beside.c_str(), path.c_str()) != 0) {
        error = errno;
    }
    if (error != 0) {
        ::unlink(beside.c_str());
        fail(path, "written", error);
    }
    commitFolderOf(path);
}

}  // namespace tabulo::tool
