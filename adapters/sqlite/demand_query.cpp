// A demand as a query of the library.
#include <algorithm>
#include <limits>

#include "adapters/sqlite/demand.h"
#include "adapters/sqlite/time_range.h"

namespace tabulo::sqlite {

namespace {

constexpr std::int64_t SMALLEST_ID = std::numeric_limits<std::int32_t>::min();
constexpr std::int64_t LARGEST_ID = std::numeric_limits<std::int32_t>::max();

std::int32_t narrow(std::int64_t value) {
    return static_cast<std::int32_t>(value);
}

IntegerCondition conditionOf(const IntegerDemand& demand) {
    if (demand.values.has_value()) {
        return IntegerCondition::anyOf(std::vector<std::int64_t>(demand.values->begin(), demand.values->end()));
    }
    return IntegerCondition::between(demand.first, demand.last);
}

void askId(const IntegerDemand& demand, Query* query) {
    if (!demand.values.has_value() || *demand.values->begin() < 0) {
        query->number(BuiltInNumber::id, conditionOf(demand));
        return;
    }
    std::vector<std::int32_t> ids;
    std::transform(demand.values->begin(), demand.values->end(), std::back_inserter(ids), narrow);
    query->idSet(ids);
}

bool askFlag(const IntegerDemand& demand, Query& (Query::*flag)(bool), Query* query) {
    const auto allows = [&](std::int64_t value) {
        IntegerDemand kept = demand;
        kept.keep(value, value);
        return !kept.isEmpty();
    };
    if (allows(0) != allows(1)) {
        (query->*flag)(allows(1));
    }
    return allows(0) || allows(1);
}

// A range, or a few values of the numbers that a footer has the ends of.
void askRange(const IntegerDemand& demand, BuiltInNumber number,
              Query& (Query::*range)(std::optional<std::int32_t>, std::optional<std::int32_t>), Query* query) {
    if (demand.values.has_value() && demand.values->size() > 1) {
        query->number(number, conditionOf(demand));
        return;
    }
    const std::int64_t first = demand.values.has_value() ? *demand.values->begin() : demand.first;
    const std::int64_t last = demand.values.has_value() ? first : demand.last;
    (query->*range)(narrow(first), narrow(last));
}

// False when no message can meet it.
bool askInteger(ColumnKind kind, IntegerDemand demand, Query* query) {
    if (kind == ColumnKind::timeRaw) {
        demand.values.has_value() ? query->number(BuiltInNumber::time, conditionOf(demand))
                                  : query->times(demand.first, demand.last);
        return true;
    }
    demand.keep(SMALLEST_ID, LARGEST_ID);
    if (demand.isEmpty()) {
        return false;
    }
    switch (kind) {
        case ColumnKind::uid:
            askRange(demand, BuiltInNumber::uniformId, &Query::uniformIds, query);
            return true;
        case ColumnKind::seq:
            askRange(demand, BuiltInNumber::seqNum, &Query::seqNums, query);
            return true;
        case ColumnKind::prevSeq:
            query->number(BuiltInNumber::prevSeqNum, conditionOf(demand));
            return true;
        case ColumnKind::id:
            askId(demand, query);
            return true;
        case ColumnKind::possDup:
            return askFlag(demand, &Query::possDup, query);
        default:
            return askFlag(demand, &Query::outOfSequence, query);
    }
}

bool askNumber(std::size_t field, const NumberDemand& demand, Query* query) {
    const bool hasRange = demand.first.has_value() || demand.last.has_value();
    if (demand.isNull) {
        query->number(field, DoubleCondition::absent());
        return !hasRange && !demand.values.has_value();
    }
    if (demand.values.has_value()) {
        std::vector<double> values(demand.values->begin(), demand.values->end());
        std::erase_if(values, [&](double value) {
            return value < demand.first.value_or(value) || value > demand.last.value_or(value);
        });
        if (!values.empty()) {
            query->number(field, DoubleCondition::anyOf(values));
        }
        return !values.empty();
    }
    if (demand.first.has_value() && demand.last.has_value()) {
        if (*demand.first > *demand.last) {
            return false;
        }
        query->number(field, DoubleCondition::between(*demand.first, *demand.last));
    } else if (hasRange) {
        query->number(field, demand.first.has_value() ? DoubleCondition::atLeast(*demand.first)
                                                      : DoubleCondition::atMost(*demand.last));
    }
    return true;
}

// What selects every text that the demand does; none when nothing is asked.
std::optional<TextCondition> conditionOf(const TextDemand& demand) {
    if (demand.isNull) {
        return TextCondition::absent();
    }
    if (demand.values.has_value()) {
        std::vector<std::string> values(demand.values->begin(), demand.values->end());
        const bool hasEmpty = std::erase(values, "") > 0;
        if (values.empty()) {
            return TextCondition::absent();  // an empty text counts as absent
        }
        const TextCondition any = TextCondition::anyOf(values);
        return hasEmpty ? any || TextCondition::absent() : any;
    }
    const std::string first = demand.first.value_or("");
    if (demand.last.has_value() && demand.last->empty()) {
        return TextCondition::absent();
    }
    if (demand.last.has_value() && !first.empty()) {
        return TextCondition::between(first, *demand.last);
    }
    if (demand.last.has_value()) {
        return TextCondition::atMost(*demand.last) || TextCondition::absent();
    }
    return first.empty() ? std::nullopt : std::optional(TextCondition::atLeast(first));
}

bool isImpossible(const TextDemand& demand) {
    const bool hasRange = demand.first.has_value() || demand.last.has_value();
    return (demand.isNull && (hasRange || demand.values.has_value())) ||
           (demand.values.has_value() && demand.values->empty()) ||
           (demand.first.has_value() && demand.last.has_value() && *demand.first > *demand.last);
}

template <typename Field>
bool askText(Field field, const TextDemand& demand, Query* query) {
    if (const std::optional<TextCondition> condition = conditionOf(demand); condition.has_value()) {
        query->text(field, *condition);
    }
    return true;
}

// A text that tables may lack: it is NULL in all messages of one that does.
bool askBuiltIn(BuiltInText field, std::int32_t builtInTexts, const Layout& layout, const TextDemand& demand,
                Query* query) {
    return layout.builtInTexts >= builtInTexts ? askText(field, demand, query) : demand.isNull;
}

bool askClass(const TextDemand& demand, Query* query) {
    if (demand.isNull) {
        query->number(BuiltInNumber::id, IntegerCondition::below(0));
        return true;
    }
    std::vector<MessageClass> classes;
    for (const std::string& name : *demand.values) {
        if (const auto named = classNamed(name); named.has_value()) {
            classes.push_back(*named);
        }
    }
    if (classes.empty()) {
        return false;
    }
    try {
        query->classes(classes);
    } catch (const Error& error) {
        if (error.code() != Code::wrongParameter) {
            throw;
        }
        return false;  // none of the ids that are asked for is of these classes
    }
    return true;
}

bool askType(const TextDemand& demand, Query* query) {
    constexpr std::size_t LONGEST = 5;
    if (demand.isNull) {
        return false;
    }
    std::vector<std::string> types(demand.values->begin(), demand.values->end());
    std::erase_if(types, [](const std::string& type) { return type.size() > LONGEST; });
    if (std::find(types.begin(), types.end(), "") == types.end() && !types.empty()) {
        query->types(types);
    }
    return !types.empty();
}

// The times that are shown in ISO 8601 have the order of their texts; those that are shown as numbers are asked for,
// whatever the text is.
bool askTime(const TextDemand& demand, std::optional<TimeUnit> unit, Query* query) {
    if (demand.isNull || !unit.has_value()) {
        return !demand.isNull;
    }
    const IsoTimes iso = isoTimes(*unit);
    std::vector<std::pair<std::int64_t, std::int64_t>> ranges;
    const auto add = [&](const std::string& low, const std::string* high) {
        const std::int64_t from = firstTimeAtLeast(low, *unit);
        const std::int64_t behind = high == nullptr ? iso.last : firstTimeAbove(*high, *unit);
        if (from <= behind) {
            ranges.emplace_back(from, behind);  // one more than needed, at an end that cannot be stepped over
        }
    };
    if (demand.values.has_value()) {
        for (const std::string& value : *demand.values) {
            add(value, &value);
        }
    } else {
        add(demand.first.value_or(""), demand.last.has_value() ? &*demand.last : nullptr);
    }
    if (iso.first == std::numeric_limits<std::int64_t>::min() && ranges.size() == 1) {
        query->times(ranges[0].first, ranges[0].second);
        return true;
    }
    std::optional<IntegerCondition> condition;
    if (iso.first != std::numeric_limits<std::int64_t>::min()) {
        condition = IntegerCondition::below(iso.first) || IntegerCondition::above(iso.last);
    }
    for (const auto& [from, to] : ranges) {
        const IntegerCondition range = IntegerCondition::between(from, to);
        condition = condition.has_value() ? *condition || range : range;
    }
    if (condition.has_value()) {
        query->number(BuiltInNumber::time, *condition);
    }
    return condition.has_value();
}

bool askTextColumn(const Column& column, const TextDemand& demand, const Layout& layout, std::optional<TimeUnit> unit,
                   Query* query) {
    if (isImpossible(demand)) {
        return false;
    }
    const bool isAsked = demand.isNull || demand.values.has_value();
    switch (column.kind) {
        case ColumnKind::messageClass:
            return !isAsked || askClass(demand, query);
        case ColumnKind::type:
            return !isAsked || askType(demand, query);
        case ColumnKind::time:
            return askTime(demand, unit, query);
        case ColumnKind::text0:
            return askBuiltIn(BuiltInText::text0, 3, layout, demand, query);
        case ColumnKind::text1:
            return askBuiltIn(BuiltInText::text1, 4, layout, demand, query);
        case ColumnKind::text:
            return askText(column.field, demand, query);
        case ColumnKind::wire:
            return askText(BuiltInText::wire, demand, query);
        case ColumnKind::nonMetadata:
            return askText(BuiltInText::nonMetadata, demand, query);
        default:
            return true;  // the name of a file has chosen it
    }
}

bool isUnasked(const TextDemand& demand) {
    return !demand.isNull && !demand.values.has_value() && !demand.first.has_value() && !demand.last.has_value();
}

}  // namespace

std::optional<Query> Demand::query(const Layout& layout, std::optional<TimeUnit> unit) const {
    Query query;
    for (const auto& [column, demand] : integers_) {
        if (column != ROWID && !demand.isAll() &&
            !askInteger(columns_[static_cast<std::size_t>(column)].kind, demand, &query)) {
            return std::nullopt;
        }
    }
    for (const auto& [column, demand] : numbers_) {
        if (!askNumber(columns_[static_cast<std::size_t>(column)].field, demand, &query)) {
            return std::nullopt;
        }
    }
    for (const auto& [column, demand] : texts_) {
        if (!isUnasked(demand) &&
            !askTextColumn(columns_[static_cast<std::size_t>(column)], demand, layout, unit, &query)) {
            return std::nullopt;
        }
    }
    return query;
}

}  // namespace tabulo::sqlite
