#include "tool/order_life.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>

#include "tabulo/fix.h"
#include "tabulo/table_info.h"

namespace tabulo::tool {

namespace {

constexpr std::array<std::int32_t, orderFieldCount> TAGS = {39, 38, 44,  99, 14, 151, 6,  32, 31,  11,
                                                            41, 37, 150, 55, 54, 40,  59, 58, 102, 103};
constexpr std::int32_t MSG_TYPE = 35;
constexpr std::int32_t POSS_DUP = 43;
constexpr std::int32_t SENDER = 49;
constexpr std::int32_t SENDING_TIME = 52;
constexpr std::int32_t ORIG_SENDING_TIME = 122;

constexpr std::string_view EXECUTION_REPORT = "8";
constexpr std::string_view CANCEL_REJECT = "9";
constexpr std::string_view PENDING_CANCEL = "6";
constexpr std::string_view PENDING_REPLACE = "E";
constexpr std::string_view UNKNOWN_ORDER = "1";

// What of the session layer tells how old a message is.
struct Envelope {
    std::string_view sender;
    std::string_view sendingTime;
    std::string_view origSendingTime;
    std::string_view possDup;
    std::string_view type;
};

// The first field of each tag.
Envelope readWire(std::string_view wire, OrderStep* step) {
    Envelope envelope;
    const auto keep = [](std::string_view* into, std::string_view value) { *into = into->empty() ? value : *into; };
    FixFields fields(wire);
    for (FixField field; fields.next(&field);) {
        switch (field.tag) {
            case MSG_TYPE:
                keep(&envelope.type, field.value);
                break;
            case POSS_DUP:
                keep(&envelope.possDup, field.value);
                break;
            case SENDER:
                keep(&envelope.sender, field.value);
                break;
            case SENDING_TIME:
                keep(&envelope.sendingTime, field.value);
                break;
            case ORIG_SENDING_TIME:
                keep(&envelope.origSendingTime, field.value);
                break;
            default:
                break;
        }
        const auto place = std::ranges::find(TAGS, field.tag);
        if (place != TAGS.end()) {
            auto& value = step->values[static_cast<std::size_t>(place - TAGS.begin())];
            value = value ? value : std::string(field.value);
        }
    }
    return envelope;
}

std::optional<std::string> textOf(const Number& number) {
    if (const auto* integer = std::get_if<std::int64_t>(&number)) {
        return fmt::format("{}", *integer);
    }
    const auto* real = std::get_if<double>(&number);
    return real == nullptr ? std::nullopt : std::optional(fmt::format("{}", *real));
}

// What the wire message does not tell.
void readIndexedFields(const MessageView& message, OrderStep* step) {
    const Layout& layout = message.layout();
    for (std::size_t n = 0; n < TAGS.size(); ++n) {
        if (step->values[n]) {
            continue;
        }
        const std::string_view name = FixDictionary::builtIn().tagName(TAGS[n]);
        const auto text = std::ranges::find(layout.texts, name);
        const auto number = std::ranges::find(layout.numbers, name);
        if (text != layout.texts.end()) {
            const Text value = message.text(static_cast<std::size_t>(text - layout.texts.begin()));
            step->values[n] = value ? std::optional<std::string>(*value) : std::nullopt;
        } else if (number != layout.numbers.end()) {
            step->values[n] = textOf(message.number(static_cast<std::size_t>(number - layout.numbers.begin())));
        }
    }
}

}  // namespace

std::int32_t tagOf(OrderField field) noexcept {
    return TAGS[static_cast<std::size_t>(field)];
}

std::optional<double> fixNumber(std::string_view text) noexcept {
    const std::string_view digits = text.substr(text.starts_with('-') ? 1 : 0);
    if (digits.find_first_not_of("0123456789.") != std::string_view::npos ||
        digits.find_first_of("0123456789") == std::string_view::npos || std::ranges::count(digits, '.') > 1) {
        return std::nullopt;
    }
    double number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    const bool isWhole = error == std::errc() && end == text.data() + text.size();
    return isWhole ? std::optional(number) : std::nullopt;
}

bool areSameValues(std::string_view a, std::string_view b) noexcept {
    if (a == b) {
        return true;
    }
    const std::optional<double> first = fixNumber(a);
    const std::optional<double> second = fixNumber(b);
    return first && second && *first == *second;
}

// Whether a newer report of the sender was told before. Times are compared as far as both are given: a resent message
// may tell its first time in less detail.
bool OrderLife::isLate(std::string_view sender, Sent sent) {
    const auto last = lastSent_.find(sender);
    if (last != lastSent_.end()) {
        const std::size_t length = std::min(sent.time.size(), last->second.time.size());
        const int order = sent.time.compare(0, length, last->second.time, 0, length);
        if (order < 0 || (order == 0 && sent.seqNum < last->second.seqNum)) {
            return true;
        }
    }
    lastSent_.insert_or_assign(std::string(sender), std::move(sent));
    return false;
}

OrderStep OrderLife::take(const MessageView& message) {
    OrderStep step;
    const Envelope envelope = readWire(message.wire().value_or(std::string_view()), &step);
    readIndexedFields(message, &step);
    step.type = message.type().empty() ? envelope.type : message.type();
    step.isReport = step.type == EXECUTION_REPORT || step.type == CANCEL_REJECT;
    messages_ += 1;
    if (step.isReport) {
        reports_ += 1;
        const bool isResent = envelope.possDup == "Y" && !envelope.origSendingTime.empty();
        Sent sent{std::string(isResent ? envelope.origSendingTime : envelope.sendingTime), message.seqNum()};
        step.isLate = !sent.time.empty() && isLate(envelope.sender, std::move(sent));
    }
    keep(&step);
    return step;
}

// Which of a message's values tell the state of the order.
bool OrderLife::counts(OrderField field, const OrderStep& step) const {
    if (!step.isReport) {
        return reports_ == 0 && !value(field);  // what the order asked for at first
    }
    if (step.isLate) {
        return false;
    }
    if (step.type == CANCEL_REJECT) {
        // An unknown order is always called rejected in answer to a cancel request, whatever became of it before.
        return field == OrderField::status && step.value(OrderField::cancelRejectReason) != UNKNOWN_ORDER;
    }
    return field != OrderField::clOrdId;
}

// The id under which the order stands: that of a request only once it was granted.
void OrderLife::keepClOrdId(const OrderStep& step) {
    const std::optional<std::string>& status = step.value(OrderField::status);
    const bool isPending = step.type == CANCEL_REJECT || status == PENDING_CANCEL || status == PENDING_REPLACE;
    const bool isOriginal = isPending && step.value(OrderField::origClOrdId);
    const std::optional<std::string>& id = step.value(isOriginal ? OrderField::origClOrdId : OrderField::clOrdId);
    if (step.isReport && !step.isLate && id) {
        state_[static_cast<std::size_t>(OrderField::clOrdId)] = id;
    }
}

// Finds what changes, and keeps it.
void OrderLife::keep(OrderStep* step) {
    for (std::size_t n = 0; n < step->values.size(); ++n) {
        const auto field = static_cast<OrderField>(n);
        const std::optional<std::string>& after = step->values[n];
        if (!after || after->empty()) {
            continue;
        }
        const bool isKept = counts(field, *step);
        std::optional<std::string>& before = state_[n];
        const bool isChange = !before || !areSameValues(*before, *after);
        if (n < changingFieldCount && isChange && (isKept || !step->isReport)) {
            step->changes.push_back({field, before, *after});
        }
        if (isKept) {
            before = after;
        }
    }
    keepClOrdId(*step);
}

}  // namespace tabulo::tool
