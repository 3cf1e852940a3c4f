// Message tables of tests: made from a shape in one line, filled with simple messages, read back whole.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "core/handle.h"
#include "messagetable/message_table.h"
#include "tests/support/bytes.h"
#include "tests/support/message.h"
#include "tests/support/message_fields.h"
#include "tests/support/temporary_directory.h"

namespace tabulo::internal::test {

// What a table's configuration is made from.
struct TableShape {
    std::string name = "orders";
    std::int32_t messagesPerBlock = 3;
    std::vector<std::string> stringNames;   // configured string fields; "" is a name left empty
    std::vector<std::string> numericNames;  // configured numeric fields
    // Summarised fields before the configured ones, each of which adds one.
    std::int32_t summarisedStringFieldCount = 2;

    std::int32_t stringFieldCount() const { return 4 + static_cast<std::int32_t>(stringNames.size()); }
    std::int32_t numericFieldCount() const { return static_cast<std::int32_t>(numericNames.size()); }
};

// The layout of every default table: 1000 messages in a block, no configured fields.
TableShape defaultShape();
// 12 configured string and 16 numeric fields, "S0" to "S11" and "N0" to "N15".
TableShape widestShape(std::int32_t messagesPerBlock = 3);

// A configuration under `root` (which ends with "/"); the caller hands it to mt_create.
KSVTboTableConfig* makeConfig(const std::string& root, const TableShape& shape = {});
// A table that is not open yet.
MessageTablePtr createTable(const std::string& root, const TableShape& shape = {});
// An open table, or null with a failed expectation. Destroying it releases the file without saving the tail, as a crash
// would.
MessageTablePtr openTable(const std::string& root, OpenMode mode, const TableShape& shape = {});
// Saves the tail and destroys the table; the code of mt_close.
ErrorCode closeTable(MessageTablePtr& table);

// The n-th simple message of a table: uniformId and seqNum n, connMsgId n (APP_TO), timestamp 1000 n, msgType "D";
// string field i is "f<i>-<n>" with its NUL, numeric field i the long 100 n + i.
Message simpleMessage(std::int32_t n, const TableShape& shape = {});
// Simple messages first to last.
std::vector<Message> simpleMessages(std::int32_t first, std::int32_t last, const TableShape& shape = {});
// A message without any field: connMsgId 0 and the given uniformId.
Message bareMessage(std::int32_t uniformId, const TableShape& shape = {});

// Writes simple messages first to last and stops at the first failure, whose code it returns.
ErrorCode writeSimpleMessages(MessageTable* table, std::int32_t first, std::int32_t last, const TableShape& shape = {});

// The frameBytes of a message.
Bytes frameOf(const Message& message);
// The frame as the library encodes it.
Bytes encodedFrame(const Message& message);

// All messages of a table as a walk over it delivers them, and how the walk ended.
struct ReadMessages {
    ErrorCode code = NO_ERROR;
    std::vector<Message> messages;
    int blocks = 0;  // how often the walk asked about a block
};
ReadMessages readAll(MessageTable* table);
ReadMessages readAllBackward(MessageTable* table);
// The messages of the table under `root`, opened read-only for this; fails the test when it cannot be opened or read.
std::vector<Message> messagesIn(const std::string& root, const TableShape& shape = {});

// Puts a further open file into the table's storage by hand: a copy of the master's present bytes under `path`.
void addReplica(MessageTable* table, const std::string& path);

// An integer of a file, little-endian.
std::uint64_t u64At(const Bytes& bytes, std::size_t offset);
std::uint32_t u32At(const Bytes& bytes, std::size_t offset);

// One table in a directory of its own. Tests set `shape` before they open.
class MessageTableTest : public ::testing::Test {
  protected:
    // Opens `table` anew in a mode; ends the test when that is refused.
    void open(OpenMode mode) {
        table.reset();
        table = openTable(directory.root(), mode, shape);
        if (table == nullptr) {
            throw std::runtime_error("the table cannot be opened");
        }
    }
    std::string path() const { return directory.file(shape.name); }
    Bytes fileBytes() const { return readFile(path()); }
    ErrorCode write(const Message& message) { return writeMessage(table.get(), message); }
    ErrorCode writeSimple(std::int32_t first, std::int32_t last) {
        return writeSimpleMessages(table.get(), first, last, shape);
    }

    TemporaryDirectory directory;
    TableShape shape;
    MessageTablePtr table;
};

}  // namespace tabulo::internal::test
