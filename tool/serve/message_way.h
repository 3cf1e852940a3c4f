// Which way the messages of a class went. One that was sent again is neither sent nor received as a new one.
#pragma once

#include "tabulo/message.h"

namespace tabulo::tool::serve {

constexpr bool isSent(MessageClass messageClass) noexcept {
    return messageClass == MessageClass::appTo || messageClass == MessageClass::adminTo;
}

constexpr bool isReceived(MessageClass messageClass) noexcept {
    return messageClass == MessageClass::appFrom || messageClass == MessageClass::adminFrom;
}

}  // namespace tabulo::tool::serve
