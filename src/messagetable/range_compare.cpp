#include "messagetable/range_compare.h"

#include "core/log.h"

namespace tabulo::internal {

namespace {

std::int32_t compareConnMsgIds(const char* function, const BlockSummary& block, std::int32_t lower,
                               std::int32_t upper) {
    const MessageClass lowerClass = classifyConnMsgId(lower);
    const MessageClass upperClass = classifyConnMsgId(upper);
    if (lowerClass != upperClass) {
        // The class texts stand in this order on purpose: the upper one first.
        log_note(function,
                 "error: lowerConnMsgId=%d and upperConnMsgId=%d belong to different classes ('%s' and '%s'). Cannot "
                 "perform comparison, assuming no messages match against such request.\n",
                 lower, upper, connMsgClassName(upperClass), connMsgClassName(lowerClass));
        return NO_OVERLAP;
    }
    if (lowerClass == NO_MESSAGE_CLASS) {
        return NO_OVERLAP;
    }
    const auto c = static_cast<std::size_t>(lowerClass);
    const std::int32_t minimum = block.minimum.connMsgIds[c];
    const std::int32_t maximum = block.maximum.connMsgIds[c];
    return minimum > maximum ? NO_OVERLAP : range_compare(lower, upper, minimum, maximum);
}

std::int32_t compareField(const char* function, const BlockSummary& block, const MessageMetadata& lower,
                          const MessageMetadata& upper, std::int32_t field) {
    switch (field) {
        case RANGE_SEQ_NUM:
            return range_compare(lower.seqNum, upper.seqNum, block.minimum.seqNum, block.maximum.seqNum);
        case RANGE_UNIFORM_ID:
            return range_compare(lower.uniformId, upper.uniformId, block.minimum.uniformId, block.maximum.uniformId);
        case RANGE_TIMESTAMP:
            return range_compare(lower.timestamp, upper.timestamp, block.minimum.timestamp, block.maximum.timestamp);
        case RANGE_CONN_MSG_ID:
            return compareConnMsgIds(function, block, lower.connMsgId, upper.connMsgId);
        default:
            log_note(function, "internal error: unknown field index %d.\n", field);
            return 0;
    }
}

}  // namespace

std::int32_t mfr_compareRange(const BlockSummary& block, const MessageMetadata& lower, const MessageMetadata& upper,
                              std::int32_t field) noexcept {
    return compareField("mfr_compareRange", block, lower, upper, field);
}

std::int32_t mfr_compareNum(const BlockSummary& block, const MessageMetadata& bound, std::int32_t field) noexcept {
    return compareField("mfr_compareNum", block, bound, bound, field);
}

}  // namespace tabulo::internal
