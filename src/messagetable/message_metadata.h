// What is stored beside a message's fields. The writer receives it, the reader fills it.
#pragma once

#include <array>
#include <cstdint>

namespace tabulo::internal {

inline constexpr std::int32_t MSG_TYPE_LENGTH = 5;

struct MessageMetadata {
    std::int32_t uniformId = 0;   // shared by all tables of an engine, increasing in write order
    std::int32_t seqNum = 0;      // FIX MsgSeqNum; negative for a pending outgoing message, 0 for none
    std::int32_t prevSeqNum = 0;  // the number that a pending message had before it was sent, 0 when none
    std::int32_t connMsgId = 0;   // connection message id, its class told by its range
    std::int64_t timestamp = 0;   // as given by the caller
    std::array<char, MSG_TYPE_LENGTH + 1> msgType{};  // FIX MsgType, NUL-terminated
    std::uint8_t isPossDupFlag = 0;
    std::uint8_t isOutOfSequence = 0;

    bool operator==(const MessageMetadata&) const = default;
};

}  // namespace tabulo::internal
