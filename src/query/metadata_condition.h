// What a query asks of a message's metadata. Each part that is set must hold; none set selects every message.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "messagetable/block_summary.h"
#include "messagetable/message_class.h"
#include "messagetable/message_metadata.h"

namespace tabulo::internal {

// From first to last, both included; nothing when last is below first.
template <typename Number>
struct ValueRange {
    Number first;
    Number last;

    bool operator==(const ValueRange&) const = default;
};

using IdRange = ValueRange<std::int32_t>;
using ClassIdRanges = std::array<std::optional<IdRange>, MESSAGE_CLASS_COUNT>;  // a class without one selects nothing
using ExcludedMsgType = std::array<char, MSG_TYPE_LENGTH>;  // NUL-padded, no terminator when five long

struct MetadataCondition {
    std::optional<ValueRange<std::int32_t>> seqNums;
    std::optional<IdRange> ids;               // over all classes
    std::optional<ClassIdRanges> idsByClass;  // instead of `ids`
    std::optional<std::int64_t> from;         // timestamps, inclusive
    std::optional<std::int64_t> until;
    std::optional<bool> possDup;                    // only possible duplicates, or none of them
    std::vector<ExcludedMsgType> excludedMsgTypes;  // sorted
};

// The ranges that ids starting and ending them give, each id by its class: a later one replaces an earlier one, ids
// without a class are ignored. Without an end a range goes to the last id of its class, without a start it begins at
// the first; one whose start equals its end is dropped, on purpose. None at all when no range with a start is left.
std::optional<ClassIdRanges> metadataCondition_classIdRanges(std::span<const std::int32_t> startIds,
                                                             std::span<const std::int32_t> endIds) noexcept;
// Sorts the types for searching.
void metadataCondition_sortExcluded(MetadataCondition* condition) noexcept;

// False when no message of a closed block can match. Its ids are known by class only: a block is ruled out when the
// ends of `ids` are of two classes (with a NOTE, see mfr_compareRange) or of none.
bool metadataCondition_mayMatchBlock(const MetadataCondition& condition, const BlockSummary& block) noexcept;
// True when the condition asks for a range of sequence numbers or times.
bool metadataCondition_asksKnownRange(const MetadataCondition& condition) noexcept;
// True when asking about a block writes nothing to the log.
bool metadataCondition_isSilent(const MetadataCondition& condition) noexcept;
// True when every message meets it for want of anything that is asked.
bool metadataCondition_isEmpty(const MetadataCondition& condition) noexcept;
bool metadataCondition_matches(const MetadataCondition& condition, const MessageMetadata& metadata) noexcept;

}  // namespace tabulo::internal
