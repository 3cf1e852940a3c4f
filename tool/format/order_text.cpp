// The life of an order for eyes.
#include <fmt/format.h>

#include <algorithm>
#include <string_view>

#include "tool/order_report.h"

namespace tabulo::tool {

namespace {

std::vector<ListColumn> columnsOf(bool showsTable) {
    std::vector<ListColumn> columns = {{"", "TIME"}};
    if (showsTable) {
        columns.push_back({"", "TABLE"});
    }
    for (const char* title : {"CLASS", "MESSAGE", "CLORDID", "WHAT"}) {
        columns.push_back({"", title});
    }
    return columns;
}

// Adds a part to a sentence, with ", " between them.
void addPart(std::string* text, std::string_view part) {
    if (!part.empty()) {
        *text += text->empty() ? "" : ", ";
        *text += part;
    }
}

class OrderText : public OrderReport {
  public:
    OrderText(Console& console, const Times& times, const FixDictionary& dictionary, bool showsTable)
        : console_(console),
          times_(times),
          dictionary_(dictionary),
          showsTable_(showsTable),
          listing_(console, ListFormat::text, columnsOf(showsTable)) {}

    void add(const MessageView& message, const OrderStep& step) override {
        std::vector<ListCell> row;
        row.push_back({times_.text(message.time())});
        if (showsTable_) {
            row.push_back({std::string(message.table())});
        }
        const auto messageClass = message.messageClass();
        row.push_back({messageClass ? ListValue(std::string(className(*messageClass))) : ListValue()});
        row.push_back({nameOf(step)});
        const std::optional<std::string>& id = step.value(OrderField::clOrdId);
        row.push_back({id ? ListValue(*id) : ListValue()});
        std::string what = step.isReport ? reported(step) : asked(step);
        addPart(&what, message.possDup() ? "PossDup" : "");
        row.push_back({std::move(what)});
        listing_.add(row);
    }

    void end(const OrderLife& life, const OrderEnd& end) override {
        listing_.end();
        console_.write("\n");
        const auto known = [&](OrderField field) -> ListValue {
            return life.value(field) ? ListValue(*life.value(field)) : ListValue();
        };
        std::string status = "no report says";
        if (life.reports() > 0 && life.value(OrderField::status)) {
            status = named(OrderField::status, *life.value(OrderField::status));
        }
        const std::string ids = end.clOrdIds > 1 ? fmt::format("{} ClOrdIDs", end.clOrdIds) : std::string();
        std::vector<ListColumn> columns = {{"", "FINAL STATE"}, {"", "CLORDID"}, {"", "LINKED"},
                                           {"", "ORDERID"},     {"", "ORDER"},   {"", "FILLED"},
                                           {"", "STORED"},      {"", "FROM"},    {"", "TO"}};
        std::vector<ListCell> row = {
            {status},
            {known(OrderField::clOrdId)},
            {ids},
            {known(OrderField::orderId)},
            {order([&](OrderField field) { return life.value(field); })},
            {filled(life)},
            {fmt::format("{} message{} in {} table{}", life.messages(), life.messages() == 1 ? "" : "s", end.tables,
                         end.tables == 1 ? "" : "s")},
            {times_.text(end.firstTime)},
            {times_.text(end.lastTime)}};
        if (ids.empty()) {
            columns.erase(columns.begin() + 2);
            row.erase(row.begin() + 2);
        }
        printRecord(console_, ListFormat::text, columns, row);
    }

  private:
    std::string named(OrderField field, const std::string& value) const {
        const std::string name = dictionary_.valueName(tagOf(field), value);
        return name.empty() ? value : name;
    }
    std::string named(OrderField field, const std::optional<std::string>& value) const {
        return value ? named(field, *value) : std::string();
    }

    std::string nameOf(const OrderStep& step) const {
        const std::string_view type = dictionary_.messageName(step.type);
        std::string name = type.empty() ? step.type : std::string(type);
        const std::string execType = named(OrderField::execType, step.value(OrderField::execType));
        if (!execType.empty()) {
            name += ": " + execType;
        }
        return name;
    }

