#include "messagetable/frame.h"

#include <algorithm>
#include <cstring>
#include <limits>

namespace tabulo::internal {

namespace {

// The bytes that a decoder may still look at.
struct FrameBytes {
    const std::uint8_t* at;
    const std::uint8_t* end;

    bool has(std::int64_t count) const { return end - at >= count; }

    template <typename T>
    T take() {
        T value;
        std::memcpy(&value, at, sizeof(T));
        at += sizeof(T);
        return value;
    }
};

template <typename T>
std::uint8_t* put(std::uint8_t* at, T value) {
    std::memcpy(at, &value, sizeof(T));
    return at + sizeof(T);
}

// The first five bytes, NUL-padded from the first NUL on.
std::uint8_t* putMsgType(std::uint8_t* at, const std::array<char, MSG_TYPE_LENGTH + 1>& msgType) {
    bool ended = false;
    for (std::size_t i = 0; i < MSG_TYPE_LENGTH; ++i) {
        ended = ended || msgType[i] == '\0';
        at[i] = ended ? 0 : static_cast<std::uint8_t>(msgType[i]);
    }
    return at + MSG_TYPE_LENGTH;
}

std::uint32_t decodeFixedPart(FrameBytes* bytes, MessageMetadata* metadata) {
    const auto msgLen = bytes->take<std::uint32_t>();
    metadata->uniformId = bytes->take<std::int32_t>();
    metadata->seqNum = bytes->take<std::int32_t>();
    metadata->prevSeqNum = bytes->take<std::int32_t>();
    metadata->connMsgId = bytes->take<std::int32_t>();
    metadata->timestamp = bytes->take<std::int64_t>();
    std::memcpy(metadata->msgType.data(), bytes->at, MSG_TYPE_LENGTH);
    metadata->msgType[MSG_TYPE_LENGTH] = '\0';
    bytes->at += MSG_TYPE_LENGTH;
    metadata->isPossDupFlag = bytes->take<std::uint8_t>();
    metadata->isOutOfSequence = bytes->take<std::uint8_t>();
    return msgLen;
}

ErrorCode decodeNumeric(FrameBytes* bytes, NumericValue* value) {
    *value = NumericValue{};
    if (!bytes->has(1)) {
        return NO_DATA_ERROR;
    }
    const auto type = bytes->take<std::uint8_t>();
    if (!numericValue_isType(type)) {
        return CONSISTENCY_ERROR;
    }
    if (static_cast<NumericType>(type) == NumericType::absent) {
        return NO_ERROR;
    }
    if (!bytes->has(NUMERIC_VALUE_BYTES)) {
        return NO_DATA_ERROR;
    }
    value->type = static_cast<NumericType>(type);
    value->longValue = bytes->take<std::int64_t>();
    return NO_ERROR;
}

ErrorCode decodeString(FrameBytes* bytes, StringField* field) {
    if (!bytes->has(STRING_LENGTH_SIZE)) {
        return NO_DATA_ERROR;
    }
    const auto length = bytes->take<std::uint32_t>();
    if (!bytes->has(length)) {
        return NO_DATA_ERROR;
    }
    // A length beyond 2^31 - 1 has failed above: no stretch of bytes is that long.
    *field = {length == 0 ? nullptr : reinterpret_cast<const char*>(bytes->at), static_cast<std::int32_t>(length)};
    bytes->at += length;
    return NO_ERROR;
}

// As mfr_decodeFrame. The bytes are taken by value, so that the place in them stays in a register.
ErrorCode decode(FrameBytes bytes, const MessageTableLayout& layout, DecodedMessage* message) {
    StringField* const stringFields = message->stringFields.data();
    NumericValue* const numericFields = message->numericFields.data();
    const std::int32_t stringFieldCount = layout.stringFieldCount;
    const std::int32_t numericFieldCount = layout.numericFieldCount;
    if (!bytes.has(FRAME_FIXED_SIZE)) {
        return NO_DATA_ERROR;
    }
    const std::uint8_t* const start = bytes.at;
    const std::uint32_t msgLen = decodeFixedPart(&bytes, &message->metadata);
    for (std::int32_t i = 0; i < numericFieldCount; ++i) {
        const ErrorCode code = decodeNumeric(&bytes, &numericFields[i]);
        if (code != NO_ERROR) {
            std::fill_n(stringFields, stringFieldCount, StringField{});
            return code;
        }
    }
    for (std::int32_t i = 0; i < stringFieldCount; ++i) {
        const ErrorCode code = decodeString(&bytes, &stringFields[i]);
        if (code != NO_ERROR) {
            std::fill_n(stringFields + i, stringFieldCount - i, StringField{});
            return code;
        }
    }
    if (!bytes.has(FRAME_LENGTH_SIZE)) {
        return NO_DATA_ERROR;
    }
    if (bytes.take<std::uint32_t>() != msgLen) {
        return CONSISTENCY_ERROR;
    }
    message->frameLength = static_cast<std::int32_t>(bytes.at - start);
    return bytes.at - start == std::int64_t{msgLen} ? NO_ERROR : NO_DATA_ERROR;
}

}  // namespace

std::int32_t mfr_minimumFrameSize(std::int32_t stringFieldCount, std::int32_t numericFieldCount) noexcept {
    return FRAME_FIXED_SIZE + numericFieldCount + stringFieldCount * STRING_LENGTH_SIZE + FRAME_LENGTH_SIZE;
}

ErrorCode mfr_encodeMessage(const MessageView& message, KSVByteStream* stream) noexcept {
    std::int64_t length = FRAME_FIXED_SIZE + FRAME_LENGTH_SIZE;
    for (const NumericValue& number : message.numbers) {
        length += numericValue_frameSize(number);
    }
    for (const StringField& text : message.texts) {
        length += std::int64_t{STRING_LENGTH_SIZE} + text.length;
    }
    if (length > std::numeric_limits<std::int32_t>::max()) {
        stream->error = STREAM_EXTENSION_ERROR;
        return STREAM_EXTENSION_ERROR;
    }
    // Room for all of it is made once; every field then goes straight to its place.
    std::uint8_t* at = byteStream_append(stream, static_cast<std::int32_t>(length));
    if (byteStream_error(stream) != NO_ERROR) {
        return byteStream_error(stream);
    }
    at = put(at, static_cast<std::uint32_t>(length));
    const MessageMetadata& metadata = message.metadata;
    at = put(at, metadata.uniformId);
    at = put(at, metadata.seqNum);
    at = put(at, metadata.prevSeqNum);
    at = put(at, metadata.connMsgId);
    at = put(at, metadata.timestamp);
    at = putMsgType(at, metadata.msgType);
    at = put(at, metadata.isPossDupFlag);
    at = put(at, metadata.isOutOfSequence);
    for (const NumericValue& number : message.numbers) {
        at = numericValue_putFrame(number, at);
    }
    for (const StringField& text : message.texts) {
        at = put(at, static_cast<std::uint32_t>(text.length));
        if (text.length > 0) {
            std::memcpy(at, text.text, static_cast<std::size_t>(text.length));
            at += text.length;
        }
    }
    put(at, static_cast<std::uint32_t>(length));
    return NO_ERROR;
}

ErrorCode mfr_decodeFrame(const std::uint8_t* bytes, std::int64_t available, const MessageTableLayout& layout,
                          DecodedMessage* message) noexcept {
    return decode({bytes, bytes + available}, layout, message);
}

ErrorCode mfr_decodeMessage(const MessageTableLayout& layout, KSVByteStream* stream, DecodedMessage* message) noexcept {
    const std::uint8_t* bytes = byteStream_readPointer(stream);
    const ErrorCode code = decode({bytes, bytes + byteStream_unread(stream)}, layout, message);
    if (code == NO_ERROR) {
        byteStream_skip(stream, message->frameLength);
    }
    return code;
}

ErrorCode mfr_decodeMessageBackward(const MessageTableLayout& layout, KSVByteStream* stream,
                                    DecodedMessage* message) noexcept {
    const std::int32_t end = byteStream_readMark(stream);
    if (end < FRAME_LENGTH_SIZE) {
        return NO_DATA_ERROR;
    }
    std::uint32_t msgLen2 = 0;
    std::memcpy(&msgLen2, byteStream_buffer(stream) + end - FRAME_LENGTH_SIZE, sizeof(msgLen2));
    if (msgLen2 < static_cast<std::uint32_t>(mfr_minimumFrameSize(layout.stringFieldCount, layout.numericFieldCount))) {
        return CONSISTENCY_ERROR;
    }
    if (msgLen2 > static_cast<std::uint32_t>(end)) {
        return NO_DATA_ERROR;
    }
    const std::int32_t start = end - static_cast<std::int32_t>(msgLen2);
    const std::uint8_t* bytes = byteStream_buffer(stream);
    const ErrorCode code = decode({bytes + start, bytes + byteStream_writeMark(stream)}, layout, message);
    if (code != NO_ERROR) {
        return code;
    }
    if (message->frameLength != end - start) {
        return CONSISTENCY_ERROR;
    }
    byteStream_resetRead(stream, BYTE_STREAM_FORWARD, start);
    return NO_ERROR;
}

}  // namespace tabulo::internal
