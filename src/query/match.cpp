#include "query/match.h"

#include <algorithm>

namespace tabulo::internal {

bool query_blockMayMatch(const QueryConditions& conditions, const BlockSummary& block,
                         const MessageTableLayout& layout) noexcept {
    if (!metadataCondition_mayMatchBlock(conditions.metadata, block)) {
        return false;
    }
    for (const DoubleFilter& filter : conditions.doubleFilters) {
        if (!numericFilter_mayMatchBlock(filter, block, layout)) {
            return false;
        }
    }
    for (const LongFilter& filter : conditions.longFilters) {
        if (!numericFilter_mayMatchBlock(filter, block, layout)) {
            return false;
        }
    }
    for (const StringFilter& filter : conditions.stringFilters) {
        if (!stringFilter_mayMatchBlock(filter, block, layout)) {
            return false;
        }
    }
    return true;
}

bool query_isSilent(const QueryConditions& conditions, const MessageTableLayout& layout) noexcept {
    const auto isSilent = [&](const auto& filter) { return numericFilter_isSilent(filter, layout); };
    const auto& doubles = conditions.doubleFilters;
    const auto& longs = conditions.longFilters;
    const auto& texts = conditions.stringFilters;
    return metadataCondition_isSilent(conditions.metadata) && std::all_of(doubles.begin(), doubles.end(), isSilent) &&
           std::all_of(longs.begin(), longs.end(), isSilent) &&
           std::all_of(texts.begin(), texts.end(),
                       [&](const StringFilter& filter) { return stringFilter_isSilent(filter, layout); });
}

bool query_asksRanges(const QueryConditions& conditions, const MessageTableLayout& layout) noexcept {
    const auto asks = [&](const auto& filter) { return !filter.includeNull && numericFilter_isSilent(filter, layout); };
    const auto& doubles = conditions.doubleFilters;
    const auto& longs = conditions.longFilters;
    return metadataCondition_asksKnownRange(conditions.metadata) || conditions.metadata.ids.has_value() ||
           conditions.metadata.idsByClass.has_value() || std::any_of(doubles.begin(), doubles.end(), asks) ||
           std::any_of(longs.begin(), longs.end(), asks);
}

bool query_asksKnownRanges(const QueryConditions& conditions, const MessageTableLayout& layout) noexcept {
    const auto asks = [&](const auto& filter) { return numericFilter_asksKnownRange(filter, layout); };
    const auto& doubles = conditions.doubleFilters;
    const auto& longs = conditions.longFilters;
    const bool anyAsks = metadataCondition_asksKnownRange(conditions.metadata) ||
                         std::any_of(doubles.begin(), doubles.end(), asks) ||
                         std::any_of(longs.begin(), longs.end(), asks);
    return anyAsks && query_isSilent(conditions, layout);
}

bool query_isEmpty(const QueryConditions& conditions) noexcept {
    return metadataCondition_isEmpty(conditions.metadata) && conditions.doubleFilters.empty() &&
           conditions.longFilters.empty() && conditions.stringFilters.empty();
}

bool query_messageMatches(const QueryConditions& conditions, const MessageView& message) noexcept {
    if (!metadataCondition_matches(conditions.metadata, message.metadata)) {
        return false;
    }
    for (const DoubleFilter& filter : conditions.doubleFilters) {
        if (!numericFilter_matches(filter, message)) {
            return false;
        }
    }
    for (const LongFilter& filter : conditions.longFilters) {
        if (!numericFilter_matches(filter, message)) {
            return false;
        }
    }
    for (const StringFilter& filter : conditions.stringFilters) {
        if (!stringFilter_matches(filter, message)) {
            return false;
        }
    }
    return true;
}

}  // namespace tabulo::internal
