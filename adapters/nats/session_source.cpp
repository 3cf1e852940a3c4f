#include "adapters/nats/session_source.h"

#include <utility>

#include "adapters/nats/session_text.h"

namespace tabulo::shipping {

SessionSource::SessionSource(std::filesystem::path path) : path_(std::move(path)), name_(path_.filename().string()) {
}

void SessionSource::begin(LogStream& stream) {
    const std::optional<Stored> newest = stream.last(subjectOf(stream.name(), name_, RecordKind::session));
    published_.clear();
    if (newest.has_value()) {
        published_ = textOf(newest->payload);
    }
}

// Opened each time: another file may have taken its place.
bool SessionSource::look(std::chrono::milliseconds patience) {
    try {
        seen_ = sessionText(SessionInfo::open(path_).values());
    } catch (const Error&) {
        const auto now = std::chrono::steady_clock::now();
        unreadableSince_ = unreadableSince_.value_or(now);
        if (isTold_ || now - *unreadableSince_ < patience) {
            return false;
        }
        isTold_ = true;
        throw;
    }
    unreadableSince_.reset();
    isTold_ = false;
    return isDue();
}

void SessionSource::publish(Publisher& publisher) {
    publisher.publish({.kind = RecordKind::session, .table = name_, .payload = bytesOf(seen_)});
    published_ = seen_;
}

}  // namespace tabulo::shipping
