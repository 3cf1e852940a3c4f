#include "query/metadata_condition.h"

#include <algorithm>
#include <cstring>

#include "messagetable/range_compare.h"

namespace tabulo::internal {

namespace {

using ClassIds = std::array<std::optional<std::int32_t>, MESSAGE_CLASS_COUNT>;

ClassIds lastOfEachClass(std::span<const std::int32_t> ids) {
    ClassIds found;
    for (const std::int32_t id : ids) {
        const MessageClass messageClass = classifyConnMsgId(id);
        if (messageClass != NO_MESSAGE_CLASS) {
            found[static_cast<std::size_t>(messageClass)] = id;
        }
    }
    return found;
}

bool isBelow(const char* left, const char* right) {
    return std::strncmp(left, right, MSG_TYPE_LENGTH) < 0;
}

template <typename Number>
bool contains(const ValueRange<Number>& range, Number value) {
    return range.first <= value && value <= range.last;
}

bool idMatches(const MetadataCondition& condition, std::int32_t id) {
    if (!condition.idsByClass.has_value()) {
        return !condition.ids.has_value() || contains(*condition.ids, id);
    }
    const MessageClass messageClass = classifyConnMsgId(id);
    if (messageClass == NO_MESSAGE_CLASS) {
        return false;
    }
    const std::optional<IdRange>& range = (*condition.idsByClass)[static_cast<std::size_t>(messageClass)];
    return range.has_value() && contains(*range, id);
}

bool isExcluded(const std::vector<ExcludedMsgType>& excluded, const char* msgType) {
    const auto found = std::partition_point(excluded.begin(), excluded.end(),
                                            [&](const auto& type) { return isBelow(type.data(), msgType); });
    return found != excluded.end() && !isBelow(msgType, found->data());
}

template <typename Number>
bool mayHold(const BlockSummary& block, RangeField range, Number MessageMetadata::*field,
             const ValueRange<Number>& asked) {
    MessageMetadata lower;
    MessageMetadata upper;
    lower.*field = asked.first;
    upper.*field = asked.last;
    return mfr_compareRange(block, lower, upper, range) == 0;
}

bool mayHoldId(const BlockSummary& block, const std::optional<IdRange>& ids) {
    return ids.has_value() && mayHold(block, RANGE_CONN_MSG_ID, &MessageMetadata::connMsgId, *ids);
}

bool idsMayMatch(const MetadataCondition& condition, const BlockSummary& block) {
    if (!condition.idsByClass.has_value()) {
        return !condition.ids.has_value() || mayHoldId(block, condition.ids);
    }
    return std::any_of(condition.idsByClass->begin(), condition.idsByClass->end(),
                       [&](const std::optional<IdRange>& ids) { return mayHoldId(block, ids); });
}

bool timesMayMatch(const MetadataCondition& condition, const BlockSummary& block) {
    if (!condition.from.has_value() && !condition.until.has_value()) {
        return true;
    }
    const ValueRange<std::int64_t> times{condition.from.value_or(block.minimum.timestamp),
                                         condition.until.value_or(block.maximum.timestamp)};
    return mayHold(block, RANGE_TIMESTAMP, &MessageMetadata::timestamp, times);
}

}  // namespace

std::optional<ClassIdRanges> metadataCondition_classIdRanges(std::span<const std::int32_t> startIds,
                                                             std::span<const std::int32_t> endIds) noexcept {
    const ClassIds starts = lastOfEachClass(startIds);
    const ClassIds ends = lastOfEachClass(endIds);
    ClassIdRanges ranges;
    bool anyStart = false;
    for (std::size_t c = 0; c < ranges.size(); ++c) {
        const auto messageClass = static_cast<MessageClass>(c);
        const IdRange range{starts[c].value_or(connMsgClassFirstId(messageClass)),
                            ends[c].value_or(connMsgClassLastId(messageClass))};
        const bool isDropped = starts[c].has_value() && range.first == range.last;
        if ((starts[c].has_value() || ends[c].has_value()) && !isDropped) {
            ranges[c] = range;
            anyStart = anyStart || starts[c].has_value();
        }
    }
    return anyStart ? std::optional(ranges) : std::nullopt;
}

void metadataCondition_sortExcluded(MetadataCondition* condition) noexcept {
    std::sort(condition->excludedMsgTypes.begin(), condition->excludedMsgTypes.end(),
              [](const auto& left, const auto& right) { return isBelow(left.data(), right.data()); });
}

bool metadataCondition_mayMatchBlock(const MetadataCondition& condition, const BlockSummary& block) noexcept {
    return idsMayMatch(condition, block) &&
           (!condition.seqNums.has_value() ||
            mayHold(block, RANGE_SEQ_NUM, &MessageMetadata::seqNum, *condition.seqNums)) &&
           timesMayMatch(condition, block);
}

bool metadataCondition_asksKnownRange(const MetadataCondition& condition) noexcept {
    return condition.seqNums.has_value() || condition.from.has_value() || condition.until.has_value();
}

bool metadataCondition_isSilent(const MetadataCondition& condition) noexcept {
    return !condition.ids.has_value() ||
           classifyConnMsgId(condition.ids->first) == classifyConnMsgId(condition.ids->last);
}

bool metadataCondition_isEmpty(const MetadataCondition& condition) noexcept {
    return !condition.seqNums.has_value() && !condition.ids.has_value() && !condition.idsByClass.has_value() &&
           !condition.from.has_value() && !condition.until.has_value() && !condition.possDup.has_value() &&
           condition.excludedMsgTypes.empty();
}

bool metadataCondition_matches(const MetadataCondition& condition, const MessageMetadata& metadata) noexcept {
    return idMatches(condition, metadata.connMsgId) &&
           (!condition.from.has_value() || metadata.timestamp >= *condition.from) &&
           (!condition.until.has_value() || metadata.timestamp <= *condition.until) &&
           (!condition.seqNums.has_value() || contains(*condition.seqNums, metadata.seqNum)) &&
           (!condition.possDup.has_value() || *condition.possDup == (metadata.isPossDupFlag != 0)) &&
           (condition.excludedMsgTypes.empty() || !isExcluded(condition.excludedMsgTypes, metadata.msgType.data()));
}

}  // namespace tabulo::internal
