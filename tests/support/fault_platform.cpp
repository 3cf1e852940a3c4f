#include "tests/support/fault_platform.h"

#include <algorithm>
#include <cerrno>
#include <limits>

#include "tests/support/platform_hooks.h"

namespace tabulo::internal::test {

namespace {

FaultPlatform* active = nullptr;

}  // namespace

// The plain functions that the record needs; they find the object through `active`.
struct FaultPlatform::Hooks {
    static SystemError open(const char* path, FileAccess access, int* descriptor) {
        const SystemError error = active->record({FileCall::open, -1, -1, -1, access, path});
        return error.failed() ? error : filePlatform_system().open(path, access, descriptor);
    }
    static SystemError lock(int descriptor) {
        const SystemError error = active->record({FileCall::lock, descriptor, -1, -1, FileAccess::read, ""});
        return error.failed() ? error : filePlatform_system().lock(descriptor);
    }
    static SystemError unlock(int descriptor) {
        const SystemError error = active->record({FileCall::unlock, descriptor, -1, -1, FileAccess::read, ""});
        return error.failed() ? error : filePlatform_system().unlock(descriptor);
    }
    static SystemError readAt(int descriptor, void* buffer, std::size_t length, std::int64_t offset,
                              std::size_t* transferred) {
        *transferred = 0;
        const SystemError error = active->record(
            {FileCall::readAt, descriptor, offset, static_cast<std::int64_t>(length), FileAccess::read, ""});
        return error.failed() ? error
                              : filePlatform_system().readAt(
                                    descriptor, buffer, active->allowed(FileCall::readAt, length), offset, transferred);
    }
    static SystemError writeAt(int descriptor, const void* buffer, std::size_t length, std::int64_t offset,
                               std::size_t* transferred) {
        *transferred = 0;
        const SystemError error = active->record(
            {FileCall::writeAt, descriptor, offset, static_cast<std::int64_t>(length), FileAccess::read, ""});
        return error.failed()
                   ? error
                   : filePlatform_system().writeAt(descriptor, buffer, active->allowed(FileCall::writeAt, length),
                                                   offset, transferred);
    }
    static SystemError sync(int descriptor) {
        const SystemError error = active->record({FileCall::sync, descriptor, -1, -1, FileAccess::read, ""});
        return error.failed() || active->skipSyncs_ ? error : filePlatform_system().sync(descriptor);
    }
    static SystemError syncDirectory(const char* path) {
        const SystemError error = active->record({FileCall::syncDirectory, -1, -1, -1, FileAccess::read, path});
        return error.failed() || active->skipSyncs_ ? error : filePlatform_system().syncDirectory(path);
    }
    static SystemError truncate(int descriptor, std::int64_t length) {
        const SystemError error = active->record({FileCall::truncate, descriptor, length, -1, FileAccess::read, ""});
        return error.failed() ? error : filePlatform_system().truncate(descriptor, length);
    }
    static SystemError size(int descriptor, std::int64_t* size) {
        const SystemError error = active->record({FileCall::size, descriptor, -1, -1, FileAccess::read, ""});
        return error.failed() ? error : filePlatform_system().size(descriptor, size);
    }
    static SystemError close(int descriptor) {
        const SystemError error = active->record({FileCall::close, descriptor, -1, -1, FileAccess::read, ""});
        const SystemError closed = filePlatform_system().close(descriptor);
        return error.failed() ? error : closed;
    }
    static SystemError remove(const char* path) {
        const SystemError error = active->record({FileCall::remove, -1, -1, -1, FileAccess::read, path});
        return error.failed() ? error : filePlatform_system().remove(path);
    }
    static SystemError rename(const char* from, const char* to) {
        const SystemError error = active->record({FileCall::rename, -1, -1, -1, FileAccess::read, to});
        return error.failed() ? error : filePlatform_system().rename(from, to);
    }
    static std::int64_t now() { return active->now_ >= 0 ? active->now_ : filePlatform_system().now(); }
};

const char* fileCallName(FileCall call) {
    switch (call) {
        case FileCall::open:
            return "open";
        case FileCall::lock:
            return "lock";
        case FileCall::unlock:
            return "unlock";
        case FileCall::readAt:
            return "readAt";
        case FileCall::writeAt:
            return "writeAt";
        case FileCall::sync:
            return "sync";
        case FileCall::syncDirectory:
            return "syncDirectory";
        case FileCall::truncate:
            return "truncate";
        case FileCall::size:
            return "size";
        case FileCall::close:
            return "close";
        case FileCall::remove:
            return "remove";
        case FileCall::rename:
            return "rename";
    }
    return "?";
}

FaultPlatform::FaultPlatform() {
    record_ = filePlatform_system();
    setFileOperations<Hooks>(&record_);
    record_.rename = Hooks::rename;
    active = this;
    previous_ = filePlatform_install(&record_);
}

FaultPlatform::~FaultPlatform() {
    filePlatform_install(previous_);
    active = nullptr;
}

SystemError FaultPlatform::record(const RecordedCall& call) {
    calls_.push_back(call);
    const int number = ++counts_[call.call];
    int error = failAll_[call.call];
    const auto& failures = failures_[call.call];
    const auto failure = failures.find(number);
    if (failure != failures.end()) {
        error = failure->second;
    }
    const FailFrom& from = failFrom_[call.call];
    if (from.n != 0 && number >= from.n) {
        error = from.error;
    }
    if (failEverythingFrom_.n != 0 && static_cast<int>(calls_.size()) >= failEverythingFrom_.n) {
        error = failEverythingFrom_.error;
    }
    if (error != 0) {
        errno = error;  // as the system's own calls leave it
    }
    return error;
}

std::size_t FaultPlatform::allowed(FileCall call, std::size_t length) const {
    std::size_t part = transferLimit_ == 0 ? length : std::min(length, transferLimit_);
    const auto shortened = shortened_.find(call);
    const int number = count(call);
    if (shortened == shortened_.end() || number < shortened->second.first || number > shortened->second.last ||
        part <= 1) {
        return part;
    }
    switch (shortened->second.part) {
        case TransferPart::oneByte:
            part = 1;
            break;
        case TransferPart::half:
            part /= 2;
            break;
        case TransferPart::allButOne:
            part -= 1;
            break;
    }
    return part;
}

void FaultPlatform::shortenFrom(FileCall call, int n, TransferPart part) {
    shortened_[call] = {n, std::numeric_limits<int>::max(), part};
}

int FaultPlatform::count(FileCall call) const {
    const auto found = counts_.find(call);
    return found == counts_.end() ? 0 : found->second;
}

std::vector<RecordedCall> FaultPlatform::calls(FileCall call) const {
    std::vector<RecordedCall> found;
    std::copy_if(calls_.begin(), calls_.end(), std::back_inserter(found),
                 [call](const RecordedCall& recorded) { return recorded.call == call; });
    return found;
}

std::string FaultPlatform::sequence() const {
    std::string text;
    for (const RecordedCall& call : calls_) {
        text += text.empty() ? "" : " ";
        text += fileCallName(call.call);
    }
    return text;
}

void FaultPlatform::clear() {
    calls_.clear();
    counts_.clear();
    failures_.clear();
    failAll_.clear();
    failFrom_.clear();
    failEverythingFrom_ = {};
    shortened_.clear();
}

}  // namespace tabulo::internal::test
