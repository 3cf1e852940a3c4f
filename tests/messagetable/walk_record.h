// A visitor of tests: it writes down what it is asked, and answers as it is told.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "messagetable/message_visitor.h"
#include "tests/messagetable/message_table_fixture.h"

namespace tabulo::internal::test {

struct WalkRecord {
    // "block 5..8" for a block with the uniform ids 5 to 8, and "message 5".
    std::vector<std::string> events;
    std::vector<Message> messages;
    std::map<std::string, Visit> answers;       // to an event; Visit::goOn to all others
    std::map<std::string, ErrorCode> failures;  // results of an event's call; NO_ERROR for all others
    std::function<void()> onMessage;            // called for each message

    // The visitor that fills the record.
    MessageVisitor visitor();

  private:
    ErrorCode told(const std::string& event, Visit* answer);
};

// Walks of a table with a frame reader of their own: forward from the header's end or from a block, backward from the
// open block or from a block.
ErrorCode walkForward(MessageTable* table, WalkRecord* record, std::int64_t startBlock = -1);
ErrorCode walkBackward(MessageTable* table, WalkRecord* record, std::int64_t startBlock = -1);

// "message 3", "message 4", ... up or down.
std::vector<std::string> messageEvents(std::int32_t first, std::int32_t last);
// Lists one after another.
std::vector<std::string> joined(const std::vector<std::vector<std::string>>& lists);

}  // namespace tabulo::internal::test
