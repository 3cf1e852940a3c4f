#include "query/numeric_filter.h"

#include <algorithm>
#include <cmath>

namespace tabulo::internal {

namespace {

constexpr std::uint32_t POINT = LOW_INCLUSIVE | HIGH_INCLUSIVE;

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

}  // namespace

void numericFilter_build(DoubleFilter* filter, const double* minimums, const double* maximums, std::int32_t pairCount,
                         const double* values, std::int32_t valueCount) {
    build(filter, minimums, maximums, pairCount, values, valueCount);
}

void numericFilter_build(LongFilter* filter, const std::int64_t* minimums, const std::int64_t* maximums,
                         std::int32_t pairCount, const std::int64_t* values, std::int32_t valueCount) {
    build(filter, minimums, maximums, pairCount, values, valueCount);
}

bool numericFilter_contains(const DoubleFilter& filter, double value) noexcept {
    return !std::isnan(value) && contains(filter, value);
}

bool numericFilter_contains(const LongFilter& filter, std::int64_t value) noexcept {
    return contains(filter, value);
}

}  // namespace tabulo::internal
