#include "tool/where.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <compare>
#include <limits>

#include "tool/listing.h"
#include "tool/status.h"

namespace tabulo::tool {

namespace {

constexpr std::string_view TAG = "tag:";
constexpr char SOH = '\x01';

std::string_view trimmed(std::string_view text) {
    const std::size_t first = text.find_first_not_of(' ');
    return first == std::string_view::npos ? "" : text.substr(first, text.find_last_not_of(' ') - first + 1);
}

bool isQuote(char character) {
    return character == '"' || character == '\'';
}

// A value without the quotes around it.
std::string unquoted(std::string_view text) {
    const std::string_view value = trimmed(text);
    const bool isQuoted = value.size() >= 2 && isQuote(value.front()) && value.back() == value.front();
    return std::string(isQuoted ? value.substr(1, value.size() - 2) : value);
}

// The values between the parentheses of "in"; commas inside quotes part nothing.
std::vector<std::string> listed(std::string_view text) {
    std::vector<std::string> values;
    std::size_t begin = 0;
    char quote = '\0';
    for (std::size_t i = 0; i <= text.size(); ++i) {
        const char character = i < text.size() ? text[i] : ',';
        if (character == ',' && (quote == '\0' || i == text.size())) {
            values.push_back(unquoted(text.substr(begin, i - begin)));
            begin = i + 1;
        } else if (quote == '\0' && isQuote(character) && trimmed(text.substr(begin, i - begin)).empty()) {
            quote = character;
        } else if (character == quote) {
            quote = '\0';
        }
    }
    return values;
}

struct FoundOperator {
    std::size_t place = std::string_view::npos;
    std::size_t length = 0;
    WhereOperator operation = WhereOperator::equal;
};

// The first operator in the text; of two at one place the longer one.
FoundOperator findOperator(std::string_view text) {
    constexpr std::array<std::pair<std::string_view, WhereOperator>, 6> OPERATORS = {{{"!=", WhereOperator::notEqual},
                                                                                      {"<=", WhereOperator::atMost},
                                                                                      {">=", WhereOperator::atLeast},
                                                                                      {"=", WhereOperator::equal},
                                                                                      {"<", WhereOperator::below},
                                                                                      {">", WhereOperator::above}}};
    FoundOperator first;
    for (const auto& [sign, operation] : OPERATORS) {
        const std::size_t place = text.find(sign);
        if (place < first.place) {
            first = {place, sign.size(), operation};
        }
    }
    return first;
}

[[noreturn]] void refuse(std::string_view text) {
    throw UsageError(fmt::format(
        "'{}' is no condition: FIELD=VALUE, or with !=, <, <=, >, >=; 'FIELD in (A, B)'; 'FIELD is absent'; "
        "FIELD is a name, or tag:NUMBER",
        shownText(text)));
}

std::optional<Number> numberOf(std::string_view text) {
    if (text.starts_with('+')) {
        text.remove_prefix(1);
    }
    std::int64_t integer = 0;
    const char* end = text.data() + text.size();
    const auto asInteger = std::from_chars(text.data(), end, integer);
    if (asInteger.ec == std::errc() && asInteger.ptr == end) {
        return integer;
    }
    double value = 0;
    const auto asDouble = std::from_chars(text.data(), end, value);
    return asDouble.ec == std::errc() && asDouble.ptr == end && !std::isnan(value) ? std::optional<Number>(value)
                                                                                   : std::nullopt;
}

// Exact, also where a 64-bit integer has more digits than a double.
std::partial_ordering compare(std::int64_t left, double right) {
    constexpr double BEYOND = 9223372036854775808.0;  // 2^63
    if (std::isnan(right)) {
        return std::partial_ordering::unordered;
    }
    if (right >= BEYOND) {
        return std::partial_ordering::less;
    }
    if (right < -BEYOND) {
        return std::partial_ordering::greater;
    }
    const double whole = std::trunc(right);
    const auto integer = static_cast<std::int64_t>(whole);
    return left != integer ? std::partial_ordering(left <=> integer) : 0.0 <=> right - whole;
}

std::partial_ordering reversed(std::partial_ordering order) {
    if (std::is_lt(order)) {
        return std::partial_ordering::greater;
    }
    return std::is_gt(order) ? std::partial_ordering::less : order;
}

// An absent number is unordered with every other.
std::partial_ordering compare(const Number& left, const Number& right) {
    const auto* leftInteger = std::get_if<std::int64_t>(&left);
    const auto* rightInteger = std::get_if<std::int64_t>(&right);
    const auto* leftDouble = std::get_if<double>(&left);
    const auto* rightDouble = std::get_if<double>(&right);
    if (leftInteger != nullptr && rightInteger != nullptr) {
        return *leftInteger <=> *rightInteger;
    }
    if (leftDouble != nullptr && rightDouble != nullptr) {
        return *leftDouble <=> *rightDouble;
    }
    if (leftInteger != nullptr && rightDouble != nullptr) {
        return compare(*leftInteger, *rightDouble);
    }
    if (leftDouble != nullptr && rightInteger != nullptr) {
        return reversed(compare(*rightInteger, *leftDouble));
    }
    return std::partial_ordering::unordered;
}

// Whether a value that is there meets an operator; `order` is that of the value and the one asked for.
bool meets(WhereOperator operation, std::partial_ordering order) {
    switch (operation) {
        case WhereOperator::notEqual:
            return std::is_neq(order);
        case WhereOperator::below:
            return std::is_lt(order);
        case WhereOperator::atMost:
            return std::is_lteq(order);
        case WhereOperator::above:
            return std::is_gt(order);
        case WhereOperator::atLeast:
            return std::is_gteq(order);
        case WhereOperator::absent:
            return false;
        default:
            return std::is_eq(order);
    }
}

bool isOrder(WhereOperator operation) {
    return operation == WhereOperator::below || operation == WhereOperator::atMost ||
           operation == WhereOperator::above || operation == WhereOperator::atLeast;
}

double asDouble(const Number& number) {
    const auto* integer = std::get_if<std::int64_t>(&number);
    return integer != nullptr ? static_cast<double>(*integer) : std::get<double>(number);
}

std::string namesOf(const Layout& layout) {
    std::string names;
    for (const auto* kind : {&layout.texts, &layout.numbers}) {
        for (const std::string& name : *kind) {
            names.append(names.empty() ? "" : ", ").append(shownText(name));
        }
    }
    return names.empty() ? "no fields" : names;
}

}  // namespace

WhereExpression parseWhere(std::string_view text) {
    constexpr std::string_view ABSENT = " is absent";
    const std::string_view whole = trimmed(text);
    const FoundOperator sign = findOperator(whole);
    const std::size_t in = whole.find(" in (");
    WhereExpression expression;
    if (in < sign.place && whole.ends_with(')')) {
        const std::size_t open = in + std::string_view(" in (").size();
        expression.operation = WhereOperator::in;
        expression.field = unquoted(whole.substr(0, in));
        expression.values = listed(whole.substr(open, whole.size() - open - 1));
    } else if (sign.place != std::string_view::npos) {
        expression.operation = sign.operation;
        expression.field = unquoted(whole.substr(0, sign.place));
        expression.values = {unquoted(whole.substr(sign.place + sign.length))};
    } else if (whole.ends_with(ABSENT)) {
        expression.operation = WhereOperator::absent;
        expression.field = unquoted(whole.substr(0, whole.size() - ABSENT.size()));
    }
    if (expression.field.empty()) {
        refuse(text);
    }
    if (expression.field.starts_with(TAG)) {
        const std::string_view digits = std::string_view(expression.field).substr(TAG.size());
        if (digits.empty() || digits.find_first_not_of("0123456789") != std::string_view::npos) {
            refuse(text);
        }
    }
    return expression;
}

WhereTest::WhereTest(WhereExpression expression, const Layout& layout) : expression_(std::move(expression)) {
    const std::string& field = expression_.field;
    if (field.starts_with(TAG)) {
        kind_ = Kind::tag;
        tag_ = field.substr(TAG.size()) + "=";
        return;
    }
    const auto text = std::find(layout.texts.begin(), layout.texts.end(), field);
    const auto number = std::find(layout.numbers.begin(), layout.numbers.end(), field);
    const auto count = std::count(layout.texts.begin(), layout.texts.end(), field) +
                       std::count(layout.numbers.begin(), layout.numbers.end(), field);
    if (count != 1) {
        throw UsageError(fmt::format("the table has {} '{}'; it has {}",
                                     count == 0 ? "no field" : "more than one field", shownText(field),
                                     namesOf(layout)));
    }
    if (text != layout.texts.end()) {
        index_ = static_cast<std::size_t>(text - layout.texts.begin());
        return;
    }
    kind_ = Kind::number;
    index_ = static_cast<std::size_t>(number - layout.numbers.begin());
    for (const std::string& value : expression_.values) {
        const std::optional<Number> parsed = numberOf(value);
        if (!parsed.has_value()) {
            throw UsageError(
                fmt::format("'{}' is compared as a number, and '{}' is none", shownText(field), shownText(value)));
        }
        numbers_.push_back(*parsed);
    }
}

bool WhereTest::push(Query* query) const {
    const WhereOperator operation = expression_.operation;
    const bool isEqual = operation == WhereOperator::equal || operation == WhereOperator::in;
    if (kind_ == Kind::text && isEqual) {
        query->text(index_, TextCondition::anyOf(expression_.values));
        return true;
    }
    if (kind_ != Kind::number || (!isEqual && !isOrder(operation))) {
        return false;
    }
    // As doubles, in which neighbouring integers may be equal: hence the ends are included.
    const double first = asDouble(numbers_.front());
    if (isEqual) {
        std::vector<double> values;
        std::transform(numbers_.begin(), numbers_.end(), std::back_inserter(values), asDouble);
        query->number(index_, DoubleCondition::anyOf(values));
    } else if (operation == WhereOperator::below || operation == WhereOperator::atMost) {
        query->number(index_, DoubleCondition::atMost(first));
    } else {
        query->number(index_, DoubleCondition::atLeast(first));
    }
    return true;
}

bool WhereTest::operator()(const MessageView& message) const {
    if (kind_ == Kind::number) {
        return matchesNumber(message.number(index_));
    }
    return matchesText(kind_ == Kind::text ? message.text(index_) : wireValue(message.wire().value_or(""), tag_));
}

bool WhereTest::matchesNumber(const Number& number) const {
    const WhereOperator operation = expression_.operation;
    if (std::holds_alternative<std::monostate>(number)) {
        return operation == WhereOperator::absent || operation == WhereOperator::notEqual;
    }
    return std::any_of(numbers_.begin(), numbers_.end(),
                       [&](const Number& value) { return meets(operation, compare(number, value)); });
}

bool WhereTest::matchesText(const Text& text) const {
    const WhereOperator operation = expression_.operation;
    if (!text.has_value()) {
        return operation == WhereOperator::absent || operation == WhereOperator::notEqual;
    }
    if (kind_ == Kind::tag && isOrder(operation)) {
        const std::optional<Number> value = numberOf(*text);
        const std::optional<Number> asked = numberOf(expression_.values.front());
        if (value.has_value() && asked.has_value()) {
            return meets(operation, compare(*value, *asked));
        }
    }
    return std::any_of(expression_.values.begin(), expression_.values.end(),
                       [&](const std::string& value) { return meets(operation, *text <=> std::string_view(value)); });
}

Text wireValue(std::string_view wire, std::string_view tag) noexcept {
    for (std::size_t place = wire.find(tag); place != std::string_view::npos; place = wire.find(tag, place + 1)) {
        if (place == 0 || wire[place - 1] == SOH) {
            const std::string_view rest = wire.substr(place + tag.size());
            return rest.substr(0, rest.find(SOH));
        }
    }
    return std::nullopt;
}

}  // namespace tabulo::tool
