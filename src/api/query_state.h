// What stands behind a Query and its conditions, and how it becomes the library's.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "api/message_state.h"
#include "query/query_conditions.h"
#include "tabulo/query.h"

namespace tabulo::api {

// Accepted are the values, and what lies strictly between the ends of a pair; where an end is included it is also a
// value.
struct TextConditionState {
    std::vector<std::string> values;
    std::vector<std::pair<std::optional<std::string>, std::optional<std::string>>> pairs;  // none is an open end
    bool absent = false;
    bool ignoresCase = false;  // of the values
};

template <typename T>
struct NumberConditionState {
    std::vector<T> values;
    std::vector<T> minimums;
    std::vector<T> maximums;
    bool absent = false;
};

struct TextPart {
    std::variant<std::string, std::size_t, BuiltInText> field;
    TextConditionState condition;
};

struct NumberPart {
    std::variant<std::string, std::size_t, BuiltInNumber> field;
    std::variant<NumberConditionState<double>, NumberConditionState<std::int64_t>> condition;
};

template <typename T>
using Range = internal::ValueRange<T>;

struct QueryState {
    bool backward = false;
    bool inverted = false;
    std::optional<Position> from;
    std::optional<Position> before;
    std::optional<Range<std::int32_t>> seqNums;
    std::optional<Range<std::int32_t>> uniformIds;
    std::optional<Range<std::int64_t>> times;
    std::optional<internal::ClassIdRanges> ids;
    std::optional<std::vector<std::int32_t>> idSet;  // sorted
    std::optional<bool> possDup;
    std::optional<bool> outOfSequence;
    std::optional<std::vector<std::string>> types;  // sorted
    std::vector<std::string> excludedTypes;
    std::vector<TextPart> texts;
    std::vector<NumberPart> numbers;
};

// The conditions of a query on tables of this layout. Throws what asking such a query gives, and for want of memory.
internal::QueryConditionsPtr query_build(const QueryState& query, const TableState& table);

}  // namespace tabulo::api
