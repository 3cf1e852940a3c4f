// Everything that can be asked of a message table, with the right answers told plainly from its messages.
#pragma once

#include <cstdint>
#include <functional>
#include <limits>
#include <string>
#include <vector>

#include "tests/messagetable/message_table_fixture.h"

namespace tabulo::internal::test {

// In the list of an answer: a message that none of the known ones equals; and a question that would not end, since more
// messages came than there can be or a watch went on to wait. No lookup gives such numbers.
inline constexpr std::int64_t FOREIGN_MESSAGE = std::numeric_limits<std::int64_t>::min();
inline constexpr std::int64_t NO_END = FOREIGN_MESSAGE + 1;

struct Answer {
    ErrorCode code = NO_ERROR;
    std::vector<std::int64_t> values;  // numbers of messages (from 1 on) as they were delivered, or what a lookup gave
};

struct Question {
    std::string name;
    std::function<Answer(MessageTable*)> ask;
    // From the end to the beginning: what stands behind damage in the open block is left out, and told at the end.
    bool backward = false;
    // The right answer for a table that holds the messages with these numbers.
    std::function<std::vector<std::int64_t>(const std::vector<std::int64_t>& present)> rightAnswer;
};

// The questions to tables of damageShape() (damage_messages.h) with messages out of `known`, which must outlive them.
// The first two are the walks over all messages, forward and backward; then queries, reading by ids, watching and
// lookups.
std::vector<Question> tableQuestions(const std::vector<Message>& known);
// The lookups among them.
std::vector<Question> lookupQuestions(const std::vector<Message>& known);

}  // namespace tabulo::internal::test
