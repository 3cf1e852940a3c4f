// Publishes records one behind the other, each as the one that follows the one before it.
#pragma once

#include <cstdint>

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
    // `takeover`, or has taken it over from us.
    void begin(bool takeover);
    // `message`: of a record of the kind message; in parts where it does not go over as one.
    void publish(const Record& record);
    void publish(const MessageView& message, std::int64_t incarnation);

    LogStream& stream() noexcept { return stream_; }
    std::uint64_t last() const noexcept { return last_; }
    const Owner& owner() const noexcept { return owner_; }

  private:
    void checkOwner(bool takeover);

    LogStream& stream_;
    Words words_;
    Owner owner_ = Owner::here();
    bool hasClaimed_ = false;
    bool isAnswering_ = false;
    std::uint64_t last_ = 0;
};

}  // namespace tabulo::shipping
