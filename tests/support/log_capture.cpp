#include "tests/support/log_capture.h"

#include <cstdio>

#include "tests/support/text_lines.h"

namespace tabulo::internal::test {

LogCapture::LogCapture() {
    const char* names[] = {"debug", "info", "warning", "error"};
    for (std::size_t i = 0; i < 4; ++i) {
        channels_[i].LogChannel::release = nullptr;
        channels_[i].LogChannel::write = &LogCapture::write;
        channels_[i].owner = this;
        channels_[i].name = names[i];
    }
    facility_.LogFacility::release = &LogCapture::release;
    facility_.debug = &channels_[0];
    facility_.info = &channels_[1];
    facility_.warning = &channels_[2];
    facility_.error = &channels_[3];
    facility_.owner = this;
    log_setFacility(&facility_);
}

LogCapture::~LogCapture() {
    if (releases_ == 0) {
        log_setFacility(nullptr);
    }
}

void LogCapture::release(LogFacility* facility) {
    static_cast<Facility*>(facility)->owner->releases_ += 1;
}

void LogCapture::write(LogChannel* channel, const char* format, std::va_list arguments) {
    auto* self = static_cast<Channel*>(channel);
    std::va_list again;
    va_copy(again, arguments);
    const int length = std::vsnprintf(nullptr, 0, format, again);
    va_end(again);
    std::string text(static_cast<std::size_t>(length), '\0');
    std::vsnprintf(text.data(), text.size() + 1, format, arguments);
    self->owner->writes_.push_back({self->name, text});
}

std::vector<std::string> LogCapture::lines(const std::string& channel) const {
    std::string text;
    for (const LogWrite& write : writes_) {
        if (channel.empty() || write.channel == channel) {
            text += write.text;
        }
    }
    return textLines(text);
}

}  // namespace tabulo::internal::test
