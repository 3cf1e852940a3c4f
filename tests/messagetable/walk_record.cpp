#include "tests/messagetable/walk_record.h"

#include "messagetable/table_walk.h"

namespace tabulo::internal::test {

namespace {

BlockReaderPtr makeReader(MessageTable* table) {
    BlockReaderPtr reader(mfr_createReader(table->storage.get(), table->header.layout));
    EXPECT_NE(reader, nullptr);
    blockSummary_reset(&reader->summary, false);
    return reader;
}

}  // namespace

ErrorCode WalkRecord::told(const std::string& event, Visit* answer) {
    EXPECT_EQ(*answer, Visit::goOn) << "the answer is goOn before each call";
    events.push_back(event);
    const auto given = answers.find(event);
    if (given != answers.end()) {
        *answer = given->second;
    }
    const auto failure = failures.find(event);
    return failure == failures.end() ? NO_ERROR : failure->second;
}

MessageVisitor WalkRecord::visitor() {
    return {this,
            [](void* owner, const BlockSummary& summary, Visit* answer) {
                const std::string event = "block " + std::to_string(summary.minimum.uniformId) + ".." +
                                          std::to_string(summary.maximum.uniformId);
                return static_cast<WalkRecord*>(owner)->told(event, answer);
            },
            [](void* owner, const MessageView& message, Visit* answer) {
                auto* record = static_cast<WalkRecord*>(owner);
                for (const StringField& field : message.texts) {
                    EXPECT_EQ(field.text == nullptr, field.length == 0) << "an absent field has no text";
                }
                record->messages.push_back(ownedMessage(message));
                const ErrorCode code = record->told("message " + std::to_string(message.metadata.uniformId), answer);
                if (record->onMessage) {
                    record->onMessage();
                }
                return code;
            }};
}

ErrorCode walkForward(MessageTable* table, WalkRecord* record, std::int64_t startBlock) {
    const std::int64_t start = startBlock < 0 ? table->storage->headerSize : startBlock;
    return mfr_readForward(makeReader(table).get(), start, record->visitor());
}

ErrorCode walkBackward(MessageTable* table, WalkRecord* record, std::int64_t startBlock) {
    const std::int64_t start = startBlock < 0 ? mt_openBlockStart(table) : startBlock;
    return mfr_readBackward(makeReader(table).get(), start, record->visitor());
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
