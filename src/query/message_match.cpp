#include "query/message_match.h"

#include <algorithm>
#include <cstring>

#include "query/pseudo_field.h"

namespace tabulo::internal {

namespace {

bool idMatches(const QueryConditions& conditions, std::int32_t id) {
    if (conditions.perClassIds) {
        const MessageClass messageClass = classifyConnMsgId(id);
        if (messageClass == NO_MESSAGE_CLASS) {
            return false;
        }
        const auto c = static_cast<std::size_t>(messageClass);
        return conditions.lower[c].connMsgId <= id && conditions.upper[c].connMsgId >= id;
    }
    const std::int32_t lower = conditions.lower[0].connMsgId;
    return lower == ID_NOT_SET || (lower <= id && conditions.upper[0].connMsgId >= id);
}

bool metadataMatches(const QueryConditions& conditions, const MessageMetadata& metadata) {
    const MessageMetadata& lower = conditions.lower[0];
    const MessageMetadata& upper = conditions.upper[0];
    if (!idMatches(conditions, metadata.connMsgId)) {
        return false;
    }
    if (lower.timestamp != 0 && metadata.timestamp < lower.timestamp) {
        return false;
    }
    if (upper.timestamp != 0 && metadata.timestamp > upper.timestamp) {
        return false;
    }
    if (upper.seqNum >= lower.seqNum && (metadata.seqNum > upper.seqNum || metadata.seqNum < lower.seqNum)) {
        return false;
    }
    const bool isPossDup = metadata.isPossDupFlag != 0;
    return !(lower.isPossDupFlag != 0 && isPossDup) && !(upper.isPossDupFlag != 0 && !isPossDup);
}

// A NaN counts as absent for a filter on doubles; for one on longs it reads as 0.
bool isAbsent(const NumericValue& value, double) {
    return value.type == NumericType::absent || numericValue_isNaN(value);
}

bool isAbsent(const NumericValue& value, std::int64_t) {
    return value.type == NumericType::absent;
}

template <typename Number>
bool numericMatches(const NumericFilter<Number>& filter, const MessageView& message) {
    const std::int64_t pseudo = filter.fieldIndex - static_cast<std::int64_t>(message.numbers.size());
    if (filter.fieldIndex < 0 || pseudo >= PSEUDO_FIELD_COUNT) {
        return true;
    }
    const NumericValue value = pseudo >= 0
                                   ? numericValue_ofLong(pseudoField_value(message.metadata, static_cast<int>(pseudo)))
                                   : message.numbers[static_cast<std::size_t>(filter.fieldIndex)];
    if (isAbsent(value, Number{})) {
        return filter.includeNull;
    }
    return numericFilter_contains(filter, numericValue_as<Number>(value));
}

bool isExcluded(const std::vector<ExcludedMsgType>& excluded, const MessageMetadata& metadata) {
    return std::binary_search(excluded.begin(), excluded.end(), metadata.msgType,
                              [](const auto& left, const auto& right) {
                                  return std::strncmp(left.data(), right.data(), MSG_TYPE_LENGTH) < 0;
                              });
}

bool stringMatches(const StringFilter& filter, const MessageView& message) {
    const std::int32_t index = filter.fieldIndex;
    const auto stringFieldCount = static_cast<std::int32_t>(message.texts.size());
    if (index < 0 || index > stringFieldCount) {
        return true;
    }
    if (index == stringFieldCount) {
        return stringFilter_acceptsMsgType(filter, message.metadata.msgType.data());
    }
    const StringField& field = message.texts[static_cast<std::size_t>(index)];
    // The empty text counts as absent where absent fields pass; elsewhere it is a text like any other.
    if (field.length <= 0 || (filter.includeNull && stringField_withoutNul(field).empty())) {
        return filter.includeNull;
    }
    return stringFilter_accepts(filter, stringField_bytes(field));
}

}  // namespace

bool query_messageMatches(const QueryConditions& conditions, const MessageView& message) noexcept {
    if (!metadataMatches(conditions, message.metadata)) {
        return false;
    }
    for (const DoubleFilter& filter : conditions.doubleFilters) {
        if (!numericMatches(filter, message)) {
            return false;
        }
    }
    for (const LongFilter& filter : conditions.longFilters) {
        if (!numericMatches(filter, message)) {
            return false;
        }
    }
    if (isExcluded(conditions.excludedMsgTypes, message.metadata)) {
        return false;
    }
    for (const StringFilter& filter : conditions.stringFilters) {
        if (!stringMatches(filter, message)) {
            return false;
        }
    }
    return true;
}

}  // namespace tabulo::internal
