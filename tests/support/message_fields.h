// Fields of messages as the binding stores them.
#pragma once

#include <string>
#include <string_view>

#include "messagetable/message_metadata.h"

namespace tabulo::test {

// "text" and its NUL: a text as the binding stores it.
std::string withNul(std::string_view text);
// msgType from a text, cut to what the field holds (five bytes and the NUL).
void setMsgType(MessageMetadata* metadata, std::string_view msgType);

}  // namespace tabulo::test
