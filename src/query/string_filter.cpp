#include "query/string_filter.h"

#include <algorithm>

#include "core/log.h"

namespace tabulo::internal {

namespace {

using Compare = int (*)(std::string_view left, std::string_view right);
using Slot = std::optional<std::string>;

unsigned char fold(char character) {
    const bool isUpper = character >= 'A' && character <= 'Z';
    return static_cast<unsigned char>(isUpper ? character - 'A' + 'a' : character);
}

std::string_view viewOf(const Slot& slot) {
    return *slot;
}

std::string_view upToNul(std::string_view text) {
    return text.substr(0, text.find('\0'));
}

std::string_view firstFive(std::string_view text) {
    return text.substr(0, MSG_TYPE_LENGTH);
}

// A slot that was never written sorts first and is equal to no text.
bool isBelow(const Slot& left, const Slot& right, Compare compare) {
    if (!left.has_value() || !right.has_value()) {
        return !left.has_value() && right.has_value();
    }
    return compare(*left, *right) < 0;
}

bool insideRange(const Slot& minimum, const Slot& maximum, std::string_view text,
                 std::string_view (*cut)(std::string_view)) {
    if (minimum.has_value() && text_compare(text, cut(viewOf(minimum))) <= 0) {
        return false;
    }
    return !maximum.has_value() || text_compare(text, cut(viewOf(maximum))) < 0;
}

bool insideAnyRange(const StringFilter& filter, std::string_view text, std::string_view (*cut)(std::string_view)) {
    for (std::size_t k = 0; k + 1 < filter.ranges.size(); k += 2) {
        if (insideRange(filter.ranges[k], filter.ranges[k + 1], text, cut)) {
            return true;
        }
    }
    return false;
}

}  // namespace

int text_compare(std::string_view left, std::string_view right) noexcept {
    return upToNul(left).compare(upToNul(right));
}

int text_compareIgnoringCase(std::string_view left, std::string_view right) noexcept {
    left = upToNul(left);
    right = upToNul(right);
    const std::size_t common = std::min(left.size(), right.size());
    for (std::size_t i = 0; i < common; ++i) {
        const int difference = int{fold(left[i])} - int{fold(right[i])};
        if (difference != 0) {
            return difference;
        }
    }
    return left.size() == right.size() ? 0 : (left.size() < right.size() ? -1 : 1);
}

void stringFilter_sortValues(StringFilter* filter) {
    const Compare compare = filter->ignoreCase ? text_compareIgnoringCase : text_compare;
    std::sort(filter->values.begin(), filter->values.end(),
              [compare](const Slot& left, const Slot& right) { return isBelow(left, right, compare); });
}

bool stringFilter_accepts(const StringFilter& filter, std::string_view text) noexcept {
    const Compare compare = filter.ignoreCase ? text_compareIgnoringCase : text_compare;
    const auto found = std::partition_point(filter.values.begin(), filter.values.end(), [&](const Slot& value) {
        return !value.has_value() || compare(*value, text) < 0;
    });
    if (found != filter.values.end() && compare(**found, text) == 0) {
        return true;
    }
    return insideAnyRange(filter, text, [](std::string_view bound) { return bound; });
}

bool stringFilter_acceptsMsgType(const StringFilter& filter, std::string_view msgType) noexcept {
    const std::string_view type = firstFive(upToNul(msgType));
    for (const Slot& value : filter.values) {
        if (value.has_value() && text_compare(firstFive(viewOf(value)), type) == 0) {
            return true;
        }
    }
    return insideAnyRange(filter, type, firstFive);
}

std::int32_t mfr_compareStr(const BlockSummary& block, const MessageTableLayout& layout, const char* text,
                            std::int32_t fieldIndex) noexcept {
    if (fieldIndex < 0 || fieldIndex > layout.stringFieldCount) {
        log_note("mfr_compareStr", "internal error: index number %d is out of range [0..%d)\n", fieldIndex,
                 layout.stringFieldCount + 1);
        return 0;
    }
    const std::int32_t filtered = std::min(layout.summarisedStringFieldCount, layout.stringFieldCount);
    if (text == nullptr || fieldIndex >= filtered) {
        return 0;
    }
    return blockSummary_mayContain(block, fieldIndex, text) ? 0 : -1;
}

bool stringFilter_isSilent(const StringFilter& filter, const MessageTableLayout& layout) noexcept {
    return filter.fieldIndex >= 0 && filter.fieldIndex <= layout.stringFieldCount;
}

bool stringFilter_mayMatchBlock(const StringFilter& filter, const BlockSummary& block,
                                const MessageTableLayout& layout) noexcept {
    const bool hasFooterFilter =
        filter.fieldIndex >= 0 &&
        filter.fieldIndex < std::min(layout.summarisedStringFieldCount, layout.stringFieldCount);
    if (filter.includeNull || filter.ignoreCase || !filter.ranges.empty() ||
        (!hasFooterFilter && filter.values.empty())) {
        return true;
    }
    return std::any_of(filter.values.begin(), filter.values.end(), [&](const std::optional<std::string>& value) {
        return mfr_compareStr(block, layout, value.has_value() ? value->c_str() : nullptr, filter.fieldIndex) == 0;
    });
}

bool stringFilter_matches(const StringFilter& filter, const MessageView& message) noexcept {
    const std::int32_t index = filter.fieldIndex;
    const auto stringFieldCount = static_cast<std::int32_t>(message.texts.size());
    if (index < 0 || index > stringFieldCount) {
        return true;
    }
    if (index == stringFieldCount) {
        return stringFilter_acceptsMsgType(filter, message.metadata.msgType.data());
    }
    const StringField& field = message.texts[static_cast<std::size_t>(index)];
    // The empty text counts as absent where absent fields pass; elsewhere it is a text like any other.
    if (field.length <= 0 || (filter.includeNull && stringField_withoutNul(field).empty())) {
        return filter.includeNull;
    }
    return stringFilter_accepts(filter, stringField_bytes(field));
}

}  // namespace tabulo::internal
