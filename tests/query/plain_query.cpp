#include "tests/query/plain_query.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <sstream>

namespace tabulo::internal::test {

namespace {

// First and last id of the classes 0 to 4.
constexpr std::int32_t CLASS_IDS[5][2] = {{536870911, 1073741822},
                                          {0, 536870910},
                                          {1342177279, 1610612734},
                                          {1073741823, 1342177278},
                                          {1610612735, 2147483647}};

int classOf(std::int32_t id) {
    for (int c = 0; c < 5; ++c) {
        if (id >= CLASS_IDS[c][0] && id <= CLASS_IDS[c][1]) {
            return c;
        }
    }
    return -1;
}

// One class's range; -1 is not set.
struct IdRange {
    std::int32_t start = -1;
    std::int32_t end = -1;
};

IdRange rangeOfClass(const PlainQuery& query, int messageClass) {
    IdRange range;
    for (const std::int32_t id : query.startIds) {
        range.start = classOf(id) == messageClass ? id : range.start;
    }
    for (const std::int32_t id : query.endIds) {
        range.end = classOf(id) == messageClass ? id : range.end;
    }
    if (range.start != -1 && range.end == -1) {
        range.end = CLASS_IDS[messageClass][1];
    }
    return range.start == range.end ? IdRange{} : range;
}

bool idSelected(const PlainQuery& query, std::int32_t id) {
    if (!query.perClass) {
        return !query.ids || query.ids->first == -1 || (id >= query.ids->first && id <= query.ids->second);
    }
    bool anyStart = false;
    for (int c = 0; c < 5; ++c) {
        anyStart = anyStart || rangeOfClass(query, c).start != -1;
    }
    if (!anyStart) {
        return true;
    }
    const int c = classOf(id);
    return c != -1 && id >= rangeOfClass(query, c).start && id <= rangeOfClass(query, c).end;
}

bool timesSelected(const PlainQuery& query, std::int64_t time) {
    const std::int64_t from = query.startingTime.value_or(0);
    const std::int64_t to = query.endingTime.value_or(0);
    return (from == 0 || time >= from) && (to == 0 || time <= to);
}

bool seqNumSelected(const PlainQuery& query, std::int32_t seqNum) {
    const bool off = !query.seqNums || query.seqNums->second < query.seqNums->first;
    return off || (seqNum >= query.seqNums->first && seqNum <= query.seqNums->second);
}

// A number of a message: absent, a double or a long.
struct Number {
    enum { absent, real, whole } kind = absent;
    double realValue = 0;
    std::int64_t wholeValue = 0;
};

Number numberOf(const Message& message, std::size_t field) {
    const MessageMetadata& metadata = message.metadata;
    const std::size_t configured = message.numbers.size();
    if (field < configured) {
        const NumericValue& stored = message.numbers[field];
        switch (stored.type) {
            case NumericType::absent:
                return {};
            case NumericType::doubleValue:
                return {Number::real, stored.doubleValue, 0};
            case NumericType::longValue:
                return {Number::whole, 0, stored.longValue};
        }
    }
    const std::int64_t pseudo[7] = {metadata.uniformId,           metadata.seqNum,    metadata.prevSeqNum,
                                    metadata.connMsgId,           metadata.timestamp, metadata.isPossDupFlag != 0,
                                    metadata.isOutOfSequence != 0};
    return {Number::whole, 0, pseudo[field - configured]};
}

std::int64_t truncated(double value) {
    if (std::isnan(value)) {
        return 0;
    }
    if (value >= 0x1p63) {
        return std::numeric_limits<std::int64_t>::max();
    }
    if (value < -0x1p63) {
        return std::numeric_limits<std::int64_t>::min();
    }
    return static_cast<std::int64_t>(value);
}

template <typename T>
bool amongEntries(const PlainNumericFilter<T>& filter, T value) {
    for (const auto& [minimum, maximum] : filter.ranges) {
        if (minimum < maximum && minimum < value && value < maximum) {
            return true;
        }
    }
    // Where two intervals meet, a value joins them by adding nothing but that point.
    return std::any_of(filter.values.begin(), filter.values.end(), [value](T wanted) { return wanted == value; });
}

bool numberSelected(const PlainNumericFilter<double>& filter, const Number& number) {
    const double value = number.kind == Number::whole ? static_cast<double>(number.wholeValue) : number.realValue;
    if (number.kind == Number::absent || std::isnan(value)) {
        return filter.includeNull;
    }
    return amongEntries(filter, value);
}

bool numberSelected(const PlainNumericFilter<std::int64_t>& filter, const Number& number) {
    if (number.kind == Number::absent) {
        return filter.includeNull;
    }
    return amongEntries(filter, number.kind == Number::whole ? number.wholeValue : truncated(number.realValue));
}

template <typename T>
bool numericFilterSelects(const PlainNumericFilter<T>& filter, const Message& message) {
    const auto fields = static_cast<std::int64_t>(message.numbers.size()) + 7;
    if (filter.field < 0 || filter.field >= fields) {
        return true;
    }
    return numberSelected(filter, numberOf(message, static_cast<std::size_t>(filter.field)));
}

// A text as a list of numbers from 0 to 255, which compare as such; it ends at its first NUL.
using Text = std::vector<int>;

Text textOf(const std::string& bytes, std::size_t most = std::string::npos, bool folded = false) {
    Text text;
    for (std::size_t i = 0; i < bytes.size() && i < most && bytes[i] != '\0'; ++i) {
        const int byte = static_cast<unsigned char>(bytes[i]);
        text.push_back(folded && byte >= 'A' && byte <= 'Z' ? byte + 32 : byte);
    }
    return text;
}

bool textSelected(const PlainStringFilter& filter, const std::string& bytes, std::size_t most, bool folded) {
    for (const std::string& value : filter.values) {
        if (textOf(value, most, folded) == textOf(bytes, most, folded)) {
            return true;
        }
    }
    const Text text = textOf(bytes, most);
    for (const auto& [minimum, maximum] : filter.ranges) {
        const bool aboveMinimum = !minimum || text > textOf(*minimum, most);
        const bool belowMaximum = !maximum || text < textOf(*maximum, most);
        if (aboveMinimum && belowMaximum) {
            return true;
        }
    }
    return false;
}

bool stringFilterSelects(const PlainStringFilter& filter, const Message& message) {
    const auto slots = static_cast<std::int32_t>(message.strings.size());
    if (filter.field < 0 || filter.field > slots) {
        return true;
    }
    if (filter.field == slots) {
        return textSelected(filter, message.metadata.msgType.data(), 5, false);
    }
    const std::optional<std::string>& stored = message.strings[static_cast<std::size_t>(filter.field)];
    if (!stored || stored->empty()) {
        return filter.includeNull;
    }
    if (filter.includeNull && *stored == std::string(1, '\0')) {
        return true;
    }
    return textSelected(filter, *stored, std::string::npos, filter.ignoreCase);
}

bool meetsAll(const PlainQuery& query, const Message& message) {
    const MessageMetadata& metadata = message.metadata;
    bool all = idSelected(query, metadata.connMsgId) && timesSelected(query, metadata.timestamp) &&
               seqNumSelected(query, metadata.seqNum);
    all = all && (!query.possDup || *query.possDup == (metadata.isPossDupFlag != 0));
    for (const auto& filter : query.doubles) {
        all = all && numericFilterSelects(filter, message);
    }
    for (const auto& filter : query.longs) {
        all = all && numericFilterSelects(filter, message);
    }
    for (const std::string& type : query.excludedMsgTypes) {
        all = all && textOf(type, 5) != textOf(metadata.msgType.data(), 5);
    }
    for (const auto& filter : query.strings) {
        all = all && stringFilterSelects(filter, message);
    }
    return all;
}

template <typename T>
void addNumeric(QueryConditions* conditions, const PlainNumericFilter<T>& filter,
                ErrorCode (*add)(QueryConditions*, std::int32_t, const T*, const T*, std::int32_t, const T*,
                                 std::int32_t, bool) noexcept) {
    std::vector<T> minimums;
    std::vector<T> maximums;
    for (const auto& [minimum, maximum] : filter.ranges) {
        minimums.push_back(minimum);
        maximums.push_back(maximum);
    }
    EXPECT_EQ(
        add(conditions, filter.field, minimums.data(), maximums.data(), static_cast<std::int32_t>(minimums.size()),
            filter.values.data(), static_cast<std::int32_t>(filter.values.size()), filter.includeNull),
        NO_ERROR);
}

const char* textOrNull(const PlainStringFilter::Bound& bound) {
    return bound ? bound->c_str() : nullptr;
}

void addString(QueryConditions* conditions, const PlainStringFilter& filter) {
    EXPECT_EQ(conditions_addStringFilter(conditions, filter.field, filter.includeNull, filter.ignoreCase), NO_ERROR);
    EXPECT_EQ(conditions_setStringFilterValueCount(conditions, static_cast<std::int32_t>(filter.values.size())),
              NO_ERROR);
    for (std::size_t i = 0; i < filter.values.size(); ++i) {
        EXPECT_EQ(conditions_setStringFilterValue(conditions, filter.values[i].c_str(), static_cast<std::int32_t>(i)),
                  NO_ERROR);
    }
    EXPECT_EQ(conditions_setStringFilterRangeCount(conditions, static_cast<std::int32_t>(2 * filter.ranges.size())),
              NO_ERROR);
    for (std::size_t k = 0; k < filter.ranges.size(); ++k) {
        EXPECT_EQ(
            conditions_setStringFilterRange(conditions, textOrNull(filter.ranges[k].first),
                                            textOrNull(filter.ranges[k].second), static_cast<std::int32_t>(2 * k)),
            NO_ERROR);
    }
}

template <typename T>
std::string numericText(const char* kind, const PlainNumericFilter<T>& filter) {
    std::ostringstream text;
    text.precision(17);
    text << ", " << kind << " field " << filter.field << (filter.includeNull ? " or absent" : "");
    for (const auto& [minimum, maximum] : filter.ranges) {
        text << " (" << minimum << ',' << maximum << ')';
    }
    for (const T value : filter.values) {
        text << ' ' << value;
    }
    return text.str();
}

std::string boundText(const PlainStringFilter::Bound& bound) {
    return bound ? ::testing::PrintToString(*bound) : "open";
}

}  // namespace

bool plainQuery_selects(const PlainQuery& query, const Message& message) {
    return meetsAll(query, message) != query.inverted;
}

bool plainQuery_leavesOutClosedBlocks(const PlainQuery& query) {
    if (query.inverted || query.perClass || !query.ids || query.ids->first == -1) {
        return false;
    }
    const int first = classOf(query.ids->first);
    return first == -1 || first != classOf(query.ids->second);
}

QueryConditionsPtr plainQuery_conditions(const PlainQuery& query, bool backward) {
    QueryConditionsPtr owned = newConditions(backward);
    QueryConditions* conditions = owned.get();
    EXPECT_EQ(conditions_setInverted(conditions, query.inverted), NO_ERROR);
    if (query.seqNums) {
        EXPECT_EQ(conditions_setSeqNumRange(conditions, query.seqNums->first, query.seqNums->second), NO_ERROR);
    }
    if (query.perClass) {
        EXPECT_EQ(conditions_setMessageIdRanges(conditions, query.startIds.data(),
                                                static_cast<std::int32_t>(query.startIds.size()), query.endIds.data(),
                                                static_cast<std::int32_t>(query.endIds.size())),
                  NO_ERROR);
    } else if (query.ids) {
        EXPECT_EQ(conditions_setMessageIdRange(conditions, query.ids->first, query.ids->second), NO_ERROR);
    }
    EXPECT_EQ(conditions_setStartingTime(conditions, query.startingTime.value_or(0)), NO_ERROR);
    EXPECT_EQ(conditions_setEndingTime(conditions, query.endingTime.value_or(0)), NO_ERROR);
    if (query.possDup) {
        EXPECT_EQ(conditions_setPossDupFlag(conditions, *query.possDup), NO_ERROR);
    }
    EXPECT_EQ(conditions_setExcludedMsgTypeCount(conditions, static_cast<std::int32_t>(query.excludedMsgTypes.size())),
              NO_ERROR);
    for (std::size_t i = 0; i < query.excludedMsgTypes.size(); ++i) {
        EXPECT_EQ(
            conditions_setExcludedMsgType(conditions, static_cast<std::int32_t>(i), query.excludedMsgTypes[i].c_str()),
            NO_ERROR);
    }
    for (const auto& filter : query.doubles) {
        addNumeric(conditions, filter, conditions_addDoubleFilter);
    }
    for (const auto& filter : query.longs) {
        addNumeric(conditions, filter, conditions_addLongFilter);
    }
    for (const auto& filter : query.strings) {
        addString(conditions, filter);
    }
    return owned;
}

std::string plainQuery_text(const PlainQuery& query) {
    std::ostringstream text;
    text << (query.inverted ? "not selected by: " : "selected by: ");
    if (query.seqNums) {
        text << ", seqNum " << query.seqNums->first << " to " << query.seqNums->second;
    }
    if (query.perClass) {
        text << ", ids per class from " << ::testing::PrintToString(query.startIds) << " to "
             << ::testing::PrintToString(query.endIds);
    } else if (query.ids) {
        text << ", ids " << query.ids->first << " to " << query.ids->second;
    }
    if (query.startingTime) {
        text << ", from time " << *query.startingTime;
    }
    if (query.endingTime) {
        text << ", to time " << *query.endingTime;
    }
    if (query.possDup) {
        text << (*query.possDup ? ", PossDup only" : ", no PossDup");
    }
    if (!query.excludedMsgTypes.empty()) {
        text << ", but types " << ::testing::PrintToString(query.excludedMsgTypes);
    }
    for (const auto& filter : query.doubles) {
        text << numericText("double", filter);
    }
    for (const auto& filter : query.longs) {
        text << numericText("long", filter);
    }
    for (const auto& filter : query.strings) {
        text << ", string field " << filter.field << (filter.includeNull ? " or absent" : "")
             << (filter.ignoreCase ? " ignoring case" : "") << ' ' << ::testing::PrintToString(filter.values);
        for (const auto& [minimum, maximum] : filter.ranges) {
            text << " (" << boundText(minimum) << ',' << boundText(maximum) << ')';
        }
    }
    return text.str();
}

}  // namespace tabulo::internal::test
