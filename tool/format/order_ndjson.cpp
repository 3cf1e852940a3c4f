// The life of an order as JSON, an object a line.
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <algorithm>
#include <array>
#include <string_view>

#include "tool/order_report.h"
#include "tool/text_bytes.h"

namespace tabulo::tool {

namespace {

// True for a number as JSON writes it, which FIX need not ("007", ".5").
bool isJsonNumber(std::string_view text) {
    const std::string_view digits = text.substr(text.starts_with('-') ? 1 : 0);
    const bool hasLeadingZero = digits.size() > 1 && digits[0] == '0' && digits[1] != '.';
    return fixNumber(text).has_value() && !hasLeadingZero && !digits.starts_with('.') && !digits.ends_with('.');
}

constexpr std::array NUMBERS = {OrderField::quantity,     OrderField::price,    OrderField::stopPrice,
                                OrderField::filled,       OrderField::left,     OrderField::averagePrice,
                                OrderField::lastQuantity, OrderField::lastPrice};

bool isNumber(OrderField field) {
    return std::ranges::find(NUMBERS, field) != NUMBERS.end();
}

class OrderNdjson : public OrderReport {
  public:
    OrderNdjson(Console& console, const Times& times, const FixDictionary& dictionary)
        : console_(console), times_(times), dictionary_(dictionary) {}

    void add(const MessageView& message, const OrderStep& step) override {
        begin("message");
        text("table", message.table());
        integer("uid", message.uniformId());
        integer("seq", message.seqNum());
        const auto messageClass = message.messageClass();
        text("class", messageClass ? std::optional(className(*messageClass)) : std::nullopt);
        text("time", times_.iso(message.time()));
        text("timeRaw", std::to_string(message.time()));
        text("type", step.type);
        name("typeName", dictionary_.messageName(step.type));
        flag("possDup", message.possDup());
        for (const OrderField field :
             {OrderField::clOrdId, OrderField::origClOrdId, OrderField::orderId, OrderField::execType,
              OrderField::status, OrderField::lastQuantity, OrderField::lastPrice, OrderField::text}) {
            value(field, step.value(field));
        }
        flag("report", step.isReport);
        flag("late", step.isLate);
        writer_.Key("changes");
        writer_.StartObject();
        for (const OrderChange& change : step.changes) {
            key(FixDictionary::builtIn().tagName(tagOf(change.field)));
            writer_.StartArray();
            put(change.field, change.before);
            put(change.field, change.after);
            writer_.EndArray();
        }
        writer_.EndObject();
        finish();
    }

    void end(const OrderLife& life, const OrderEnd& end) override {
        begin("state");
        for (const OrderField field : {OrderField::clOrdId, OrderField::orderId, OrderField::symbol, OrderField::side,
                                       OrderField::type, OrderField::timeInForce}) {
            value(field, life.value(field));
        }
        const std::optional<std::string> none;
        const std::optional<std::string>& status = life.reports() > 0 ? life.value(OrderField::status) : none;
        value(OrderField::status, status);
        name("statusName", status ? dictionary_.valueName(tagOf(OrderField::status), *status) : std::string());
        for (const OrderField field : {OrderField::quantity, OrderField::price, OrderField::stopPrice,
                                       OrderField::filled, OrderField::left, OrderField::averagePrice}) {
            value(field, life.value(field));
        }
        integer("messages", life.messages());
        integer("reports", life.reports());
        integer("clOrdIds", static_cast<std::int64_t>(end.clOrdIds));
        integer("tables", static_cast<std::int64_t>(end.tables));
        text("firstTime", times_.iso(end.firstTime));
        text("lastTime", times_.iso(end.lastTime));
        finish();
    }

  private:
    void begin(std::string_view kind) {
        buffer_.Clear();
        writer_.Reset(buffer_);
        writer_.StartObject();
        text("kind", kind);
    }
    void finish() {
        writer_.EndObject();
        buffer_.Put('\n');
        console_.write({buffer_.GetString(), buffer_.GetSize()});
    }
    void key(std::string_view text) { writer_.Key(text.data(), static_cast<rapidjson::SizeType>(text.size())); }
    void string(std::string_view text) {
        const std::string shown = isUtf8(text) ? std::string(text) : shownText(text);
        writer_.String(shown.data(), static_cast<rapidjson::SizeType>(shown.size()));
    }

    void text(const char* name, std::optional<std::string_view> value) {
        writer_.Key(name);
        value ? string(*value) : static_cast<void>(writer_.Null());
    }
    void name(const char* key, std::string_view value) {
        text(key, value.empty() ? std::nullopt : std::optional(value));
    }
    void integer(const char* name, std::int64_t value) {
        writer_.Key(name);
        writer_.Int64(value);
    }
    void flag(const char* name, bool value) {
        writer_.Key(name);
        writer_.Bool(value);
    }
    void put(OrderField field, const std::optional<std::string>& value) {
        if (!value) {
            writer_.Null();
        } else if (isNumber(field) && isJsonNumber(*value)) {
            writer_.RawValue(value->data(), value->size(), rapidjson::kNumberType);
        } else {
            string(*value);
        }
    }
    // Under the name that FIX has for it.
    void value(OrderField field, const std::optional<std::string>& value) {
        key(FixDictionary::builtIn().tagName(tagOf(field)));
        put(field, value);
    }

    Console& console_;
    const Times& times_;
    const FixDictionary& dictionary_;
    rapidjson::StringBuffer buffer_;
    rapidjson::Writer<rapidjson::StringBuffer> writer_{buffer_};
};

}  // namespace

std::unique_ptr<OrderReport> makeOrderNdjson(Console& console, const Times& times, const FixDictionary& dictionary) {
    return std::make_unique<OrderNdjson>(console, times, dictionary);
}

}  // namespace tabulo::tool
