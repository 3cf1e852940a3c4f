#include "messagetable/message_class.h"

#include <array>

namespace tabulo::internal {

namespace {

struct ClassRange {
    std::int32_t firstId;
    std::int32_t lastId;
    const char* name;
};

constexpr std::array<ClassRange, MESSAGE_CLASS_COUNT> ranges = {{
    {0x1FFFFFFF, 0x3FFFFFFE, "app message from counterparty"},
    {0x00000000, 0x1FFFFFFE, "app message to counterparty"},
    {0x4FFFFFFF, 0x5FFFFFFE, "admin message from counterparty"},
    {0x3FFFFFFF, 0x4FFFFFFE, "admin message to counterparty"},
    {0x5FFFFFFF, 0x7FFFFFFF, "resent message"},
}};

template <typename Number>
MessageClass classify(Number id) {
    for (std::int32_t c = 0; c < MESSAGE_CLASS_COUNT; ++c) {
        const ClassRange& range = ranges[static_cast<std::size_t>(c)];
        if (id >= static_cast<Number>(range.firstId) && id <= static_cast<Number>(range.lastId)) {
            return static_cast<MessageClass>(c);
        }
    }
    return NO_MESSAGE_CLASS;
}

const ClassRange* rangeOf(std::int32_t messageClass) {
    return messageClass < 0 || messageClass >= MESSAGE_CLASS_COUNT ? nullptr
                                                                   : &ranges[static_cast<std::size_t>(messageClass)];
}

}  // namespace

MessageClass classifyConnMsgId(std::int32_t id) noexcept {
    return classify(id);
}

MessageClass classifyConnMsgIdDouble(double id) noexcept {
    return classify(id);
}

std::int32_t connMsgClassFirstId(MessageClass messageClass) noexcept {
    const ClassRange* range = rangeOf(messageClass);
    return range == nullptr ? -1 : range->firstId;
}

std::int32_t connMsgClassLastId(MessageClass messageClass) noexcept {
    const ClassRange* range = rangeOf(messageClass);
    return range == nullptr ? -1 : range->lastId;
}

std::int32_t connMsgClassFirstId(std::int32_t id) noexcept {
    return connMsgClassFirstId(classifyConnMsgId(id));
}

std::int32_t connMsgClassLastId(std::int32_t id) noexcept {
    return connMsgClassLastId(classifyConnMsgId(id));
}

const char* connMsgClassName(std::int32_t messageClass) noexcept {
    const ClassRange* range = rangeOf(messageClass);
    return range == nullptr ? "unknown message class" : range->name;
}

}  // namespace tabulo::internal
