#include "adapters/nats/copy_content.h"

#include <utility>
#include <vector>

#include "adapters/nats/subject_token.h"
#include "adapters/nats/table_bytes.h"
#include "tabulo/reader.h"

namespace tabulo::shipping {

std::optional<Stored> layoutOfCopy(LogStream& stream, const std::string& table, const std::filesystem::path& file) {
    const std::string subject = subjectOf(stream.name(), table, RecordKind::layout);
    std::vector<Stored> layouts;
    for (std::optional<Stored> next = stream.from(0, subject); next.has_value();
         next = stream.from(layouts.back().sequence + 1, subject)) {
        layouts.push_back(std::move(*next));
    }
    const TableBytes bytes(file);
    for (auto layout = layouts.rbegin(); layout != layouts.rend(); ++layout) {
        const std::optional<Stored> first = stream.from(layout->sequence + 1, messagesOf(stream.name(), table));
        if (first.has_value()) {
            const Record record = recordOf(*first);
            if (record.incarnation == recordOf(*layout).incarnation &&
                bytes.holds(record.offset + record.at, record.payload)) {
                return *layout;
            }
        }
    }
    return layouts.empty() ? std::nullopt : std::optional(std::move(layouts.back()));
}

bool isRewindApplied(LogStream& stream, const Record& rewind, std::uint64_t sequence,
                     const std::filesystem::path& file) {
    const std::optional<Stored> next = stream.from(sequence + 1, messagesOf(stream.name(), rewind.table));
    if (!next.has_value()) {
        return false;
    }
    try {
        const Record behind = recordOf(*next);
        return behind.incarnation == rewind.incarnation &&
               TableBytes(file).holds(behind.offset + behind.at, behind.payload);
    } catch (const ForeignRecord&) {
        return false;  // told when it comes
    }
}

bool endsBefore(const std::filesystem::path& file, std::int64_t end) {
    try {
        return end > 0 && Reader(file).end().offset < end;
    } catch (const Error&) {
        return true;
    }
}

}  // namespace tabulo::shipping
