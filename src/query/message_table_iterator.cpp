#include "query/message_table_iterator.h"

#include <algorithm>
#include <cstring>
#include <new>

#include "messagetable/message_lookup.h"
#include "query/block_match.h"
#include "query/iterator_step.h"
#include "query/message_match.h"
#include "query/pseudo_field.h"

namespace tabulo::internal {

namespace {

void clearCurrent(MessageTableIterator* iterator) {
    iterator->current = DecodedMessage{};
    iterator->stringValueCount = 0;
    iterator->numericValueCount = 0;
}

ErrorCode answerMessage(std::int32_t* answer, MessageTableIterator* iterator, bool inverted,
                        const MessageMetadata& metadata, const StringField* stringFields, std::int32_t stringFieldCount,
                        const NumericValue* numericFields, std::int32_t numericFieldCount) {
    const bool matches = query_messageMatches(*iterator->conditions, metadata, stringFields, stringFieldCount,
                                              numericFields, numericFieldCount);
    *answer = MATCH_NO;
    if (matches != inverted) {
        *answer = MATCH_YES;
        DecodedMessage& current = iterator->current;
        if (&metadata != &current.metadata) {
            current.metadata = metadata;
            std::copy_n(stringFields, stringFieldCount, current.stringFields.begin());
            std::copy_n(numericFields, numericFieldCount, current.numericFields.begin());
        }
        iterator->stringValueCount = stringFieldCount;
        iterator->numericValueCount = numericFieldCount;
    }
    return NO_ERROR;
}

// The value of a numeric index, or null for one out of range.
bool numericValueAt(const MessageTableIterator* iterator, std::int32_t index, NumericValue* value) {
    const std::int64_t pseudo = std::int64_t{index} - iterator->numericValueCount;
    if (index < 0 || pseudo >= PSEUDO_FIELD_COUNT) {
        return false;
    }
    *value =
        pseudo < 0
            ? iterator->current.numericFields[static_cast<std::size_t>(index)]
            : numericValue_ofLong(pseudoField_value(iterator->current.metadata, static_cast<std::int32_t>(pseudo)));
    return true;
}

template <typename Number>
ErrorCode numericField(const MessageTableIterator* iterator, std::int32_t index, Number* number) {
    NumericValue value;
    if (!numericValueAt(iterator, index, &value)) {
        return INDEX_OUT_OF_BOUNDS_ERROR;
    }
    *number = numericValue_as<Number>(value);
    return NO_ERROR;
}

StringField stringValueFromEnd(const MessageTableIterator* iterator, std::int32_t back) {
    const std::int32_t index = iterator->stringValueCount - back;
    return index < 0 ? StringField{} : iterator->current.stringFields[static_cast<std::size_t>(index)];
}

ErrorCode step(MessageTableIterator* iterator, bool* end) {
    TableStorage* storage = iterator->table->storage.get();
    if (iterator->openings != storage->openings) {
        iterator->done = true;  // the table was dropped, or opened anew
    }
    if (iterator->done) {
        return NO_ERROR;
    }
    TableFile* file = tableStorage_master(storage);
    if (file == nullptr) {
        return MASTER_INACTIVE_ERROR;
    }
    return iterator->conditions->iterateBackward ? iteratorStep_backward(iterator, file, end)
                                                 : iteratorStep_forward(iterator, file, end);
}

}  // namespace

MessageTableIterator* mtIterator_open(MessageTable* table, QueryConditions* conditions) noexcept {
    QueryConditionsPtr owned(conditions);
    if (table == nullptr || table->storage == nullptr || owned == nullptr) {
        return nullptr;
    }
    std::unique_ptr<MessageTableIterator> iterator(new (std::nothrow) MessageTableIterator);
    if (iterator == nullptr) {
        return nullptr;
    }
    iterator->table = table;
    iterator->conditions = std::move(owned);
    iterator->match = conditions->inverted ? query_matchInverted : query_match;
    iterator->openings = table->storage->openings;
    iterator->reader.reset(mfr_create(table->storage.get(), &table->header.layout));
    if (iterator->reader == nullptr) {
        return nullptr;
    }
    mfr_resetAll(iterator->reader.get());
    if (conditions->iterateBackward) {
        if (mt_refresh(table) != NO_ERROR) {
            return nullptr;
        }
        iterator->position = mt_openBlockStart(table);
    }
    return iterator.release();
}

void mtIterator_close(MessageTableIterator* iterator) noexcept {
    delete iterator;
}

ErrorCode mtIterator_next(MessageTableIterator* iterator, bool* end) noexcept {
    if (iterator == nullptr || end == nullptr) {
        return NULL_POINTER_ERROR;
    }
    *end = true;
    const ErrorCode code = step(iterator, end);
    if (code != NO_ERROR || *end) {
        clearCurrent(iterator);
    }
    return code;
}

const MessageMetadata& mtIterator_getMetadata(const MessageTableIterator* iterator) noexcept {
    return iterator->current.metadata;
}

StringField mtIterator_getWireMessage(const MessageTableIterator* iterator) noexcept {
    return stringValueFromEnd(iterator, 2);
}

StringField mtIterator_getNonMetadataFields(const MessageTableIterator* iterator) noexcept {
    return stringValueFromEnd(iterator, 1);
}

const StringField* mtIterator_getStringValues(const MessageTableIterator* iterator) noexcept {
    return iterator->current.stringFields.data();
}

const NumericValue* mtIterator_getNumericValues(const MessageTableIterator* iterator) noexcept {
    return iterator->current.numericFields.data();
}

ErrorCode mtIterator_getStringField(const MessageTableIterator* iterator, std::int32_t index,
                                    StringField* text) noexcept {
    if (index < 0 || index > iterator->stringValueCount) {
        return INDEX_OUT_OF_BOUNDS_ERROR;
    }
    if (index == iterator->stringValueCount) {
        const char* msgType = iterator->current.metadata.msgType.data();
        *text = {msgType, static_cast<std::int32_t>(std::strlen(msgType)) + 1};
    } else {
        *text = iterator->current.stringFields[static_cast<std::size_t>(index)];
    }
    return NO_ERROR;
}

ErrorCode mtIterator_getNumericFieldAsDouble(const MessageTableIterator* iterator, std::int32_t index,
                                             double* value) noexcept {
    return numericField(iterator, index, value);
}

ErrorCode mtIterator_getNumericFieldAsLong(const MessageTableIterator* iterator, std::int32_t index,
                                           std::int64_t* value) noexcept {
    return numericField(iterator, index, value);
}

ErrorCode query_match(std::int32_t* answer, void* context, const BlockSummary* summary, const MessageMetadata* metadata,
                      const StringField* stringFields, std::int32_t stringFieldCount, const NumericValue* numericFields,
                      std::int32_t numericFieldCount) noexcept {
    auto* iterator = static_cast<MessageTableIterator*>(context);
    if (summary != nullptr) {
        const bool mayMatch = query_blockMayMatch(*iterator->conditions, *summary, iterator->table->header.layout);
        *answer = mayMatch ? MATCH_NO : MATCH_STOP;
        return NO_ERROR;
    }
    return answerMessage(answer, iterator, false, *metadata, stringFields, stringFieldCount, numericFields,
                         numericFieldCount);
}

ErrorCode query_matchInverted(std::int32_t* answer, void* context, const BlockSummary* summary,
                              const MessageMetadata* metadata, const StringField* stringFields,
                              std::int32_t stringFieldCount, const NumericValue* numericFields,
                              std::int32_t numericFieldCount) noexcept {
    if (summary != nullptr) {
        *answer = MATCH_NO;
        return NO_ERROR;
    }
    return answerMessage(answer, static_cast<MessageTableIterator*>(context), true, *metadata, stringFields,
                         stringFieldCount, numericFields, numericFieldCount);
}

}  // namespace tabulo::internal
