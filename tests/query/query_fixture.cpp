#include "tests/query/query_fixture.h"

#include <algorithm>

namespace tabulo::internal::test {

MessageTableLayout layoutOf(std::int32_t messagesPerBlock, std::int32_t configuredStrings, std::int32_t numericFields) {
    MessageTableLayout layout;
    layout.messagesPerBlock = messagesPerBlock;
    layout.stringFieldCount = BUILT_IN_STRING_FIELDS + configuredStrings;
    layout.summarisedStringFieldCount = LEADING_BUILT_IN_STRING_FIELDS + configuredStrings;
    layout.numericFieldCount = numericFields;
    return layout;
}

MessageTablePtr createTable(const std::string& root, const MessageTableLayout& layout) {
    KSVTboTableConfig* config = tableConfig_create("messages", 1);
    EXPECT_EQ(tableConfig_setPath(config, 0, root.c_str()), NO_ERROR);
    for (std::int32_t i = BUILT_IN_STRING_FIELDS; i < layout.stringFieldCount; ++i) {
        EXPECT_EQ(tableConfig_addStringFieldName(config, ("S" + std::to_string(i)).c_str()), NO_ERROR);
    }
    for (std::int32_t i = 0; i < layout.numericFieldCount; ++i) {
        EXPECT_EQ(tableConfig_addNumericFieldName(config, ("N" + std::to_string(i)).c_str()), NO_ERROR);
    }
    EXPECT_EQ(tableConfig_setParams(config, &layout, nullptr), NO_ERROR);
    MessageTablePtr table(mt_create(config));
    EXPECT_NE(table, nullptr) << "the table cannot be created";
    return table;
}

MessageTablePtr openTable(const std::string& root, const MessageTableLayout& layout, OpenMode mode) {
    MessageTablePtr table = createTable(root, layout);
    const ErrorCode code = mt_open(table.get(), mode);
    EXPECT_EQ(code, NO_ERROR) << "the table cannot be opened in mode " << openMode_number(mode) << ": "
                              << getErrorMessage(code);
    return code == NO_ERROR ? std::move(table) : nullptr;
}

Message plainMessage(std::int32_t n, const MessageTableLayout& layout) {
    Message message;
    message.metadata.uniformId = n;
    message.metadata.seqNum = n;
    message.metadata.connMsgId = n;
    message.metadata.timestamp = std::int64_t{1000} * n;
    setMsgType(&message.metadata, "D");
    for (std::int32_t i = 0; i < layout.stringFieldCount; ++i) {
        message.strings.emplace_back(withNul("f" + std::to_string(i) + "-" + std::to_string(n)));
    }
    for (std::int32_t i = 0; i < layout.numericFieldCount; ++i) {
        message.numbers.push_back(numericValue_ofLong(std::int64_t{100} * n + i));
    }
    return message;
}

QueryConditionsPtr newConditions(bool backward) {
    QueryConditionsPtr conditions(conditions_create());
    EXPECT_EQ(conditions_setIterateBackward(conditions.get(), backward), NO_ERROR);
    return conditions;
}

MessageTableIteratorPtr openIterator(MessageTable* table, QueryConditionsPtr conditions) {
    MessageTableIteratorPtr iterator(mtIterator_open(table, conditions.release()));
    EXPECT_NE(iterator, nullptr) << "the iterator cannot be opened";
    return iterator;
}

std::optional<std::int32_t> nextId(MessageTableIterator* iterator) {
    bool end = false;
    const ErrorCode code = mtIterator_next(iterator, &end);
    EXPECT_EQ(code, NO_ERROR) << getErrorMessage(code);
    if (code != NO_ERROR || end) {
        return std::nullopt;
    }
    return mtIterator_getMetadata(iterator).uniformId;
}

std::vector<std::int32_t> remainingIds(MessageTableIterator* iterator) {
    std::vector<std::int32_t> ids;
    while (const std::optional<std::int32_t> id = nextId(iterator)) {
        ids.push_back(*id);
    }
    return ids;
}

std::vector<std::int32_t> idsFromTo(std::int32_t first, std::int32_t last) {
    std::vector<std::int32_t> ids;
    const std::int32_t step = first <= last ? 1 : -1;
    for (std::int32_t id = first; id != last + step; id += step) {
        ids.push_back(id);
    }
    return ids;
}

WatchedIterator::WatchedIterator(MessageTableIterator* iterator, bool skipsBlocks)
    : asked_(iterator->match), skipsBlocks_(skipsBlocks) {
    iterator->match = {this, askBlock, askMessage, WatchedIterator::skipBlocks};
    iterator->asksKnown = iterator->asksKnown && skipsBlocks;
}

ErrorCode WatchedIterator::askBlock(void* owner, const BlockSummary& summary, Visit* answer) {
    auto* self = static_cast<WatchedIterator*>(owner);
    const ErrorCode code =
        self->asked_.onBlock == nullptr ? NO_ERROR : self->asked_.onBlock(self->asked_.owner, summary, answer);
    self->blocksAsked += 1;
    self->blocksSkipped += *answer == Visit::skipBlock ? 1 : 0;
    if (!self->skipsBlocks_) {
        *answer = Visit::goOn;
    }
    return code;
}

void WatchedIterator::skipBlocks(void* owner, std::int64_t count) {
    auto* self = static_cast<WatchedIterator*>(owner);
    self->blocksAsked += static_cast<int>(count);
    self->blocksSkipped += static_cast<int>(count);
    self->blocksUnread += static_cast<int>(count);
}

ErrorCode WatchedIterator::askMessage(void* owner, const MessageView& message, Visit* answer) {
    auto* self = static_cast<WatchedIterator*>(owner);
    self->messagesAsked += 1;
    return self->asked_.onMessage(self->asked_.owner, message, answer);
}

void QueryTest::writePlain(std::int32_t first, std::int32_t last) {
    for (std::int32_t n = first; n <= last; ++n) {
        write(plain(n));
    }
}

std::vector<std::int32_t> QueryTest::select(const std::function<void(QueryConditions*)>& set, bool backward) {
    QueryConditionsPtr conditions = newConditions(backward);
    set(conditions.get());
    return remainingIds(openIterator(table.get(), std::move(conditions)).get());
}

}  // namespace tabulo::internal::test
