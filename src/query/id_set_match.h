// Selects messages by a set of connection message ids.
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <vector>

#include "core/error_codes.h"
#include "messagetable/message_class.h"
#include "messagetable/message_visitor.h"

namespace tabulo::internal {

// The ids asked for, and who takes the messages. The consumer's onMessage decides the answer for each message it gets.
struct IdSetMatch {
    std::vector<std::int32_t> ids;  // sorted, each once; ids without a class are left out
    // The smallest and the largest id of each class (connMsgId); -1 for a class that is not asked for.
    std::array<MessageMetadata, MESSAGE_CLASS_COUNT> lower;
    std::array<MessageMetadata, MESSAGE_CLASS_COUNT> upper;
    MessageVisitor consumer;
};

// Fills ids and bounds. OUT_OF_MEMORY_ERROR.
ErrorCode idSetMatch_init(IdSetMatch* match, std::span<const std::int32_t> ids) noexcept;

// The visitor of a match, which must outlive it. A block is skipped unless an id range of some class overlaps its own;
// a message is handed to the consumer when its id is in the set.
MessageVisitor query_matchIdSet(IdSetMatch* match) noexcept;

}  // namespace tabulo::internal
