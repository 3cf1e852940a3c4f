// A session info table that is shipped: its values, whenever they have changed.
#pragma once

#include <chrono>
#include <filesystem>
#include <optional>
#include <string>

#include "adapters/nats/publisher.h"
#include "tabulo/session_info.h"

namespace tabulo::shipping {

class SessionSource {
  public:
    explicit SessionSource(std::filesystem::path path);

    const std::string& name() const noexcept { return name_; }
    // Asks the stream for the values that it has.
    void begin(LogStream& stream);
    // Reads the values; true when they are to be published: they are not those that were published last. A table that
    // cannot be read, which is so for a moment while another file takes its place, gives false at first, and the errors
    // of a SessionInfo once, when it has been so for that time.
    bool look(std::chrono::milliseconds patience);
    bool isDue() const noexcept { return !seen_.empty() && seen_ != published_; }
    // Those of the last look.
    void publish(Publisher& publisher);

  private:
    std::filesystem::path path_;
    std::string name_;
    std::string published_;
    std::string seen_;
    std::optional<std::chrono::steady_clock::time_point> unreadableSince_;
    bool isTold_ = false;
};

}  // namespace tabulo::shipping
