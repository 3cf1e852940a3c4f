#include "tests/power/volatile_disk.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

namespace tabulo::internal::test {

namespace {

VolatileDisk* active = nullptr;

std::string directoryOf(const std::string& path) {
    return path.substr(0, path.rfind('/') + 1);
}

}  // namespace

// The plain functions that the record needs; they find the object through `active`.
struct VolatileDisk::Hooks {
    static File* fileOf(int descriptor) { return active->open_.at(descriptor).get(); }

    static SystemError open(const char* path, FileAccess access, int* descriptor) {
        VolatileDisk& disk = *active;
        auto found = disk.names_.find(path);
        if (disk.stopped_) {
            return EIO;
        }
        if (found == disk.names_.end()) {
            if (access == FileAccess::read || access == FileAccess::readWrite) {
                return ENOENT;
            }
            const std::optional<double> done = disk.change();
            if (!done || *done < 0.5) {
                return EIO;
            }
            found = disk.names_.emplace(path, std::make_shared<File>()).first;
            disk.pendingNames_.push_back({path, found->second});
            if (disk.stopped_) {
                return EIO;
            }
        } else if (access == FileAccess::createNew) {
            return EEXIST;
        }
        *descriptor = disk.nextDescriptor_++;
        disk.open_[*descriptor] = found->second;
        return 0;
    }
    static SystemError lock(int descriptor) {
        File* file = fileOf(descriptor);
        if (active->stopped_) {
            return EIO;
        }
        if (file->lockedBy >= 0 && file->lockedBy != descriptor) {
            return EWOULDBLOCK;
        }
        file->lockedBy = descriptor;
        return 0;
    }
    static SystemError unlock(int descriptor) {
        File* file = fileOf(descriptor);
        file->lockedBy = file->lockedBy == descriptor ? -1 : file->lockedBy;
        return 0;
    }
    static SystemError readAt(int descriptor, void* buffer, std::size_t length, std::int64_t offset,
                              std::size_t* transferred) {
        *transferred = 0;
        if (active->stopped_) {
            return EIO;
        }
        const Bytes& bytes = fileOf(descriptor)->current;
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
        const std::optional<double> done = active->change();
        if (!done) {
            return EIO;
        }
        const auto part = static_cast<std::size_t>(static_cast<double>(length) * *done);
        const auto* bytes = static_cast<const std::uint8_t*>(buffer);
        if (part > 0) {
            File* file = fileOf(descriptor);
            file->writtenSinceStart = true;
            file->pending.push_back({false, static_cast<std::size_t>(offset), Bytes(bytes, bytes + part)});
            applyChange(&file->current, file->pending.back());
        }
        *transferred = part;
        return active->stopped_ ? EIO : 0;
    }
    static SystemError truncate(int descriptor, std::int64_t length) {
        const std::optional<double> done = active->change();
        if (!done || *done < 0.5) {
            return EIO;
        }
        File* file = fileOf(descriptor);
        file->writtenSinceStart = true;
        file->pending.push_back({true, static_cast<std::size_t>(length), {}});
        applyChange(&file->current, file->pending.back());
        return active->stopped_ ? EIO : 0;
    }
    static SystemError sync(int descriptor) {
        const std::optional<double> done = active->change();
        if (!done || *done < 0.5) {
            return EIO;
        }
        File* file = fileOf(descriptor);
        file->committed = file->current;
        file->pending.clear();
        file->syncs += 1;
        return active->stopped_ ? EIO : 0;
    }
    static SystemError syncDirectory(const char* path) {
        VolatileDisk& disk = *active;
        const std::optional<double> done = disk.change();
        if (!done || *done < 0.5) {
            return EIO;
        }
        const std::string directory = directoryOf(path);
        std::erase_if(disk.pendingNames_, [&](const NameChange& change) {
            const bool here = directoryOf(change.path) == directory;
            if (here && change.file != nullptr) {
                disk.committedNames_[change.path] = change.file;
            } else if (here) {
                disk.committedNames_.erase(change.path);
            }
            return here;
        });
        return disk.stopped_ ? EIO : 0;
    }
    static SystemError size(int descriptor, std::int64_t* size) {
        *size = static_cast<std::int64_t>(fileOf(descriptor)->current.size());
        return active->stopped_ ? EIO : 0;
    }
    static SystemError close(int descriptor) {
        (void)unlock(descriptor);  // it cannot fail
        active->open_.erase(descriptor);
        return active->stopped_ ? EIO : 0;
    }
    static SystemError remove(const char* path) {
        VolatileDisk& disk = *active;
        const std::optional<double> done = disk.change();
        if (!done || *done < 0.5) {
            return EIO;
        }
        const bool there = disk.names_.erase(path) > 0;
        if (there) {
            disk.pendingNames_.push_back({path, nullptr});
        }
        return disk.stopped_ ? EIO : (there ? 0 : ENOENT);
    }
    static std::int64_t now() { return active->now_; }
    static bool writtenBeforeStart(int descriptor) { return !fileOf(descriptor)->writtenSinceStart; }
};

VolatileDisk::VolatileDisk() {
    record_ = {Hooks::open,
               Hooks::lock,
               Hooks::unlock,
               Hooks::readAt,
               Hooks::writeAt,
               Hooks::sync,
               Hooks::syncDirectory,
               Hooks::truncate,
               Hooks::size,
               nullptr,  // isAt: nobody asks whether a file of this disk was replaced
               Hooks::close,
               Hooks::remove,
               nullptr,  // rename: nor gives one another name
               Hooks::now,
               Hooks::writtenBeforeStart};
    active = this;
    previous_ = filePlatform_install(&record_);
}

VolatileDisk::~VolatileDisk() {
    filePlatform_install(previous_);
    active = nullptr;
}

std::optional<double> VolatileDisk::change() {
    if (stopped_) {
        return std::nullopt;
    }
    ++calls_;
    if (untilStop_ > 0 && --untilStop_ == 0) {
        stopped_ = true;
        return doneAtStop_;
    }
    return 1.0;
}

void VolatileDisk::stopAt(std::int64_t n, Random& random, bool wholeWrites) {
    untilStop_ = n;
    if (wholeWrites) {
        doneAtStop_ = oneIn(random, 2) ? 0 : 1;
        return;
    }
    doneAtStop_ = static_cast<double>(std::clamp<std::int64_t>(pick(random, -30, 130), 0, 100)) / 100;
}

void VolatileDisk::restart() {
    for (const auto& [descriptor, file] : open_) {
        file->lockedBy = -1;
    }
    open_.clear();
    untilStop_ = 0;
    stopped_ = false;
}

void VolatileDisk::powerLoss(Random& random, Tearing tearing) {
    restart();
    for (std::size_t i = 0; i < pendingNames_.size(); ++i) {
        const NameChange& change = pendingNames_[i];
        if (oneIn(random, 3)) {
            // This step and what followed with the same name have not reached the disk.
            const std::string path = change.path;
            pendingNames_.erase(
                std::remove_if(pendingNames_.begin() + static_cast<std::ptrdiff_t>(i), pendingNames_.end(),
                               [&](const NameChange& later) { return later.path == path; }),
                pendingNames_.end());
            --i;
        } else if (change.file != nullptr) {
            committedNames_[change.path] = change.file;
        } else {
            committedNames_.erase(change.path);
        }
    }
    pendingNames_.clear();
    names_ = committedNames_;
    for (const auto& [path, file] : names_) {
        file->current = fileAfterPowerLoss(file->committed, file->pending, random, tearing);
        file->committed = file->current;
        file->pending.clear();
        file->writtenSinceStart = false;
    }
}

void VolatileDisk::put(const std::string& path, const Bytes& bytes) {
    const auto file = std::make_shared<File>();
    file->current = bytes;
    file->committed = bytes;
    names_[path] = file;
    committedNames_[path] = file;
}

std::optional<Bytes> VolatileDisk::content(const std::string& path) const {
    const auto found = names_.find(path);
    return found == names_.end() ? std::nullopt : std::optional(found->second->current);
}

Bytes VolatileDisk::committed(const std::string& path) const {
    const auto found = names_.find(path);
    return found == names_.end() ? Bytes() : found->second->committed;
}

std::int64_t VolatileDisk::syncs(const std::string& path) const {
    const auto found = names_.find(path);
    return found == names_.end() ? 0 : found->second->syncs;
}

bool VolatileDisk::isNameCommitted(const std::string& path) const {
    const auto now = names_.find(path);
    const auto committed = committedNames_.find(path);
    return now != names_.end() && committed != committedNames_.end() && now->second == committed->second;
}

std::map<std::string, Bytes> VolatileDisk::files() const {
    std::map<std::string, Bytes> found;
    for (const auto& [path, file] : names_) {
        found[path] = file->current;
    }
    return found;
}

}  // namespace tabulo::internal::test
