// The message tables of the fuzz targets: a few layouts with small footers, and their messages read back.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "core/handle.h"
#include "fuzz/input.h"
#include "messagetable/frame.h"
#include "messagetable/message_table.h"
#include "query/query_conditions.h"
#include "tests/support/message.h"

namespace tabulo::internal::fuzz {

inline constexpr const char* ROOT = "m/";
inline constexpr const char* TABLE_NAME = "t";
inline constexpr const char* TABLE_PATH = "m/t";

// The layouts that inputs choose from by number.
std::span<const MessageTableLayout> layouts();

using MessageTablePtr = Handle<MessageTable, mt_destroy>;

// A table of that layout which is not open yet.
MessageTablePtr createTable(const MessageTableLayout& layout, const std::string& name = TABLE_NAME);

using test::Message;
using test::MessageFields;
using test::ownedMessage;
using test::writeMessage;

// A message whose every field the input decides; numbers are mostly small. An empty text is an absent field.
Message messageFrom(Input* input, const MessageTableLayout& layout);
// The n-th of some simple messages.
Message simpleMessage(std::int32_t n, const MessageTableLayout& layout);

// Messages in the order in which they came, and what ended them.
struct Messages {
    ErrorCode code = NO_ERROR;
    std::vector<Message> list;
};

// All messages that an iterator with these conditions delivers. More than `most` end the process: nothing may be
// delivered for ever.
Messages readByIterator(MessageTable* table, QueryConditionsPtr conditions, std::size_t most);
// The same without conditions, in either direction.
Messages readAll(MessageTable* table, bool backward, std::size_t most);
// As readAll, by the walk that readMessages uses.
Messages readByWalk(MessageTable* table, bool backward, std::size_t most);

// True when `whole` begins with all of `part`.
bool beginsWith(const std::vector<Message>& whole, const std::vector<Message>& part);

}  // namespace tabulo::internal::fuzz
