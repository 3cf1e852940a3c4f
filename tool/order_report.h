// How the life of an order is printed.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "tabulo/fix.h"
#include "tool/listing.h"
#include "tool/order_life.h"
#include "tool/times.h"

namespace tabulo::tool {

// What is known of an order behind its last message.
struct OrderEnd {
    std::size_t clOrdIds = 0;  // that are linked to it
    std::size_t tables = 0;
    std::int64_t firstTime = 0;
    std::int64_t lastTime = 0;
};

// A line for each message, and the final state. For eyes, or as JSON objects; docs/command.md lists their fields.
class OrderReport {
  public:
    virtual ~OrderReport() = default;
    virtual void add(const MessageView& message, const OrderStep& step) = 0;
    virtual void end(const OrderLife& life, const OrderEnd& end) = 0;
};

// All must outlive it. The name of the table is shown for eyes when there are several.
std::unique_ptr<OrderReport> makeOrderText(Console& console, const Times& times, const FixDictionary& dictionary,
                                           bool showsTable);
std::unique_ptr<OrderReport> makeOrderNdjson(Console& console, const Times& times, const FixDictionary& dictionary);

}  // namespace tabulo::tool
