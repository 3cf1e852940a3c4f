// The lookups that answer from the static indexes. Every one begins with mt_refresh and returns its errors.
#pragma once

#include <cstdint>

#include "core/error_codes.h"

namespace tabulo::internal {

struct MessageTable;

// The highest connection message id written in the class of classBaseId, or classBaseId itself when there is none.
// INDEX_OUT_OF_BOUNDS_ERROR, with a WARNING, for a negative classBaseId.
ErrorCode mt_getLastMessageId(MessageTable* table, std::int32_t classBaseId, std::int32_t* id) noexcept;
// The newest in-sequence, non-resent sequence number and its time stamp (may be null), or 0 and 0 when there is none or
// its time stamp is below sinceTimestamp.
ErrorCode mt_getLastGoodMsgSeqNum(MessageTable* table, std::int64_t sinceTimestamp, std::int32_t* seqNum,
                                  std::int64_t* timestamp) noexcept;
// The pending number of the newest pending message that has since been sent, decreased by 1 in every case: -1 when
// there is none. The decrement is deliberate.
ErrorCode mt_getFirstPendingMsgSeqNum(MessageTable* table, std::int64_t sinceTimestamp, std::int32_t* seqNum) noexcept;
// The sequence number of the newest pending message; 0 when there is none.
ErrorCode mt_getLastPendingMsgSeqNum(MessageTable* table, std::int64_t sinceTimestamp, std::int32_t* seqNum) noexcept;
// The uniform id of the last message; 0 when there is none.
ErrorCode mt_getLastUniformMessageId(MessageTable* table, std::int32_t* uniformId) noexcept;

}  // namespace tabulo::internal
