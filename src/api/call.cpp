#include "api/call.h"

#include <utility>

#include "api/log_gathering.h"
#include "core/system_error.h"
#include "storage/file_platform.h"

namespace tabulo::api {

namespace {

thread_local Call* innermost = nullptr;

void addTo(void* call, std::string_view line) {
    try {
        static_cast<Call*>(call)->addWarning(line);
    } catch (...) {  // no memory: the line is lost
    }
}

// The codes behind which a refused call to the system can stand.
bool mayBeSystems(internal::ErrorCode code) {
    switch (code) {
        case internal::SYSTEM_FILE_ERROR:
        case internal::FILE_OPEN_ERROR:
        case internal::FILE_SEEK_ERROR:
        case internal::FILE_READ_ERROR:
        case internal::FILE_WRITE_ERROR:
        case internal::FILE_TRUNCATE_ERROR:
        case internal::FILE_FLUSH_ERROR:
            return true;
        default:
            return false;
    }
}

}  // namespace

Call::Call(const std::filesystem::path* path) noexcept : path_(path), outer_(innermost) {
    gatherer_.emplace(addTo, this);
    log_becomeQuiet();
    innermost = this;
    internal::systemError_clear();
}

Call::~Call() {
    if (whole_ == nullptr) {
        innermost = outer_;
    }
}

void Call::addWarning(std::string_view line) {
    warnings_.emplace_back(line);
    if (outer_ != nullptr) {
        outer_->addWarning(line);
    }
}

void Call::fail(internal::ErrorCode code, std::optional<std::int64_t> offset, std::string detail,
                std::int64_t stored) const {
    Error::Details details;
    details.code = static_cast<Code>(code);
    if (path_ != nullptr) {
        details.path = *path_;
    }
    details.offset = offset;
    details.detail = std::move(detail);
    const internal::SystemError error = internal::systemError_first();
    if (error.failed() && mayBeSystems(code)) {
        details.systemText = internal::filePlatform_errorText(error);
    }
    details.warnings = warnings();
    details.stored = stored;
    throw Error(std::move(details));
}

void refuse(std::string detail) {
    refuse(Code::wrongParameter, std::move(detail));
}

void refuse(Code code, std::string detail) {
    Error::Details details;
    details.code = code;
    details.detail = std::move(detail);
    throw Error(std::move(details));
}

std::string checkedPath(const std::filesystem::path& path) {
    std::string text = path.string();
    if (text.empty()) {
        refuse("the path is empty");
    }
    if (text.find('\0') != std::string::npos) {
        refuse("the path holds a zero byte");
    }
    return text;
}

}  // namespace tabulo::api
