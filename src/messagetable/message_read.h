// Reading the messages with given connection message ids.
#pragma once

#include <cstdint>

#include "core/error_codes.h"
#include "messagetable/match_result.h"

namespace tabulo::internal {

struct MessageTable;

// Who takes the messages. `onMessage` gets each message as a match operation does (never a summary) and answers
// MATCH_YES to stop; metadata null is the end of the data.
struct MessageListener {
    MatchOperation onMessage = nullptr;
    void* context = nullptr;
};

// Hands the messages with the given ids to the listener, in file order, or in reverse with `backward`; an id given
// twice delivers its messages once, ids without a class deliver nothing. When the walk ended without error and the
// listener did not stop it, the listener is called once more with no message. NULL_POINTER_ERROR: table, listener, or
// ids with a count above 0; WRONG_PARAMETER_ERROR for a negative count; the codes of mt_refresh, of the walk
// (table_walk.h) and of the listener. Messages in front of damage are delivered before its code is returned.
ErrorCode mt_readMessages(MessageTable* table, const std::int32_t* connMsgIds, std::int32_t count,
                          const MessageListener* listener, bool backward) noexcept;

}  // namespace tabulo::internal
