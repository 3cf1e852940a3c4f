// Tables whose messages a test knows: each one with its content and its place, to compare with what readers give.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "tabulo/message.h"
#include "tabulo/reader.h"
#include "tabulo/table_info.h"
#include "tabulo/writer.h"

namespace tabulo::test {

using StoredText = std::optional<std::string>;

// A message that owns its texts.
struct StoredMessage {
    std::int32_t uniformId = 0;
    std::int32_t seqNum = 0;
    std::int32_t prevSeqNum = 0;
    std::int32_t id = 0;
    std::int64_t time = 0;
    std::string type{};
    bool possDup = false;
    bool outOfSequence = false;
    StoredText text0{};
    StoredText text1{};
    std::vector<StoredText> texts{};
    std::vector<Number> numbers{};
    StoredText wire{};
    StoredText nonMetadata{};

    // Valid as long as this message.
    Message borrowed() const;
};

// The message that SimpleMessage(n) is.
StoredMessage simpleMessage(std::int32_t n);
// Simple messages 1 to `count`.
std::vector<StoredMessage> simpleMessages(std::int32_t count);

// A table with its writer, and what was stored in it.
class StoredTable {
  public:
    // Makes the table, and stores the messages one by one.
    StoredTable(const std::filesystem::path& path, const Layout& layout,
                const std::vector<StoredMessage>& messages = {});

    void append(const StoredMessage& message);
    void appendAll(const std::vector<StoredMessage>& messages);
    // Empties the table.
    void drop();

    std::size_t count() const { return messages.size(); }
    // Where message `index` stands; for count() the place of the next one.
    Position place(std::size_t index) const { return places.at(index); }
    Position end() const { return places.back(); }
    std::size_t perBlock() const { return static_cast<std::size_t>(writer.layout().messagesPerBlock); }
    // Blocks that hold messages, with the open one.
    std::size_t blockCount() const { return (count() + perBlock() - 1) / perBlock(); }

    Writer writer;
    std::vector<StoredMessage> messages;
    std::vector<Position> places;
};

// Empty when the view shows this message of the table: each field, its frame, its places and its number. Else what is
// wrong.
std::string viewFault(const MessageView& view, const StoredTable& table, std::size_t index);
// Walks on, and compares with the messages that are expected, by their numbers, up to Ending::data. Empty, or what is
// wrong.
std::string walkFault(Messages& messages, const StoredTable& table, const std::vector<std::size_t>& expected);

// The numbers first to last - 1, or backward from last - 1 to first.
std::vector<std::size_t> numbersOf(std::size_t first, std::size_t last, bool backward = false);
// The uniform ids of all messages that a range gives.
std::vector<std::int32_t> idsOf(Messages messages);
// 1 to `count`, the ids of as many simple messages.
std::vector<std::int32_t> idsUpTo(std::int32_t count);

}  // namespace tabulo::test
