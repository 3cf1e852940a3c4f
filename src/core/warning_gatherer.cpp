#include "core/warning_gatherer.h"

#include <cstdio>
#include <new>

namespace tabulo::internal {

namespace {

thread_local WarningGatherer* innermost = nullptr;

}  // namespace

WarningGatherer::WarningGatherer(void (*take)(void* owner, std::string_view line), void* owner) noexcept
    : take_(take), owner_(owner), outer_(innermost) {
    innermost = this;
}

WarningGatherer::~WarningGatherer() {
    innermost = outer_;
}

WarningGatherer* WarningGatherer::current() noexcept {
    return innermost;
}

void WarningGatherer::add(const char* format, std::va_list arguments) noexcept {
    std::va_list again;
    va_copy(again, arguments);
    const int length = std::vsnprintf(nullptr, 0, format, again);
    va_end(again);
    if (length < 0) {
        return;
    }
    try {
        const std::size_t start = pieces_.size();
        pieces_.resize(start + static_cast<std::size_t>(length) + 1);
        std::vsnprintf(pieces_.data() + start, static_cast<std::size_t>(length) + 1, format, arguments);
        pieces_.pop_back();  // the terminating zero byte
    } catch (const std::bad_alloc&) {
        pieces_.clear();
        return;
    }
    for (std::size_t end = pieces_.find('\n'); end != std::string::npos; end = pieces_.find('\n')) {
        take_(owner_, std::string_view(pieces_).substr(0, end));
        pieces_.erase(0, end + 1);
    }
}

}  // namespace tabulo::internal
