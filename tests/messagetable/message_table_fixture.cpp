#include "tests/messagetable/message_table_fixture.h"

#include <algorithm>
#include <ostream>

#include "messagetable/frame.h"
#include "messagetable/table_walk.h"

namespace tabulo::internal::test {

namespace {

// The visitor of readAll.
MessageVisitor collector(ReadMessages* read) {
    return {read,
            [](void* owner, const BlockSummary&, Visit*) {
                static_cast<ReadMessages*>(owner)->blocks += 1;
                return NO_ERROR;
            },
            [](void* owner, const MessageView& message, Visit*) {
                static_cast<ReadMessages*>(owner)->messages.push_back(ownedMessage(message));
                return NO_ERROR;
            }};
}

using Walk = decltype(&mfr_readForward);

ReadMessages walk(MessageTable* table, Walk walkFrom, std::int64_t start) {
    ReadMessages read;
    const BlockReaderPtr reader(mfr_createReader(table->storage.get(), table->header.layout));
    read.code = reader == nullptr ? OUT_OF_MEMORY_ERROR : walkFrom(reader.get(), start, collector(&read));
    return read;
}

}  // namespace

TableShape defaultShape() {
    TableShape shape;
    shape.messagesPerBlock = 1000;
    return shape;
}

TableShape widestShape(std::int32_t messagesPerBlock) {
    TableShape shape;
    shape.messagesPerBlock = messagesPerBlock;
    for (int i = 0; i < 12; ++i) {
        shape.stringNames.push_back("S" + std::to_string(i));
    }
    for (int i = 0; i < 16; ++i) {
        shape.numericNames.push_back("N" + std::to_string(i));
    }
    return shape;
}

KSVTboTableConfig* makeConfig(const std::string& root, const TableShape& shape) {
    KSVTboTableConfig* config = tableConfig_create(shape.name.c_str(), 1);
    EXPECT_EQ(tableConfig_setPath(config, 0, root.c_str()), NO_ERROR);
    MessageTableLayout layout;
    layout.messagesPerBlock = shape.messagesPerBlock;
    layout.summarisedStringFieldCount = shape.summarisedStringFieldCount;
    EXPECT_EQ(tableConfig_setParams(config, &layout, nullptr), NO_ERROR);
    for (const std::string& name : shape.stringNames) {
        EXPECT_EQ(tableConfig_addStringFieldName(config, name.c_str()), NO_ERROR) << name;
    }
    for (const std::string& name : shape.numericNames) {
        EXPECT_EQ(tableConfig_addNumericFieldName(config, name.c_str()), NO_ERROR) << name;
    }
    return config;
}

MessageTablePtr createTable(const std::string& root, const TableShape& shape) {
    MessageTablePtr table(mt_create(makeConfig(root, shape)));
    EXPECT_NE(table, nullptr) << "the table " << shape.name << " cannot be created";
    return table;
}

MessageTablePtr openTable(const std::string& root, OpenMode mode, const TableShape& shape) {
    MessageTablePtr table = createTable(root, shape);
    const ErrorCode code = mt_open(table.get(), mode);
    EXPECT_EQ(code, NO_ERROR) << "opening " << root << shape.name << " in mode " << openMode_number(mode) << ": "
                              << getErrorMessage(code);
    return code == NO_ERROR ? std::move(table) : nullptr;
}

ErrorCode closeTable(MessageTablePtr& table) {
    const ErrorCode code = mt_close(table.get());
    table.reset();
    return code;
}

Message simpleMessage(std::int32_t n, const TableShape& shape) {
    Message message = bareMessage(n, shape);
    message.metadata.seqNum = n;
    message.metadata.connMsgId = n;
    message.metadata.timestamp = std::int64_t{1000} * n;
    setMsgType(&message.metadata, "D");
    for (std::size_t i = 0; i < message.strings.size(); ++i) {
        message.strings[i] = withNul("f" + std::to_string(i) + "-" + std::to_string(n));
    }
    for (std::size_t i = 0; i < message.numbers.size(); ++i) {
        message.numbers[i] = numericValue_ofLong(std::int64_t{100} * n + static_cast<std::int64_t>(i));
    }
    return message;
}

std::vector<Message> simpleMessages(std::int32_t first, std::int32_t last, const TableShape& shape) {
    std::vector<Message> messages;
    for (std::int32_t n = first; n <= last; ++n) {
        messages.push_back(simpleMessage(n, shape));
    }
    return messages;
}

Message bareMessage(std::int32_t uniformId, const TableShape& shape) {
    Message message;
    message.metadata.uniformId = uniformId;
    message.strings.resize(static_cast<std::size_t>(shape.stringFieldCount()));
    message.numbers.resize(static_cast<std::size_t>(shape.numericFieldCount()));
    return message;
}

ErrorCode writeSimpleMessages(MessageTable* table, std::int32_t first, std::int32_t last, const TableShape& shape) {
    for (std::int32_t n = first; n <= last; ++n) {
        const ErrorCode code = writeMessage(table, simpleMessage(n, shape));
        if (code != NO_ERROR) {
            return code;
        }
    }
    return NO_ERROR;
}

Bytes frameOf(const Message& message) {
    return frameBytes(message.metadata, message.numbers, message.strings);
}

Bytes encodedFrame(const Message& message) {
    const ByteStreamPtr stream(byteStream_create(0));
    EXPECT_EQ(mfr_encodeMessage(MessageFields(message).view(), stream.get()), NO_ERROR);
    const std::uint8_t* bytes = byteStream_buffer(stream.get());
    return {bytes, bytes + byteStream_writeMark(stream.get())};
}

ReadMessages readAll(MessageTable* table) {
    return walk(table, mfr_readForward, table->storage->headerSize);
}

ReadMessages readAllBackward(MessageTable* table) {
    return walk(table, mfr_readBackward, mt_openBlockStart(table));
}

std::vector<Message> messagesIn(const std::string& root, const TableShape& shape) {
    const MessageTablePtr table = openTable(root, OpenMode::read, shape);
    if (table == nullptr) {
        return {};
    }
    const ReadMessages read = readAll(table.get());
    EXPECT_EQ(read.code, NO_ERROR) << getErrorMessage(read.code);
    return read.messages;
}

void addReplica(MessageTable* table, const std::string& path) {
    TableStorage* storage = table->storage.get();
    writeFile(path, readFile(tableConfig_getMasterPath(storage->config)));
    TableFile* file = nullptr;
    ASSERT_EQ(tableFileOpen(&file, path.c_str(), OpenMode::write, nullptr), NO_ERROR) << path;
    const auto index = static_cast<std::int32_t>(storage->files.size());
    storage->files.push_back(file);
    storage->activeIndexes.resize(storage->files.size(), -1);
    storage->activeIndexes[static_cast<std::size_t>(storage->activeCount)] = index;
    storage->activeCount += 1;
}

std::uint64_t u64At(const Bytes& bytes, std::size_t offset) {
    return static_cast<std::uint64_t>(u32At(bytes, offset)) | static_cast<std::uint64_t>(u32At(bytes, offset + 4))
                                                                  << 32;
}

std::uint32_t u32At(const Bytes& bytes, std::size_t offset) {
    std::uint32_t value = 0;
    for (std::size_t i = 0; i < 4; ++i) {
        value |= static_cast<std::uint32_t>(bytes.at(offset + i)) << (8 * i);
    }
    return value;
}

}  // namespace tabulo::internal::test
