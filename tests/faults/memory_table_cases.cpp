// Message tables created, opened, recovered, written, closed and dropped without memory.
#include "tests/faults/memory_case.h"
#include "tests/messagetable/table_image.h"

namespace tabulo::internal::test {

namespace {

constexpr std::int32_t STORED = 6;

void takeShape(MemoryStage& stage) {
    stage.run.shape = largeFooterShape();
    stage.path = stage.run.path();
}

void configurations(MemoryStage& stage) {
    takeShape(stage);
    stage.configs = {makeConfig(stage.run.root(), stage.run.shape), makeConfig(stage.run.root(), stage.run.shape)};
}

ErrorCode create(MemoryStage& stage, Digests*) {
    KSVTboTableConfig*& config = stage.configs.at(stage.attempts++);
    stage.table.reset(mt_create(config));
    config = nullptr;  // the table's in every case
    return stage.table == nullptr ? OUT_OF_MEMORY_ERROR : NO_ERROR;
}

void notOpen(MemoryStage& stage) {
    takeShape(stage);
    stage.table = createTable(stage.run.root(), stage.run.shape);
}

using Prepare = std::function<void(MemoryStage&)>;

// A table that is not open, and its file.
Prepare closedOver(const TableImage& image) {
    return [image](MemoryStage& stage) {
        image.place(stage.run);
        notOpen(stage);
    };
}

// The same, opened, and the simple messages that follow in the form that a write takes.
Prepare opened(const TableImage& image, OpenMode mode, std::size_t textSize = 20) {
    return [image, mode, textSize](MemoryStage& stage) {
        closedOver(image)(stage);
        EXPECT_EQ(mt_open(stage.table.get(), mode), NO_ERROR);
        stage.messages = simpleMessages(STORED + 1, STORED + 4, stage.run.shape);
        for (Message& message : stage.messages) {
            message.strings.back() = std::string(textSize, 'x');
            stage.fields.emplace_back(message);
        }
    };
}

template <OpenMode mode>
ErrorCode open(MemoryStage& stage, Digests* answer) {
    const ErrorCode code = mt_open(stage.table.get(), mode);
    if (code == NO_ERROR) {
        answer->add(stage.table->records.dataInfo.messageCount);
        answer->add(stage.table->records.staticIndexes.lastUniform);
        answer->add(mt_openBlockStart(stage.table.get()));
    }
    return code;
}

// Writes what has not been written yet; the seventh and eighth message fill a block.
ErrorCode write(MemoryStage& stage, Digests* answer) {
    while (stage.attempts < stage.messages.size()) {
        const ErrorCode code = mt_writeMessage(stage.table.get(), stage.fields[stage.attempts].view());
        if (code != NO_ERROR) {
            return code;
        }
        stage.attempts += 1;
    }
    answer->add(stage.table->records.dataInfo.messageCount);
    return NO_ERROR;
}

Prepare openedWithFrame(const TableImage& image) {
    return [image](MemoryStage& stage) {
        opened(image, OpenMode::write, 30000)(stage);
        stage.bytes = frameOf(stage.messages[0]);
    };
}

ErrorCode writeRaw(MemoryStage& stage, Digests* answer) {
    const ErrorCode code =
        mt_writeRawMessage(stage.table.get(), stage.bytes.data(), static_cast<std::int32_t>(stage.bytes.size()));
    if (code == NO_ERROR) {
        answer->add(stage.table->records.dataInfo.messageCount);
    }
    return code;
}

ErrorCode close(MemoryStage& stage, Digests*) {
    return mt_close(stage.table.get());
}

// Drops the table and goes on with it. A drop that has failed may have emptied the table and left it closed: it is
// opened again.
ErrorCode drop(MemoryStage& stage, Digests* answer) {
    MessageTable* table = stage.table.get();
    const bool first = stage.lastId++ == 0;
    ErrorCode code = first ? mt_drop(table) : mt_open(table, OpenMode::write);
    if (code == NO_ERROR) {
        code = write(stage, answer);
    }
    return code == NO_ERROR ? mt_close(table) : code;
}

Bytes cutFrame(const TableShape& shape) {
    const Bytes bytes = unclosedImage(shape, simpleMessages(1, STORED + 1, shape));
    return cutAt(bytes, bytes.size() - 10);
}

Bytes missingFooter(const TableShape& shape) {
    return footerlessImage(shape, simpleMessages(1, 8, shape));
}

Bytes damagedFrame(const TableShape& shape) {
    const std::vector<Message> messages = simpleMessages(1, 3, shape);
    Bytes bytes = unclosedImage(shape, messages);
    putU32(&bytes, mapOf(shape, messages).frame(2).end - 4, 7);
    return bytes;
}

Bytes cutHeader(const TableShape& shape) {
    return cutAt(closedImage(shape, {}), 60);
}

}  // namespace

std::vector<MemoryCase> tableCases() {
    const TableShape shape = largeFooterShape();
    const TableImage closed(shape, [](const TableShape& s) { return closedImage(s, simpleMessages(1, STORED, s)); });
    const TableImage unclosed(shape,
                              [](const TableShape& s) { return unclosedImage(s, simpleMessages(1, STORED, s)); });
    const auto recovers = [&shape](const char* name, Bytes (*image)(const TableShape&)) {
        return MemoryCase{name, closedOver({shape, image}), open<OpenMode::write>, OUT_OF_MEMORY_ERROR,
                          Leaves::filesThatTheNextAttemptCompletes};
    };
    return {
        {"CreateATableObject", configurations, create},
        {"CreateATable", notOpen, open<OpenMode::create>, OUT_OF_MEMORY_ERROR,
         Leaves::filesThatTheNextAttemptCompletes},
        {"OpenAMissingTable", notOpen, open<OpenMode::write>, OUT_OF_MEMORY_ERROR,
         Leaves::filesThatTheNextAttemptCompletes},
        {"CreateOverATable", closedOver(closed), open<OpenMode::create>, OUT_OF_MEMORY_ERROR,
         Leaves::filesThatTheNextAttemptCompletes},
        {"OpenATableForReading", closedOver(closed), open<OpenMode::read>},
        {"OpenATableForWriting", closedOver(closed), open<OpenMode::write>},
        {"OpenAnOpenTable", opened(closed, OpenMode::write), open<OpenMode::write>},
        {"RecoverATableThatWasNotClosed", closedOver(unclosed), open<OpenMode::write>, OUT_OF_MEMORY_ERROR,
         Leaves::filesThatTheNextAttemptCompletes},
        recovers("RecoverACutFrame", cutFrame),
        recovers("RecoverAMissingFooter", missingFooter),
        recovers("RecoverADamagedFrame", damagedFrame),
        recovers("RecoverACutHeader", cutHeader),
        {"WriteMessages", opened(closed, OpenMode::write), write},
        {"WriteLargeMessages", opened(closed, OpenMode::write, 30000), write, STREAM_EXTENSION_ERROR,
         Leaves::filesThatTheNextAttemptCompletes},
        {"WriteARawMessage", openedWithFrame(closed), writeRaw, STREAM_EXTENSION_ERROR},
        {"CloseATable", opened(unclosed, OpenMode::write), close},
        {"DropATable", opened(closed, OpenMode::write), drop, OUT_OF_MEMORY_ERROR,
         Leaves::filesThatTheNextAttemptCompletes},
    };
}

}  // namespace tabulo::internal::test
