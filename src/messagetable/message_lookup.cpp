#include "messagetable/message_lookup.h"

#include "core/log.h"
#include "messagetable/message_table.h"

namespace tabulo::internal {

namespace {

ErrorCode lookup(MessageTable* table, const void* result) {
    return result == nullptr ? NULL_POINTER_ERROR : mt_refresh(table);
}

SeqNumIndex indexSince(const MessageTable* table, SeqNumKind kind, std::int64_t sinceTimestamp) {
    const SeqNumIndex& index = mt_staticIndexes(table).seqNums[static_cast<std::size_t>(kind)];
    return index.timestamp >= sinceTimestamp ? index : SeqNumIndex{};
}

}  // namespace

ErrorCode mt_getLastMessageId(MessageTable* table, std::int32_t classBaseId, std::int32_t* id) noexcept {
    const ErrorCode code = lookup(table, id);
    if (code != NO_ERROR) {
        return code;
    }
    const MessageClass messageClass = classifyConnMsgId(classBaseId);
    if (messageClass == NO_MESSAGE_CLASS) {
        log_warning("mt_getLastMessageId", "Connection message id offset (%d) out of bounds\n", classBaseId);
        return INDEX_OUT_OF_BOUNDS_ERROR;
    }
    const std::int32_t highest = mt_staticIndexes(table).connMsgIds[static_cast<std::size_t>(messageClass)];
    *id = highest < 0 ? classBaseId : highest;
    return NO_ERROR;
}

ErrorCode mt_getLastGoodMsgSeqNum(MessageTable* table, std::int64_t sinceTimestamp, std::int32_t* seqNum,
                                  std::int64_t* timestamp) noexcept {
    const ErrorCode code = lookup(table, seqNum);
    if (code != NO_ERROR) {
        return code;
    }
    const SeqNumIndex found = indexSince(table, LAST_GOOD, sinceTimestamp);
    *seqNum = found.seqNum;
    if (timestamp != nullptr) {
        *timestamp = found.timestamp;
    }
    return NO_ERROR;
}

ErrorCode mt_getFirstPendingMsgSeqNum(MessageTable* table, std::int64_t sinceTimestamp, std::int32_t* seqNum) noexcept {
    const ErrorCode code = lookup(table, seqNum);
    if (code == NO_ERROR) {
        // The arithmetic wraps: a stored number of -2^31 is the caller's own.
        const auto found = static_cast<std::uint32_t>(indexSince(table, FIRST_PEND, sinceTimestamp).seqNum);
        *seqNum = static_cast<std::int32_t>(found - 1);
    }
    return code;
}

ErrorCode mt_getLastPendingMsgSeqNum(MessageTable* table, std::int64_t sinceTimestamp, std::int32_t* seqNum) noexcept {
    const ErrorCode code = lookup(table, seqNum);
    if (code == NO_ERROR) {
        *seqNum = indexSince(table, LAST_PEND, sinceTimestamp).seqNum;
    }
    return code;
}

ErrorCode mt_getLastUniformMessageId(MessageTable* table, std::int32_t* uniformId) noexcept {
    const ErrorCode code = lookup(table, uniformId);
    if (code == NO_ERROR) {
        *uniformId = mt_staticIndexes(table).lastUniform;
    }
    return code;
}

}  // namespace tabulo::internal
