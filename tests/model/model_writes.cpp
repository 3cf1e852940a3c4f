// The operations of a model run that write.
#include <algorithm>
#include <limits>

#include "tests/model/model_run.h"

namespace tabulo::internal::test {

namespace {

// A message's fields as a caller hands them over, absent ones with a text that does not count.
std::vector<StringField> fieldsOf(const Message& message, Random* random) {
    std::vector<StringField> fields;
    for (const std::optional<std::string>& text : message.strings) {
        fields.push_back(text ? StringField{text->data(), static_cast<std::int32_t>(text->size())}
                              : StringField{random->percent(50) ? "unused" : nullptr, 0});
    }
    return fields;
}

std::int32_t countOf(const auto& list) {
    return static_cast<std::int32_t>(list.size());
}

}  // namespace

void ModelRun::store(const Message& message) {
    const std::vector<StringField> fields = fieldsOf(message, random_);
    MessageMetadata metadata = message.metadata;
    // Bytes behind the NUL of a type do not belong to it.
    const auto end = std::find(metadata.msgType.begin(), metadata.msgType.end(), '\0');
    if (end != metadata.msgType.end() && random_->percent(20)) {
        metadata.msgType.back() = '!';
    }
    ASSERT_EQ(mt_writeMessage(writer_->table.get(), {metadata, fields, message.numbers}), NO_ERROR);
    model_.append(message);
}

void ModelRun::writeOne() {
    store(nextMessage());
}

void ModelRun::writeBurst() {
    for (std::int32_t k = random_->between(2, 2 + 3 * model_.layout().messagesPerBlock / 2); k > 0; --k) {
        store(nextMessage());
    }
}

void ModelRun::writeRaw() {
    const Message message = nextMessage();
    Bytes frame = plainFrame(message);
    // What stands behind the frame does not count.
    for (std::int32_t k = random_->percent(50) ? random_->below(40) : 0; k > 0; --k) {
        frame.push_back(static_cast<std::uint8_t>(random_->bits()));
    }
    ASSERT_EQ(mt_writeRawMessage(writer_->table.get(), frame.data(), countOf(frame)), NO_ERROR);
    model_.append(message);
}

void ModelRun::refuseWrite() {
    MessageTable* table = writer_->table.get();
    const Message message = nextMessage();
    std::vector<StringField> fields = fieldsOf(message, random_);
    std::vector<NumericValue> numbers = message.numbers;
    const auto write = [&] { return mt_writeMessage(table, {message.metadata, fields, numbers}); };
    Bytes frame = plainFrame(message);
    StringField& broken = fields[random_->bits() % fields.size()];
    switch (random_->below(8)) {
        case 0:
            fields.resize(random_->percent(50) ? fields.size() + 1 : fields.size() - 1);
            EXPECT_EQ(write(), STRING_FIELDS_COUNT_MISMATCH_ERROR);
            break;
        case 1:
            numbers.resize(numbers.empty() || random_->percent(50) ? numbers.size() + 1 : numbers.size() - 1);
            EXPECT_EQ(write(), NUMERIC_FIELDS_COUNT_MISMATCH_ERROR);
            break;
        case 2:
            broken = {"text", -random_->between(1, 100)};
            EXPECT_EQ(write(), WRONG_PARAMETER_ERROR);
            break;
        case 3:
            broken = {nullptr, random_->between(1, 100)};
            EXPECT_EQ(write(), NULL_POINTER_ERROR);
            break;
        case 4:
            EXPECT_EQ(mt_writeRawMessage(table, frame.data(), random_->below(countOf(frame))), NO_DATA_ERROR);
            break;
        case 5:
            frame.back() ^= 0x10;
            EXPECT_EQ(mt_writeRawMessage(table, frame.data(), countOf(frame)), CONSISTENCY_ERROR);
            break;
        case 6:
            EXPECT_EQ(mt_writeRawMessage(table, frame.data(), -random_->between(1, 100)), STREAM_WRITE_RESET_ERROR);
            break;
        default:
            EXPECT_EQ(mt_writeRawMessage(table, nullptr, 10), NULL_POINTER_ERROR);
            break;
    }
}

void ModelRun::refuseOnReader() {
    MessageTable* table = random_->of(readers_)->table.get();
    const Message message = nextMessage();
    const Bytes frame = plainFrame(message);
    switch (random_->below(4)) {
        case 0:
            EXPECT_EQ(writeMessage(table, message), READ_ONLY_ERROR);
            break;
        case 1:
            EXPECT_EQ(mt_writeRawMessage(table, frame.data(), countOf(frame)), READ_ONLY_ERROR);
            break;
        case 2:
            EXPECT_EQ(mt_drop(table), READ_ONLY_ERROR);
            break;
        default:
            EXPECT_EQ(mt_close(table), NO_ERROR) << "closing a reader saves nothing";
            break;
    }
}

void ModelRun::saveTail() {
    EXPECT_EQ(mt_close(writer_->table.get()), NO_ERROR);
}

void ModelRun::drop() {
    ASSERT_EQ(mt_drop(writer_->table.get()), NO_ERROR);
    endOwnIterators(writer_.get());
    dropForeignIterators(true);
    model_.cutTo(0);
}

}  // namespace tabulo::internal::test
