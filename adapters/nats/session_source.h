// A session info table that is shipped: its values, whenever they have changed.
#pragma once

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
    // Reads the values; true when they are to be published: they are not those that were published last. The errors of
    // a SessionInfo.
    bool look();
    bool isDue() const noexcept { return !seen_.empty() && seen_ != published_; }
    // Those of the last look.
    void publish(Publisher& publisher);

  private:
    std::filesystem::path path_;
    std::string name_;
    std::string published_;
    std::string seen_;
};

}  // namespace tabulo::shipping
