#include "query/query_conditions.h"

#include <algorithm>
#include <cstring>
#include <new>

namespace tabulo::internal {

namespace {

constexpr std::int32_t ID_NOT_SET = -1;

// A time as the setters take it: 0 means not set.
std::optional<std::int64_t> unlessZero(std::int64_t time) {
    return time == 0 ? std::nullopt : std::optional(time);
}

// Runs a setter that may allocate.
template <typename Setter>
ErrorCode guarded(const QueryConditions* conditions, Setter setter) noexcept {
    if (conditions == nullptr) {
        return NULL_POINTER_ERROR;
    }
    try {
        return setter();
    } catch (const std::bad_alloc&) {
        return OUT_OF_MEMORY_ERROR;
    }
}

// Runs a setter on the filter that was added last.
template <typename Setter>
ErrorCode onLastFilter(QueryConditions* conditions, Setter setter) noexcept {
    return guarded(conditions, [&]() -> ErrorCode {
        return conditions->stringFilters.empty() ? NULL_POINTER_ERROR : setter(&conditions->stringFilters.back());
    });
}

template <typename Slots>
ErrorCode resizeSlots(Slots* slots, std::int32_t count) {
    if (count < 0) {
        return WRONG_PARAMETER_ERROR;
    }
    Slots empty(static_cast<std::size_t>(count));  // without memory for it the old ones stay
    slots->swap(empty);
    return NO_ERROR;
}

bool isSlot(std::int32_t slot, std::size_t count) {
    return slot >= 0 && static_cast<std::size_t>(slot) < count;
}

bool isLastSlot(std::int32_t slot, std::size_t count) {
    return static_cast<std::size_t>(slot) + 1 == count;
}

void setBound(std::optional<std::string>* slot, const char* text) {
    if (text == nullptr) {
        slot->reset();
    } else {
        *slot = text;
    }
}

template <typename Number>
ErrorCode addNumericFilter(QueryConditions* conditions, std::vector<NumericFilter<Number>> QueryConditions::*list,
                           std::int32_t fieldIndex, const Number* minimums, const Number* maximums,
                           std::int32_t pairCount, const Number* values, std::int32_t valueCount, bool includeNull) {
    return guarded(conditions, [&]() -> ErrorCode {
        if (pairCount < 0 || valueCount < 0) {
            return WRONG_PARAMETER_ERROR;
        }
        if ((pairCount > 0 && (minimums == nullptr || maximums == nullptr)) || (valueCount > 0 && values == nullptr)) {
            return NULL_POINTER_ERROR;
        }
        NumericFilter<Number> filter;
        filter.fieldIndex = fieldIndex;
        filter.includeNull = includeNull;
        numericFilter_build(&filter, minimums, maximums, pairCount, values, valueCount);
        (conditions->*list).push_back(std::move(filter));
        return NO_ERROR;
    });
}

}  // namespace

QueryConditions* conditions_create() noexcept {
    return new (std::nothrow) QueryConditions;
}

void conditions_destroy(QueryConditions* conditions) noexcept {
    delete conditions;
}

ErrorCode conditions_setIterateBackward(QueryConditions* conditions, bool backward) noexcept {
    return guarded(conditions, [&] {
        conditions->iterateBackward = backward;
        return NO_ERROR;
    });
}

ErrorCode conditions_setInverted(QueryConditions* conditions, bool inverted) noexcept {
    return guarded(conditions, [&] {
        conditions->inverted = inverted;
        return NO_ERROR;
    });
}

ErrorCode conditions_setSeqNumRange(QueryConditions* conditions, std::int32_t begin, std::int32_t end) noexcept {
    return guarded(conditions, [&] {
        conditions->metadata.seqNums = end < begin ? std::nullopt : std::optional(ValueRange<std::int32_t>{begin, end});
        return NO_ERROR;
    });
}

ErrorCode conditions_setMessageIdRange(QueryConditions* conditions, std::int32_t start, std::int32_t end) noexcept {
    return guarded(conditions, [&] {
        conditions->metadata.ids = start == ID_NOT_SET ? std::nullopt : std::optional(IdRange{start, end});
        conditions->metadata.idsByClass.reset();
        return NO_ERROR;
    });
}

ErrorCode conditions_setMessageIdRanges(QueryConditions* conditions, const std::int32_t* startIds,
                                        std::int32_t startCount, const std::int32_t* endIds,
                                        std::int32_t endCount) noexcept {
    return guarded(conditions, [&]() -> ErrorCode {
        if ((startIds == nullptr && startCount > 0) || (endIds == nullptr && endCount > 0)) {
            return NULL_POINTER_ERROR;
        }
        if (startCount < 0 || endCount < 0) {
            return WRONG_PARAMETER_ERROR;
        }
        conditions->metadata.ids.reset();
        conditions->metadata.idsByClass = metadataCondition_classIdRanges(
            {startIds, static_cast<std::size_t>(startCount)}, {endIds, static_cast<std::size_t>(endCount)});
        return NO_ERROR;
    });
}

ErrorCode conditions_setStartingTime(QueryConditions* conditions, std::int64_t time) noexcept {
    return guarded(conditions, [&] {
        conditions->metadata.from = unlessZero(time);
        return NO_ERROR;
    });
}

ErrorCode conditions_setEndingTime(QueryConditions* conditions, std::int64_t time) noexcept {
    return guarded(conditions, [&] {
        conditions->metadata.until = unlessZero(time);
        return NO_ERROR;
    });
}

ErrorCode conditions_setPossDupFlag(QueryConditions* conditions, bool isPossDup) noexcept {
    return guarded(conditions, [&] {
        conditions->metadata.possDup = isPossDup;
        return NO_ERROR;
    });
}

ErrorCode conditions_setExcludedMsgTypeCount(QueryConditions* conditions, std::int32_t count) noexcept {
    return guarded(conditions, [&] { return resizeSlots(&conditions->metadata.excludedMsgTypes, count); });
}

ErrorCode conditions_setExcludedMsgType(QueryConditions* conditions, std::int32_t slot, const char* text) noexcept {
    return guarded(conditions, [&]() -> ErrorCode {
        auto& types = conditions->metadata.excludedMsgTypes;
        if (types.empty() || text == nullptr) {
            return NULL_POINTER_ERROR;
        }
        if (!isSlot(slot, types.size())) {
            return INDEX_OUT_OF_BOUNDS_ERROR;
        }
        ExcludedMsgType stored{};
        std::copy_n(text, std::min(std::strlen(text), stored.size()), stored.begin());
        types[static_cast<std::size_t>(slot)] = stored;
        if (isLastSlot(slot, types.size())) {
            metadataCondition_sortExcluded(&conditions->metadata);
        }
        return NO_ERROR;
    });
}

ErrorCode conditions_addStringFilter(QueryConditions* conditions, std::int32_t fieldIndex, bool includeNull,
                                     bool ignoreCase) noexcept {
    return guarded(conditions, [&] {
        StringFilter filter;
        filter.fieldIndex = fieldIndex;
        filter.includeNull = includeNull;
        filter.ignoreCase = ignoreCase;
        conditions->stringFilters.push_back(std::move(filter));
        return NO_ERROR;
    });
}

ErrorCode conditions_setStringFilterValueCount(QueryConditions* conditions, std::int32_t count) noexcept {
    return onLastFilter(conditions, [&](StringFilter* filter) { return resizeSlots(&filter->values, count); });
}

ErrorCode conditions_setStringFilterValue(QueryConditions* conditions, const char* text, std::int32_t slot) noexcept {
    return onLastFilter(conditions, [&](StringFilter* filter) -> ErrorCode {
        if (text == nullptr || filter->values.empty()) {
            return NULL_POINTER_ERROR;
        }
        if (!isSlot(slot, filter->values.size())) {
            return INDEX_OUT_OF_BOUNDS_ERROR;
        }
        filter->values[static_cast<std::size_t>(slot)] = text;
        if (isLastSlot(slot, filter->values.size())) {
            stringFilter_sortValues(filter);
        }
        return NO_ERROR;
    });
}

ErrorCode conditions_setStringFilterRangeCount(QueryConditions* conditions, std::int32_t count) noexcept {
    return onLastFilter(conditions, [&](StringFilter* filter) { return resizeSlots(&filter->ranges, count); });
}

ErrorCode conditions_setStringFilterRange(QueryConditions* conditions, const char* minimum, const char* maximum,
                                          std::int32_t slot) noexcept {
    return onLastFilter(conditions, [&](StringFilter* filter) -> ErrorCode {
        if (filter->ranges.empty()) {
            return NULL_POINTER_ERROR;
        }
        if (!isSlot(slot, filter->ranges.size()) || isLastSlot(slot, filter->ranges.size())) {
            return INDEX_OUT_OF_BOUNDS_ERROR;
        }
        std::optional<std::string> bounds[2];  // both or none, when memory is short
        setBound(&bounds[0], minimum);
        setBound(&bounds[1], maximum);
        std::swap(filter->ranges[static_cast<std::size_t>(slot)], bounds[0]);
        std::swap(filter->ranges[static_cast<std::size_t>(slot) + 1], bounds[1]);
        return NO_ERROR;
    });
}

ErrorCode conditions_addDoubleFilter(QueryConditions* conditions, std::int32_t fieldIndex, const double* minimums,
                                     const double* maximums, std::int32_t pairCount, const double* values,
                                     std::int32_t valueCount, bool includeNull) noexcept {
    return addNumericFilter(conditions, &QueryConditions::doubleFilters, fieldIndex, minimums, maximums, pairCount,
                            values, valueCount, includeNull);
}

ErrorCode conditions_addLongFilter(QueryConditions* conditions, std::int32_t fieldIndex, const std::int64_t* minimums,
                                   const std::int64_t* maximums, std::int32_t pairCount, const std::int64_t* values,
                                   std::int32_t valueCount, bool includeNull) noexcept {
    return addNumericFilter(conditions, &QueryConditions::longFilters, fieldIndex, minimums, maximums, pairCount,
                            values, valueCount, includeNull);
}

}  // namespace tabulo::internal
