#include "query/block_match.h"

#include <algorithm>

#include "core/log.h"
#include "query/pseudo_field.h"

namespace tabulo::internal {

namespace {

// With more entries than this, a filter is judged by its overall bounds.
constexpr std::size_t ENTRIES_LOOKED_AT = 64;

template <typename Number>
std::int32_t compareConfigured(const BlockSummary& block, Number low, Number high, std::int32_t fieldIndex) {
    const NumericValue& minimum = block.minimum.numericValues[static_cast<std::size_t>(fieldIndex)];
    const NumericValue& maximum = block.maximum.numericValues[static_cast<std::size_t>(fieldIndex)];
    if (minimum.type != maximum.type || numericValue_isNaN(minimum) || numericValue_isNaN(maximum)) {
        return 0;  // damaged: rules nothing out
    }
    if (minimum.type == NumericType::absent) {
        return NO_OVERLAP;
    }
    return range_compare(low, high, numericValue_as<Number>(minimum), numericValue_as<Number>(maximum));
}

template <typename Number>
std::int32_t compareIds(const BlockSummary& block, Number low, Number high) {
    if (low < 0) {
        return 0;  // ids below 0 have no class, and no range in the footer
    }
    for (std::size_t c = 0; c < block.minimum.connMsgIds.size(); ++c) {
        const std::int32_t minimum = block.minimum.connMsgIds[c];
        const std::int32_t maximum = block.maximum.connMsgIds[c];
        if (minimum <= maximum &&
            range_compare(low, high, static_cast<Number>(minimum), static_cast<Number>(maximum)) == 0) {
            return 0;
        }
    }
    return NO_OVERLAP;
}

template <typename Number>
std::int32_t comparePseudo(const BlockSummary& block, Number low, Number high, std::int32_t field) {
    const RangeRecord& minimum = block.minimum;
    const RangeRecord& maximum = block.maximum;
    switch (field) {
        case PSEUDO_UNIFORM_ID:
            return range_compare(low, high, static_cast<Number>(minimum.uniformId),
                                 static_cast<Number>(maximum.uniformId));
        case PSEUDO_SEQ_NUM:
            return range_compare(low, high, static_cast<Number>(minimum.seqNum), static_cast<Number>(maximum.seqNum));
        case PSEUDO_TIMESTAMP:
            return range_compare(low, high, numericValue_as<Number>(numericValue_ofLong(minimum.timestamp)),
                                 numericValue_as<Number>(numericValue_ofLong(maximum.timestamp)));
        case PSEUDO_CONN_MSG_ID:
            return compareIds(block, low, high);
        default:
            return 0;
    }
}

template <typename Number>
std::int32_t compareNumericIndex(const char* function, const BlockSummary& block, const MessageTableLayout& layout,
                                 Number low, Number high, std::int32_t fieldIndex) {
    const std::int32_t end = layout.numericFieldCount + PSEUDO_FIELD_COUNT;
    if (fieldIndex < 0 || fieldIndex >= end) {
        log_note(function, "internal error: index number %d is out of range [0..%d)\n", fieldIndex, end);
        return 0;
    }
    return fieldIndex < layout.numericFieldCount
               ? compareConfigured(block, low, high, fieldIndex)
               : comparePseudo(block, low, high, fieldIndex - layout.numericFieldCount);
}

std::int32_t compareEntry(const BlockSummary& block, const MessageTableLayout& layout, double low, double high,
                          std::int32_t fieldIndex) {
    return mfr_compareNumericIndexDouble(block, layout, low, high, fieldIndex);
}

std::int32_t compareEntry(const BlockSummary& block, const MessageTableLayout& layout, std::int64_t low,
                          std::int64_t high, std::int32_t fieldIndex) {
    return mfr_compareNumericIndexLong(block, layout, low, high, fieldIndex);
}

template <typename Number>
bool numericMayMatch(const NumericFilter<Number>& filter, const BlockSummary& block, const MessageTableLayout& layout) {
    const bool ignored = filter.fieldIndex < 0 || filter.fieldIndex - PSEUDO_FIELD_COUNT >= layout.numericFieldCount;
    if (filter.includeNull || (ignored && filter.entries.empty())) {
        return true;
    }
    if (filter.entries.size() > ENTRIES_LOOKED_AT) {
        return compareEntry(block, layout, filter.overallMin, filter.overallMax, filter.fieldIndex) == 0;
    }
    return std::any_of(filter.entries.begin(), filter.entries.end(), [&](const auto& entry) {
        return compareEntry(block, layout, entry.low, entry.high, filter.fieldIndex) == 0;
    });
}

bool stringMayMatch(const StringFilter& filter, const BlockSummary& block, const MessageTableLayout& layout) {
    const bool hasFooterFilter =
        filter.fieldIndex >= 0 &&
        filter.fieldIndex < std::min(layout.summarisedStringFieldCount, layout.stringFieldCount);
    if (filter.includeNull || filter.ignoreCase || !filter.ranges.empty() ||
        (!hasFooterFilter && filter.values.empty())) {
        return true;
    }
    return std::any_of(filter.values.begin(), filter.values.end(), [&](const std::optional<std::string>& value) {
        return mfr_compareStr(block, layout, value.has_value() ? value->c_str() : nullptr, filter.fieldIndex) == 0;
    });
}

bool idsMayMatch(const QueryConditions& conditions, const BlockSummary& block) {
    if (!conditions.perClassIds) {
        return conditions.lower[0].connMsgId == ID_NOT_SET ||
               mfr_compareRange(block, conditions.lower[0], conditions.upper[0], RANGE_CONN_MSG_ID) == 0;
    }
    for (std::size_t c = 0; c < conditions.lower.size(); ++c) {
        if (conditions.upper[c].connMsgId == ID_NOT_SET) {
            continue;
        }
        MessageMetadata lower = conditions.lower[c];
        if (lower.connMsgId == ID_NOT_SET) {
            lower.connMsgId = connMsgClassFirstId(static_cast<MessageClass>(c));
        }
        if (mfr_compareRange(block, lower, conditions.upper[c], RANGE_CONN_MSG_ID) == 0) {
            return true;
        }
    }
    return false;
}

bool rangesMayMatch(const QueryConditions& conditions, const BlockSummary& block) {
    const MessageMetadata& lower = conditions.lower[0];
    const MessageMetadata& upper = conditions.upper[0];
    if (lower.seqNum <= upper.seqNum && mfr_compareRange(block, lower, upper, RANGE_SEQ_NUM) != 0) {
        return false;
    }
    if (lower.timestamp == 0 && upper.timestamp == 0) {
        return true;
    }
    MessageMetadata from = lower;
    MessageMetadata to = upper;
    from.timestamp = lower.timestamp == 0 ? block.minimum.timestamp : lower.timestamp;
    to.timestamp = upper.timestamp == 0 ? block.maximum.timestamp : upper.timestamp;
    return mfr_compareRange(block, from, to, RANGE_TIMESTAMP) == 0;
}

}  // namespace

std::int32_t mfr_compareNumericIndexDouble(const BlockSummary& block, const MessageTableLayout& layout, double low,
                                           double high, std::int32_t fieldIndex) noexcept {
    return compareNumericIndex("mfr_compareNumericIndexDouble", block, layout, low, high, fieldIndex);
}

std::int32_t mfr_compareNumericIndexLong(const BlockSummary& block, const MessageTableLayout& layout, std::int64_t low,
                                         std::int64_t high, std::int32_t fieldIndex) noexcept {
    return compareNumericIndex("mfr_compareNumericIndexLong", block, layout, low, high, fieldIndex);
}

std::int32_t mfr_compareStr(const BlockSummary& block, const MessageTableLayout& layout, const char* text,
                            std::int32_t fieldIndex) noexcept {
    if (fieldIndex < 0 || fieldIndex > layout.stringFieldCount) {
        log_note("mfr_compareStr", "internal error: index number %d is out of range [0..%d)\n", fieldIndex,
                 layout.stringFieldCount + 1);
        return 0;
    }
    const std::int32_t filtered = std::min(layout.summarisedStringFieldCount, layout.stringFieldCount);
    if (text == nullptr || fieldIndex >= filtered) {
        return 0;
    }
    return blockSummary_mayContain(block, fieldIndex, text) ? 0 : -1;
}

bool query_blockMayMatch(const QueryConditions& conditions, const BlockSummary& block,
                         const MessageTableLayout& layout) noexcept {
    if (!idsMayMatch(conditions, block) || !rangesMayMatch(conditions, block)) {
        return false;
    }
    for (const DoubleFilter& filter : conditions.doubleFilters) {
        if (!numericMayMatch(filter, block, layout)) {
            return false;
        }
    }
    for (const LongFilter& filter : conditions.longFilters) {
        if (!numericMayMatch(filter, block, layout)) {
            return false;
        }
    }
    return std::all_of(conditions.stringFilters.begin(), conditions.stringFilters.end(),
                       [&](const StringFilter& filter) { return stringMayMatch(filter, block, layout); });
}

}  // namespace tabulo::internal
