// Reading the messages with given connection message ids.
#pragma once

#include <cstdint>

#include "core/error_codes.h"
#include "messagetable/message_visitor.h"

namespace tabulo::internal {

struct MessageTable;

// Who takes the messages. Both operations get their owner.
struct MessageListener {
    void* owner = nullptr;
    // A message; *answer is Visit::goOn before the call, and Visit::stop ends the reading.
    ErrorCode (*onMessage)(void* owner, const MessageView& message, Visit* answer) = nullptr;
    // The walk has ended with `code`, behind all messages that could be read. The result is that of the reading.
    ErrorCode (*onEnd)(void* owner, ErrorCode code) = nullptr;
};

// Hands the messages with the given ids to the listener, in file order, or in reverse with `backward`; an id given
// twice delivers its messages once, ids without a class deliver nothing. When the listener neither stopped it nor
// failed nor destroyed the table, its onEnd is called last, with what the walk came to, and gives the result.
// NULL_POINTER_ERROR: table, listener, one of its operations, or ids with a count above 0; WRONG_PARAMETER_ERROR for a
// negative count; the codes of mt_refresh, of the walk (table_walk.h) and of the listener. Messages in front of damage
// are delivered before its code is returned.
ErrorCode mt_readMessages(MessageTable* table, const std::int32_t* connMsgIds, std::int32_t count,
                          const MessageListener* listener, bool backward) noexcept;

}  // namespace tabulo::internal
