#include "tests/faults/fault_scenario.h"

#include <filesystem>
#include <fstream>

namespace tabulo::internal::test {

namespace {

// The messages that have to stand behind `base`, given what is there: all acknowledged ones, in order, and of the
// others those that are there.
std::vector<Message> expectedMessages(const ScenarioRun& run, const std::vector<Message>& base,
                                      const std::vector<Message>& present) {
    std::vector<Message> expected = base;
    for (const ScenarioRun::Written& written : run.written) {
        const std::size_t at = expected.size();
        if (written.acknowledged || (written.mayBeThere && at < present.size() && present[at] == written.message)) {
            expected.push_back(written.message);
        }
    }
    return expected;
}

std::string idsOf(const std::vector<Message>& messages) {
    std::string ids;
    for (const Message& message : messages) {
        ids += " " + std::to_string(message.metadata.uniformId);
    }
    return ids;
}

void expectMessages(const ReadMessages& read, const std::vector<Message>& expected, const char* what) {
    EXPECT_EQ(read.code, NO_ERROR) << what << ": " << getErrorMessage(read.code);
    EXPECT_TRUE(read.messages == expected)
        << what << " finds" << idsOf(read.messages) << " and not" << idsOf(expected) << ", or other contents";
}

}  // namespace

bool ScenarioRun::did(const Operation& operation, ErrorCode code, Answer answer) {
    steps.push_back({&operation, code, std::move(answer)});
    return code == NO_ERROR;
}

void ScenarioRun::write(MessageTable* table, std::int32_t first, std::int32_t last) {
    for (std::int32_t n = first; n <= last; ++n) {
        const Message message = simpleMessage(n, shape);
        const bool acknowledged = did(WRITE, writeMessage(table, message));
        written.push_back({message, acknowledged});
    }
}

TableShape smallShape() {
    TableShape shape;
    shape.messagesPerBlock = 4;
    shape.numericNames = {"Price"};
    return shape;
}

TableShape largeFooterShape() {
    TableShape shape = smallShape();
    shape.stringNames = {"Symbol", "Account"};
    return shape;
}

std::string lineOf(const Message& message) {
    const MessageMetadata& metadata = message.metadata;
    std::string line;
    for (const std::int64_t number :
         {std::int64_t{metadata.uniformId}, std::int64_t{metadata.seqNum}, std::int64_t{metadata.prevSeqNum},
          std::int64_t{metadata.connMsgId}, metadata.timestamp, std::int64_t{metadata.isPossDupFlag},
          std::int64_t{metadata.isOutOfSequence}}) {
        line += std::to_string(number) + " ";
    }
    line += metadata.msgType.data();
    for (const std::optional<std::string>& text : message.strings) {
        line += text ? " " + std::to_string(text->size()) + ":" + *text : " absent";
    }
    for (const NumericValue& number : message.numbers) {
        line += number.type == NumericType::absent
                    ? " absent"
                    : " " + std::to_string(static_cast<int>(number.type)) + ":" + std::to_string(number.longValue);
    }
    return line;
}

Answer linesOf(const std::vector<Message>& messages) {
    Answer lines;
    for (const Message& message : messages) {
        lines.push_back(lineOf(message));
    }
    return lines;
}

std::map<std::string, Bytes> filesIn(const TemporaryDirectory& directory) {
    std::map<std::string, Bytes> files;
    for (const auto& entry : std::filesystem::directory_iterator(directory.path())) {
        Bytes bytes(entry.file_size());
        std::ifstream file(entry.path(), std::ios::binary);
        file.read(reinterpret_cast<char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
        EXPECT_TRUE(file) << "cannot read " << entry.path();
        files[entry.path().filename().string()] = std::move(bytes);
    }
    return files;
}

const Bytes& TableImage::bytes() const {
    if (shared_->bytes.empty()) {
        shared_->bytes = shared_->make(shared_->shape);
    }
    return shared_->bytes;
}

void TableImage::place(ScenarioRun& run) const {
    run.shape = shared_->shape;
    writeFile(run.path(), bytes());
}

ScenarioStep placed(const TableImage& image) {
    return [image](ScenarioRun& run) { image.place(run); };
}

void expectTableGoesOn(ScenarioRun& run, const std::vector<Message>& base) {
    MessageTablePtr table = openTable(run.root(), OpenMode::write, run.shape);
    if (table == nullptr) {
        return;
    }
    const ReadMessages read = readAll(table.get());
    std::vector<Message> expected = expectedMessages(run, base, read.messages);
    expectMessages(read, expected, "the reopened table");
    for (std::int32_t n = 101; n <= 105; ++n) {
        const Message message = simpleMessage(n, run.shape);
        EXPECT_EQ(writeMessage(table.get(), message), NO_ERROR) << "message " << n << " behind the fault";
        expected.push_back(message);
    }
    EXPECT_EQ(closeTable(table), NO_ERROR);
    const MessageTablePtr reader = openTable(run.root(), OpenMode::read, run.shape);
    if (reader == nullptr) {
        return;
    }
    expectMessages(readAll(reader.get()), expected, "a reader");
    const ReadMessages backward = readAllBackward(reader.get());
    expectMessages(backward, {expected.rbegin(), expected.rend()}, "a reader from the end");
}

}  // namespace tabulo::internal::test
