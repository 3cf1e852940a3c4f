// The class of a connection message id, told by its range.
//
// The numbering is part of the file format (static indexes and footers are stored in this order) and is not the order
// of the ranges: APP_TO has the lowest ids. A negative id belongs to no class.
#pragma once

#include <cstdint>

namespace tabulo::internal {

enum MessageClass : std::int32_t {
    NO_MESSAGE_CLASS = -1,
    APP_FROM = 0,    // 536870911 .. 1073741822   app message from counterparty
    APP_TO = 1,      // 0 .. 536870910            app message to counterparty
    ADMIN_FROM = 2,  // 1342177279 .. 1610612734  admin message from counterparty
    ADMIN_TO = 3,    // 1073741823 .. 1342177278  admin message to counterparty
    RESENT = 4,      // 1610612735 .. 2147483647  resent message
};

inline constexpr std::int32_t MESSAGE_CLASS_COUNT = 5;

// The class of an id; NO_MESSAGE_CLASS for a negative one.
MessageClass classifyConnMsgId(std::int32_t id) noexcept;
// The same for a number of a numeric comparison; also NO_MESSAGE_CLASS above the last range, between two ids of
// different classes, and for NaN. No caller of ours: filters on ids look at the ranges of all classes.
MessageClass classifyConnMsgIdDouble(double id) noexcept;

// First and last id of a class, inclusive; -1 for NO_MESSAGE_CLASS and numbers that name no class.
std::int32_t connMsgClassFirstId(MessageClass messageClass) noexcept;
std::int32_t connMsgClassLastId(MessageClass messageClass) noexcept;
// First and last id of the class that an id belongs to; -1 when it belongs to none.
std::int32_t connMsgClassFirstId(std::int32_t id) noexcept;
std::int32_t connMsgClassLastId(std::int32_t id) noexcept;
// "app message from counterparty" and so on; "unknown message class" for numbers that name no class.
const char* connMsgClassName(std::int32_t messageClass) noexcept;

}  // namespace tabulo::internal
