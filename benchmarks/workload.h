// The one workload of the comparison: a deterministic flow of FIX orders, message by message from its number alone.
//
// An order has about 360 bytes of wire message with correct BodyLength (9=) and CheckSum (10=), about 210 bytes of
// other fields, and seven indexed values: two short built-in texts, ClOrdID (unique, 12 random letters and digits),
// Symbol (500 values), Account (50 values), OrderQty (long) and Price (double). Texts are stored with their NUL, as the
// Java binding stores them. Numbers count from 1; an order's sequence number, uniform id and message id are its number.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "messagetable/message.h"
#include "tests/support/message.h"

namespace tabulo::internal::bench {

// String slots of an order, in the order in which a message table takes them.
enum OrderSlot : std::size_t { SESSION, GATEWAY, CL_ORD_ID, SYMBOL, ACCOUNT, WIRE, OTHER };
inline constexpr std::size_t ORDER_STRINGS = 7;
inline constexpr std::size_t ORDER_NUMBERS = 2;  // OrderQty, Price
inline constexpr std::int32_t MESSAGES_PER_BLOCK = 1000;

// One order as a store is given it, or hands it out: borrowed, whoever owns the parts.
using Order = MessageView;

// One order with its texts. Not to be copied: the fields point into it.
struct OrderRecord {
    test::Message message;
    std::optional<test::MessageFields> fields;

    OrderRecord() = default;
    OrderRecord(const OrderRecord&) = delete;
    OrderRecord& operator=(const OrderRecord&) = delete;
};

// The order of that number, in the memory of the one before.
void order_make(OrderRecord* record, std::int32_t number);
std::int64_t order_time(std::int32_t number);
std::string order_clOrdId(std::int32_t number);
std::string order_symbol(std::int32_t number);
// An id of the same form that no order has.
std::string order_absentClOrdId(std::int32_t number);

inline Order order_of(const OrderRecord& record) {
    return record.fields->view();
}

// A number that changes with every field, cheap enough not to hide what the reading costs: each number, and the length
// and the middle character of each text. Sums of digests tell whether a store has handed out the right orders.
inline std::uint64_t order_digest(const Order& order) {
    const MessageMetadata& metadata = order.metadata;
    std::uint64_t digest =
        static_cast<std::uint64_t>(metadata.uniformId) * 3 + static_cast<std::uint64_t>(metadata.seqNum) * 5 +
        static_cast<std::uint64_t>(metadata.prevSeqNum) * 7 + static_cast<std::uint64_t>(metadata.connMsgId) * 11 +
        static_cast<std::uint64_t>(metadata.timestamp) * 13 + static_cast<std::uint8_t>(metadata.msgType[0]) +
        metadata.isPossDupFlag + metadata.isOutOfSequence * std::uint64_t{2};
    for (std::size_t i = 0; i < ORDER_NUMBERS; ++i) {
        digest +=
            static_cast<std::uint64_t>(order.numbers[i].longValue) + static_cast<std::uint64_t>(order.numbers[i].type);
    }
    for (std::size_t i = 0; i < ORDER_STRINGS; ++i) {
        const StringField& field = order.texts[i];
        digest = digest * 17 + static_cast<std::uint64_t>(field.length);
        digest += field.length == 0 ? 0 : static_cast<std::uint8_t>(field.text[field.length / 2]);
    }
    return digest;
}

// True when every field is the same, byte for byte.
bool order_equals(const Order& left, const Order& right);

}  // namespace tabulo::internal::bench
