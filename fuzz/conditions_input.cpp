#include "fuzz/conditions_input.h"

#include <array>
#include <limits>
#include <vector>

#include "fuzz/harness.h"
#include "query/pseudo_field.h"

namespace tabulo::internal::fuzz {

namespace {

// What conditions refuse they leave out, which is an input as good as any: no code is looked at here.

constexpr std::int32_t MOST_VALUES = 6;
constexpr std::size_t LONGEST_TEXT = 12;

// A count within reason: larger ones are the caller's own memory.
std::int32_t countFrom(Input* input) {
    const std::int32_t count = input->below(MOST_VALUES + 2);
    return count > MOST_VALUES ? -1 : count;
}

void setTime(QueryConditions* conditions, Input* input) {
    const std::int64_t time = input->smallOrAny();
    (void)(input->flag() ? conditions_setStartingTime(conditions, time) : conditions_setEndingTime(conditions, time));
}

void setIds(QueryConditions* conditions, Input* input) {
    std::array<std::int32_t, MOST_VALUES> ids{};
    const std::int32_t starts = input->below(4);
    const std::int32_t ends = input->below(4);
    for (std::int32_t i = 0; i < starts + ends && i < MOST_VALUES; ++i) {
        const auto messageClass = static_cast<MessageClass>(input->below(MESSAGE_CLASS_COUNT));
        ids[static_cast<std::size_t>(i)] = input->flag() ? connMsgClassFirstId(messageClass) + input->byte()
                                                         : connMsgClassLastId(messageClass) - input->byte();
    }
    if (input->flag()) {
        (void)conditions_setMessageIdRanges(conditions, ids.data(), starts, ids.data() + starts, ends);
    } else {
        (void)conditions_setMessageIdRange(conditions, ids[0], ids[1]);
    }
}

void setExcluded(QueryConditions* conditions, Input* input) {
    const std::int32_t count = countFrom(input);
    (void)conditions_setExcludedMsgTypeCount(conditions, count);
    for (std::int32_t i = 0; i < count; ++i) {
        const std::int32_t slot = input->flag() ? i : input->smallOrAny();
        (void)conditions_setExcludedMsgType(conditions, slot, input->text(LONGEST_TEXT).c_str());
    }
}

void addStringFilter(QueryConditions* conditions, Input* input, std::int32_t fields) {
    const std::int32_t field = input->below(fields + 4) - 1;
    const bool includeNull = input->flag();
    (void)conditions_addStringFilter(conditions, field, includeNull, input->flag());
    const std::int32_t values = countFrom(input);
    (void)conditions_setStringFilterValueCount(conditions, values);
    for (std::int32_t i = 0; i < values; ++i) {
        const std::int32_t slot = input->byte() == 0xff ? input->smallOrAny() : i;
        (void)conditions_setStringFilterValue(conditions, input->text(LONGEST_TEXT).c_str(), slot);
    }
    const std::int32_t pairs = countFrom(input) / 2;
    (void)conditions_setStringFilterRangeCount(conditions, 2 * pairs);
    for (std::int32_t i = 0; i < pairs; ++i) {
        const std::int32_t slot = input->byte() == 0xff ? input->smallOrAny() : 2 * i;
        const bool openBelow = input->flag();
        const bool openAbove = input->flag();
        const std::string minimum = input->text(LONGEST_TEXT);
        const std::string maximum = input->text(LONGEST_TEXT);
        (void)conditions_setStringFilterRange(conditions, openBelow ? nullptr : minimum.c_str(),
                                              openAbove ? nullptr : maximum.c_str(), slot);
    }
}

template <typename Number>
Number numericBound(Input* input) {
    return input->byte() == 0xff ? input->number<Number>() : static_cast<Number>(input->smallOrAny());
}

template <typename Number>
void addNumericFilter(QueryConditions* conditions, Input* input, std::int32_t fields,
                      ErrorCode (*add)(QueryConditions*, std::int32_t, const Number*, const Number*, std::int32_t,
                                       const Number*, std::int32_t, bool) noexcept) {
    const std::int32_t field = input->below(fields + PSEUDO_FIELD_COUNT + 3) - 1;
    const bool includeNull = input->flag();
    const std::int32_t pairs = countFrom(input);
    const std::int32_t values = countFrom(input);
    std::vector<Number> minimums;
    std::vector<Number> maximums;
    std::vector<Number> points;
    for (std::int32_t i = 0; i < pairs; ++i) {
        minimums.push_back(numericBound<Number>(input));
        maximums.push_back(numericBound<Number>(input));
    }
    for (std::int32_t i = 0; i < values; ++i) {
        points.push_back(numericBound<Number>(input));
    }
    (void)add(conditions, field, minimums.data(), maximums.data(), pairs, points.data(), values, includeNull);
}

}  // namespace

QueryConditionsPtr conditionsFrom(Input* input, const MessageTableLayout& layout) {
    QueryConditionsPtr conditions(conditions_create());
    QueryConditions* filled = conditions.get();
    for (int steps = 0; !input->empty() && steps < 32; ++steps) {
        switch (input->below(10)) {
            case 0:
                (void)conditions_setIterateBackward(filled, input->flag());
                break;
            case 1:
                (void)conditions_setInverted(filled, input->flag());
                break;
            case 2: {
                const std::int32_t begin = input->smallOrAny();
                (void)conditions_setSeqNumRange(filled, begin, input->smallOrAny());
                break;
            }
            case 3:
                setIds(filled, input);
                break;
            case 4:
                setTime(filled, input);
                break;
            case 5:
                (void)conditions_setPossDupFlag(filled, input->flag());
                break;
            case 6:
                setExcluded(filled, input);
                break;
            case 7:
                addStringFilter(filled, input, layout.stringFieldCount);
                break;
            case 8:
                addNumericFilter(filled, input, layout.numericFieldCount, conditions_addDoubleFilter);
                break;
            default:
                addNumericFilter(filled, input, layout.numericFieldCount, conditions_addLongFilter);
        }
    }
    return conditions;
}

bool conditions_leaveOutClosedBlocks(const QueryConditions& conditions) {
    const std::optional<IdRange>& ids = conditions.metadata.ids;
    return ids && (classifyConnMsgId(ids->first) == NO_MESSAGE_CLASS ||
                   classifyConnMsgId(ids->first) != classifyConnMsgId(ids->last));
}

}  // namespace tabulo::internal::fuzz
