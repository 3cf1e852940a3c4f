// Whether a closed block can hold a message that meets the conditions of a query, told from its footer alone.
//
// A block is ruled out only when every value that the message test could accept lies outside a range, or a filter,
// built from every message of the block; in any doubt it may match. The compare helpers give -1 when the query's range
// lies wholly below the block's, 1 when wholly above, 0 when they overlap (touching ends do), and NO_OVERLAP when the
// block has no value. Their NOTE lines name the helper.
#pragma once

#include <cstdint>

#include "messagetable/block_summary.h"
#include "messagetable/range_compare.h"
#include "query/query_conditions.h"

namespace tabulo::internal {

// A range of a numeric filter against the block's range of its field, configured or pseudo. 0 with a NOTE for an index
// outside 0 .. N + 6.
std::int32_t mfr_compareNumericIndexDouble(const BlockSummary& block, const MessageTableLayout& layout, double low,
                                           double high, std::int32_t fieldIndex) noexcept;
std::int32_t mfr_compareNumericIndexLong(const BlockSummary& block, const MessageTableLayout& layout, std::int64_t low,
                                         std::int64_t high, std::int32_t fieldIndex) noexcept;

// A text against the block's filter of its field: -1 when the filter rejects it; 0 when it may hold it, the text is
// null, or the field has no filter. 0 with a NOTE for an index outside 0 .. S.
std::int32_t mfr_compareStr(const BlockSummary& block, const MessageTableLayout& layout, const char* text,
                            std::int32_t fieldIndex) noexcept;

// False when no message of the block can match.
bool query_blockMayMatch(const QueryConditions& conditions, const BlockSummary& block,
                         const MessageTableLayout& layout) noexcept;

}  // namespace tabulo::internal
