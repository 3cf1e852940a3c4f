#include "adapters/nats/record.h"

#include <algorithm>
#include <array>
#include <optional>
#include <type_traits>

#include "adapters/nats/subject_token.h"
#include "adapters/nats/text_lines.h"

namespace tabulo::shipping {

namespace {

constexpr const char* TABLE = "Tabulo-Table";
constexpr const char* PLACE = "Tabulo-Place";
constexpr const char* MESSAGE = "Tabulo-Message";
constexpr const char* PART = "Tabulo-Part";
constexpr const char* KEPT = "Tabulo-Kept";

constexpr std::string_view NO_CLASS = "=none";
// By kind; a message has none.
constexpr std::array<std::string_view, 8> MARKS = {"",     "=layout",  "=drop",  "=rewind",
                                                   "=gap", "=session", "=owner", "=fence"};

std::string_view markOf(RecordKind kind) {
    return MARKS[static_cast<std::size_t>(kind)];
}

std::string subjectWith(std::string_view stream, std::string_view table, std::string_view rest) {
    return std::string(stream) + '.' + escaped(table) + '.' + std::string(rest);
}

// Numbers as a header has them.
template <typename... Integers>
std::string joined(std::int64_t first, Integers... others) {
    std::string text = std::to_string(first);
    ((text += '/', text += std::to_string(others)), ...);
    return text;
}

// What a stored record's headers say, or why they cannot be those of a record.
class Headers {
  public:
    explicit Headers(const Stored& stored) : stored_(stored) {}

    [[noreturn]] void refuse(const std::string& why) const {
        throw ForeignRecord("the record " + std::to_string(stored_.sequence) + " on " + stored_.subject + ": " + why);
    }
    const std::string* find(std::string_view name) const {
        const auto found = std::find_if(stored_.headers.begin(), stored_.headers.end(),
                                        [&](const auto& header) { return header.first == name; });
        return found == stored_.headers.end() ? nullptr : &found->second;
    }
    const std::string& text(std::string_view name) const {
        const std::string* value = find(name);
        if (value == nullptr) {
            refuse("it has no header " + std::string(name));
        }
        return *value;
    }
    // The numbers of a header, with a '/' between them.
    template <typename... Integers>
    void numbers(std::string_view name, Integers*... values) const {
        const auto words = splitAt('/', text(name));
        std::size_t taken = 0;
        const auto take = [&](auto* value) {
            const auto found = integerOf<std::remove_pointer_t<decltype(value)>>(words[taken]);
            taken += 1;
            *value = found.value_or(0);
            return found.has_value();
        };
        if (words.size() != sizeof...(values) || !(take(values) && ...)) {
            refuse("its header " + std::string(name) + " has no numbers that can be");
        }
    }

  private:
    const Stored& stored_;
};

void takeParts(const Headers& headers, Record* record) {
    const auto size = static_cast<std::int64_t>(record->payload.size());
    record->whole = size;
    if (headers.find(PART) != nullptr) {
        headers.numbers(PART, &record->at, &record->whole);
        if (record->at < 0 || record->whole > INT32_MAX || record->at > record->whole - size) {
            headers.refuse("its header Tabulo-Part does not fit its payload");
        }
    }
    if (size == 0) {
        headers.refuse("a message without a payload");
    }
}

RecordKind kindOf(std::string_view lastPart) {
    const auto found = std::find(MARKS.begin() + 1, MARKS.end(), lastPart);
    return found == MARKS.end() ? RecordKind::message : static_cast<RecordKind>(found - MARKS.begin());
}

}  // namespace

bool isTableName(std::string_view name) {
    return !name.empty() && name.size() <= 255 && name != "." && name != ".." &&
           name.find_first_of(std::string_view("/\0", 2)) == std::string_view::npos && !name.starts_with(".tabulo-");
}

Record recordOf(const MessageView& message, std::int64_t incarnation, std::int64_t at, std::int64_t length) {
    const auto frame = message.frame();
    return {.kind = RecordKind::message,
            .table = std::string(message.table()),
            .incarnation = incarnation,
            .offset = message.position().offset,
            .uniformId = message.uniformId(),
            .seqNum = message.seqNum(),
            .time = message.time(),
            .at = at,
            .whole = static_cast<std::int64_t>(frame.size()),
            .payload = frame.subspan(static_cast<std::size_t>(at), static_cast<std::size_t>(length))};
}

Envelope envelopeOf(const Record& record, std::string_view stream, const MessageView* message) {
    if (!isOfTable(record.kind)) {
        return {subjectOf(stream, record.kind), {}, record.payload};
    }
    Envelope envelope;
    envelope.payload = record.payload;
    envelope.headers.reserve(4);
    envelope.headers.push_back({TABLE, escaped(record.table)});
    envelope.headers.push_back({PLACE, joined(record.incarnation, record.offset)});
    if (record.kind == RecordKind::rewind && !record.payload.empty()) {
        envelope.headers.push_back({KEPT, std::to_string(record.at)});
    }
    if (record.kind != RecordKind::message) {
        envelope.subject = subjectWith(stream, record.table, markOf(record.kind));
        return envelope;
    }
    const auto messageClass = message->messageClass();
    envelope.subject =
        subjectWith(stream, record.table, messageClass.has_value() ? tabulo::className(*messageClass) : NO_CLASS) +
        '.' + escaped(message->type());
    envelope.headers.push_back({MESSAGE, joined(record.uniformId, record.seqNum, record.time)});
    if (static_cast<std::int64_t>(record.payload.size()) != record.whole) {
        envelope.headers.push_back({PART, joined(record.at, record.whole)});
    }
    return envelope;
}

Record recordOf(const Stored& stored) {
    const Headers headers(stored);
    const auto parts = splitAt('.', stored.subject);
    if (parts.empty()) {
        headers.refuse("no subject of a record");
    }
    Record record;
    record.payload = stored.payload;
    record.kind = kindOf(parts.back());
    if (!isOfTable(record.kind)) {
        return record;
    }
    // The name of a stream has no dot.
    if (parts.size() != (record.kind == RecordKind::message ? 4U : 3U)) {
        headers.refuse("no subject of a record");
    }
    const auto table = unescaped(parts[1]);
    if (!table.has_value() || headers.text(TABLE) != parts[1]) {
        headers.refuse("its subject and its header Tabulo-Table name no table, or two");
    }
    if (!isTableName(*table)) {
        headers.refuse("no table can be called so");
    }
    record.table = *table;
    headers.numbers(PLACE, &record.incarnation, &record.offset);
    if (record.kind == RecordKind::rewind && !record.payload.empty()) {
        headers.numbers(KEPT, &record.at);
    }
    if (record.incarnation < 1 || record.offset < 0 || record.at < 0) {
        headers.refuse("its place is before the beginning of a table");
    }
    if (record.kind == RecordKind::message) {
        headers.numbers(MESSAGE, &record.uniformId, &record.seqNum, &record.time);
        takeParts(headers, &record);
    }
    return record;
}

std::string subjectsOf(std::string_view stream, std::string_view table) {
    return subjectWith(stream, table, ">");
}

std::string messagesOf(std::string_view stream, std::string_view table) {
    return subjectWith(stream, table, "*.*");
}

std::string subjectOf(std::string_view stream, std::string_view table, RecordKind kind) {
    return subjectWith(stream, table, markOf(kind));
}

std::string subjectOf(std::string_view stream, RecordKind kind) {
    return std::string(stream) + '.' + std::string(markOf(kind));
}

}  // namespace tabulo::shipping
