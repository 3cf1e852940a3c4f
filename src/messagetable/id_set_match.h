// Matches messages by a set of connection message ids.
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <vector>

#include "core/error_codes.h"
#include "messagetable/match_result.h"
#include "messagetable/message_class.h"

namespace tabulo::internal {

// The ids asked for, and who takes the messages. The consumer decides the answer for each message it gets, as any match
// operation does.
struct IdSetMatch {
    std::vector<std::int32_t> ids;  // sorted, each once; ids without a class are left out
    // The smallest and the largest id of each class (connMsgId); -1 for a class that is not asked for.
    std::array<MessageMetadata, MESSAGE_CLASS_COUNT> lower;
    std::array<MessageMetadata, MESSAGE_CLASS_COUNT> upper;
    MatchOperation consumer = nullptr;
    void* consumerContext = nullptr;
};

// Fills ids and bounds. OUT_OF_MEMORY_ERROR.
ErrorCode idSetMatch_init(IdSetMatch* match, std::span<const std::int32_t> ids) noexcept;

// The match operation; its context is an IdSetMatch. A block may match when an id range of some class overlaps its own;
// a message is handed to the consumer when its id is in the set.
ErrorCode query_matchIdSet(std::int32_t* answer, void* context, const BlockSummary* summary,
                           const MessageMetadata* metadata, const StringField* stringFields,
                           std::int32_t stringFieldCount, const NumericValue* numericFields,
                           std::int32_t numericFieldCount) noexcept;

}  // namespace tabulo::internal
