// Compares a range of a query with the range that a block's summary gives.
#pragma once

#include <cstdint>

#include "messagetable/block_summary.h"
#include "messagetable/message_metadata.h"

namespace tabulo::internal {

// The fields that have a range in every summary.
enum RangeField : std::int32_t {
    RANGE_SEQ_NUM = 1,
    RANGE_UNIFORM_ID = 2,
    RANGE_TIMESTAMP = 3,
    RANGE_CONN_MSG_ID = 4,
};

// The comparison cannot be made, or the block has no value for it; like every result but 0, a proof that nothing
// matches.
inline constexpr std::int32_t NO_OVERLAP = 3599;

// The rule: -1 when [lower, upper] lies wholly below [blockMinimum, blockMaximum], 1 when wholly above, else 0
// (touching ends overlap). A damaged block range, its minimum above its maximum, rules nothing out.
template <typename Number>
std::int32_t range_compare(Number lower, Number upper, Number blockMinimum, Number blockMaximum) noexcept {
    if (blockMinimum > blockMaximum) {
        return 0;
    }
    if (upper < blockMinimum) {
        return -1;
    }
    return lower > blockMaximum ? 1 : 0;
}

// -1 when the query's range [lower, upper] lies wholly below the block's, 1 when wholly above, 0 when they overlap
// (touching ends do). For RANGE_CONN_MSG_ID both bounds must be of one class: otherwise NO_OVERLAP, with a NOTE when
// their classes differ; NO_OVERLAP too when they have none, or the block holds no id of theirs. An unknown field is a
// NOTE and 0.
std::int32_t mfr_compareRange(const BlockSummary& block, const MessageMetadata& lower, const MessageMetadata& upper,
                              std::int32_t field) noexcept;
// One value against the block's range of a field, with the same results; its NOTE lines name it.
// No caller of ours: conditions are ranges.
std::int32_t mfr_compareNum(const BlockSummary& block, const MessageMetadata& bound, std::int32_t field) noexcept;

}  // namespace tabulo::internal
