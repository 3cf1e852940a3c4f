#include "adapters/nats/source_table.h"

#include <algorithm>
#include <utility>

namespace tabulo::shipping {

namespace {

// What a table's file must hold by a record of it.
Shipped shippedBy(const Stored& stored) {
    const Record record = recordOf(stored);
    Shipped shipped{.kind = record.kind, .incarnation = record.incarnation, .sequence = stored.sequence};
    if (record.kind == RecordKind::message) {
        shipped.uniformId = record.uniformId;
        shipped.bytes = stored.payload;
        shipped.frameAt = record.offset;
        shipped.bytesAt = record.offset + record.at;
        shipped.isWhole = record.isLastPart();
    } else if (record.kind == RecordKind::rewind && !stored.payload.empty()) {
        shipped.bytes = stored.payload;
        shipped.frameAt = record.at;
        shipped.bytesAt = record.at;
    }
    return shipped;
}

// The block in which a frame stands. vseek when it stands in none.
std::int64_t blockOf(Reader& reader, std::int64_t offset) {
    for (const BlockRecord& block : reader.blocks()) {
        if (block.offset < offset && offset < block.offset + block.length) {
            return block.offset;
        }
    }
    throw Error({.code = Code::vseek,
                 .path = reader.path(),
                 .offset = offset,
                 .detail = "the table has no block where the stream's newest message is said to stand"});
}

}  // namespace

SourceTable::SourceTable(std::filesystem::path path) : path_(std::move(path)), name_(path_.filename().string()) {
}

Shipped SourceTable::ask(LogStream& stream) const {
    const std::optional<Stored> newest = stream.last(subjectsOf(stream.name(), name_));
    return newest.has_value() ? shippedBy(*newest) : Shipped{};
}

Since SourceTable::compare(LogStream& stream, const Shipped& shipped) const {
    const TableBytes file(path_);
    if (!file.isOpen()) {
        return Since::missing;
    }
    if (shipped.bytes.empty() || file.holds(shipped.bytesAt, shipped.bytes)) {
        return Since::same;
    }
    const std::optional<Stored> layout = stream.last(subjectOf(stream.name(), name_, RecordKind::layout));
    if (!layout.has_value()) {
        return Since::rewound;  // the stream's limits have taken it: what cannot be told apart is taken for the worse
    }
    const std::optional<Stored> first = stream.from(layout->sequence + 1, messagesOf(stream.name(), name_));
    if (!first.has_value()) {
        return Since::rewound;
    }
    const Shipped begin = shippedBy(*first);
    return file.holds(begin.bytesAt, begin.bytes) ? Since::rewound : Since::dropped;
}

SourceTable::Place SourceTable::placeBehind(const Shipped& shipped) const {
    Reader reader(path_);
    if (shipped.bytes.empty()) {
        return {reader.begin(), 0};
    }
    const Position frame{blockOf(reader, shipped.frameAt), shipped.frameAt};
    Messages messages = reader.messages(Query().from(frame));
    const MessageView* message = messages.next();
    if (message == nullptr || message->position() != frame) {
        throw Error({.code = Code::vseek,
                     .path = path_,
                     .offset = frame.offset,
                     .detail = "no message begins where the stream's newest one is said to stand"});
    }
    return shipped.isWhole ? Place{message->next(), message->ordinal() + 1} : Place{frame, message->ordinal()};
}

Shipped SourceTable::newestCommon(LogStream& stream, const Shipped& shipped, ValueRange<std::int32_t>* lost) const {
    const TableBytes file(path_);
    const std::string subjects = subjectsOf(stream.name(), name_);
    const std::string ours = subjects.substr(0, subjects.size() - 1);
    *lost = {shipped.uniformId, shipped.uniformId};
    Shipped candidate;  // of which all parts that were seen are the same
    bool isCandidate = false;
    for (std::uint64_t sequence = shipped.sequence; sequence > 0; --sequence) {
        const std::optional<Stored> stored = stream.at(sequence);
        if (!stored.has_value() || !stored->subject.starts_with(ours)) {
            continue;
        }
        Shipped at = shippedBy(*stored);
        if (at.incarnation != shipped.incarnation || at.kind == RecordKind::layout) {
            break;
        }
        if (isCandidate && at.frameAt != candidate.frameAt) {
            return candidate;
        }
        if (at.bytes.empty()) {
            continue;
        }
        if (!file.holds(at.bytesAt, at.bytes)) {
            isCandidate = false;
            lost->first = std::min(lost->first, at.uniformId);
            lost->last = std::max(lost->last, at.uniformId);
        } else if (at.isWhole && !isCandidate) {
            candidate = std::move(at);
            isCandidate = true;
        }
    }
    return isCandidate ? candidate : Shipped{.incarnation = shipped.incarnation};
}

}  // namespace tabulo::shipping
