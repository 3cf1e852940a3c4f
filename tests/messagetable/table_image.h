// The bytes of table files: where messages stand in them, and files as writers, crashes and damage leave them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "tests/messagetable/message_table_fixture.h"
#include "tests/support/bytes.h"
#include "tests/support/log_capture.h"

namespace tabulo::internal::test {

// Where each message of a table stands, computed from the messages alone.
struct TableMap {
    struct Frame {
        std::size_t start = 0;
        std::size_t end = 0;
    };

    std::size_t headerSize = 0;
    std::size_t footerSize = 0;
    std::vector<Frame> frames;
    std::vector<std::size_t> blockStarts;  // of every block with a message
    std::size_t openBlockStart = 0;        // behind the last closed block
    std::size_t dataEnd = 0;

    const Frame& frame(std::size_t number) const { return frames.at(number - 1); }  // counted from 1, as messages are
    // The file offset of the header's 88-byte tail, and of what is in it.
    std::size_t tail() const { return headerSize - 88; }
    std::size_t storedLastBlockEnd() const { return tail() + 8; }
    std::size_t storedDataEnd() const { return tail() + 16; }
    std::size_t storedMessageCount() const { return tail() + 24; }
};
TableMap mapOf(const TableShape& shape, const std::vector<Message>& messages);

// The file of a table that was written in a directory of its own and closed.
Bytes closedImage(const TableShape& shape, const std::vector<Message>& messages);
// The same without the close: the header's tail is that of the last closed block.
Bytes unclosedImage(const TableShape& shape, const std::vector<Message>& messages);
// `unclosedImage` as it was before the footer behind the last message was appended; the messages fill a block.
Bytes footerlessImage(const TableShape& shape, const std::vector<Message>& messages);

Bytes cutAt(const Bytes& bytes, std::size_t size);
Bytes concatenated(const Bytes& first, const Bytes& second);
// Overwrites a little-endian number.
void putU32(Bytes* bytes, std::size_t offset, std::uint32_t value);
void putU64(Bytes* bytes, std::size_t offset, std::uint64_t value);
// Part of a file.
Bytes slice(const Bytes& bytes, std::size_t start, std::size_t end);

// A table of four messages a block whose file the test puts there byte by byte.
class TableImageTest : public MessageTableTest {
  protected:
    TableImageTest() { shape.messagesPerBlock = 4; }

    // Replaces the table's file. The table must not be open.
    void place(const Bytes& bytes) { writeFile(path(), bytes); }
    // Opens the table for writing, which recovers it, and releases it without saving the tail; the code of the opening.
    ErrorCode recover();
    // Files that stand beside the table, by name.
    std::map<std::string, Bytes> others() const;
    // The WARNING lines of one operation.
    std::vector<std::string> warningsOf(const std::string& function) const;
    // How often the log says that the table was recovered.
    std::size_t recoveries() const;

    LogCapture log;
};

}  // namespace tabulo::internal::test
