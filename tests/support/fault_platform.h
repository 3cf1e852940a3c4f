// A platform of the tests: it passes every call on to the operating system, records it, and makes chosen calls fail.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "storage/file_platform.h"

namespace tabulo::internal::test {

enum class FileCall { open, lock, unlock, readAt, writeAt, sync, syncDirectory, truncate, size, close, remove, rename };

const char* fileCallName(FileCall call);

// How much of a transfer is done when it is made a short one: always a byte at least.
enum class TransferPart { oneByte, half, allButOne };

// One call as it was asked for. Fields that the call does not have are -1 or empty.
struct RecordedCall {
    FileCall call;
    int descriptor = -1;
    std::int64_t offset = -1;  // of a transfer; the length of a truncate
    std::int64_t length = -1;  // of a transfer
    FileAccess access = FileAccess::read;
    std::string path;  // of a rename the new name
};

// Installs itself for its life; one at a time. Calls are numbered from 1 for each kind, from the construction or the
// last clear() on.
class FaultPlatform {
  public:
    FaultPlatform();
    ~FaultPlatform();
    FaultPlatform(const FaultPlatform&) = delete;
    FaultPlatform& operator=(const FaultPlatform&) = delete;

    // The n-th call of a kind fails with an error number and does nothing; a failed close still closes.
    void failNth(FileCall call, int n, int error) { failures_[call][n] = error; }
    // Every call of a kind fails from now on, or (error 0) works again.
    void failAll(FileCall call, int error) { failAll_[call] = error; }
    // Every call of a kind fails from its n-th on.
    void failFrom(FileCall call, int n, int error) { failFrom_[call] = {n, error}; }
    // Every call, whatever its kind, fails from the n-th of all calls on. A failed close still closes.
    void failEverythingFrom(int n, int error) { failEverythingFrom_ = {n, error}; }
    // The n-th readAt or writeAt, or every one from the n-th on, transfers a part and says so; no error.
    void shortenNth(FileCall call, int n, TransferPart part) { shortened_[call] = {n, n, part}; }
    void shortenFrom(FileCall call, int n, TransferPart part);
    // Syncs succeed without reaching the disk, which takes long.
    void skipSyncs() { skipSyncs_ = true; }
    // No single readAt or writeAt transfers more than this many bytes.
    void limitTransfer(std::size_t bytes) { transferLimit_ = bytes; }
    // The clock stands at this second; without it the system's clock goes.
    void setNow(std::int64_t seconds) { now_ = seconds; }

    int count(FileCall call) const;
    const std::vector<RecordedCall>& calls() const { return calls_; }
    std::vector<RecordedCall> calls(FileCall call) const;
    // The kinds of all calls in their order, as in "writeAt sync close".
    std::string sequence() const;
    // Forgets the calls, and with them what was to fail.
    void clear();

  private:
    struct Hooks;
    struct FailFrom {
        int n = 0;  // 0: none fails
        int error = 0;
    };
    struct Shortened {
        int first = 0;
        int last = 0;
        TransferPart part = TransferPart::half;
    };

    SystemError record(const RecordedCall& call);
    // The bytes that the transfer recorded last may move.
    std::size_t allowed(FileCall call, std::size_t length) const;

    FilePlatform record_{};
    const FilePlatform* previous_ = nullptr;
    std::vector<RecordedCall> calls_;
    std::map<FileCall, int> counts_;
    std::map<FileCall, std::map<int, int>> failures_;
    std::map<FileCall, int> failAll_;
    std::map<FileCall, FailFrom> failFrom_;
    FailFrom failEverythingFrom_;
    std::map<FileCall, Shortened> shortened_;
    bool skipSyncs_ = false;
    std::size_t transferLimit_ = 0;
    std::int64_t now_ = -1;
};

}  // namespace tabulo::internal::test
