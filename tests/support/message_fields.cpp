#include "tests/support/message_fields.h"

#include <algorithm>

namespace tabulo::internal::test {

namespace {

template <typename T>
void append(Bytes* bytes, T value) {
    const auto bits = static_cast<std::uint64_t>(value);
    for (std::size_t i = 0; i < sizeof(T); ++i) {
        bytes->push_back(static_cast<std::uint8_t>(bits >> (8 * i)));
    }
}

void appendNumber(Bytes* bytes, const NumericValue& number) {
    bytes->push_back(static_cast<std::uint8_t>(number.type));
    if (number.type != NumericType::absent) {
        append(bytes, number.longValue);
    }
}

}  // namespace

std::string withNul(std::string_view text) {
    return std::string(text) + '\0';
}

void setMsgType(MessageMetadata* metadata, std::string_view msgType) {
    metadata->msgType.fill('\0');
    std::copy_n(msgType.begin(), std::min<std::size_t>(msgType.size(), MSG_TYPE_LENGTH), metadata->msgType.begin());
}

Bytes frameBytes(const MessageMetadata& metadata, const std::vector<NumericValue>& numbers,
                 const std::vector<std::optional<std::string>>& strings) {
    Bytes body;
    append(&body, metadata.uniformId);
    append(&body, metadata.seqNum);
    append(&body, metadata.prevSeqNum);
    append(&body, metadata.connMsgId);
    append(&body, metadata.timestamp);
    body.insert(body.end(), metadata.msgType.begin(), metadata.msgType.begin() + 5);
    body.push_back(metadata.isPossDupFlag);
    body.push_back(metadata.isOutOfSequence);
    for (const NumericValue& number : numbers) {
        appendNumber(&body, number);
    }
    for (const std::optional<std::string>& text : strings) {
        append(&body, static_cast<std::uint32_t>(text ? text->size() : 0));
        const Bytes bytes = fromText(text.value_or(""));
        body.insert(body.end(), bytes.begin(), bytes.end());
    }
    const auto length = static_cast<std::uint32_t>(body.size() + 8);
    Bytes frame;
    append(&frame, length);
    frame.insert(frame.end(), body.begin(), body.end());
    append(&frame, length);
    return frame;
}

}  // namespace tabulo::internal::test
