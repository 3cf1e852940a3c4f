#include "fuzz/tables.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "fuzz/harness.h"
#include "messagetable/table_walk.h"
#include "query/message_table_iterator.h"
#include "query/pseudo_field.h"
#include "tests/support/current_message.h"
#include "tests/support/message_takers.h"

namespace tabulo::internal::fuzz {

namespace {

// Messages per block, string fields, summarised ones, numeric fields. A summarised field takes 1256 bytes of a footer.
constexpr std::array<MessageTableLayout, 4> LAYOUTS = {
    {{2, 4, 0, 0}, {3, 4, 0, 2}, {2, 5, 1, 1}, {4, 2, 0, 0}},
};

void add(Messages* messages, std::size_t most, Message message) {
    require(messages->list.size() < most, "more messages are delivered than the file can hold");
    messages->list.push_back(std::move(message));
}

NumericValue numberFrom(Input* input) {
    switch (input->below(4)) {
        case 0:
            return {};
        case 1:
            return numericValue_ofDouble(input->number<double>());
        case 2:
            return numericValue_ofDouble(input->smallOrAny() / 2.0);
        default:
            return numericValue_ofLong(input->smallOrAny());
    }
}

// Ids of all classes, near the ends of their ranges, or any id.
std::int32_t idFrom(Input* input) {
    const std::int32_t messageClass = input->below(MESSAGE_CLASS_COUNT + 1);
    const std::int32_t offset = input->smallOrAny();
    const auto known = static_cast<MessageClass>(messageClass);
    const std::int32_t base = offset < 0 ? connMsgClassLastId(known) : connMsgClassFirstId(known);
    const auto wrapped = static_cast<std::uint32_t>(base) + static_cast<std::uint32_t>(offset);
    return messageClass == MESSAGE_CLASS_COUNT ? offset : static_cast<std::int32_t>(wrapped);
}

// Asks for every field of the current message, and for the ones just outside.
void askForFields(const MessageTableIterator* iterator, const MessageTableLayout& layout) {
    StringField text;
    for (std::int32_t i = -1; i <= layout.stringFieldCount + 1; ++i) {
        const ErrorCode code = mtIterator_getStringField(iterator, i, &text);
        require((code == NO_ERROR) == (i >= 0 && i <= layout.stringFieldCount), "a text has a wrong index");
    }
    const std::int32_t last = layout.numericFieldCount + PSEUDO_OUT_OF_SEQUENCE;
    for (std::int32_t i = -1; i <= last + 1; ++i) {
        double asDouble = 0;
        std::int64_t asLong = 0;
        const ErrorCode code = mtIterator_getNumericFieldAsDouble(iterator, i, &asDouble);
        require(code == mtIterator_getNumericFieldAsLong(iterator, i, &asLong), "a number has two codes");
        require((code == NO_ERROR) == (i >= 0 && i <= last), "a number has a wrong index");
    }
    mtIterator_getWireMessage(iterator);
    mtIterator_getNonMetadataFields(iterator);
}

}  // namespace

std::span<const MessageTableLayout> layouts() {
    return LAYOUTS;
}

MessageTablePtr createTable(const MessageTableLayout& layout, const std::string& name) {
    KSVTboTableConfig* config = tableConfig_create(name.c_str(), 1);
    requireSuccess(tableConfig_setPath(config, 0, ROOT), "a path");
    for (std::int32_t i = BUILT_IN_STRING_FIELDS; i < layout.stringFieldCount; ++i) {
        requireSuccess(tableConfig_addStringFieldName(config, "S"), "a name");
    }
    for (std::int32_t i = 0; i < layout.numericFieldCount; ++i) {
        requireSuccess(tableConfig_addNumericFieldName(config, i == 0 ? "Price" : "N"), "a name");
    }
    requireSuccess(tableConfig_setParams(config, &layout, nullptr), "a layout");
    MessageTablePtr table(mt_create(config));
    require(table != nullptr, "a table of a possible layout is not created");
    return table;
}

Message messageFrom(Input* input, const MessageTableLayout& layout) {
    Message message;
    MessageMetadata& metadata = message.metadata;
    metadata.uniformId = input->smallOrAny();
    metadata.seqNum = input->smallOrAny();
    metadata.prevSeqNum = input->smallOrAny();
    metadata.connMsgId = idFrom(input);
    metadata.timestamp = input->smallOrAny();
    const std::string type = input->text(MSG_TYPE_LENGTH);
    std::strncpy(metadata.msgType.data(), type.c_str(), MSG_TYPE_LENGTH);
    metadata.isPossDupFlag = input->flag() ? 1 : 0;
    metadata.isOutOfSequence = input->flag() ? 1 : 0;
    for (std::int32_t i = 0; i < layout.numericFieldCount; ++i) {
        message.numbers.push_back(numberFrom(input));
    }
    for (std::int32_t i = 0; i < layout.stringFieldCount; ++i) {
        const std::string text = input->text(24);
        message.strings.push_back(text.empty() ? std::nullopt : std::optional(text));
    }
    return message;
}

Message simpleMessage(std::int32_t n, const MessageTableLayout& layout) {
    Message message;
    message.metadata.uniformId = n;
    message.metadata.seqNum = n;
    message.metadata.connMsgId = n;
    message.metadata.timestamp = n;
    message.metadata.msgType[0] = 'D';
    message.numbers.assign(static_cast<std::size_t>(layout.numericFieldCount), numericValue_ofLong(n));
    for (std::int32_t i = 0; i < layout.stringFieldCount; ++i) {
        message.strings.push_back(i % 2 == 0 ? std::optional("f" + std::to_string(n) + '\0') : std::nullopt);
    }
    return message;
}

Messages readByIterator(MessageTable* table, QueryConditionsPtr conditions, std::size_t most) {
    Messages messages;
    const MessageTableIteratorPtr iterator(mtIterator_open(table, conditions.release()));
    if (iterator == nullptr) {
        messages.code = CONSISTENCY_ERROR;
        return messages;
    }
    const MessageTableLayout& layout = table->header.layout;
    bool end = false;
    for (;;) {
        messages.code = mtIterator_next(iterator.get(), &end);
        if (messages.code != NO_ERROR || end) {
            return messages;
        }
        askForFields(iterator.get(), layout);
        add(&messages, most, ownedMessage(test::currentMessage(iterator.get())));
    }
}

Messages readAll(MessageTable* table, bool backward, std::size_t most) {
    QueryConditionsPtr conditions(conditions_create());
    requireSuccess(conditions_setIterateBackward(conditions.get(), backward), "a direction");
    return readByIterator(table, std::move(conditions), most);
}

Messages readByWalk(MessageTable* table, bool backward, std::size_t most) {
    Messages messages;
    const auto take = [&](const MessageView& message) {
        add(&messages, most, ownedMessage(message));
        return Visit::goOn;
    };
    const BlockReaderPtr reader(mfr_createReader(table->storage.get(), table->header.layout));
    blockSummary_reset(&reader->summary, false);
    messages.code = backward ? mfr_readBackward(reader.get(), mt_openBlockStart(table), test::visitorOf(&take))
                             : mfr_readForward(reader.get(), table->storage->headerSize, test::visitorOf(&take));
    return messages;
}

bool beginsWith(const std::vector<Message>& whole, const std::vector<Message>& part) {
    return part.size() <= whole.size() && std::equal(part.begin(), part.end(), whole.begin());
}

}  // namespace tabulo::internal::fuzz
