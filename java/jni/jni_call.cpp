#include "jni/jni_call.h"

#include <new>

#include "core/system_error.h"
#include "storage/file_platform.h"

namespace tabulo::internal {

namespace {

constexpr std::size_t MOST_WARNINGS = 16;  // a watch may go on for months

thread_local JniCall* innermost = nullptr;

void addWarning(void* warnings, std::string_view line) {
    auto& lines = *static_cast<std::vector<std::string>*>(warnings);
    try {
        if (lines.size() == MOST_WARNINGS) {
            lines.erase(lines.begin());
        }
        lines.emplace_back(line);
    } catch (const std::bad_alloc&) {  // the line is lost
    }
}

std::string textOf(const RefusedCall& refused) {
    std::string text = refused.what == nullptr ? "a call" : refused.what;
    if (refused.path != nullptr) {
        text += std::string(" of ") + refused.path;
    }
    if (filePlatform_isLocked(refused.error)) {
        return text + " was refused: another process has it open for writing, or this one a second time";
    }
    text += std::string(" was refused: ") + filePlatform_errorText(refused.error);
    return filePlatform_isFull(refused.error) ? text + " (the disk is full)" : text;
}

void append(std::string* all, std::string_view part) {
    if (!all->empty()) {
        *all += "; ";
    }
    *all += part;
}

}  // namespace

JniCall::JniCall(JNIEnv* env) noexcept : env_(env), outer_(innermost), gatherer_(addWarning, &warnings_) {
    innermost = this;
    if (outer_ != nullptr) {
        outer_->keepRefused();
    }
    systemError_clear();
}

JniCall::~JniCall() {
    innermost = outer_;
    if (cause_ != nullptr) {
        env_->DeleteGlobalRef(cause_);
    }
}

JniCall* JniCall::current() noexcept {
    return innermost;
}

void JniCall::keepRefused() noexcept {
    const RefusedCall refused = systemError_refused();
    if (!refused.error.failed()) {
        return;
    }
    try {
        sentences_.push_back(textOf(refused));
    } catch (const std::bad_alloc&) {  // the code says what is most needed
    }
}

void JniCall::keepCause(jthrowable thrown) noexcept {
    if (cause_ == nullptr && thrown != nullptr) {
        cause_ = static_cast<jthrowable>(env_->NewGlobalRef(thrown));
    }
}

void JniCall::add(std::string_view sentence) noexcept {
    try {
        sentences_.emplace_back(sentence);
    } catch (const std::bad_alloc&) {  // the code says what is most needed
    }
}

std::string JniCall::detail() const {
    std::string all;
    for (const std::string& sentence : sentences_) {
        append(&all, sentence);
    }
    const RefusedCall refused = systemError_refused();
    if (refused.error.failed()) {
        append(&all, textOf(refused));
    }
    for (const std::string& warning : warnings_) {
        append(&all, warning);
    }
    return all;
}

}  // namespace tabulo::internal
