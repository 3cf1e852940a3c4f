#include "query/match.h"

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
