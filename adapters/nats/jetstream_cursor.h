// Reads a stream in order through a consumer of its own, which is made anew, behind what was read, when it breaks.
#pragma once

#include <cstdint>
#include <string>

#include "adapters/nats/log_stream.h"
#include "adapters/nats/nats_handles.h"

namespace tabulo::shipping {

class JetStreamCursor : public LogCursor {
  public:
    // Both must outlive it.
    JetStreamCursor(natsConnection* connection, const std::string& stream, std::uint64_t from);
    ~JetStreamCursor() override;

    std::optional<Stored> next(std::chrono::milliseconds timeout) override;
    std::uint64_t pending() const noexcept override { return pending_; }

  private:
    void subscribe();
    bool isComplete();
    std::uint64_t lastAtLeader();
    bool mayBeAtLeader(std::uint64_t sequence, std::uint64_t behind);

    natsConnection* connection_;
    std::string stream_;
    std::uint64_t next_;  // the sequence that is due
    ContextHandle context_;
    SubscriptionHandle subscription_;
    std::uint64_t pending_ = 0;
    std::chrono::steady_clock::time_point heardAt_{};
    std::uint64_t delivered_ = 0;  // by this consumer
};

}  // namespace tabulo::shipping
