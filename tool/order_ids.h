// The ids by which messages tell which order they are about.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

#include "tabulo/message.h"
#include "tabulo/table_info.h"
#include "tool/id_set.h"

namespace tabulo::tool {

// Orders are numbered twice: by who sends them (ClOrdID, OrigClOrdID), and by who takes them (OrderID). The two may use
// the same numbers for different orders.
enum class OrderIdKind { client, order };

struct OrderId {
    OrderIdKind kind = OrderIdKind::client;
    std::string_view value{};
};

// Where a layout has the three as indexed fields.
struct OrderIdFields {
    struct Place {
        OrderIdKind kind = OrderIdKind::client;
        std::optional<std::size_t> text{};  // number of the field
    };

    explicit OrderIdFields(const Layout& layout);
    // All three, so that a query for them finds whatever names an order.
    bool isComplete() const noexcept;

    std::array<Place, 3> places;  // ClOrdID, OrigClOrdID, OrderID
};

// The ids of the message that was looked at last; it is borrowed.
class OrderIdsOfMessage {
  public:
    // Those in the indexed fields, and those in the wire message. What stands for no order is left out: an empty id,
    // one with a zero byte, and what is written into OrderID or OrigClOrdID when there is none ("NONE", for example).
    void look(const MessageView& message, const OrderIdFields& fields);

    const std::vector<OrderId>& ids() const noexcept { return ids_; }
    // True when one name has several values, as in a list of orders or an allocation: such a message is about each of
    // its orders, and makes no link between them.
    bool areOfSeveralOrders() const noexcept { return several_; }

  private:
    void add(OrderIdKind kind, std::string_view value);

    std::vector<OrderId> ids_;
    bool several_ = false;
};

// The ids of one order, as far as they are known.
class OrderIds {
  public:
    bool contains(const OrderId& id) const noexcept { return setOf(id.kind).contains(id.value); }
    bool add(const OrderId& id) { return (id.kind == OrderIdKind::client ? client_ : order_).add(id.value); }
    const IdSet& setOf(OrderIdKind kind) const noexcept { return kind == OrderIdKind::client ? client_ : order_; }
    std::size_t size() const noexcept { return client_.size() + order_.size(); }

  private:
    IdSet client_;
    IdSet order_;
};

}  // namespace tabulo::tool
