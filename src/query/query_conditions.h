// What a query selects: one record, filled setter by setter and then handed to an iterator, which owns it.
//
// Every setter returns NULL_POINTER_ERROR for a null record (per-filter setters also when no filter was added yet),
// INDEX_OUT_OF_BOUNDS_ERROR for a slot at or beyond the sized count, OUT_OF_MEMORY_ERROR, WRONG_PARAMETER_ERROR for a
// negative count, or NO_ERROR; what was stored before stays. Sized arrays are filled slot by slot up to the last slot,
// whose setting sorts them. Per-filter setters act on the filter that was added last.
#pragma once

#include <cstdint>
#include <vector>

#include "core/error_codes.h"
#include "core/handle.h"
#include "query/metadata_condition.h"
#include "query/numeric_filter.h"
#include "query/string_filter.h"

namespace tabulo::internal {

struct QueryConditions {
    bool iterateBackward = false;
    bool inverted = false;  // select the messages that do not match
    MetadataCondition metadata;
    std::vector<StringFilter> stringFilters;
    std::vector<DoubleFilter> doubleFilters;
    std::vector<LongFilter> longFilters;
};

// A record that every message matches, owned by the caller; null when memory is short.
QueryConditions* conditions_create() noexcept;
// Frees the record and all it holds; null is accepted.
void conditions_destroy(QueryConditions* conditions) noexcept;

using QueryConditionsPtr = Handle<QueryConditions, conditions_destroy>;

ErrorCode conditions_setIterateBackward(QueryConditions* conditions, bool backward) noexcept;
// No caller of ours: conditions from Java cannot be inverted.
ErrorCode conditions_setInverted(QueryConditions* conditions, bool inverted) noexcept;
// Inclusive; an end below begin means not set.
ErrorCode conditions_setSeqNumRange(QueryConditions* conditions, std::int32_t begin, std::int32_t end) noexcept;
// One inclusive id range over all classes, instead of ranges per class; a start of -1 means not set. Its ends should be
// of one class, since closed blocks know ids by class only.
ErrorCode conditions_setMessageIdRange(QueryConditions* conditions, std::int32_t start, std::int32_t end) noexcept;
// Inclusive ranges by the class of each id (metadataCondition_classIdRanges), instead of the single one.
// NULL_POINTER_ERROR also for a null array with a count above 0.
ErrorCode conditions_setMessageIdRanges(QueryConditions* conditions, const std::int32_t* startIds,
                                        std::int32_t startCount, const std::int32_t* endIds,
                                        std::int32_t endCount) noexcept;
// Inclusive; 0 means not set.
ErrorCode conditions_setStartingTime(QueryConditions* conditions, std::int64_t time) noexcept;
ErrorCode conditions_setEndingTime(QueryConditions* conditions, std::int64_t time) noexcept;
// True: only possible duplicates; false: none of them.
ErrorCode conditions_setPossDupFlag(QueryConditions* conditions, bool isPossDup) noexcept;

ErrorCode conditions_setExcludedMsgTypeCount(QueryConditions* conditions, std::int32_t count) noexcept;
// Takes at most five characters. NULL_POINTER_ERROR also for a null text and while the array was not sized.
ErrorCode conditions_setExcludedMsgType(QueryConditions* conditions, std::int32_t slot, const char* text) noexcept;

ErrorCode conditions_addStringFilter(QueryConditions* conditions, std::int32_t fieldIndex, bool includeNull,
                                     bool ignoreCase) noexcept;
ErrorCode conditions_setStringFilterValueCount(QueryConditions* conditions, std::int32_t count) noexcept;
// NULL_POINTER_ERROR also for a null text.
ErrorCode conditions_setStringFilterValue(QueryConditions* conditions, const char* text, std::int32_t slot) noexcept;
// The count is twice the number of pairs.
ErrorCode conditions_setStringFilterRangeCount(QueryConditions* conditions, std::int32_t count) noexcept;
// Sets pair slot / 2; a null text is an open bound. INDEX_OUT_OF_BOUNDS_ERROR also when the maximum's slot is beyond.
ErrorCode conditions_setStringFilterRange(QueryConditions* conditions, const char* minimum, const char* maximum,
                                          std::int32_t slot) noexcept;

// Builds a numeric filter from pairs and values (numeric_filter.h). NULL_POINTER_ERROR also for a null array with a
// count above 0; nothing is added on failure.
ErrorCode conditions_addDoubleFilter(QueryConditions* conditions, std::int32_t fieldIndex, const double* minimums,
                                     const double* maximums, std::int32_t pairCount, const double* values,
                                     std::int32_t valueCount, bool includeNull) noexcept;
ErrorCode conditions_addLongFilter(QueryConditions* conditions, std::int32_t fieldIndex, const std::int64_t* minimums,
                                   const std::int64_t* maximums, std::int32_t pairCount, const std::int64_t* values,
                                   std::int32_t valueCount, bool includeNull) noexcept;

}  // namespace tabulo::internal
