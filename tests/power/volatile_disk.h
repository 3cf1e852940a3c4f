// A disk of the tests in memory, with a cache that forgets: what was not committed when the power fails is there, gone
// or torn.
//
// Writes, cuts and names are seen at once by whoever asks, and reach the disk with sync (a file's bytes and length) or
// syncDirectory (names). powerLoss() leaves of each file what file_loss.h allows. Of a name that was made or removed
// the last steps may be missing. Installs itself for its life, one at a time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "storage/file_platform.h"
#include "tests/power/file_loss.h"
#include "tests/support/bytes.h"

namespace tabulo::internal::test {

class VolatileDisk {
  public:
    VolatileDisk();
    ~VolatileDisk();
    VolatileDisk(const VolatileDisk&) = delete;
    VolatileDisk& operator=(const VolatileDisk&) = delete;

    // A file as it stands on the disk, with its name.
    void put(const std::string& path, const Bytes& bytes);
    // The process stops in the n-th call from now that changes something (1 is the next): this call is done, done in
    // part (unless `wholeWrites`) or not done, and all that follow fail. 0: it does not stop.
    void stopAt(std::int64_t n, Random& random, bool wholeWrites = false);
    // The process stops between two calls.
    void stopNow() { stopped_ = true; }
    bool stopped() const { return stopped_; }
    // A new process: what the old one held open is closed, its locks are gone.
    void restart();
    // The machine stops, and starts again with what is on the disk.
    void powerLoss(Random& random, Tearing tearing);

    // The content as a process sees it now; nothing when the file is missing.
    std::optional<Bytes> content(const std::string& path) const;
    // What the last sync has put on the disk.
    Bytes committed(const std::string& path) const;
    // How often the file was committed.
    std::int64_t syncs(const std::string& path) const;
    // Whether the file would be found after a power loss.
    bool isNameCommitted(const std::string& path) const;
    // All files by path, as a process sees them.
    std::map<std::string, Bytes> files() const;
    std::int64_t calls() const { return calls_; }
    void advanceClock(std::int64_t seconds) { now_ += seconds; }

  private:
    struct Hooks;
    struct File {
        Bytes current;
        Bytes committed;
        std::vector<FileChange> pending;  // since the last sync
        std::int64_t syncs = 0;
        int lockedBy = -1;
        bool writtenSinceStart = false;
    };
    using FilePtr = std::shared_ptr<File>;
    using Names = std::map<std::string, FilePtr>;
    struct NameChange {
        std::string path;
        FilePtr file;  // null: removed
    };

    // How much of a changing call is done: all (1), a part (between), nothing (0); no value when the process has
    // stopped before.
    std::optional<double> change();

    FilePlatform record_{};
    const FilePlatform* previous_ = nullptr;
    Names names_;
    Names committedNames_;
    std::vector<NameChange> pendingNames_;
    std::map<int, FilePtr> open_;
    int nextDescriptor_ = 100;
    std::int64_t now_ = 1000000;
    std::int64_t calls_ = 0;
    std::int64_t untilStop_ = 0;
    double doneAtStop_ = 0;
    bool stopped_ = false;
};

}  // namespace tabulo::internal::test
