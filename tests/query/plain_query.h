// A query as its asker would write it down, and whether a message meets it, told plainly: every rule is evaluated here
// on its own, from the words of the query, without the library's matching, conversions or message classes.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "query/query_conditions.h"
#include "tests/query/query_fixture.h"

namespace tabulo::internal::test {

struct PlainStringFilter {
    using Bound = std::optional<std::string>;

    std::int32_t field = 0;
    bool includeNull = false;
    bool ignoreCase = false;
    std::vector<std::string> values;
    std::vector<std::pair<Bound, Bound>> ranges;
};

template <typename Number>
struct PlainNumericFilter {
    std::int32_t field = 0;
    bool includeNull = false;
    std::vector<std::pair<Number, Number>> ranges;
    std::vector<Number> values;
};

struct PlainQuery {
    bool inverted = false;
    std::optional<std::pair<std::int32_t, std::int32_t>> seqNums;
    std::optional<std::pair<std::int32_t, std::int32_t>> ids;
    bool perClass = false;  // instead of `ids`
    std::vector<std::int32_t> startIds;
    std::vector<std::int32_t> endIds;
    std::optional<std::int64_t> startingTime;
    std::optional<std::int64_t> endingTime;
    std::optional<bool> possDup;
    std::vector<std::string> excludedMsgTypes;
    std::vector<PlainNumericFilter<double>> doubles;
    std::vector<PlainNumericFilter<std::int64_t>> longs;
    std::vector<PlainStringFilter> strings;
};

// True when an inverted or plain query selects the message.
bool plainQuery_selects(const PlainQuery& query, const Message& message);
// True for a single id range whose ends lie in two classes or in none: closed blocks are then left out by definition.
bool plainQuery_leavesOutClosedBlocks(const PlainQuery& query);
// The query in the library's form, filled by its setters.
QueryConditionsPtr plainQuery_conditions(const PlainQuery& query, bool backward);
// The query in words, for a failure.
std::string plainQuery_text(const PlainQuery& query);

}  // namespace tabulo::internal::test
