// A platform of the tests whose files are in memory: fast, and gone with the object.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "storage/file_platform.h"
#include "tests/support/bytes.h"

namespace tabulo::internal::test {

// Installs itself for its life; one at a time. A path is any text; there are no directories. Files behave as the
// system's: a removed one lives on behind its descriptors, the lock belongs to one descriptor, a write behind the end
// leaves zero bytes before it.
class MemoryPlatform {
  public:
    // No file may grow beyond this: what is asked for behind it fails with EFBIG and is counted.
    static constexpr std::int64_t LARGEST_FILE = 64 * 1024 * 1024;

    MemoryPlatform();
    ~MemoryPlatform();
    MemoryPlatform(const MemoryPlatform&) = delete;
    MemoryPlatform& operator=(const MemoryPlatform&) = delete;

    // The record itself, for a platform that is built upon this one.
    const FilePlatform& record() const { return record_; }

    // Creates a file or replaces its content, also under open descriptors.
    void put(const std::string& path, const Bytes& bytes);
    bool has(const std::string& path) const { return files_.contains(path); }
    // A file's content; throws for a path without a file.
    const Bytes& bytes(const std::string& path) const;
    // All paths, sorted.
    std::vector<std::string> paths() const;
    // Removes every file; what is open stays usable.
    void removeAll() { files_.clear(); }

    // Descriptors that are open.
    std::size_t openCount() const { return descriptors_.size(); }
    // Calls that asked for more than LARGEST_FILE, since the construction.
    int refusedSizes() const { return refusedSizes_; }

  private:
    struct File {
        Bytes bytes;
        int lockedBy = -1;
    };
    struct Descriptor {
        std::shared_ptr<File> file;
        bool writable = false;
    };
    struct Hooks;

    Descriptor* find(int descriptor);
    SystemError resize(File* file, std::int64_t size);

    FilePlatform record_{};
    const FilePlatform* previous_ = nullptr;
    std::map<std::string, std::shared_ptr<File>> files_;
    std::map<int, Descriptor> descriptors_;
    int nextDescriptor_ = 1000;
    int refusedSizes_ = 0;
};

}  // namespace tabulo::internal::test
