// Visitors and listeners made from a function that takes the messages. They borrow the function.
#pragma once

#include <cstdint>
#include <type_traits>

#include "messagetable/message_visitor.h"
#include "query/message_read.h"
#include "watcher/message_watcher.h"

namespace tabulo::internal::test {

template <typename Take>
void* ownerOf(Take* take) {
    return const_cast<std::remove_const_t<Take>*>(take);
}

// Shows all messages to take(message), which answers with a Visit.
template <typename Take>
MessageVisitor visitorOf(Take* take) {
    return {ownerOf(take), [](void*, const BlockSummary&, Visit*) { return NO_ERROR; },
            [](void* owner, const MessageView& message, Visit* answer) {
                *answer = (*static_cast<Take*>(owner))(message);
                return NO_ERROR;
            }};
}

// The same for a read by ids, whose result stays what the walk came to.
template <typename Take>
MessageListener listenerOf(Take* take) {
    return {ownerOf(take),
            [](void* owner, const MessageView& message, Visit* answer) {
                *answer = (*static_cast<Take*>(owner))(message);
                return NO_ERROR;
            },
            [](void*, ErrorCode code) { return code; }};
}

// A watch that hands its messages to take(message, tableIndex) as long as that answers with true, and ends with the
// first pass that finds nothing.
template <typename Take>
WatchListener watchListenerOf(Take* take) {
    return {ownerOf(take),
            [](void* owner, const MessageView& message, std::int32_t tableIndex, std::int32_t* stop) {
                *stop = (*static_cast<Take*>(owner))(message, tableIndex) ? 0 : 1;
                return NO_ERROR;
            },
            [](void*, std::int32_t* stop) {
                *stop = 1;
                return NO_ERROR;
            }};
}

}  // namespace tabulo::internal::test
