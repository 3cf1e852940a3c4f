// The records that were published and are not known to be stored yet.
#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <vector>

#include "adapters/nats/log_stream.h"
#include "adapters/nats/nats_handles.h"

namespace tabulo::shipping {

// One thread uses a window. Once a record is in doubt, the window is given up with the next call, which says so by
// Unreachable; the next record begins a new one.
//
// Each record is acknowledged for itself. One acknowledgement for many would take half the time, but a record is taken
// whenever the stream's newest sequence is the one that it expects: after k records of somebody else the first k in
// flight are refused, and the one behind them is taken again.
//
// The only condition of a record is that sequence. The id that the record in front of it must have
// (Nats-Expected-Last-Msg-Id) would tell more, but each server asks it of what it remembers itself: one that has caught
// up by a snapshot remembers an older id (seen with 2.9.10), refuses the next record, and with it all that ever come.
class JetStreamWindow {
  public:
    explicit JetStreamWindow(std::string stream);

    // Of a connection that stays the same until giveUp. `expected`: none for a record behind whatever is the newest.
    void publish(natsConnection* connection, const Envelope& envelope, std::optional<std::uint64_t> expected);
    // Waits for all acknowledgements.
    void settle();
    // The sequences of the first and the last record that were acknowledged since the window was begun; else 0.
    LogStream::Ends acknowledged() const noexcept { return acknowledged_; }
    // Begins anew: what is in flight is or is not stored, now or later.
    void giveUp() noexcept;
    // Another connection is to be used: what is in flight on the one before is in doubt.
    void change();

  private:
    struct Record {
        std::optional<std::uint64_t> sequence{};  // that it is to have
        std::size_t bytes = 0;
    };

    void begin(natsConnection* connection);
    bool isFull(std::size_t bytes) const noexcept;
    bool isTimeToLook();
    void wait(std::size_t records, std::size_t bytes);
    void takeWhatHasCome();
    void take(natsMsg* acknowledgement);
    [[noreturn]] void doubt(const std::string& why);

    std::string stream_;
    std::string own_;    // what an acknowledgement of this stream begins with
    std::string inbox_;  // where they come
    SubscriptionHandle subscription_;
    std::deque<Record> inFlight_;  // the oldest first
    std::size_t bytes_ = 0;        // of all of them
    LogStream::Ends acknowledged_{};
    std::chrono::steady_clock::time_point lookedAt_{};
    std::vector<MessageHandle> sent_;  // since then; given back together: each time another thread is woken for it
};

}  // namespace tabulo::shipping
