// Collects the NOTE and WARNING lines that the library writes while the object lives.
#pragma once

#include <string>
#include <vector>

#include "core/log.h"

namespace tabulo::internal::test {

// One write call of a channel: its text, already formatted.
struct LogWrite {
    std::string channel;  // "debug", "info", "warning" or "error"
    std::string text;

    bool operator==(const LogWrite&) const = default;
};

// Installs a facility of its own and installs none at its end: lines outside the life of a capture are dropped.
class LogCapture {
  public:
    LogCapture();
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    // Every call in its order.
    const std::vector<LogWrite>& writes() const { return writes_; }
    // Complete lines, without their line ends.
    std::vector<std::string> notes() const { return lines("info"); }
    std::vector<std::string> warnings() const { return lines("warning"); }
    // NOTE and WARNING lines together, in their order.
    std::vector<std::string> all() const { return lines(""); }
    void clear() { writes_.clear(); }
    // How often the library released the facility.
    int releases() const { return releases_; }

  private:
    struct Channel : LogChannel {
        LogCapture* owner = nullptr;
        const char* name = "";
    };
    struct Facility : LogFacility {
        LogCapture* owner = nullptr;
    };

    static void release(LogFacility* facility);
    static void write(LogChannel* channel, const char* format, std::va_list arguments)
        __attribute__((format(printf, 2, 0)));
    std::vector<std::string> lines(const std::string& channel) const;

    Channel channels_[4];
    Facility facility_;
    std::vector<LogWrite> writes_;
    int releases_ = 0;
};

}  // namespace tabulo::internal::test
