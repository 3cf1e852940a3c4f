#include "tool/order_ids.h"

#include <algorithm>

#include "tabulo/fix.h"

namespace tabulo::tool {

namespace {

struct NamedId {
    std::string_view name;
    std::int32_t tag;
    OrderIdKind kind;
};

constexpr std::array<NamedId, 3> NAMES = {{
    {"ClOrdID", 11, OrderIdKind::client},
    {"OrigClOrdID", 41, OrderIdKind::client},
    {"OrderID", 37, OrderIdKind::order},
}};
constexpr std::size_t CL_ORD_ID = 0;

// FIX prescribes "NONE" for the OrderID of an order that nobody knows; the others are in use.
bool standsForNone(std::string_view value) {
    constexpr std::array<std::string_view, 5> NONE = {"NONE", "UNKNOWN", "N/A", "NULL", "0"};
    return std::ranges::find(NONE, value) != NONE.end();
}

bool isId(std::size_t name, std::string_view value) {
    return !value.empty() && value.find('\0') == std::string_view::npos && (name == CL_ORD_ID || !standsForNone(value));
}

}  // namespace

OrderIdFields::OrderIdFields(const Layout& layout) {
    for (std::size_t n = 0; n < NAMES.size(); ++n) {
        places[n].kind = NAMES[n].kind;
        const auto text = std::ranges::find(layout.texts, NAMES[n].name);
        if (text != layout.texts.end()) {
            places[n].text = static_cast<std::size_t>(text - layout.texts.begin());
        }
    }
}

bool OrderIdFields::isComplete() const noexcept {
    return std::ranges::all_of(places, [](const Place& place) { return place.text.has_value(); });
}

void OrderIdsOfMessage::add(OrderIdKind kind, std::string_view value) {
    const auto isSame = [&](const OrderId& id) { return id.kind == kind && id.value == value; };
    if (std::ranges::find_if(ids_, isSame) == ids_.end()) {
        ids_.push_back({kind, value});
    }
}

void OrderIdsOfMessage::look(const MessageView& message, const OrderIdFields& fields) {
    ids_.clear();
    several_ = false;
    std::array<std::string_view, NAMES.size()> first;
    FixFields wire(message.wire().value_or(std::string_view()));
    for (FixField field; wire.next(&field);) {
        for (std::size_t n = 0; n < NAMES.size(); ++n) {
            if (field.tag == NAMES[n].tag && isId(n, field.value)) {
                several_ = several_ || (!first[n].empty() && first[n] != field.value);
                first[n] = field.value;
                add(NAMES[n].kind, field.value);
            }
        }
    }
    for (std::size_t n = 0; n < NAMES.size(); ++n) {
        if (fields.places[n].text) {
            const Text value = message.text(*fields.places[n].text);
            if (value && isId(n, *value)) {
                add(NAMES[n].kind, *value);
            }
        }
    }
}

}  // namespace tabulo::tool
