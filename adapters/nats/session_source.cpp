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
        published_.assign(reinterpret_cast<const char*>(newest->payload.data()), newest->payload.size());
    }
}

// Opened each time: another file may have taken its place.
bool SessionSource::look() {
    SessionInfo info = SessionInfo::open(path_);
    seen_ = sessionText(info.values());
    return isDue();
}

void SessionSource::publish(Publisher& publisher) {
    publisher.publish({.kind = RecordKind::session, .table = name_, .payload = std::as_bytes(std::span(seen_))});
    published_ = seen_;
}

}  // namespace tabulo::shipping
