#include <array>
#include <cstring>
#include <limits>

#include "api/call.h"
#include "api/layout.h"
#include "api/message_state.h"
#include "core/byte_stream.h"
#include "messagetable/frame.h"

namespace tabulo {

namespace api {

namespace {

constexpr std::int64_t LONGEST_FRAME = std::numeric_limits<std::int32_t>::max();
// Texts of this size fit into a stream, which asks for half as much again at most when it grows.
constexpr std::size_t TEXTS_THAT_FIT = std::size_t{1} << 30;

std::int64_t storedLength(const Text& text) {
    return text.has_value() ? static_cast<std::int64_t>(text->size()) + 1 : 0;
}

void setNumber(const Number& number, internal::NumericValue* value) {
    if (const double* real = std::get_if<double>(&number)) {
        *value = internal::numericValue_ofDouble(*real);
    } else if (const std::int64_t* integer = std::get_if<std::int64_t>(&number)) {
        *value = internal::numericValue_ofLong(*integer);
    } else {
        *value = internal::NumericValue{};
    }
}

void setType(std::string_view type, internal::MessageMetadata* metadata) {
    if (type.size() > static_cast<std::size_t>(internal::MSG_TYPE_LENGTH)) {
        refuse("a type has at most five characters, not " + std::to_string(type.size()));
    }
    if (type.find('\0') != std::string_view::npos) {
        refuse("the type holds a zero byte");
    }
    metadata->msgType.fill('\0');
    std::copy(type.begin(), type.end(), metadata->msgType.begin());
}

// The bytes that all texts take with the zero bytes behind them.
std::size_t storedLength(const Message& message) {
    std::int64_t length = storedLength(message.text0) + storedLength(message.text1) + storedLength(message.wire) +
                          storedLength(message.nonMetadata);
    for (const Text& text : message.texts) {
        length += storedLength(text);
        if (length < 0 || length > LONGEST_FRAME) {
            break;
        }
    }
    if (length < 0 || length > LONGEST_FRAME) {
        refuse(Code::streamExtension, "the message is larger than a frame can be");
    }
    return static_cast<std::size_t>(length);
}

void checkCounts(const Message& message, const internal::MessageTableLayout& layout, std::size_t texts) {
    if (message.texts.size() > texts) {
        refuse(Code::stringFieldsCountMismatch, "the message has " + std::to_string(message.texts.size()) +
                                                    " texts, its table " + std::to_string(texts));
    }
    const auto numbers = static_cast<std::size_t>(layout.numericFieldCount);
    if (message.numbers.size() > numbers) {
        refuse(Code::numericFieldsCountMismatch, "the message has " + std::to_string(message.numbers.size()) +
                                                     " numbers, its table " + std::to_string(numbers));
    }
}

}  // namespace

void MessageEncoder::putText(const Text& text, internal::StringField* field) {
    *field = {};
    if (text.has_value()) {
        char* const at = texts_.data() + used_;
        std::copy(text->begin(), text->end(), at);
        at[text->size()] = '\0';
        *field = {at, static_cast<std::int32_t>(text->size()) + 1};
        used_ += text->size() + 1;
    }
}

void MessageEncoder::take(const Message& message, const internal::MessageTableLayout& layout) {
    const std::int32_t builtIn = std::min(layout.stringFieldCount, internal::BUILT_IN_STRING_FIELDS);
    const auto texts = static_cast<std::size_t>(layout.stringFieldCount - builtIn);
    checkCounts(message, layout, texts);
    if ((builtIn < 4 && message.text1.has_value()) || (builtIn < 3 && message.text0.has_value())) {
        refuse(Code::stringFieldsCountMismatch, "the table has no place for text0 or text1");
    }
    layout_ = layout;
    internal::MessageMetadata& metadata = message_.metadata;
    setType(message.type, &metadata);
    const std::size_t length = storedLength(message);
    if (texts_.size() < length) {
        texts_.resize(length);
    }
    used_ = 0;
    metadata.uniformId = message.uniformId;
    metadata.seqNum = message.seqNum;
    metadata.prevSeqNum = message.prevSeqNum;
    metadata.connMsgId = message.id;
    metadata.timestamp = message.time;
    metadata.isPossDupFlag = message.possDup ? 1 : 0;
    metadata.isOutOfSequence = message.outOfSequence ? 1 : 0;
    internal::StringField* field = message_.stringFields.data();
    if (builtIn >= 3) {
        putText(message.text0, field++);
    }
    if (builtIn >= 4) {
        putText(message.text1, field++);
    }
    for (std::size_t i = 0; i < texts; ++i) {
        putText(i < message.texts.size() ? message.texts[i] : Text(), field++);
    }
    putText(message.wire, field++);
    putText(message.nonMetadata, field);
    for (std::size_t i = 0; i < static_cast<std::size_t>(layout.numericFieldCount); ++i) {
        setNumber(i < message.numbers.size() ? message.numbers[i] : Number(), &message_.numericFields[i]);
    }
}

internal::ErrorCode MessageEncoder::causeOf(internal::ErrorCode code) const noexcept {
    const bool fits = used_ <= TEXTS_THAT_FIT;
    return code == internal::STREAM_EXTENSION_ERROR && fits ? internal::OUT_OF_MEMORY_ERROR : code;
}

}  // namespace api

void encode(const Message& message, const Layout& layout, std::vector<std::byte>& frames) {
    const internal::MessageTableLayout numbers = api::layout_numbers(layout);
    api::MessageEncoder encoder;
    encoder.take(message, numbers);
    const internal::ByteStreamPtr stream(internal::byteStream_create(1024));
    const internal::ErrorCode code =
        stream == nullptr ? internal::OUT_OF_MEMORY_ERROR : internal::mfr_encodeMessage(encoder.view(), stream.get());
    api::Call().check(encoder.causeOf(code));
    const auto* bytes = reinterpret_cast<const std::byte*>(internal::byteStream_buffer(stream.get()));
    frames.insert(frames.end(), bytes, bytes + internal::byteStream_writeMark(stream.get()));
}

}  // namespace tabulo
