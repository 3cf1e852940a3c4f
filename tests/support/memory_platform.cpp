#include "tests/support/memory_platform.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "tests/support/platform_hooks.h"

namespace tabulo::internal::test {

namespace {

MemoryPlatform* active = nullptr;

// A system's call leaves its error number in errno too.
SystemError failed(int error) {
    errno = error;
    return error;
}

}  // namespace

// The plain functions that the record needs; they find the object through `active`.
struct MemoryPlatform::Hooks {
    static SystemError open(const char* path, FileAccess access, int* descriptor) {
        const auto found = active->files_.find(path);
        const bool exists = found != active->files_.end();
        if (!exists && (access == FileAccess::read || access == FileAccess::readWrite)) {
            return failed(ENOENT);
        }
        if (exists && access == FileAccess::createNew) {
            return failed(EEXIST);
        }
        const std::shared_ptr<File> file = exists ? found->second : std::make_shared<File>();
        if (!exists) {
            active->files_.emplace(path, file);
        }
        *descriptor = active->nextDescriptor_++;
        active->descriptors_.emplace(*descriptor, Descriptor{file, access != FileAccess::read});
        return 0;
    }
    static SystemError lock(int descriptor) {
        const Descriptor* found = active->find(descriptor);
        if (found == nullptr) {
            return failed(EBADF);
        }
        if (found->file->lockedBy >= 0 && found->file->lockedBy != descriptor) {
            return failed(EWOULDBLOCK);
        }
        found->file->lockedBy = descriptor;
        return 0;
    }
    static SystemError unlock(int descriptor) {
        const Descriptor* found = active->find(descriptor);
        if (found == nullptr) {
            return failed(EBADF);
        }
        if (found->file->lockedBy == descriptor) {
            found->file->lockedBy = -1;
        }
        return 0;
    }
    static SystemError readAt(int descriptor, void* buffer, std::size_t length, std::int64_t offset,
                              std::size_t* transferred) {
        *transferred = 0;
        const Descriptor* found = active->find(descriptor);
        if (found == nullptr || offset < 0) {
            return failed(found == nullptr ? EBADF : EINVAL);
        }
        const Bytes& bytes = found->file->bytes;
        const auto start = static_cast<std::size_t>(offset);
        if (start < bytes.size()) {
            *transferred = std::min(length, bytes.size() - start);
            std::memcpy(buffer, bytes.data() + start, *transferred);
        }
        return 0;
    }
    static SystemError writeAt(int descriptor, const void* buffer, std::size_t length, std::int64_t offset,
                               std::size_t* transferred) {
        *transferred = 0;
        const Descriptor* found = active->find(descriptor);
        if (found == nullptr || !found->writable || offset < 0) {
            return failed(found != nullptr && found->writable ? EINVAL : EBADF);
        }
        Bytes& bytes = found->file->bytes;
        if (length > static_cast<std::size_t>(LARGEST_FILE) || offset > LARGEST_FILE) {
            active->refusedSizes_ += 1;
            return failed(EFBIG);
        }
        const std::size_t end = static_cast<std::size_t>(offset) + length;
        if (length > 0 && end > bytes.size()) {
            const SystemError error = active->resize(found->file.get(), static_cast<std::int64_t>(end));
            if (error.failed()) {
                return error;
            }
        }
        if (length > 0) {
            std::memcpy(bytes.data() + offset, buffer, length);
        }
        *transferred = length;
        return 0;
    }
    static SystemError sync(int descriptor) {
        return active->find(descriptor) == nullptr ? failed(EBADF) : SystemError{};
    }
    static SystemError syncDirectory(const char*) { return 0; }
    static SystemError truncate(int descriptor, std::int64_t length) {
        const Descriptor* found = active->find(descriptor);
        if (found == nullptr || !found->writable || length < 0) {
            return failed(EINVAL);
        }
        return active->resize(found->file.get(), length);
    }
    static SystemError size(int descriptor, std::int64_t* size) {
        const Descriptor* found = active->find(descriptor);
        if (found == nullptr) {
            return failed(EBADF);
        }
        *size = static_cast<std::int64_t>(found->file->bytes.size());
        return 0;
    }
    static SystemError close(int descriptor) {
        (void)unlock(descriptor);  // closing tells of a descriptor that is none
        return active->descriptors_.erase(descriptor) == 1 ? SystemError{} : failed(EBADF);
    }
    static SystemError remove(const char* path) {
        return active->files_.erase(path) == 1 ? SystemError{} : failed(ENOENT);
    }
    static SystemError isAt(int descriptor, const char* path, bool* same) {
        const Descriptor* found = active->find(descriptor);
        const auto there = active->files_.find(path);
        if (found == nullptr || there == active->files_.end()) {
            return failed(found == nullptr ? EBADF : ENOENT);
        }
        *same = there->second == found->file;
        return 0;
    }
    static SystemError rename(const char* from, const char* to) {
        const auto found = active->files_.find(from);
        if (found == active->files_.end()) {
            return failed(ENOENT);
        }
        const std::shared_ptr<File> file = found->second;
        active->files_.erase(found);
        active->files_[to] = file;
        return 0;
    }
    static std::int64_t now() { return filePlatform_system().now(); }
    static bool writtenBeforeStart(int) { return false; }
};

MemoryPlatform::MemoryPlatform() {
    setFileOperations<Hooks>(&record_);
    record_.isAt = Hooks::isAt;
    record_.rename = Hooks::rename;
    record_.writtenBeforeStart = Hooks::writtenBeforeStart;
    active = this;
    previous_ = filePlatform_install(&record_);
}

MemoryPlatform::~MemoryPlatform() {
    filePlatform_install(previous_);
    active = nullptr;
}

void MemoryPlatform::put(const std::string& path, const Bytes& bytes) {
    std::shared_ptr<File>& file = files_[path];
    if (file == nullptr) {
        file = std::make_shared<File>();
    }
    file->bytes = bytes;
}

const Bytes& MemoryPlatform::bytes(const std::string& path) const {
    return files_.at(path)->bytes;
}

std::vector<std::string> MemoryPlatform::paths() const {
    std::vector<std::string> found;
    for (const auto& [path, file] : files_) {
        found.push_back(path);
    }
    return found;
}

MemoryPlatform::Descriptor* MemoryPlatform::find(int descriptor) {
    const auto found = descriptors_.find(descriptor);
    return found == descriptors_.end() ? nullptr : &found->second;
}

SystemError MemoryPlatform::resize(File* file, std::int64_t size) {
    if (size > LARGEST_FILE) {
        refusedSizes_ += 1;
        return failed(EFBIG);
    }
    file->bytes.resize(static_cast<std::size_t>(size));
    return 0;
}

}  // namespace tabulo::internal::test
