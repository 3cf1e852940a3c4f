// What the messages of an order say about it, one after another.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tabulo/message.h"

namespace tabulo::tool {

// What is told of an order, by the tags of FIX.
enum class OrderField {
    status,
    quantity,
    price,
    stopPrice,
    filled,
    left,
    averagePrice,
    lastQuantity,
    lastPrice,
    clOrdId,
    origClOrdId,
    orderId,
    execType,
    symbol,
    side,
    type,
    timeInForce,
    text,
    cancelRejectReason,
    orderRejectReason,
};
inline constexpr std::size_t orderFieldCount = 20;
std::int32_t tagOf(OrderField field) noexcept;
// The fields from status to averagePrice, whose changes are told.
inline constexpr std::size_t changingFieldCount = 7;

struct OrderChange {
    OrderField field = OrderField::status;
    std::optional<std::string> before{};
    std::string after{};
};

// What one message says.
struct OrderStep {
    std::string type{};  // MsgType
    std::array<std::optional<std::string>, orderFieldCount> values{};
    // A report changes the order; what it changes stands in `changes`. Any other message asks for what it says; then
    // they tell what would change.
    bool isReport = false;
    // A report that is older than one that was told before: it changes nothing any more.
    bool isLate = false;
    std::vector<OrderChange> changes{};

    const std::optional<std::string>& value(OrderField field) const noexcept {
        return values[static_cast<std::size_t>(field)];
    }
};

class OrderLife {
  public:
    // The message's fields are those of its wire message, else indexed fields of the same names.
    OrderStep take(const MessageView& message);

    // What is known by now. Before the first report it is what the order asks for.
    const std::optional<std::string>& value(OrderField field) const noexcept {
        return state_[static_cast<std::size_t>(field)];
    }
    std::int64_t messages() const noexcept { return messages_; }
    std::int64_t reports() const noexcept { return reports_; }

  private:
    struct Sent {
        std::string time;  // as the sender wrote it
        std::int64_t seqNum = 0;
    };

    bool isLate(std::string_view sender, Sent sent);
    bool counts(OrderField field, const OrderStep& step) const;
    void keepClOrdId(const OrderStep& step);
    void keep(OrderStep* step);

    std::array<std::optional<std::string>, orderFieldCount> state_{};
    std::map<std::string, Sent, std::less<>> lastSent_;  // the newest report of each sender
    std::int64_t messages_ = 0;
    std::int64_t reports_ = 0;
};

// True for two values that are the same text or the same number ("100" and "100.00").
bool areSameValues(std::string_view a, std::string_view b) noexcept;
// A FIX number: digits with at most one point among them, a minus sign in front. None for anything else.
std::optional<double> fixNumber(std::string_view text) noexcept;

}  // namespace tabulo::tool
