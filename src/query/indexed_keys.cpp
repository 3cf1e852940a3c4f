#include "query/indexed_keys.h"

#include <algorithm>

#include "index/index_run.h"
#include "query/pseudo_field.h"

namespace tabulo::internal {

namespace {

// Ids outside of 32 bits have no key.
void addRange(std::vector<KeyRange>* ranges, std::int64_t first, std::int64_t last) {
    first = std::max<std::int64_t>(first, INT32_MIN);
    last = std::min<std::int64_t>(last, INT32_MAX);
    if (first <= last) {
        ranges->push_back({keyOf(static_cast<std::int32_t>(first)), keyOf(static_cast<std::int32_t>(last))});
    }
}

bool isIndexed(const StringFilter& filter, const MessageTableLayout& layout) {
    return filter.fieldIndex >= 0 && filter.fieldIndex < indexRun_textCount(layout) && !filter.includeNull &&
           !filter.ignoreCase && filter.ranges.empty();
}

IndexedKeys keysOf(const StringFilter& filter) {
    IndexedKeys keys{FIRST_TEXT_PART + static_cast<std::uint32_t>(filter.fieldIndex), {}};
    for (const std::optional<std::string>& value : filter.values) {
        if (value.has_value()) {
            keys.ranges.push_back({keyOf(std::string_view(*value)), keyOf(std::string_view(*value))});
        }
    }
    return keys;
}

IndexedKeys keysOf(const LongFilter& filter, std::uint32_t part) {
    IndexedKeys keys{part, {}};
    for (const NumericFilterEntry<std::int64_t>& entry : filter.entries) {
        addRange(&keys.ranges, entry.low, entry.high);  // an end that is not included is tested with the message
    }
    return keys;
}

}  // namespace

std::vector<IndexedKeys> indexedKeys_of(const QueryConditions& conditions, const MessageTableLayout& layout) {
    std::vector<IndexedKeys> found;
    for (const StringFilter& filter : conditions.stringFilters) {
        if (isIndexed(filter, layout)) {
            found.push_back(keysOf(filter));
        }
    }
    for (const LongFilter& filter : conditions.longFilters) {
        const std::int64_t field = std::int64_t{filter.fieldIndex} - layout.numericFieldCount;
        if (!filter.includeNull && (field == PSEUDO_UNIFORM_ID || field == PSEUDO_CONN_MSG_ID)) {
            found.push_back(keysOf(filter, field == PSEUDO_UNIFORM_ID ? UNIFORM_ID_PART : CONN_MSG_ID_PART));
        }
    }
    const MetadataCondition& metadata = conditions.metadata;
    if (metadata.idsByClass.has_value() || metadata.ids.has_value()) {
        IndexedKeys keys{CONN_MSG_ID_PART, {}};
        if (metadata.idsByClass.has_value()) {
            for (const std::optional<IdRange>& ids : *metadata.idsByClass) {
                if (ids.has_value()) {
                    addRange(&keys.ranges, ids->first, ids->last);
                }
            }
        } else {
            addRange(&keys.ranges, metadata.ids->first, metadata.ids->last);
        }
        found.push_back(std::move(keys));
    }
    return found;
}

IndexedKeys indexedKeys_ofIds(std::span<const std::int32_t> connMsgIds) {
    IndexedKeys keys{CONN_MSG_ID_PART, {}};
    for (const std::int32_t id : connMsgIds) {
        addRange(&keys.ranges, id, id);
    }
    return keys;
}

}  // namespace tabulo::internal
