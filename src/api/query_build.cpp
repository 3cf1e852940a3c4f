#include <algorithm>
#include <cstring>
#include <new>

#include "api/call.h"
#include "api/layout.h"
#include "api/query_state.h"
#include "query/pseudo_field.h"

namespace tabulo::api {

namespace {

std::int32_t checkedField(std::size_t index, std::size_t count, const char* kind) {
    if (index >= count) {
        refuse(Code::indexOutOfBounds,
               "the query names " + std::string(kind) + " " + std::to_string(index) + " of " + std::to_string(count));
    }
    return static_cast<std::int32_t>(index);
}

std::int32_t builtInSlot(BuiltInText field, const TableState& table) {
    const std::int32_t count = table.numbers.stringFieldCount;
    switch (field) {
        case BuiltInText::wire:
            return count - 2;
        case BuiltInText::nonMetadata:
            return count - 1;
        case BuiltInText::type:
            return count;
        default:
            break;
    }
    const std::int32_t slot = field == BuiltInText::text0 ? 0 : 1;
    if (slot >= count - 2) {
        refuse(Code::indexOutOfBounds, "the table has no text" + std::to_string(slot));
    }
    return slot;
}

// The number under which the library knows a text.
std::int32_t slotOf(const TextPart& part, const TableState& table) {
    if (const auto* builtIn = std::get_if<BuiltInText>(&part.field)) {
        return builtInSlot(*builtIn, table);
    }
    const auto* name = std::get_if<std::string>(&part.field);
    const std::size_t index =
        name != nullptr ? layout_textNamed(table.layout, *name) : std::get<std::size_t>(part.field);
    return internal::LEADING_BUILT_IN_STRING_FIELDS + checkedField(index, table.layout.texts.size(), "text");
}

std::int32_t slotOf(const NumberPart& part, const TableState& table) {
    if (const auto* builtIn = std::get_if<BuiltInNumber>(&part.field)) {
        return table.numbers.numericFieldCount + static_cast<std::int32_t>(*builtIn);
    }
    const auto* name = std::get_if<std::string>(&part.field);
    const std::size_t index =
        name != nullptr ? layout_numberNamed(table.layout, *name) : std::get<std::size_t>(part.field);
    return checkedField(index, table.layout.numbers.size(), "number");
}

void addFilter(internal::QueryConditions* conditions, const TextPart& part, const TableState& table) {
    internal::StringFilter filter;
    filter.fieldIndex = slotOf(part, table);
    filter.includeNull = part.condition.absent;
    filter.ignoreCase = part.condition.ignoresCase;
    filter.values.assign(part.condition.values.begin(), part.condition.values.end());
    for (const auto& [minimum, maximum] : part.condition.pairs) {
        filter.ranges.push_back(minimum);
        filter.ranges.push_back(maximum);
    }
    if (filter.includeNull && filter.fieldIndex == table.numbers.stringFieldCount) {
        filter.values.emplace_back("");  // a type is never absent, but may be empty
    }
    internal::stringFilter_sortValues(&filter);
    conditions->stringFilters.push_back(std::move(filter));
}

template <typename T>
internal::NumericFilter<T> numericFilter(const NumberConditionState<T>& condition, std::int32_t field) {
    internal::NumericFilter<T> filter;
    filter.fieldIndex = field;
    filter.includeNull = condition.absent;
    internal::numericFilter_build(&filter, condition.minimums.data(), condition.maximums.data(),
                                  static_cast<std::int32_t>(condition.minimums.size()), condition.values.data(),
                                  static_cast<std::int32_t>(condition.values.size()));
    return filter;
}

void addFilter(internal::QueryConditions* conditions, const NumberPart& part, const TableState& table) {
    const std::int32_t field = slotOf(part, table);
    if (const auto* doubles = std::get_if<NumberConditionState<double>>(&part.condition)) {
        conditions->doubleFilters.push_back(numericFilter(*doubles, field));
    } else {
        conditions->longFilters.push_back(
            numericFilter(std::get<NumberConditionState<std::int64_t>>(part.condition), field));
    }
}

// A condition on a number of the metadata that the library has as a filter only.
void addMetadata(internal::QueryConditions* conditions, const TableState& table, internal::PseudoField field,
                 const NumberConditionState<std::int64_t>& condition) {
    conditions->longFilters.push_back(numericFilter(condition, table.numbers.numericFieldCount + field));
}

void addUniformIds(internal::QueryConditions* conditions, const TableState& table, const Range<std::int32_t>& ids) {
    NumberConditionState<std::int64_t> condition;
    condition.values = {ids.first, ids.last};
    condition.minimums = {ids.first};
    condition.maximums = {ids.last};
    addMetadata(conditions, table, internal::PSEUDO_UNIFORM_ID, condition);
}

void addTypes(internal::QueryConditions* conditions, const QueryState& query, const TableState& table) {
    if (query.types.has_value()) {
        TextPart part{BuiltInText::type, {}};
        part.condition.values = *query.types;
        addFilter(conditions, part, table);
    }
    for (const std::string& type : query.excludedTypes) {
        internal::ExcludedMsgType excluded{};
        std::memcpy(excluded.data(), type.data(), std::min(type.size(), excluded.size()));
        conditions->metadata.excludedMsgTypes.push_back(excluded);
    }
    internal::metadataCondition_sortExcluded(&conditions->metadata);
}

void addMetadata(internal::QueryConditions* conditions, const QueryState& query, const TableState& table) {
    internal::MetadataCondition& metadata = conditions->metadata;
    metadata.seqNums = query.seqNums;
    if (query.times.has_value()) {
        metadata.from = query.times->first;
        metadata.until = query.times->last;
    }
    metadata.idsByClass = query.ids;
    metadata.possDup = query.possDup;
    if (query.uniformIds.has_value()) {
        addUniformIds(conditions, table, *query.uniformIds);
    }
    if (query.idSet.has_value()) {
        NumberConditionState<std::int64_t> condition;
        condition.values.assign(query.idSet->begin(), query.idSet->end());
        addMetadata(conditions, table, internal::PSEUDO_CONN_MSG_ID, condition);
    }
    if (query.outOfSequence.has_value()) {
        NumberConditionState<std::int64_t> condition;
        condition.values = {*query.outOfSequence ? 1 : 0};
        addMetadata(conditions, table, internal::PSEUDO_OUT_OF_SEQUENCE, condition);
    }
    addTypes(conditions, query, table);
}

}  // namespace

internal::QueryConditionsPtr query_build(const QueryState& query, const TableState& table) {
    internal::QueryConditionsPtr conditions(internal::conditions_create());
    if (conditions == nullptr) {
        throw std::bad_alloc();
    }
    conditions->iterateBackward = query.backward;
    conditions->inverted = query.inverted;
    addMetadata(conditions.get(), query, table);
    for (const TextPart& part : query.texts) {
        addFilter(conditions.get(), part, table);
    }
    for (const NumberPart& part : query.numbers) {
        addFilter(conditions.get(), part, table);
    }
    return conditions;
}

}  // namespace tabulo::api