    // "Buy 400 ACME at 9.95, Limit, Day".
    template <typename ValueOf>
    std::string order(const ValueOf& valueOf) const {
        std::string text;
        for (const OrderField field : {OrderField::side, OrderField::quantity, OrderField::symbol}) {
            const std::optional<std::string>& value = valueOf(field);
            if (value) {
                text += text.empty() ? "" : " ";
                text += field == OrderField::side ? named(field, *value) : *value;
            }
        }
        if (valueOf(OrderField::price)) {
            text += " at " + *valueOf(OrderField::price);
        }
        if (valueOf(OrderField::stopPrice)) {
            text += " stop " + *valueOf(OrderField::stopPrice);
        }
        addPart(&text, named(OrderField::type, valueOf(OrderField::type)));
        addPart(&text, named(OrderField::timeInForce, valueOf(OrderField::timeInForce)));
        return text;
    }

    std::string changes(const OrderStep& step) const {
        std::string text;
        for (const OrderChange& change : step.changes) {
            const bool isStatus = change.field == OrderField::status;
            std::string part = isStatus ? "" : std::string(FixDictionary::builtIn().tagName(tagOf(change.field))) + " ";
            if (change.before) {
                part += (isStatus ? named(change.field, *change.before) : *change.before) + " → ";
            }
            part += isStatus ? named(change.field, change.after) : change.after;
            addPart(&text, part);
        }
        return text;
    }

    std::string reported(const OrderStep& step) const {
        std::string text;
        const std::optional<std::string>& execType = step.value(OrderField::execType);
        const bool isFill = execType == "F" || execType == "1" || execType == "2";  // the last two before FIX 4.3
        if (isFill && step.value(OrderField::lastQuantity)) {
            text = *step.value(OrderField::lastQuantity);
            const std::optional<std::string>& price = step.value(OrderField::lastPrice);
            text += price ? " at " + *price : std::string();
        }
        addPart(&text, changes(step));
        const std::string reason = reasonOf(step);
        addPart(&text, reason);
        const std::string said = step.value(OrderField::text).value_or("");
        addPart(&text, said.empty() || said == reason ? "" : "\"" + said + "\"");
        addPart(&text, step.isLate ? "older than what is known" : text.empty() ? "nothing new" : "");
        return text;
    }

    // Why an order, or a request to change one, was rejected.
    std::string reasonOf(const OrderStep& step) const {
        std::string reason = named(OrderField::orderRejectReason, step.value(OrderField::orderRejectReason));
        addPart(&reason, named(OrderField::cancelRejectReason, step.value(OrderField::cancelRejectReason)));
        return reason;
    }

    std::string asked(const OrderStep& step) const {
        if (step.type == "F") {
            return "asks to cancel " + step.value(OrderField::origClOrdId).value_or("?");
        }
        if (step.type == "H") {
            return "asks for its status";
        }
        if (step.type == "D") {
            return order([&](OrderField field) { return step.value(field); });
        }
        const std::optional<std::string>& original = step.value(OrderField::origClOrdId);
        std::string text = original ? "asks to replace " + *original : std::string();
        addPart(&text, changes(step));
        return text;
    }

    // "300 of 400 at 9.95 on average, 100 left".
    std::string filled(const OrderLife& life) const {
        std::string text = life.value(OrderField::filled).value_or("?");
        text += " of " + life.value(OrderField::quantity).value_or("?");
        const std::optional<std::string>& average = life.value(OrderField::averagePrice);
        if (average && !areSameValues(*average, "0")) {
            text += " at " + *average + " on average";
        }
        const std::optional<std::string>& left = life.value(OrderField::left);
        addPart(&text, left ? *left + " left" : std::string());
        return text;
    }

    Console& console_;
    const Times& times_;
    const FixDictionary& dictionary_;
    bool showsTable_;
    Listing listing_;
};

}  // namespace

std::unique_ptr<OrderReport> makeOrderText(Console& console, const Times& times, const FixDictionary& dictionary,
                                           bool showsTable) {
    return std::make_unique<OrderText>(console, times, dictionary, showsTable);
}

}  // namespace tabulo::tool
