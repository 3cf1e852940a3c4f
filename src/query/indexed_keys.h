// Which keys of a side index (index/key_map.h) the messages that a query selects must have.
#pragma once

#include <cstdint>
#include <vector>

#include "index/key_map.h"
#include "query/query_conditions.h"

namespace tabulo::internal {

// One condition as keys: a message that meets it has a key of the part in one of the ranges.
struct IndexedKeys {
    std::uint32_t part = 0;
    std::vector<KeyRange> ranges;
};

// The conditions on texts and ids that an index can answer: values of a text with their case, ids and ranges of them.
// Throws std::bad_alloc.
std::vector<IndexedKeys> indexedKeys_of(const QueryConditions& conditions, const MessageTableLayout& layout);
// Those of messages with one of these connection message ids, which ascend. Throws std::bad_alloc.
IndexedKeys indexedKeys_ofIds(std::span<const std::int32_t> connMsgIds);

}  // namespace tabulo::internal
