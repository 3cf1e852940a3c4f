// Whether one message meets the conditions of a query.
#pragma once

#include <cstdint>

#include "messagetable/message.h"
#include "query/query_conditions.h"

namespace tabulo::internal {

// True when the message passes every condition. A pure function: the inverted flag and the direction are not looked at.
// A numeric filter's field index below numericFieldCount is a configured field, behind them the metadata; a string
// filter's index is the slot in the message, stringFieldCount the MsgType. Filters on other indexes are ignored.
bool query_messageMatches(const QueryConditions& conditions, const MessageView& message) noexcept;

}  // namespace tabulo::internal
