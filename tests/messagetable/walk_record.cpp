#include "tests/messagetable/walk_record.h"

#include "messagetable/table_walk.h"

namespace tabulo::internal::test {

namespace {

std::string eventOf(const BlockSummary* summary, const MessageMetadata* metadata) {
    if (summary != nullptr) {
        return "block " + std::to_string(summary->minimum.uniformId) + ".." +
               std::to_string(summary->maximum.uniformId);
    }
    return metadata == nullptr ? "end" : "message " + std::to_string(metadata->uniformId);
}

MessageFramesPtr makeReader(MessageTable* table) {
    MessageFramesPtr reader(mfr_create(table->storage.get(), &table->header.layout));
    EXPECT_NE(reader, nullptr);
    mfr_resetAll(reader.get());
    return reader;
}

}  // namespace

ErrorCode WalkRecord::operation(std::int32_t* answer, void* context, const BlockSummary* summary,
                                const MessageMetadata* metadata, const StringField* stringFields,
                                std::int32_t stringFieldCount, const NumericValue* numericFields,
                                std::int32_t numericFieldCount) {
    auto* record = static_cast<WalkRecord*>(context);
    EXPECT_EQ(*answer, Visit::goOn) << "the answer is Visit::goOn before each call";
    EXPECT_FALSE(summary != nullptr && metadata != nullptr) << "a block and a message in one call";
    const std::string event = eventOf(summary, metadata);
    record->events.push_back(event);
    if (metadata != nullptr) {
        Message message;
        message.metadata = *metadata;
        for (std::int32_t i = 0; i < stringFieldCount; ++i) {
            const StringField& field = stringFields[i];
            EXPECT_EQ(field.text == nullptr, field.length == 0) << "an absent field has no text";
            message.strings.push_back(field.length == 0 ? std::nullopt
                                                        : std::optional(std::string(stringField_bytes(field))));
        }
        message.numbers.assign(numericFields, numericFields + numericFieldCount);
        record->messages.push_back(message);
        if (record->onMessage) {
            record->onMessage();
        }
    }
    const auto told = record->answers.find(event);
    if (told != record->answers.end()) {
        *answer = told->second;
    }
    const auto failure = record->failures.find(event);
    return failure == record->failures.end() ? NO_ERROR : failure->second;
}

ErrorCode walkForward(MessageTable* table, WalkRecord* record, std::int64_t startBlock) {
    const std::int64_t start = startBlock < 0 ? table->storage->headerSize : startBlock;
    return mfr_readForward(makeReader(table).get(), start, WalkRecord::operation, record);
}

ErrorCode walkBackward(MessageTable* table, WalkRecord* record, std::int64_t startBlock) {
    const std::int64_t start = startBlock < 0 ? mt_openBlockStart(table) : startBlock;
    return mfr_readBackward(makeReader(table).get(), start, WalkRecord::operation, record);
}

std::vector<std::string> messageEvents(std::int32_t first, std::int32_t last) {
    std::vector<std::string> events;
    const std::int32_t step = first <= last ? 1 : -1;
    for (std::int32_t n = first; n != last + step; n += step) {
        events.push_back("message " + std::to_string(n));
    }
    return events;
}

std::vector<std::string> joined(const std::vector<std::vector<std::string>>& lists) {
    std::vector<std::string> all;
    for (const std::vector<std::string>& list : lists) {
        all.insert(all.end(), list.begin(), list.end());
    }
    return all;
}

}  // namespace tabulo::internal::test
