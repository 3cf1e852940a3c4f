// The records that were published and are not known to be stored yet.
#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <vector>

#include "adapters/nats/nats_handles.h"
#include "adapters/nats/record.h"

namespace tabulo::shipping {

// One thread uses a window. Once a record is in doubt, the window is given up with the next call, which says so by
// Unreachable; the next record begins a new one.
//
// A stream takes a record only behind the one in front of it, so that one acknowledgement tells of all records up to
// its own: it is asked for with every 64th of them, and with one that comes after a pause. This halves the time that a
// record takes here beside the library's own publishing, which asks for each.
class JetStreamWindow {
  public:
    explicit JetStreamWindow(std::string stream);

    // Of a connection that stays the same until giveUp.
    void publish(natsConnection* connection, const Envelope& envelope, std::uint64_t expected);
    // Waits for the acknowledgements that were asked for.
    void settle();
    // The newest record, when its acknowledgement was not asked for.
    struct Newest {
        std::uint64_t sequence = 0;
        std::string id;
    };
    std::optional<Newest> unasked() const {
        return unasked_.records == 0 ? std::nullopt : std::optional(Newest{newest_, newestId_});
    }
    // Begins anew: what is in flight is stored, as somebody else has told, or it is or is not.
    void giveUp() noexcept;

  private:
    // Records one behind the other, up to one whose acknowledgement is asked for.
    struct Group {
        std::size_t records = 0;
        std::size_t bytes = 0;
    };

    void begin(natsConnection* connection);
    bool isFull(std::size_t bytes) const noexcept;
    bool isTimeToAsk();
    void wait(std::size_t records, std::size_t bytes);
    void takeWhatHasCome();
    void take(natsMsg* acknowledgement);
    MessageHandle messageWith(const Envelope& envelope, std::uint64_t expected, bool isAsked);
    [[noreturn]] void doubt(const std::string& why);

    std::string stream_;
    std::string acknowledged_;  // what an acknowledgement of this stream begins with
    std::string inbox_;         // where they come
    SubscriptionHandle subscription_;
    // Each record names itself by this and its number, and the record that must stand in front of it, when that is in
    // flight.
    std::string id_;
    std::uint64_t published_ = 0;
    std::string newestId_;
    std::uint64_t newest_ = 0;  // its sequence
    std::chrono::steady_clock::time_point askedAt_{};
    Group unasked_;                    // behind the last one that was asked for
    std::deque<Group> asked_;          // the oldest first
    Group inFlight_;                   // all of them
    std::vector<MessageHandle> sent_;  // given back together: each time another thread is woken for it
};

}  // namespace tabulo::shipping
