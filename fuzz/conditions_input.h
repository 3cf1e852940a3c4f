// Query conditions made from the bytes of an input, through every setter.
#pragma once

#include "fuzz/input.h"
#include "query/query_conditions.h"
#include "storage/table_config.h"

namespace tabulo::internal::fuzz {

// As many setters as the input names, also with slots, counts and texts that they refuse. Field indexes reach from just
// below the layout's to just above.
QueryConditionsPtr conditionsFrom(Input* input, const MessageTableLayout& layout);

// True for a single id range whose ends are of two classes or of none: closed blocks are then left out by definition.
bool conditions_leaveOutClosedBlocks(const QueryConditions& conditions);

}  // namespace tabulo::internal::fuzz
