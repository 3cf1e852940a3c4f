// A replicated log that keeps records in one order: all that shipping asks of a transport. jetstream.h is the one there
// is.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "adapters/nats/record.h"

namespace tabulo::shipping {

// The other side does not answer, or not any more; nothing is known of what was asked last. Worth trying again.
struct Unreachable : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// What trying again does not mend: a wrong certificate, a refused password, a stream with other subjects.
struct Refused : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// The records of a stream from one on, as they come.
class LogCursor {
  public:
    virtual ~LogCursor() = default;
    // The next one, or none when there was none for so long; 0 gives what has come already. Sequences ascend; one that
    // is left out is not in the stream any more. Unreachable.
    virtual std::optional<Stored> next(std::chrono::milliseconds timeout) = 0;
    // How many records stood behind the one that was given last, when it was sent.
    virtual std::uint64_t pending() const noexcept = 0;
};

// One thread uses a LogStream. Every operation may throw Unreachable and Refused.
class LogStream {
  public:
    // So many records at most are published by one shipper and not known to be stored. What others do relies on it.
    static constexpr std::size_t MOST_IN_FLIGHT = 2048;

    virtual ~LogStream() = default;

    virtual const std::string& name() const noexcept = 0;
    // Bytes of a payload that surely go over, beside the headers.
    virtual std::size_t payloadLimit() const noexcept = 0;

    // The sequence of the newest record, 0 before the first one; and of the oldest one that is still there, one behind
    // the newest when none is.
    struct Ends {
        std::uint64_t first = 0;
        std::uint64_t last = 0;
        std::int64_t made = 0;  // when the stream was, in nanoseconds since the epoch: another one is another stream
    };
    virtual Ends ends() = 0;
    // The newest record whose subject matches ("ENG1.orders.>"); the record of a sequence; the first record from a
    // sequence on whose subject matches. None when there is none.
    virtual std::optional<Stored> last(const std::string& subjects) = 0;
    virtual std::optional<Stored> at(std::uint64_t sequence) = 0;
    virtual std::optional<Stored> from(std::uint64_t sequence, const std::string& subjects) = 0;
    // The subjects that match and have a record.
    virtual std::vector<std::string> subjects(const std::string& matching) = 0;
    virtual std::unique_ptr<LogCursor> read(std::uint64_t from) = 0;

    // Publishes a record behind whatever is the newest one, so many times, and waits until all are stored. Gives the
    // sequences of the first and the last of them: others may stand in between.
    virtual Ends append(const Envelope& envelope, std::uint64_t times) = 0;
    // Publishes a record as the one behind the sequence `expected`. Returns before it is stored, unless the window of
    // such records is full. Unreachable as soon as one of them is in doubt: it timed out, or was refused as something
    // else has become the record of its sequence. The window is then given up: any record of it may still be on its
    // way, and is stored whenever the stream's newest sequence is the one that it expects (publisher.h).
    virtual void publish(const Envelope& envelope, std::uint64_t expected) = 0;
    // Waits until all are stored.
    virtual void settle() = 0;
    // Deletes a record, whose sequence stays empty. Nothing is done where there is none.
    virtual void remove(std::uint64_t sequence) = 0;

    // Answers what others ask on a subject outside of the stream, in a thread of the transport, also while and after
    // this object goes: what the answer needs it must own.
    virtual void answer(const std::string& subject, std::function<std::string()> answer) = 0;
    // Asks all who answer there, and takes what comes in such a time; one answer is enough when `one`.
    virtual std::vector<std::string> ask(const std::string& subject, std::chrono::milliseconds time, bool one) = 0;
};

}  // namespace tabulo::shipping
