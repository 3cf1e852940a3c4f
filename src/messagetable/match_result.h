// What a match operation says about a block or a message, and the call by which walks ask.
#pragma once

#include <cstdint>

#include "core/error_codes.h"
#include "messagetable/block_summary.h"

namespace tabulo::internal {

// The answer to one call. For a block (summary given, no message): MATCH_NO lets its messages be asked for, MATCH_STOP
// skips them all. For a message: MATCH_NO goes on. In both cases MATCH_YES ends the walk.
enum MatchResult : std::int32_t {
    MATCH_NO = 0,
    MATCH_YES = 1,
    MATCH_STOP = 2,
};

// Called with a block's summary and no message, or with a message (metadata, fields and their counts) and no summary;
// the answer, MATCH_NO before the call, goes into *answer. A result other than NO_ERROR ends the walk with that code.
// Texts are valid during the call only.
using MatchOperation = ErrorCode (*)(std::int32_t* answer, void* context, const BlockSummary* summary,
                                     const MessageMetadata* metadata, const StringField* stringFields,
                                     std::int32_t stringFieldCount, const NumericValue* numericFields,
                                     std::int32_t numericFieldCount);

}  // namespace tabulo::internal
