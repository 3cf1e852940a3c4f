#include "adapters/nats/publisher.h"

#include <algorithm>
#include <utility>

namespace tabulo::shipping {

namespace {

constexpr std::chrono::milliseconds OWNER_ANSWERS_WITHIN{2000};

}  // namespace

Publisher::Publisher(LogStream& stream, Words words) : stream_(stream), words_(std::move(words)) {
}

// Superseded for a newest owner record whose shipper is there, or has come after us.
void Publisher::checkOwner(bool takeover) {
    const std::optional<Stored> newest = stream_.last(ownerSubject(stream_.name()));
    const std::optional<Owner> other = newest.has_value() ? ownerOf(textOf(newest->payload)) : std::nullopt;
    if (!other.has_value() || other->id == owner_.id) {
        return;
    }
    if (hasClaimed_) {
        throw Superseded("the stream " + stream_.name() + " was taken over by " + other->sentence());
    }
    if (!takeover && !stream_.ask(other->subject(stream_.name()), OWNER_ANSWERS_WITHIN, true).empty()) {
        throw Superseded("the stream " + stream_.name() + " is shipped by " + other->sentence() +
                         ": end that one, or take over with --takeover");
    }
    words_.say("going on behind " + other->sentence() + (takeover ? "" : ", which does not answer any more"));
}

void Publisher::begin(bool takeover) {
    if (!isAnswering_) {
        stream_.answer(owner_.subject(stream_.name()), [text = owner_.text()] { return text; });
        isAnswering_ = true;
    }
    checkOwner(takeover);
    // Each time anew: what is asked of the stream behind it has all that was published before.
    const std::string text = owner_.text();
    last_ = stream_.append(envelopeOf({.kind = RecordKind::owner, .payload = bytesOf(text)}, stream_.name(), nullptr));
    hasClaimed_ = true;
}

void Publisher::publish(const Record& record) {
    stream_.publish(envelopeOf(record, stream_.name(), nullptr), last_);
    last_ += 1;
}

void Publisher::publish(const MessageView& message, std::int64_t incarnation) {
    const auto whole = static_cast<std::int64_t>(message.frame().size());
    const auto limit = static_cast<std::int64_t>(stream_.payloadLimit());
    for (std::int64_t at = 0; at < whole; at += limit) {
        const Record record = recordOf(message, incarnation, at, std::min(limit, whole - at));
        stream_.publish(envelopeOf(record, stream_.name(), &message), last_);
        last_ += 1;
    }
}

}  // namespace tabulo::shipping
