#include "adapters/nats/publisher.h"

#include <algorithm>
#include <chrono>
#include <ctime>
#include <memory>
#include <string>
#include <utility>

#include "adapters/nats/text_lines.h"

namespace tabulo::shipping {

namespace {

constexpr std::chrono::milliseconds OWNER_ANSWERS_WITHIN{2000};
// So long a record that is there may take to be read.
constexpr std::chrono::seconds READ_WITHIN{10};

// The payload of a fence's record: behind which sequence its fence stands, or the first one of those that were begun
// and not ended.
std::string fenceText(std::uint64_t behind) {
    return "behind " + std::to_string(behind) + "\n";
}

std::uint64_t behindOf(const Stored& fence) {
    const auto values = valuesOfLines(textOf(fence.payload));
    return values.empty() ? 0 : integerOf<std::uint64_t>(values.front()).value_or(0);
}

}  // namespace

Publisher::Publisher(LogStream& stream, Words words) : stream_(stream), words_(std::move(words)) {
}

Publisher::Newest Publisher::newestOwner() {
    const std::optional<Stored> newest = stream_.last(subjectOf(stream_.name(), RecordKind::owner));
    return newest.has_value() ? Newest{newest->sequence, ownerOf(textOf(newest->payload))} : Newest{};
}

// Superseded for an owner whose shipper is there, or has come after us.
void Publisher::checkOwner(const std::optional<Owner>& newest, bool takeover) {
    if (!newest.has_value() || newest->id == owner_.id) {
        return;
    }
    if (hasClaimed_) {
        throw Superseded("the stream " + stream_.name() + " was taken over by " + newest->sentence());
    }
    if (newest->ended != 0) {
        return;
    }
    if (!takeover && !stream_.ask(newest->subject(stream_.name()), OWNER_ANSWERS_WITHIN, true).empty()) {
        throw Superseded("the stream " + stream_.name() + " is shipped by " + newest->sentence() +
                         ": end that one, or take over with --takeover");
    }
    words_.say("going on behind " + newest->sentence() + (takeover ? "" : ", which does not answer any more"));
}

// How many records have to come behind the stream's end until nothing that is in flight can be taken.
std::uint64_t Publisher::inFlight(const std::optional<Owner>& newest, std::uint64_t end) const noexcept {
    if (hasClaimed_) {
        return last_ > end ? last_ - end : 0;
    }
    // An owner of whom the stream tells nothing any more may have been killed, too.
    const bool isQuiet = end == 0 || (newest.has_value() && newest->ended != 0);
    return isQuiet ? 0 : LogStream::MOST_IN_FLIGHT;
}

// Gives the sequence behind which nothing but what we publish comes.
std::uint64_t Publisher::fence(const Newest& newest) {
    const std::uint64_t end = stream_.ends().last;
    const std::optional<Stored> before = stream_.last(subjectOf(stream_.name(), RecordKind::fence));
    const bool isUnended = before.has_value() && before->sequence > newest.sequence;
    const std::uint64_t count = std::max<std::uint64_t>(inFlight(newest.owner, end), isUnended ? 1 : 0);
    if (count == 0) {
        return end;
    }
    const std::uint64_t behind = isUnended ? std::max(behindOf(*before), newest.sequence) : end;
    const std::string text = fenceText(behind);
    const LogStream::Ends fence = stream_.append(
        envelopeOf({.kind = RecordKind::fence, .payload = bytesOf(text)}, stream_.name(), nullptr), count);
    if (isUnended || fence.last - fence.first + 1 != count) {
        removeBehindFences(behind + 1, fence.last);
    }
    return fence.last;
}

void Publisher::removeBehindFences(std::uint64_t from, std::uint64_t to) {
    const std::unique_ptr<LogCursor> cursor = stream_.read(from);
    const auto giveUpAt = std::chrono::steady_clock::now() + READ_WITHIN;
    bool isFenced = false;
    for (std::uint64_t at = from; at <= to;) {
        const std::optional<Stored> stored = cursor->next(std::chrono::milliseconds(100));
        if (!stored.has_value()) {
            if (std::chrono::steady_clock::now() > giveUpAt) {
                throw Unreachable("reading " + stream_.name() + ": the record " + std::to_string(at) +
                                  " does not come");
            }
            continue;
        }
        at = stored->sequence + 1;
        if (stored->subject == subjectOf(stream_.name(), RecordKind::fence)) {
            isFenced = true;
        } else if (stored->subject == subjectOf(stream_.name(), RecordKind::owner)) {
            isFenced = false;
        } else if (isFenced) {
            stream_.remove(stored->sequence);
        }
    }
}

void Publisher::publishOwner(const Owner& owner) {
    const std::string text = owner.text();
    publish({.kind = RecordKind::owner, .payload = bytesOf(text)});
    stream_.settle();
}

void Publisher::begin(bool takeover) {
    if (!isAnswering_) {
        stream_.answer(owner_.subject(stream_.name()), [text = owner_.text()] { return text; });
        isAnswering_ = true;
    }
    const Newest newest = newestOwner();
    checkOwner(newest.owner, takeover);
    last_ = fence(newest);
    publishOwner(owner_);
    hasClaimed_ = true;
}

void Publisher::end() {
    stream_.settle();
    Owner ended = owner_;
    ended.ended = std::time(nullptr);
    try {
        publishOwner(ended);
    } catch (const Unreachable&) {
        return;  // all that matters is stored; a fence costs the next one little
    }
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
