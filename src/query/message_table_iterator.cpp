#include "query/message_table_iterator.h"

#include <algorithm>
#include <cstring>
#include <new>

#include "messagetable/message_lookup.h"
#include "query/iterator_step.h"
#include "query/match.h"
#include "query/pseudo_field.h"

namespace tabulo::internal {

namespace {

void clearCurrent(MessageTableIterator* iterator) {
    iterator->current = DecodedMessage{};
    iterator->stringValueCount = 0;
    iterator->numericValueCount = 0;
}

MessageTableIterator* iteratorOf(void* owner) {
    return static_cast<MessageTableIterator*>(owner);
}

ErrorCode answerMessage(MessageTableIterator* iterator, bool inverted, const MessageView& message, Visit* answer) {
    if (query_messageMatches(*iterator->conditions, message) == inverted) {
        return NO_ERROR;
    }
    *answer = Visit::stop;
    DecodedMessage& current = iterator->current;
    if (&message.metadata != &current.metadata) {
        current.metadata = message.metadata;
        std::copy(message.texts.begin(), message.texts.end(), current.stringFields.begin());
        std::copy(message.numbers.begin(), message.numbers.end(), current.numericFields.begin());
    }
    iterator->stringValueCount = static_cast<std::int32_t>(message.texts.size());
    iterator->numericValueCount = static_cast<std::int32_t>(message.numbers.size());
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

MessageView currentOf(const MessageTableIterator* iterator) {
    return {iterator->current.metadata,
            {iterator->current.stringFields.data(), static_cast<std::size_t>(iterator->stringValueCount)},
            {iterator->current.numericFields.data(), static_cast<std::size_t>(iterator->numericValueCount)}};
}

ErrorCode step(MessageTableIterator* iterator, bool* end) {
    TableStorage* storage = mt_storage(iterator->table);
    if (iterator->openings != storage->openings) {
        iterator->place = IteratorPlace::gone;  // the table was dropped, or opened anew
    }
    if (iterator->place == IteratorPlace::done || iterator->place == IteratorPlace::gone) {
        return NO_ERROR;
    }
    TableFile* file = tableStorage_master(storage);
    if (file == nullptr) {
        return MASTER_INACTIVE_ERROR;
    }
    if (iterator->asksKnown) {
        mt_knownBlocks(iterator->table).ask();
    }
    return iterator->conditions->iterateBackward ? iteratorStep_backward(iterator, file, end)
                                                 : iteratorStep_forward(iterator, file, end);
}

MessageTableIteratorPtr create(MessageTable* table, QueryConditionsPtr conditions) {
    MessageTableIteratorPtr iterator(new (std::nothrow) MessageTableIterator);
    if (iterator == nullptr) {
        return nullptr;
    }
    TableStorage* storage = mt_storage(table);
    iterator->table = table;
    iterator->conditions = std::move(conditions);
    iterator->asksKnown =
        !iterator->conditions->inverted && query_asksKnownRanges(*iterator->conditions, mt_layout(table));
    iterator->indexed.mayAsk =
        !iterator->conditions->inverted && query_isSilent(*iterator->conditions, mt_layout(table));
    iterator->openings = storage->openings;
    iterator->reader.reset(mfr_createReader(storage, mt_layout(table)));
    if (iterator->reader == nullptr) {
        return nullptr;
    }
    const TableFile* file = tableStorage_master(storage);
    if (iterator->asksKnown && file != nullptr) {
        mt_knownBlocks(table).reserve(*iterator->reader, *file);
    }
    return iterator;
}

void begin(MessageTableIterator* iterator, std::int64_t block) {
    const bool backward = iterator->conditions->iterateBackward;
    iterator->place = backward ? IteratorPlace::beforeStart : IteratorPlace::betweenBlocks;
    iterator->cursor = blockCursor_at(iterator->reader.get(), block,
                                      backward ? BlockCursor::OpenBlocks::scanned : BlockCursor::OpenBlocks::unread,
                                      BlockCursor::ZeroWords::judged);
}

}  // namespace

MessageTableIterator* mtIterator_open(MessageTable* table, QueryConditions* conditions) noexcept {
    QueryConditionsPtr owned(conditions);
    if (table == nullptr || mt_storage(table) == nullptr || owned == nullptr) {
        return nullptr;
    }
    const bool backward = conditions->iterateBackward;
    MessageTableIteratorPtr iterator = create(table, std::move(owned));
    if (iterator == nullptr || (backward && mt_refresh(table) != NO_ERROR)) {
        return nullptr;
    }
    iterator->match = conditions->inverted ? query_matchInverted(iterator.get()) : query_match(iterator.get());
    begin(iterator.get(), backward ? mt_openBlockStart(table) : mt_storage(table)->headerSize);
    return iterator.release();
}

MessageTableIterator* mtIterator_openAt(MessageTable* table, QueryConditions* conditions, const MessageVisitor& visitor,
                                        const FramePlace& first, const FramePlace& end) noexcept {
    MessageTableIteratorPtr iterator = create(table, QueryConditionsPtr(conditions));
    if (iterator == nullptr) {
        return nullptr;
    }
    const bool backward = conditions->iterateBackward;
    iterator->match = visitor;
    iterator->startIsLast = true;
    iterator->firstBlock = first.block;
    iterator->end = end.frame;
    begin(iterator.get(), backward ? end.block : first.block);
    if (backward && end.frame == framePlace_first(end.block).frame) {
        iterator->place = IteratorPlace::betweenBlocks;  // of that block itself nothing is wanted
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

ErrorCode mtIterator_nextLoaded(MessageTableIterator* iterator, bool* end) noexcept {
    *end = true;
    const TableStorage* storage = mt_storage(iterator->table);
    if (iterator->conditions->iterateBackward || iterator->asksKnown || iterator->openings != storage->openings ||
        tableStorage_master(storage) == nullptr) {
        return NO_ERROR;
    }
    const ErrorCode code = iteratorStep_loaded(iterator, end);
    if (code != NO_ERROR) {
        clearCurrent(iterator);
    }
    return code;
}

MessagePlace mtIterator_place(const MessageTableIterator* iterator) noexcept {
    const FrameCursor& frames = iterator->frames;
    const Block& block = iterator->cursor.block;
    MessagePlace place{{block.start, frames.position}, iterator->indexInBlock - 1, nullptr};
    if (!iterator->conditions->iterateBackward) {
        place.frame.frame -= iterator->current.frameLength;
    } else {
        const bool isOpen = block.state == BlockState::open;
        place.indexInBlock =
            (isOpen ? block.messageCount : iterator->reader->layout.messagesPerBlock) - iterator->indexInBlock;
    }
    place.bytes = byteStream_buffer(iterator->reader->frames.get()) + (place.frame.frame - frames.pieceStart);
    return place;
}

const MessageMetadata& mtIterator_getMetadata(const MessageTableIterator* iterator) noexcept {
    return iterator->current.metadata;
}

StringField mtIterator_getWireMessage(const MessageTableIterator* iterator) noexcept {
    return message_wire(currentOf(iterator));
}

StringField mtIterator_getNonMetadataFields(const MessageTableIterator* iterator) noexcept {
    return message_nonMetadata(currentOf(iterator));
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

MessageVisitor query_match(MessageTableIterator* iterator) noexcept {
    return {iterator,
            [](void* owner, const BlockSummary& summary, Visit* answer) {
                const MessageTableIterator* asked = iteratorOf(owner);
                const bool mayMatch = query_blockMayMatch(*asked->conditions, summary, asked->reader->layout);
                *answer = mayMatch ? Visit::goOn : Visit::skipBlock;
                return NO_ERROR;
            },
            [](void* owner, const MessageView& message, Visit* answer) {
                return answerMessage(iteratorOf(owner), false, message, answer);
            }};
}

MessageVisitor query_matchInverted(MessageTableIterator* iterator) noexcept {
    return {iterator, nullptr, [](void* owner, const MessageView& message, Visit* answer) {
                return answerMessage(iteratorOf(owner), true, message, answer);
            }};
}

}  // namespace tabulo::internal
