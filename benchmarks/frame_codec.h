// Encoding and decoding one order by hand, without a check that could be left out: what the raw limit costs.
//
// The bytes are those of a message table's frame (messagetable/frame.h), so that the raw file holds what a table holds.
// The key-value peers store the same bytes as their value.
#pragma once

#include <array>
#include <cstdint>
#include <cstring>

#include "benchmarks/workload.h"

namespace tabulo::internal::bench {

inline constexpr std::size_t LARGEST_ORDER = 1200;

struct DecodedOrder {
    MessageMetadata metadata;
    std::array<StringField, ORDER_STRINGS> strings;
    std::array<NumericValue, ORDER_NUMBERS> numbers;
};

inline Order order_of(const DecodedOrder& order) {
    return {order.metadata, order.strings, order.numbers};
}

template <typename T>
std::uint8_t* frame_put(std::uint8_t* at, T value) {
    std::memcpy(at, &value, sizeof(T));
    return at + sizeof(T);
}

template <typename T>
const std::uint8_t* frame_get(const std::uint8_t* at, T* value) {
    std::memcpy(value, at, sizeof(T));
    return at + sizeof(T);
}

// Writes at most LARGEST_ORDER bytes; the result is their number.
inline std::size_t frame_encode(const Order& order, std::uint8_t* frame) {
    const MessageMetadata& metadata = order.metadata;
    std::uint8_t* at = frame + 4;
    at = frame_put(at, metadata.uniformId);
    at = frame_put(at, metadata.seqNum);
    at = frame_put(at, metadata.prevSeqNum);
    at = frame_put(at, metadata.connMsgId);
    at = frame_put(at, metadata.timestamp);
    std::memcpy(at, metadata.msgType.data(), MSG_TYPE_LENGTH);
    at += MSG_TYPE_LENGTH;
    *at++ = metadata.isPossDupFlag;
    *at++ = metadata.isOutOfSequence;
    for (std::size_t i = 0; i < ORDER_NUMBERS; ++i) {
        *at++ = static_cast<std::uint8_t>(order.numbers[i].type);
        at = frame_put(at, order.numbers[i].longValue);
    }
    for (std::size_t i = 0; i < ORDER_STRINGS; ++i) {
        const StringField& field = order.texts[i];
        at = frame_put(at, field.length);
        std::memcpy(at, field.text, static_cast<std::size_t>(field.length));
        at += field.length;
    }
    const auto length = static_cast<std::uint32_t>(at + 4 - frame);
    frame_put(at, length);
    frame_put(frame, length);
    return length;
}

// The length of the frame that begins at, or ends before, a place.
inline std::size_t frame_lengthAt(const std::uint8_t* at) {
    std::uint32_t length = 0;
    frame_get(at, &length);
    return length;
}

// Decodes a whole frame; texts point into it.
inline void frame_decode(const std::uint8_t* frame, DecodedOrder* order) {
    MessageMetadata& metadata = order->metadata;
    const std::uint8_t* at = frame + 4;
    at = frame_get(at, &metadata.uniformId);
    at = frame_get(at, &metadata.seqNum);
    at = frame_get(at, &metadata.prevSeqNum);
    at = frame_get(at, &metadata.connMsgId);
    at = frame_get(at, &metadata.timestamp);
    std::memcpy(metadata.msgType.data(), at, MSG_TYPE_LENGTH);
    at += MSG_TYPE_LENGTH;
    metadata.isPossDupFlag = *at++;
    metadata.isOutOfSequence = *at++;
    for (NumericValue& number : order->numbers) {
        number.type = static_cast<NumericType>(*at++);
        at = frame_get(at, &number.longValue);
    }
    for (StringField& field : order->strings) {
        at = frame_get(at, &field.length);
        field.text = reinterpret_cast<const char*>(at);
        at += field.length;
    }
}

}  // namespace tabulo::internal::bench
