#include "tests/support/message.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <ostream>

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

void PrintTo(const Message& message, std::ostream* out) {
    const MessageMetadata& metadata = message.metadata;
    *out << "\n{uniformId " << metadata.uniformId << ", seqNum " << metadata.seqNum << ", prevSeqNum "
         << metadata.prevSeqNum << ", connMsgId " << metadata.connMsgId << ", timestamp " << metadata.timestamp
         << ", msgType " << ::testing::PrintToString(metadata.msgType) << ", possDup "
         << static_cast<int>(metadata.isPossDupFlag) << ", outOfSequence "
         << static_cast<int>(metadata.isOutOfSequence);
    for (const std::optional<std::string>& text : message.strings) {
        *out << ", " << (text ? ::testing::PrintToString(*text) : "absent");
    }
    for (const NumericValue& number : message.numbers) {
        switch (number.type) {
            case NumericType::absent:
                *out << ", absent";
                break;
            case NumericType::doubleValue:
                *out << ", double " << number.doubleValue;
                break;
            case NumericType::longValue:
                *out << ", long " << number.longValue;
                break;
        }
    }
    *out << "}";
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
