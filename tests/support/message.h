// A message that owns its texts: what tests, fuzz targets and benchmarks write, and what they read back.
#pragma once

#include <iosfwd>
#include <optional>
#include <string>
#include <vector>

#include "messagetable/message.h"
#include "messagetable/message_table.h"

namespace tabulo::internal::test {

struct Message {
    MessageMetadata metadata;
    std::vector<std::optional<std::string>> strings;  // stored bytes with their NUL, if any; nullopt is absent
    std::vector<NumericValue> numbers;

    bool operator==(const Message& other) const;
};
// For a test's report (message_print.cpp).
void PrintTo(const Message& message, std::ostream* out);

// A copy of a message that is only valid during a call.
Message ownedMessage(const MessageView& message);

// mt_writeMessage of an owned message.
ErrorCode writeMessage(MessageTable* table, const Message& message);

// A message's fields as the library takes them. Borrows the message, which must outlive it unchanged.
class MessageFields {
  public:
    explicit MessageFields(const Message& message);

    MessageView view() const { return {message_.metadata, texts_, message_.numbers}; }

  private:
    const Message& message_;
    std::vector<StringField> texts_;
};

}  // namespace tabulo::internal::test
