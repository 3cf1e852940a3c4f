#include "tests/support/message.h"

#include <algorithm>

namespace tabulo::internal::test {

namespace {

bool sameNumber(const NumericValue& left, const NumericValue& right) {
    return left.type == right.type && (left.type == NumericType::absent || left.longValue == right.longValue);
}

}  // namespace

bool Message::operator==(const Message& other) const {
    const MessageMetadata& left = metadata;
    const MessageMetadata& right = other.metadata;
    return left.uniformId == right.uniformId && left.seqNum == right.seqNum && left.prevSeqNum == right.prevSeqNum &&
           left.connMsgId == right.connMsgId && left.timestamp == right.timestamp && left.msgType == right.msgType &&
           left.isPossDupFlag == right.isPossDupFlag && left.isOutOfSequence == right.isOutOfSequence &&
           strings == other.strings &&
           std::equal(numbers.begin(), numbers.end(), other.numbers.begin(), other.numbers.end(), sameNumber);
}

Message ownedMessage(const MessageView& message) {
    Message owned;
    owned.metadata = message.metadata;
    for (const StringField& field : message.texts) {
        owned.strings.push_back(field.length == 0 ? std::nullopt
                                                  : std::optional(std::string(stringField_bytes(field))));
    }
    owned.numbers.assign(message.numbers.begin(), message.numbers.end());
    return owned;
}

ErrorCode writeMessage(MessageTable* table, const Message& message) {
    return mt_writeMessage(table, MessageFields(message).view());
}

MessageFields::MessageFields(const Message& message) : message_(message) {
    for (const std::optional<std::string>& text : message.strings) {
        texts_.push_back(text ? StringField{text->data(), static_cast<std::int32_t>(text->size())} : StringField{});
    }
}

}  // namespace tabulo::internal::test
