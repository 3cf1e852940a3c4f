// Query conditions built without memory.
#include "tests/faults/memory_case.h"

namespace tabulo::internal::test {

namespace {

constexpr const char* LONG_TEXT = "a text that no short string can hold in itself";
constexpr const char* LONGER_TEXT = "and a text behind it that none can hold either";

void addText(Digests* answer, const std::optional<std::string>& text) {
    answer->add(text ? std::string_view(*text) : std::string_view("none"));
}

template <typename Filter>
void addNumericFilter(Digests* answer, const Filter& filter) {
    answer->add(filter.fieldIndex);
    answer->add(static_cast<std::int64_t>(filter.overallMin));
    answer->add(static_cast<std::int64_t>(filter.overallMax));
    for (const auto& entry : filter.entries) {
        answer->add(static_cast<std::int64_t>(entry.low));
        answer->add(static_cast<std::int64_t>(entry.high));
        answer->add(entry.flags);
    }
}

// All that a record holds in memory of its own.
Digests contentOf(const QueryConditions* conditions) {
    Digests content;
    for (const ExcludedMsgType& type : conditions->metadata.excludedMsgTypes) {
        content.add(std::string_view(type.data(), type.size()));
    }
    content.add(static_cast<std::int64_t>(conditions->stringFilters.size()));
    for (const StringFilter& filter : conditions->stringFilters) {
        content.add(filter.fieldIndex);
        for (const auto& value : filter.values) {
            addText(&content, value);
        }
        for (const auto& bound : filter.ranges) {
            addText(&content, bound);
        }
    }
    content.add(static_cast<std::int64_t>(conditions->doubleFilters.size()));
    for (const DoubleFilter& filter : conditions->doubleFilters) {
        addNumericFilter(&content, filter);
    }
    content.add(static_cast<std::int64_t>(conditions->longFilters.size()));
    for (const LongFilter& filter : conditions->longFilters) {
        addNumericFilter(&content, filter);
    }
    return content;
}

ErrorCode create(MemoryStage& stage, Digests*) {
    stage.conditions[0] = conditions_create();
    return stage.conditions[0] == nullptr ? OUT_OF_MEMORY_ERROR : NO_ERROR;
}

// A record with a filter of every kind.
void filled(MemoryStage& stage) {
    QueryConditions* conditions = conditions_create();
    constexpr double number = 5;
    constexpr std::int64_t whole = 5;
    for (const ErrorCode code :
         {conditions_setExcludedMsgTypeCount(conditions, 2), conditions_addStringFilter(conditions, 2, false, true),
          conditions_setStringFilterValueCount(conditions, 2), conditions_setStringFilterRangeCount(conditions, 2),
          conditions_addDoubleFilter(conditions, 0, nullptr, nullptr, 0, &number, 1, false),
          conditions_addLongFilter(conditions, 0, nullptr, nullptr, 0, &whole, 1, false)}) {
        EXPECT_EQ(code, NO_ERROR);
    }
    stage.conditions[0] = conditions;
}

using Setter = ErrorCode (*)(QueryConditions*);

// One setter; a failed one has changed nothing.
template <Setter setter>
ErrorCode set(MemoryStage& stage, Digests* answer) {
    const Digests before = contentOf(stage.conditions[0]);
    const ErrorCode code = setter(stage.conditions[0]);
    const Digests after = contentOf(stage.conditions[0]);
    if (code == NO_ERROR) {
        *answer = after;
    }
    stage.halfChanged = code != NO_ERROR && !(after == before);
    return code;
}

// What needs no memory of its own.
ErrorCode setPlainConditions(QueryConditions* conditions) {
    constexpr std::array<std::int32_t, 2> starts = {5, 0x20000005};
    constexpr std::array<std::int32_t, 1> ends = {9};
    for (const ErrorCode code :
         {conditions_setIterateBackward(conditions, true), conditions_setInverted(conditions, true),
          conditions_setSeqNumRange(conditions, 1, 2), conditions_setMessageIdRange(conditions, 1, 2),
          conditions_setMessageIdRanges(conditions, starts.data(), 2, ends.data(), 1),
          conditions_setStartingTime(conditions, 1), conditions_setEndingTime(conditions, 2),
          conditions_setPossDupFlag(conditions, true)}) {
        if (code != NO_ERROR) {
            return code;
        }
    }
    return NO_ERROR;
}

ErrorCode sizeExcludedMsgTypes(QueryConditions* conditions) {
    return conditions_setExcludedMsgTypeCount(conditions, 40);
}

ErrorCode setExcludedMsgType(QueryConditions* conditions) {
    return conditions_setExcludedMsgType(conditions, 1, "AE");
}

ErrorCode addStringFilter(QueryConditions* conditions) {
    return conditions_addStringFilter(conditions, 3, true, false);
}

ErrorCode sizeStringFilterValues(QueryConditions* conditions) {
    return conditions_setStringFilterValueCount(conditions, 40);
}

ErrorCode setStringFilterValue(QueryConditions* conditions) {
    return conditions_setStringFilterValue(conditions, LONG_TEXT, 1);
}

ErrorCode sizeStringFilterRanges(QueryConditions* conditions) {
    return conditions_setStringFilterRangeCount(conditions, 40);
}

ErrorCode setStringFilterRange(QueryConditions* conditions) {
    return conditions_setStringFilterRange(conditions, LONG_TEXT, LONGER_TEXT, 0);
}

ErrorCode addDoubleFilter(QueryConditions* conditions) {
    constexpr std::array<double, 3> minimums = {1, 3, 8};
    constexpr std::array<double, 3> maximums = {5, 8, 10};
    constexpr std::array<double, 3> values = {8, 12, 12};
    return conditions_addDoubleFilter(conditions, 1, minimums.data(), maximums.data(), 3, values.data(), 3, true);
}

ErrorCode addLongFilter(QueryConditions* conditions) {
    constexpr std::array<std::int64_t, 3> minimums = {1, 3, 8};
    constexpr std::array<std::int64_t, 3> maximums = {5, 8, 10};
    constexpr std::array<std::int64_t, 3> values = {8, 12, 12};
    return conditions_addLongFilter(conditions, 1, minimums.data(), maximums.data(), 3, values.data(), 3, true);
}

}  // namespace

std::vector<MemoryCase> queryCases() {
    return {
        {"CreateConditions", [](MemoryStage&) {}, create},
        {"SetPlainConditions", filled, set<setPlainConditions>},
        {"SizeExcludedMsgTypes", filled, set<sizeExcludedMsgTypes>},
        {"SetAnExcludedMsgType", filled, set<setExcludedMsgType>},
        {"AddAStringFilter", filled, set<addStringFilter>},
        {"SizeStringFilterValues", filled, set<sizeStringFilterValues>},
        {"SetAStringFilterValue", filled, set<setStringFilterValue>},
        {"SizeStringFilterRanges", filled, set<sizeStringFilterRanges>},
        {"SetAStringFilterRange", filled, set<setStringFilterRange>},
        {"AddADoubleFilter", filled, set<addDoubleFilter>},
        {"AddALongFilter", filled, set<addLongFilter>},
    };
}

}  // namespace tabulo::internal::test
