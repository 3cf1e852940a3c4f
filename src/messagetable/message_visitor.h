// Who takes the blocks and messages of a walk.
#pragma once

#include "core/error_codes.h"
#include "messagetable/block_summary.h"
#include "messagetable/message.h"

namespace tabulo::internal {

// What a visitor says to a block or a message.
enum class Visit {
    goOn,       // to the block's messages; to the next message
    skipBlock,  // without looking at the block's messages; to a message it means goOn
    stop,       // the walk ends here, without an error
};

// The first two operations get their owner and set *answer, which is goOn before the call. A result other than NO_ERROR
// ends the walk with that code. What they are shown is valid during the call only; they may write to, drop, close or
// destroy the table that is walked.
struct MessageVisitor {
    void* owner = nullptr;
    // A block that holds messages, before the first of them; not called for a damaged one, whose summary tells nothing.
    ErrorCode (*onBlock)(void* owner, const BlockSummary& summary, Visit* answer) = nullptr;
    ErrorCode (*onMessage)(void* owner, const MessageView& message, Visit* answer) = nullptr;
    // Null, or told how many closed blocks an iterator leaves unread because of what is known of them.
    void (*onSkipped)(void* owner, std::int64_t count) = nullptr;
};

}  // namespace tabulo::internal
