#include "tests/messagetable/table_image.h"

#include <algorithm>
#include <filesystem>

#include "tests/support/debug_log.h"

namespace tabulo::internal::test {

namespace {

std::size_t sizeOfNames(const std::vector<std::string>& names) {
    std::size_t size = 0;
    for (const std::string& name : names) {
        size += 4 + (name.empty() ? 0 : name.size() + 1);
    }
    return size;
}

Bytes writtenImage(const TableShape& shape, const std::vector<Message>& messages, bool close) {
    const TemporaryDirectory directory;
    MessageTablePtr table = openTable(directory.root(), OpenMode::create, shape);
    for (const Message& message : messages) {
        EXPECT_EQ(writeMessage(table.get(), message), NO_ERROR);
    }
    if (close) {
        EXPECT_EQ(mt_close(table.get()), NO_ERROR);
    }
    table.reset();
    return readFile(directory.file(shape.name));
}

}  // namespace

TableMap mapOf(const TableShape& shape, const std::vector<Message>& messages) {
    TableMap map;
    map.headerSize = 19 + 33 + sizeOfNames(shape.stringNames) + sizeOfNames(shape.numericNames) + 88;
    const auto numbers = static_cast<std::size_t>(shape.numericFieldCount());
    // Each configured string field adds itself to the summarised ones.
    const std::size_t filters = static_cast<std::size_t>(shape.summarisedStringFieldCount) + shape.stringNames.size();
    map.footerSize = 2 * (36 + 9 * numbers) + 1256 * filters + 60 + 8;
    const auto messagesPerBlock = static_cast<std::size_t>(shape.messagesPerBlock);
    std::size_t position = map.headerSize;
    map.openBlockStart = position;
    for (const Message& message : messages) {
        if (map.frames.size() % messagesPerBlock == 0) {
            map.blockStarts.push_back(position);
            position += 8;
        }
        const std::size_t end = position + frameOf(message).size();
        map.frames.push_back({position, end});
        position = end;
        if (map.frames.size() % messagesPerBlock == 0) {
            position += map.footerSize;
            map.openBlockStart = position;
        }
    }
    map.dataEnd = position;
    return map;
}

Bytes closedImage(const TableShape& shape, const std::vector<Message>& messages) {
    return writtenImage(shape, messages, true);
}

Bytes unclosedImage(const TableShape& shape, const std::vector<Message>& messages) {
    return writtenImage(shape, messages, false);
}

Bytes footerlessImage(const TableShape& shape, const std::vector<Message>& messages) {
    // The tail is the one of the previous block's close, and the block's length word was not patched yet.
    std::vector<Message> before = messages;
    before.pop_back();
    Bytes image = unclosedImage(shape, before);
    image.resize(image.size() + (before.size() % static_cast<std::size_t>(shape.messagesPerBlock) == 0 ? 8 : 0));
    return concatenated(image, frameOf(messages.back()));
}

Bytes cutAt(const Bytes& bytes, std::size_t size) {
    return slice(bytes, 0, size);
}

Bytes concatenated(const Bytes& first, const Bytes& second) {
    Bytes bytes = first;
    bytes.insert(bytes.end(), second.begin(), second.end());
    return bytes;
}

void putU32(Bytes* bytes, std::size_t offset, std::uint32_t value) {
    for (std::size_t i = 0; i < 4; ++i) {
        bytes->at(offset + i) = static_cast<std::uint8_t>(value >> (8 * i));
    }
}

void putU64(Bytes* bytes, std::size_t offset, std::uint64_t value) {
    putU32(bytes, offset, static_cast<std::uint32_t>(value));
    putU32(bytes, offset + 4, static_cast<std::uint32_t>(value >> 32));
}

Bytes slice(const Bytes& bytes, std::size_t start, std::size_t end) {
    return Bytes(bytes.begin() + static_cast<std::ptrdiff_t>(start), bytes.begin() + static_cast<std::ptrdiff_t>(end));
}

ErrorCode TableImageTest::recover() {
    table = createTable(directory.root(), shape);
    const ErrorCode code = mt_open(table.get(), OpenMode::write);
    table.reset();
    return code;
}

std::map<std::string, Bytes> TableImageTest::others() const {
    std::map<std::string, Bytes> found;
    for (const auto& entry : std::filesystem::directory_iterator(directory.path())) {
        const std::string name = entry.path().filename().string();
        if (name != shape.name) {
            found[name] = readFile(entry.path().string());
        }
    }
    return found;
}

std::vector<std::string> TableImageTest::warningsOf(const std::string& function) const {
    std::vector<std::string> found;
    for (const std::string& line : log.warnings()) {
        if (line.starts_with(warningLine(function, ""))) {
            found.push_back(line);
        }
    }
    return found;
}

std::size_t TableImageTest::recoveries() const {
    const std::vector<std::string> lines = log.warnings();
    return static_cast<std::size_t>(std::count_if(lines.begin(), lines.end(), [](const std::string& line) {
        return line.find(" was recovered, ") != std::string::npos;
    }));
}

}  // namespace tabulo::internal::test
