// Publishes records one behind the other, each as the one that follows the one before it.
//
// A record says which sequence it follows, and is taken whenever the stream's newest one is that. When somebody else's
// record comes in between, the first in flight is refused, but the next one may be taken again, and something is
// missing in front of it. This happens when another shipper begins, or the same one again after a doubt, while records
// of before are on their way. So a shipper first puts up a fence:
//
//   1. as many records of the kind fence as may be in flight elsewhere: none of those can be taken behind them;
//   2. records of tables that have come in between are deleted;
//   3. its owner record, as the one that follows the fence.
//
// Whoever reads the stream before they are deleted leaves out what stands behind a fence and in front of an owner
// record.
#pragma once

#include <cstdint>
#include <optional>

#include "adapters/nats/log_stream.h"
#include "adapters/nats/owner.h"
#include "adapters/nats/record.h"
#include "adapters/nats/words.h"

namespace tabulo::shipping {

// Another shipper publishes this stream; the text names it and says what to do.
struct Superseded : std::runtime_error {
    using std::runtime_error::runtime_error;
};

class Publisher {
  public:
    Publisher(LogStream& stream, Words words);

    // Asks where the stream ends, and makes it ours: Superseded when another shipper publishes it that answers, unless
    // `takeover`, or has taken it over from us. What is asked of the stream behind it has all that was published
    // before.
    void begin(bool takeover);
    // `message`: of a record of the kind message; in parts where it does not go over as one.
    void publish(const Record& record);
    void publish(const MessageView& message, std::int64_t incarnation);
    // Says in the stream that nothing more comes, once all is stored: the next shipper needs no fence.
    void end();

    LogStream& stream() noexcept { return stream_; }
    std::uint64_t last() const noexcept { return last_; }
    const Owner& owner() const noexcept { return owner_; }

  private:
    struct Newest {
        std::uint64_t sequence = 0;
        std::optional<Owner> owner{};
    };

    Newest newestOwner();
    void checkOwner(const std::optional<Owner>& newest, bool takeover);
    std::uint64_t inFlight(const std::optional<Owner>& newest, std::uint64_t end) const noexcept;
    std::uint64_t fence(const Newest& newest);
    void removeBehindFences(std::uint64_t from, std::uint64_t to);
    void publishOwner(const Owner& owner);

    LogStream& stream_;
    Words words_;
    Owner owner_ = Owner::here();
    bool hasClaimed_ = false;
    bool isAnswering_ = false;
    std::uint64_t last_ = 0;  // what the newest record that was published has, or would have, as its sequence
};

}  // namespace tabulo::shipping
