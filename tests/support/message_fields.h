// Fields of messages as the binding stores them, and the frames that they come to.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "messagetable/message_metadata.h"
#include "messagetable/numeric_value.h"
#include "tests/support/bytes.h"

namespace tabulo::internal::test {

// "text" and its NUL: a text as the binding stores it.
std::string withNul(std::string_view text);
// msgType from a text, cut to what the field holds (five bytes and the NUL).
void setMsgType(MessageMetadata* metadata, std::string_view msgType);
// A message's frame, built here byte by byte (little-endian) and not by the library. Texts come with their NUL, if any;
// nullopt is an absent one.
Bytes frameBytes(const MessageMetadata& metadata, const std::vector<NumericValue>& numbers,
                 const std::vector<std::optional<std::string>>& strings);

}  // namespace tabulo::internal::test
