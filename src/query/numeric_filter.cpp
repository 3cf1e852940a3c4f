#include "query/numeric_filter.h"

#include <algorithm>
#include <cmath>

#include "core/log.h"
#include "messagetable/range_compare.h"
#include "query/pseudo_field.h"

namespace tabulo::internal {

namespace {

constexpr std::uint32_t POINT = LOW_INCLUSIVE | HIGH_INCLUSIVE;
// With more entries than this, a filter is judged by its overall bounds.
constexpr std::size_t ENTRIES_LOOKED_AT = 64;

template <typename Number>
using Entries = std::vector<NumericFilterEntry<Number>>;

// Pairs to intervals, sorted by their low ends; those that overlap become one. Intervals that only touch stay apart.
template <typename Number>
Entries<Number> intervalsOf(const Number* minimums, const Number* maximums, std::int32_t pairCount) {
    Entries<Number> intervals;
    for (std::int32_t i = 0; i < pairCount; ++i) {
        if (maximums[i] > minimums[i]) {
            intervals.push_back({minimums[i], maximums[i], 0});
        }
    }
    std::sort(intervals.begin(), intervals.end(), [](const auto& a, const auto& b) { return a.low < b.low; });
    Entries<Number> merged;
    for (const auto& interval : intervals) {
        if (!merged.empty() && merged.back().high > interval.low) {
            merged.back().high = std::max(merged.back().high, interval.high);
        } else {
            merged.push_back(interval);
        }
    }
    return merged;
}

template <typename Number>
std::vector<Number> sortedValues(const Number* values, std::int32_t valueCount) {
    std::vector<Number> sorted;
    for (std::int32_t i = 0; i < valueCount; ++i) {
        if (values[i] >= values[i]) {  // false for a NaN; NOLINT(misc-redundant-expression)
            sorted.push_back(values[i]);
        }
    }
    std::sort(sorted.begin(), sorted.end());
    sorted.erase(std::unique(sorted.begin(), sorted.end()), sorted.end());
    return sorted;
}

template <typename Number>
Entries<Number> joined(Entries<Number> intervals, const std::vector<Number>& values) {
    Entries<Number> entries;
    entries.reserve(intervals.size() + values.size());
    std::size_t j = 0;
    for (std::size_t i = 0; i < intervals.size(); ++i) {
        for (; j < values.size() && values[j] < intervals[i].low; ++j) {
            entries.push_back({values[j], values[j], POINT});
        }
        for (; j < values.size() && !(values[j] > intervals[i].low); ++j) {
            intervals[i].flags |= LOW_INCLUSIVE;
        }
        for (; j < values.size() && !(values[j] > intervals[i].high); ++j) {
            if (values[j] < intervals[i].high) {
                continue;  // inside: absorbed
            }
            intervals[i].flags |= HIGH_INCLUSIVE;
            const bool touches = i + 1 < intervals.size() && !(intervals[i + 1].low > intervals[i].high);
            if (touches) {
                intervals[i + 1].low = intervals[i].low;
                intervals[i + 1].flags |= intervals[i].flags & LOW_INCLUSIVE;
                ++i;
            }
        }
        entries.push_back(intervals[i]);
    }
    for (; j < values.size(); ++j) {
        entries.push_back({values[j], values[j], POINT});
    }
    return entries;
}

template <typename Number>
void build(NumericFilter<Number>* filter, const Number* minimums, const Number* maximums, std::int32_t pairCount,
           const Number* values, std::int32_t valueCount) {
    filter->entries = joined(intervalsOf(minimums, maximums, pairCount), sortedValues(values, valueCount));
    for (const auto& entry : filter->entries) {
        if (filter->overallMin > filter->overallMax) {
            filter->overallMin = entry.low;
            filter->overallMax = entry.high;
        }
        filter->overallMin = std::min(filter->overallMin, entry.low);
        filter->overallMax = std::max(filter->overallMax, entry.high);
    }
}

// Where a value lies: below the entry (-1), above it (1) or inside (0).
template <typename Number>
int compare(Number value, const NumericFilterEntry<Number>& entry) {
    if (value < entry.low || (!(value > entry.low) && (entry.flags & LOW_INCLUSIVE) == 0)) {
        return -1;
    }
    if (value > entry.high || (!(value < entry.high) && (entry.flags & HIGH_INCLUSIVE) == 0)) {
        return 1;
    }
    return 0;
}

template <typename Number>
bool contains(const NumericFilter<Number>& filter, Number value) {
    const auto found = std::partition_point(filter.entries.begin(), filter.entries.end(),
                                            [value](const auto& entry) { return compare(value, entry) > 0; });
    return found != filter.entries.end() && compare(value, *found) == 0;
}

template <typename Number>
std::int32_t compareConfigured(const BlockSummary& block, Number low, Number high, std::int32_t fieldIndex) {
    const NumericValue& minimum = block.minimum.numericValues[static_cast<std::size_t>(fieldIndex)];
    const NumericValue& maximum = block.maximum.numericValues[static_cast<std::size_t>(fieldIndex)];
    if (minimum.type != maximum.type || numericValue_isNaN(minimum) || numericValue_isNaN(maximum)) {
        return 0;  // damaged: rules nothing out
    }
    if (minimum.type == NumericType::absent) {
        return NO_OVERLAP;
    }
    return range_compare(low, high, numericValue_as<Number>(minimum), numericValue_as<Number>(maximum));
}

template <typename Number>
std::int32_t compareIds(const BlockSummary& block, Number low, Number high) {
    if (low < 0) {
        return 0;  // ids below 0 have no class, and no range in the footer
    }
    for (std::size_t c = 0; c < block.minimum.connMsgIds.size(); ++c) {
        const std::int32_t minimum = block.minimum.connMsgIds[c];
        const std::int32_t maximum = block.maximum.connMsgIds[c];
        if (minimum <= maximum &&
            range_compare(low, high, static_cast<Number>(minimum), static_cast<Number>(maximum)) == 0) {
            return 0;
        }
    }
    return NO_OVERLAP;
}

template <typename Number>
std::int32_t comparePseudo(const BlockSummary& block, Number low, Number high, std::int32_t field) {
    const RangeRecord& minimum = block.minimum;
    const RangeRecord& maximum = block.maximum;
    switch (field) {
        case PSEUDO_UNIFORM_ID:
            return range_compare(low, high, static_cast<Number>(minimum.uniformId),
                                 static_cast<Number>(maximum.uniformId));
        case PSEUDO_SEQ_NUM:
            return range_compare(low, high, static_cast<Number>(minimum.seqNum), static_cast<Number>(maximum.seqNum));
        case PSEUDO_TIMESTAMP:
            return range_compare(low, high, numericValue_as<Number>(numericValue_ofLong(minimum.timestamp)),
                                 numericValue_as<Number>(numericValue_ofLong(maximum.timestamp)));
        case PSEUDO_CONN_MSG_ID:
            return compareIds(block, low, high);
        default:
            return 0;
    }
}

template <typename Number>
std::int32_t compareNumericIndex(const char* function, const BlockSummary& block, const MessageTableLayout& layout,
                                 Number low, Number high, std::int32_t fieldIndex) {
    const std::int32_t end = layout.numericFieldCount + PSEUDO_FIELD_COUNT;
    if (fieldIndex < 0 || fieldIndex >= end) {
        log_note(function, "internal error: index number %d is out of range [0..%d)\n", fieldIndex, end);
        return 0;
    }
    return fieldIndex < layout.numericFieldCount
               ? compareConfigured(block, low, high, fieldIndex)
               : comparePseudo(block, low, high, fieldIndex - layout.numericFieldCount);
}

std::int32_t compareEntry(const BlockSummary& block, const MessageTableLayout& layout, double low, double high,
                          std::int32_t fieldIndex) {
    return mfr_compareNumericIndexDouble(block, layout, low, high, fieldIndex);
}

std::int32_t compareEntry(const BlockSummary& block, const MessageTableLayout& layout, std::int64_t low,
                          std::int64_t high, std::int32_t fieldIndex) {
    return mfr_compareNumericIndexLong(block, layout, low, high, fieldIndex);
}

// An index that names no field: the filter excludes nothing, and says so when it is asked.
template <typename Number>
bool isIgnored(const NumericFilter<Number>& filter, const MessageTableLayout& layout) {
    return filter.fieldIndex < 0 || filter.fieldIndex - PSEUDO_FIELD_COUNT >= layout.numericFieldCount;
}

template <typename Number>
bool asksKnownRange(const NumericFilter<Number>& filter, const MessageTableLayout& layout) {
    const std::int64_t pseudo = std::int64_t{filter.fieldIndex} - layout.numericFieldCount;
    return !filter.includeNull &&
           (pseudo == PSEUDO_UNIFORM_ID || pseudo == PSEUDO_SEQ_NUM || pseudo == PSEUDO_TIMESTAMP);
}

template <typename Number>
bool mayMatchBlock(const NumericFilter<Number>& filter, const BlockSummary& block, const MessageTableLayout& layout) {
    if (filter.includeNull || (isIgnored(filter, layout) && filter.entries.empty())) {
        return true;
    }
    if (filter.entries.size() > ENTRIES_LOOKED_AT) {
        return compareEntry(block, layout, filter.overallMin, filter.overallMax, filter.fieldIndex) == 0;
    }
    return std::any_of(filter.entries.begin(), filter.entries.end(), [&](const auto& entry) {
        return compareEntry(block, layout, entry.low, entry.high, filter.fieldIndex) == 0;
    });
}

// A NaN counts as absent for a filter on doubles, where an absent value reads as one; for one on longs it reads as 0.
bool isAbsent(const NumericValue&, double number) {
    return std::isnan(number);
}

bool isAbsent(const NumericValue& value, std::int64_t) {
    return value.type == NumericType::absent;
}

template <typename Number>
bool matches(const NumericFilter<Number>& filter, const MessageView& message) {
    const std::int64_t pseudo = filter.fieldIndex - static_cast<std::int64_t>(message.numbers.size());
    if (filter.fieldIndex < 0 || pseudo >= PSEUDO_FIELD_COUNT) {
        return true;
    }
    const NumericValue value =
        pseudo >= 0 ? numericValue_ofLong(pseudoField_value(message.metadata, static_cast<std::int32_t>(pseudo)))
                    : message.numbers[static_cast<std::size_t>(filter.fieldIndex)];
    const Number number = numericValue_as<Number>(value);
    return isAbsent(value, number) ? filter.includeNull : contains(filter, number);
}

}  // namespace

void numericFilter_build(DoubleFilter* filter, const double* minimums, const double* maximums, std::int32_t pairCount,
                         const double* values, std::int32_t valueCount) {
    build(filter, minimums, maximums, pairCount, values, valueCount);
}

void numericFilter_build(LongFilter* filter, const std::int64_t* minimums, const std::int64_t* maximums,
                         std::int32_t pairCount, const std::int64_t* values, std::int32_t valueCount) {
    build(filter, minimums, maximums, pairCount, values, valueCount);
}

std::int32_t mfr_compareNumericIndexDouble(const BlockSummary& block, const MessageTableLayout& layout, double low,
                                           double high, std::int32_t fieldIndex) noexcept {
    return compareNumericIndex("mfr_compareNumericIndexDouble", block, layout, low, high, fieldIndex);
}

std::int32_t mfr_compareNumericIndexLong(const BlockSummary& block, const MessageTableLayout& layout, std::int64_t low,
                                         std::int64_t high, std::int32_t fieldIndex) noexcept {
    return compareNumericIndex("mfr_compareNumericIndexLong", block, layout, low, high, fieldIndex);
}

bool numericFilter_asksKnownRange(const DoubleFilter& filter, const MessageTableLayout& layout) noexcept {
    return asksKnownRange(filter, layout);
}

bool numericFilter_asksKnownRange(const LongFilter& filter, const MessageTableLayout& layout) noexcept {
    return asksKnownRange(filter, layout);
}

bool numericFilter_isSilent(const DoubleFilter& filter, const MessageTableLayout& layout) noexcept {
    return !isIgnored(filter, layout);
}

bool numericFilter_isSilent(const LongFilter& filter, const MessageTableLayout& layout) noexcept {
    return !isIgnored(filter, layout);
}

bool numericFilter_mayMatchBlock(const DoubleFilter& filter, const BlockSummary& block,
                                 const MessageTableLayout& layout) noexcept {
    return mayMatchBlock(filter, block, layout);
}

bool numericFilter_mayMatchBlock(const LongFilter& filter, const BlockSummary& block,
                                 const MessageTableLayout& layout) noexcept {
    return mayMatchBlock(filter, block, layout);
}

bool numericFilter_matches(const DoubleFilter& filter, const MessageView& message) noexcept {
    return matches(filter, message);
}

bool numericFilter_matches(const LongFilter& filter, const MessageView& message) noexcept {
    return matches(filter, message);
}

}  // namespace tabulo::internal
