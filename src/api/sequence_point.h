// The sequence numbers that a table keeps, as the public API tells them.
#pragma once

#include <optional>

#include "messagetable/static_indexes.h"
#include "tabulo/table_info.h"

namespace tabulo::api {

// None for a table that has no message of that kind, which the format tells by the number 0.
inline std::optional<SequencePoint> sequencePoint_of(const internal::mthStaticIndexes& indexes,
                                                     internal::SeqNumKind kind) {
    const internal::SeqNumIndex& index = indexes.seqNums[static_cast<std::size_t>(kind)];
    return index.seqNum == 0 ? std::nullopt : std::optional(SequencePoint{index.seqNum, index.timestamp});
}

}  // namespace tabulo::api
