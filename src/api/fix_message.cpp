#include "tabulo/fix.h"

#include <algorithm>
#include <charconv>
#include <limits>

namespace tabulo {

namespace {

constexpr std::size_t LONGEST_TAG = 10;

// The length that a length field tells; none for what is no number.
std::optional<std::size_t> lengthOf(std::string_view text) noexcept {
    std::size_t length = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), length);
    if (error != std::errc() || end != text.data() + text.size()) {
        return std::nullopt;
    }
    return length;
}

}  // namespace

const FixDataFields& FixDataFields::standard() {
    static const FixDataFields STANDARD = [] {
        constexpr std::pair<std::int32_t, std::int32_t> PAIRS[] = {
            {90, 91},     {93, 89},     {95, 96},     {212, 213},   {348, 349},   {350, 351},
            {352, 353},   {354, 355},   {356, 357},   {358, 359},   {360, 361},   {362, 363},
            {364, 365},   {445, 446},   {618, 619},   {621, 622},   {1184, 1185}, {1277, 1278},
            {1280, 1281}, {1282, 1283}, {1397, 1398}, {1401, 1402}, {1403, 1404}, {1468, 1469},
        };
        FixDataFields fields;
        for (const auto& [lengthTag, dataTag] : PAIRS) {
            fields.add(lengthTag, dataTag);
        }
        return fields;
    }();
    return STANDARD;
}

void FixDataFields::add(std::int32_t lengthTag, std::int32_t dataTag) {
    const auto place = std::ranges::lower_bound(pairs_, lengthTag, {}, &std::pair<std::int32_t, std::int32_t>::first);
    if (place != pairs_.end() && place->first == lengthTag) {
        place->second = dataTag;
    } else {
        pairs_.insert(place, {lengthTag, dataTag});
    }
}

std::int32_t FixDataFields::dataTagOf(std::int32_t lengthTag) const noexcept {
    if (pairs_.empty() || lengthTag < pairs_.front().first || lengthTag > pairs_.back().first) {
        return 0;
    }
    const auto place = std::ranges::lower_bound(pairs_, lengthTag, {}, &std::pair<std::int32_t, std::int32_t>::first);
    return place->first == lengthTag ? place->second : 0;
}

std::optional<std::int32_t> fixTag(std::string_view text) noexcept {
    if (text.empty() || text.size() > LONGEST_TAG) {
        return std::nullopt;
    }
    std::int64_t tag = 0;
    for (const char digit : text) {
        if (digit < '0' || digit > '9') {
            return std::nullopt;
        }
        tag = tag * 10 + (digit - '0');
    }
    if (tag == 0 || tag > std::numeric_limits<std::int32_t>::max()) {
        return std::nullopt;
    }
    return static_cast<std::int32_t>(tag);
}

std::size_t FixFields::endOfValue(std::size_t begin, std::int32_t tag) const noexcept {
    if (tag == expectedData_ && expectedLength_ <= rest_.size() - begin) {
        const std::size_t end = begin + expectedLength_;
        if (end == rest_.size() || rest_[end] == FIX_END_OF_FIELD) {
            return end;
        }
    }
    return std::min(rest_.find(FIX_END_OF_FIELD, begin), rest_.size());
}

bool FixFields::next(FixField* field) noexcept {
    if (rest_.empty()) {
        return false;
    }
    // A tag is short: the rest of a long message without any "=" is not searched for one again and again.
    const std::size_t equals = rest_.substr(0, LONGEST_TAG + 1).find('=');
    std::size_t begin = 0;
    field->tag = 0;
    if (equals != std::string_view::npos) {
        if (const std::optional<std::int32_t> tag = fixTag(rest_.substr(0, equals))) {
            field->tag = *tag;
            begin = equals + 1;
        }
    }
    const std::size_t end =
        field->tag == 0 ? std::min(rest_.find(FIX_END_OF_FIELD), rest_.size()) : endOfValue(begin, field->tag);
    field->value = rest_.substr(begin, end - begin);
    field->ended = end < rest_.size();
    rest_.remove_prefix(field->ended ? end + 1 : end);

    const std::int32_t data = field->tag == 0 ? 0 : data_->dataTagOf(field->tag);
    const std::optional<std::size_t> length = data == 0 ? std::nullopt : lengthOf(field->value);
    expectedData_ = length ? data : 0;
    expectedLength_ = length.value_or(0);
    return true;
}

std::optional<std::string_view> fixValue(std::string_view wire, std::int32_t tag) noexcept {
    FixFields fields(wire);
    for (FixField field; fields.next(&field);) {
        if (field.tag == tag) {
            return field.value;
        }
    }
    return std::nullopt;
}

}  // namespace tabulo
