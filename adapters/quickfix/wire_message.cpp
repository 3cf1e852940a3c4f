#include "adapters/quickfix/wire_message.h"

#include <algorithm>
#include <charconv>

#include "tabulo/fix.h"

namespace tabulo::quickfix {

namespace {

constexpr std::int32_t MSG_SEQ_NUM = 34;
constexpr std::int32_t MSG_TYPE = 35;
constexpr std::int32_t POSS_DUP_FLAG = 43;
constexpr std::size_t LONGEST_TYPE = 5;

// An integer where it is one, else a decimal number, else none.
Number numberIn(std::string_view text) {
    const char* const last = text.data() + text.size();
    std::int64_t integer = 0;
    if (const auto [end, error] = std::from_chars(text.data(), last, integer); error == std::errc() && end == last) {
        return integer;
    }
    double decimal = 0;
    const auto [end, error] = std::from_chars(text.data(), last, decimal, std::chars_format::fixed);
    if (error == std::errc() && end == last) {
        return decimal;
    }
    return {};
}

std::int32_t seqNumIn(std::string_view text) {
    std::int32_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc() && end == text.data() + text.size() && number > 0 ? number : 0;
}

std::string_view typeIn(std::string_view text) {
    return text.size() > LONGEST_TYPE || text.find('\0') != std::string_view::npos ? std::string_view() : text;
}

std::vector<std::int32_t> tagsOf(const std::vector<IndexedField>& fields) {
    std::vector<std::int32_t> tags(fields.size());
    std::transform(fields.begin(), fields.end(), tags.begin(), [](const IndexedField& field) { return field.tag; });
    return tags;
}

std::vector<std::string> namesOf(const std::vector<IndexedField>& fields) {
    std::vector<std::string> names(fields.size());
    std::transform(fields.begin(), fields.end(), names.begin(), [](const IndexedField& field) { return field.name; });
    return names;
}

}  // namespace

Layout layoutOf(const StoreSettings& settings) {
    Layout layout;
    layout.texts = namesOf(settings.texts);
    layout.numbers = namesOf(settings.numbers);
    return layout;
}

bool isAdministrative(std::string_view type) noexcept {
    return type.size() == 1 && std::string_view("0A12345").find(type[0]) != std::string_view::npos;
}

WireMessage::WireMessage(const StoreSettings& settings)
    : texts_(tagsOf(settings.texts)), numbers_(tagsOf(settings.numbers)) {
}

Message& WireMessage::of(std::string_view wire) {
    message_.type = {};
    message_.seqNum = 0;
    message_.possDup = false;
    message_.outOfSequence = false;
    message_.texts.assign(texts_.size(), std::nullopt);
    message_.numbers.assign(numbers_.size(), {});
    message_.wire = wire;
    bool hasType = false;
    FixFields fields(wire);
    for (FixField field; fields.next(&field);) {
        if (field.tag == MSG_TYPE && !hasType) {
            hasType = true;
            message_.type = typeIn(field.value);
        } else if (field.tag == MSG_SEQ_NUM && message_.seqNum == 0) {
            message_.seqNum = seqNumIn(field.value);
        } else if (field.tag == POSS_DUP_FLAG) {
            message_.possDup = field.value == "Y";
        }
        if (const auto text = std::find(texts_.begin(), texts_.end(), field.tag); text != texts_.end()) {
            Text& value = message_.texts[static_cast<std::size_t>(text - texts_.begin())];
            value = value.has_value() ? value : field.value;
        } else if (const auto number = std::find(numbers_.begin(), numbers_.end(), field.tag);
                   number != numbers_.end()) {
            Number& value = message_.numbers[static_cast<std::size_t>(number - numbers_.begin())];
            value = value.index() != 0 ? value : numberIn(field.value);
        }
    }
    return message_;
}

}  // namespace tabulo::quickfix
