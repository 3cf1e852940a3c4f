#include "tests/api/query_model.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <sstream>

#include "tabulo/error.h"

namespace tabulo::test {
namespace {

std::string upToZero(std::string_view text) {
    return std::string(text.substr(0, text.find('\0')));
}

std::string foldedCase(std::string text) {
    for (char& character : text) {
        if (character >= 'A' && character <= 'Z') {
            character = static_cast<char>(character - 'A' + 'a');
        }
    }
    return text;
}

std::vector<int> bytesOf(std::string_view text) {
    std::vector<int> bytes;
    for (const char character : text) {
        bytes.push_back(static_cast<unsigned char>(character));
    }
    return bytes;
}

// Whether a value lies in a range, by < alone.
template <typename Range, typename Value, typename Convert>
bool isInside(const Range& range, const Value& value, Convert convert) {
    if (range.low.has_value()) {
        const Value low = convert(*range.low);
        if (value < low || (!range.includesLow && !(low < value))) {
            return false;
        }
    }
    if (range.high.has_value()) {
        const Value high = convert(*range.high);
        if (high < value || (!range.includesHigh && !(value < high))) {
            return false;
        }
    }
    return true;
}

// The condition of one range.
template <typename Made, typename Range>
Made rangeCondition(const Range& range) {
    if (range.low.has_value() && range.high.has_value()) {
        return Made::between(*range.low, *range.high);
    }
    if (range.low.has_value()) {
        return range.includesLow ? Made::atLeast(*range.low) : Made::above(*range.low);
    }
    return range.includesHigh ? Made::atMost(*range.high) : Made::below(*range.high);
}

// All parts of a condition, joined.
template <typename Made, typename Model>
Made joined(const Model& model) {
    std::optional<Made> made;
    const auto join = [&](const Made& part) { made = made.has_value() ? *made || part : part; };
    if (!model.values.empty()) {
        join(Made::anyOf(std::span(model.values)));
    }
    for (const auto& range : model.ranges) {
        join(rangeCondition<Made>(range));
    }
    if (model.absent) {
        join(Made::absent());
    }
    return made.value();
}

template <typename Model>
std::string modelWords(const Model& model) {
    std::ostringstream words;
    words.precision(17);
    for (const auto& value : model.values) {
        words << "'" << value << "' ";
    }
    for (const auto& range : model.ranges) {
        words << (range.includesLow ? "[" : "(");
        if (range.low.has_value()) {
            words << *range.low;
        }
        words << " .. ";
        if (range.high.has_value()) {
            words << *range.high;
        }
        words << (range.includesHigh ? "] " : ") ");
    }
    words << (model.absent ? "absent " : "");
    return words.str();
}

template <typename T>
T converted(const Number& number);

template <>
double converted(const Number& number) {
    const auto* stored = std::get_if<double>(&number);
    return stored != nullptr ? *stored : static_cast<double>(std::get<std::int64_t>(number));
}

template <>
std::int64_t converted(const Number& number) {
    const auto* stored = std::get_if<double>(&number);
    if (stored == nullptr) {
        return std::get<std::int64_t>(number);
    }
    if (std::isnan(*stored)) {
        return 0;
    }
    // What no integer reaches is taken for the outermost one.
    if (*stored >= 0x1p63) {
        return std::numeric_limits<std::int64_t>::max();
    }
    return *stored < -0x1p63 ? std::numeric_limits<std::int64_t>::min() : static_cast<std::int64_t>(*stored);
}

}  // namespace

bool ModelText::selects(const StoredText& text, bool isType) const {
    const auto cut = [&](std::string_view value) { return isType ? value.substr(0, 5) : value; };
    const std::string stored = text.has_value() ? std::string(cut(upToZero(*text))) : "";
    if (stored.empty() && absent) {
        return true;
    }
    if (!text.has_value()) {
        return false;
    }
    for (const std::string& value : values) {
        const std::string wanted(cut(value));
        if (ignoresCase ? foldedCase(wanted) == foldedCase(stored) : wanted == stored) {
            return true;
        }
    }
    return std::ranges::any_of(ranges, [&](const Range& range) {
        return isInside(range, bytesOf(stored), [&](const std::string& end) { return bytesOf(cut(end)); });
    });
}

TextCondition ModelText::condition() const {
    const TextCondition made = joined<TextCondition>(*this);
    return ignoresCase ? made.ignoringCase() : made;
}

std::string ModelText::words() const {
    return modelWords(*this) + (ignoresCase ? "in any case" : "");
}

template <typename T>
bool ModelNumber<T>::selects(const Number& number) const {
    const bool isNaN = std::holds_alternative<double>(number) && std::isnan(std::get<double>(number));
    if (number.index() == 0 || (isNaN && std::is_same_v<T, double>)) {
        return absent;
    }
    const T value = converted<T>(number);
    const auto equals = [&](const T& wanted) { return !(wanted < value) && !(value < wanted); };
    return std::ranges::any_of(values, equals) || std::ranges::any_of(ranges, [&](const Range& range) {
               return isInside(range, value, [](const T& end) { return end; });
           });
}

template <typename T>
NumberCondition<T> ModelNumber<T>::condition() const {
    return joined<NumberCondition<T>>(*this);
}

template <typename T>
std::string ModelNumber<T>::words() const {
    return modelWords(*this);
}

template struct ModelNumber<double>;
template struct ModelNumber<std::int64_t>;

StoredText textOf(const StoredMessage& message, BuiltInText field) {
    switch (field) {
        case BuiltInText::text0:
            return message.text0;
        case BuiltInText::text1:
            return message.text1;
        case BuiltInText::wire:
            return message.wire;
        case BuiltInText::nonMetadata:
            return message.nonMetadata;
        case BuiltInText::type:
            break;
    }
    return message.type;
}

StoredText textOf(const StoredMessage& message, std::size_t field) {
    return field < message.texts.size() ? message.texts[field] : StoredText();
}

Number numberOf(const StoredMessage& message, BuiltInNumber field) {
    switch (field) {
        case BuiltInNumber::uniformId:
            return std::int64_t{message.uniformId};
        case BuiltInNumber::seqNum:
            return std::int64_t{message.seqNum};
        case BuiltInNumber::prevSeqNum:
            return std::int64_t{message.prevSeqNum};
        case BuiltInNumber::id:
            return std::int64_t{message.id};
        case BuiltInNumber::time:
            return message.time;
        case BuiltInNumber::possDup:
            return std::int64_t{message.possDup ? 1 : 0};
        case BuiltInNumber::outOfSequence:
            break;
    }
    return std::int64_t{message.outOfSequence ? 1 : 0};
}

Number numberOf(const StoredMessage& message, std::size_t field) {
    return field < message.numbers.size() ? message.numbers[field] : Number();
}

std::string ModelQuery::add(const StoredTable& table, const std::string& condition, const Condition& selects,
                            const std::function<void(Query&)>& ask) {
    try {
        ask(query);
    } catch (const Error& error) {
        words += "(refused: " + condition + ") ";
        refused += 1;
        if (error.code() != Code::wrongParameter || conditions.empty()) {
            return condition + " is refused: " + error.what();
        }
        for (const StoredMessage& message : table.messages) {
            if (meetsConditions(message) && selects(message)) {
                return words + ": refused although uniform id " + std::to_string(message.uniformId) + " meets it";
            }
        }
        return "";
    }
    words += condition + "; ";
    conditions.push_back(selects);
    return "";
}

bool ModelQuery::meetsConditions(const StoredMessage& message) const {
    return std::ranges::all_of(conditions, [&](const Condition& condition) { return condition(message); });
}

std::vector<std::size_t> ModelQuery::expected(const StoredTable& table) const {
    std::vector<std::size_t> numbers;
    for (std::size_t i = from.value_or(0); i < before.value_or(table.count()); ++i) {
        if (selects(table.messages[i])) {
            numbers.push_back(i);
        }
    }
    if (backward) {
        std::ranges::reverse(numbers);
    }
    return numbers;
}

}  // namespace tabulo::test
