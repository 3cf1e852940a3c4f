// What a query selects: one record, filled setter by setter and then handed to an iterator, which owns it.
//
// The bounds have the shape of a message's metadata, one record per message class; only class slot 0 carries the fields
// other than the id.
//
//   condition               stored in                            not set
//   sequence number range   lower[0].seqNum, upper[0].seqNum     end below begin (0, -1)
//   single id range         lower[0].connMsgId, upper[0]...      lower -1
//   id ranges per class     lower[c].connMsgId, upper[c]...      perClassIds 0
//   times                   lower[0].timestamp, upper[0]...      0
//   PossDup                 lower byte set: the message's must be clear; upper byte set: it must be set
//
// Every setter returns NULL_POINTER_ERROR for a null record (per-filter setters also when no filter was added yet),
// INDEX_OUT_OF_BOUNDS_ERROR for a slot at or beyond the sized count, OUT_OF_MEMORY_ERROR, WRONG_PARAMETER_ERROR for a
// negative count, or NO_ERROR; what was stored before stays. Sized arrays are filled slot by slot up to the last slot,
// whose setting sorts them. Per-filter setters act on the filter that was added last.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <vector>

#include "core/error_codes.h"
#include "core/handle.h"
#include "messagetable/message_class.h"
#include "messagetable/message_metadata.h"
#include "query/numeric_filter.h"
#include "query/string_filter.h"

namespace tabulo::internal {

inline constexpr std::int32_t ID_NOT_SET = -1;

using ExcludedMsgType = std::array<char, MSG_TYPE_LENGTH>;  // NUL-padded, no terminator when five long

struct QueryConditions {
    bool iterateBackward = false;
    bool inverted = false;  // select the messages that do not match
    std::array<MessageMetadata, MESSAGE_CLASS_COUNT> lower;
    std::array<MessageMetadata, MESSAGE_CLASS_COUNT> upper;
    bool perClassIds = false;
    std::vector<ExcludedMsgType> excludedMsgTypes;  // sorted
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
ErrorCode conditions_setInverted(QueryConditions* conditions, bool inverted) noexcept;
// Inclusive; in force only while end >= begin.
ErrorCode conditions_setSeqNumRange(QueryConditions* conditions, std::int32_t begin, std::int32_t end) noexcept;
// One inclusive id range over all classes; its ends should be of one class, since closed blocks know ids by class only.
ErrorCode conditions_setMessageIdRange(QueryConditions* conditions, std::int32_t start, std::int32_t end) noexcept;
// Inclusive ranges by the class of each id; a later id of a class replaces an earlier one, ids without a class are
// ignored. A class with a start and no end goes to its last id; one whose start equals its end is dropped, on purpose.
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
