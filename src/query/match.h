// Whether a block, or one message, meets the conditions of a query: every one of them must agree.
#pragma once

#include "messagetable/block_summary.h"
#include "messagetable/message.h"
#include "query/query_conditions.h"

namespace tabulo::internal {

// False when no message of a closed block can match, told from its footer alone: every value that some condition could
// accept lies outside a range, or a filter, built from every message of the block. In any doubt it may match.
bool query_blockMayMatch(const QueryConditions& conditions, const BlockSummary& block,
                         const MessageTableLayout& layout) noexcept;

// Whether asking about a block never writes to the log: then what is known of it may be asked in place of its footer.
bool query_isSilent(const QueryConditions& conditions, const MessageTableLayout& layout) noexcept;

// Whether blocks can be ruled out by their ranges, whatever these are of.
bool query_asksRanges(const QueryConditions& conditions, const MessageTableLayout& layout) noexcept;

// Whether blocks can be ruled out by their ranges of sequence numbers, uniform ids or times alone, and asking is
// silent: then a block may be asked by what is kept of it (known_blocks.h).
bool query_asksKnownRanges(const QueryConditions& conditions, const MessageTableLayout& layout) noexcept;

// Whether there is no condition, which every message passes.
bool query_isEmpty(const QueryConditions& conditions) noexcept;

// True when the message passes every condition. A pure function: the inverted flag and the direction are not looked at.
bool query_messageMatches(const QueryConditions& conditions, const MessageView& message) noexcept;

}  // namespace tabulo::internal
