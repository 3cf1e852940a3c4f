#include "adapters/nats/session_copies.h"

#include <vector>

#include "adapters/nats/copy_table.h"
#include "adapters/nats/session_text.h"

namespace tabulo::shipping {

void SessionCopies::write(const Record& record) {
    const auto values = sessionValuesOf(textOf(record.payload));
    if (!values.has_value()) {
        throw CopyRefused("the values of " + record.table + " that have come are none");
    }
    std::vector<std::int32_t> tags;
    for (const SessionValue& value : *values) {
        tags.push_back(value.tag);
    }
    const std::filesystem::path path = folder_ / record.table;
    auto open = open_.find(record.table);
    if (open == open_.end() && std::filesystem::exists(path)) {
        open = open_.emplace(record.table, SessionInfo::openForWriting(path)).first;
    }
    if (open != open_.end() && open->second.tags() != tags) {
        open->second.close();
        open_.erase(open);
        open = open_.end();
        std::filesystem::remove(path);
    }
    if (open == open_.end()) {
        open = open_.emplace(record.table, SessionInfo::create(path, tags)).first;
    }
    open->second.write(*values);
}

}  // namespace tabulo::shipping
