// How far a receiver is behind its stream, for whoever asks.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <string>

#include "adapters/nats/lag.h"

namespace tabulo::shipping {

// Any thread may use it.
class ReceiverLag {
  public:
    explicit ReceiverLag(LagReport report) : report_(std::move(report)) {}

    // So many records are to come. Those that are no messages count, too.
    void begin(std::uint64_t pending);
    // A record of this size was taken, behind which so many stand.
    void took(std::size_t size, std::uint64_t pending);
    // The answer.
    std::string text();

  private:
    using Clock = std::chrono::steady_clock;

    std::mutex mutex_;
    LagReport report_;
    Clock::time_point upToDate_ = Clock::now();
    std::int64_t records_ = 0;
    std::int64_t bytes_ = 0;
};

}  // namespace tabulo::shipping
