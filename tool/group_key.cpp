#include "tool/group_key.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <bit>
#include <utility>

#include "tool/status.h"

namespace tabulo::tool {

namespace {

// What stands in front of a value in a key.
constexpr char ABSENT = 1;
constexpr char INTEGER = 2;
constexpr char DOUBLE = 3;
constexpr char TEXT = 4;

constexpr std::uint64_t SIGN = std::uint64_t{1} << 63;
constexpr std::size_t NUMBER_BYTES = 8;

constexpr std::string_view FIELD_MARK = "field:";
constexpr std::array<std::pair<std::string_view, GroupBy>, 6> NAMES = {{{"type", GroupBy::type},
                                                                        {"class", GroupBy::messageClass},
                                                                        {"table", GroupBy::table},
                                                                        {"minute", GroupBy::minute},
                                                                        {"hour", GroupBy::hour},
                                                                        {"day", GroupBy::day}}};

void putBits(std::string* key, std::uint64_t bits) {
    for (std::size_t i = NUMBER_BYTES; i-- > 0;) {
        *key += static_cast<char>(bits >> (8 * i) & 0xFF);
    }
}

std::uint64_t takeBits(std::string_view* key) {
    std::uint64_t bits = 0;
    for (const char byte : key->substr(0, NUMBER_BYTES)) {
        bits = bits << 8 | static_cast<unsigned char>(byte);
    }
    key->remove_prefix(NUMBER_BYTES);
    return bits;
}

// A zero byte in a text is followed by 0xFF, and the text's end is two of them, so that shorter texts come first.
void putText(std::string* key, std::string_view text) {
    for (const char byte : text) {
        *key += byte;
        if (byte == '\0') {
            *key += '\xFF';
        }
    }
    key->append(2, '\0');
}

std::string takeText(std::string_view* key) {
    std::string text;
    std::size_t i = 0;
    while ((*key)[i] != '\0' || (*key)[i + 1] != '\0') {
        text += (*key)[i];
        i += (*key)[i] == '\0' ? 2U : 1U;
    }
    key->remove_prefix(i + 2);
    return text;
}

ListValue listValue(const Number& number) {
    if (const double* value = std::get_if<double>(&number)) {
        return *value;
    }
    const std::int64_t* value = std::get_if<std::int64_t>(&number);
    return value == nullptr ? ListValue() : ListValue(*value);
}

ListValue listValue(const Text& text) {
    return text.has_value() ? ListValue(std::string(*text)) : ListValue();
}

}  // namespace

GroupPart groupPartNamed(const std::string& name) {
    if (name.starts_with(FIELD_MARK) && name.size() > FIELD_MARK.size()) {
        return {GroupBy::field, name, name.substr(FIELD_MARK.size())};
    }
    for (const auto& [known, by] : NAMES) {
        if (known == name) {
            return {by, name, {}};
        }
    }
    throw UsageError(
        fmt::format("--by: '{}' is none of type, class, table, field:NAME, minute, hour and day", shownText(name)));
}

bool isTime(GroupBy by) noexcept {
    return by == GroupBy::minute || by == GroupBy::hour || by == GroupBy::day;
}

void putKeyValue(std::string* key, const ListValue& value) {
    if (const auto* text = std::get_if<std::string>(&value)) {
        *key += TEXT;
        putText(key, *text);
    } else if (const auto* integer = std::get_if<std::int64_t>(&value)) {
        *key += INTEGER;
        putBits(key, static_cast<std::uint64_t>(*integer) ^ SIGN);
    } else if (const auto* number = std::get_if<double>(&value)) {
        const auto bits = std::bit_cast<std::uint64_t>(*number);
        *key += DOUBLE;
        putBits(key, (bits & SIGN) != 0 ? ~bits : bits | SIGN);
    } else {
        *key += ABSENT;
    }
}

std::vector<ListValue> keyValues(std::string_view key) {
    std::vector<ListValue> values;
    while (!key.empty()) {
        const char kind = key.front();
        key.remove_prefix(1);
        if (kind == TEXT) {
            values.emplace_back(takeText(&key));
        } else if (kind == INTEGER) {
            values.emplace_back(static_cast<std::int64_t>(takeBits(&key) ^ SIGN));
        } else if (kind == DOUBLE) {
            const std::uint64_t bits = takeBits(&key);
            values.emplace_back(std::bit_cast<double>((bits & SIGN) != 0 ? bits & ~SIGN : ~bits));
        } else {
            values.emplace_back();
        }
    }
    return values;
}

GroupKeys::GroupKeys(const std::vector<GroupPart>& parts, const Layout& layout, std::string table, const Times& times)
    : table_(std::move(table)), times_(times) {
    for (const GroupPart& part : parts) {
        Part found{part.by};
        if (part.by == GroupBy::field) {
            const auto texts = std::count(layout.texts.begin(), layout.texts.end(), part.field);
            const auto numbers = std::count(layout.numbers.begin(), layout.numbers.end(), part.field);
            if (texts + numbers > 1) {
                throw UsageError(fmt::format("{} has two fields of the name '{}'", table_, shownText(part.field)));
            }
            hasFields_ = hasFields_ && texts + numbers == 1;
            const auto& names = texts == 1 ? layout.texts : layout.numbers;
            found.source = texts == 1 ? Source::text : numbers == 1 ? Source::number : Source::none;
            found.index = static_cast<std::size_t>(std::find(names.begin(), names.end(), part.field) - names.begin());
        }
        parts_.push_back(found);
    }
}

const std::string& GroupKeys::start(GroupBy by, std::int64_t time) {
    const std::int64_t second = times_.second(time).value_or(time);
    if (second != second_ || by != startBy_) {
        second_ = second;
        startBy_ = by;
        start_ = by == GroupBy::minute ? times_.minute(time)
                 : by == GroupBy::hour ? times_.hour(time)
                                       : times_.day(time);
    }
    return start_;
}

ListValue GroupKeys::valueOf(const Part& part, const MessageView& message) {
    switch (part.by) {
        case GroupBy::type:
            return std::string(message.type());
        case GroupBy::messageClass: {
            const auto messageClass = message.messageClass();
            return messageClass.has_value() ? ListValue(std::string(className(*messageClass))) : ListValue();
        }
        case GroupBy::table:
            return table_;
        case GroupBy::field:
            if (part.source == Source::none) {
                return {};
            }
            return part.source == Source::text ? listValue(message.text(part.index))
                                               : listValue(message.number(part.index));
        default:
            return start(part.by, message.time());
    }
}

const std::string& GroupKeys::of(const MessageView& message) {
    key_.clear();
    for (const Part& part : parts_) {
        putKeyValue(&key_, valueOf(part, message));
    }
    return key_;
}

}  // namespace tabulo::tool
