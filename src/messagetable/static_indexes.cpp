#include "messagetable/static_indexes.h"

#include <algorithm>

#include "core/log.h"

namespace tabulo::internal {

void mthStaticIndexes_init(mthStaticIndexes* indexes) noexcept {
    *indexes = mthStaticIndexes{};
}

ErrorCode mthStaticIndexes_write(const mthStaticIndexes* indexes, KSVByteStream* stream) noexcept {
    for (const std::int32_t id : indexes->connMsgIds) {
        byteStream_put(stream, id);
    }
    byteStream_put(stream, indexes->lastUniform);
    for (const SeqNumIndex& index : indexes->seqNums) {
        byteStream_put(stream, index.seqNum);
        byteStream_put(stream, index.timestamp);
    }
    return byteStream_error(stream);
}

ErrorCode mthStaticIndexes_read(mthStaticIndexes* indexes, KSVByteStream* stream) noexcept {
    mthStaticIndexes stored;
    for (std::int32_t& id : stored.connMsgIds) {
        byteStream_get(stream, &id);
    }
    byteStream_get(stream, &stored.lastUniform);
    for (SeqNumIndex& index : stored.seqNums) {
        byteStream_get(stream, &index.seqNum);
        byteStream_get(stream, &index.timestamp);
    }
    if (byteStream_error(stream) == NO_ERROR) {
        *indexes = stored;
    }
    return byteStream_error(stream);
}

ErrorCode mthStaticIndexes_check(const mthStaticIndexes*) noexcept {
    return NO_ERROR;
}

// The three tests at the end are independent and deliberately not alike: PossDup matters only for FIRST_PEND,
// out-of-sequence not for it, and resent messages are kept out of LAST_GOOD only.
void mthStaticIndexes_update(mthStaticIndexes* indexes, const MessageMetadata* metadata) noexcept {
    const MessageClass messageClass = classifyConnMsgId(metadata->connMsgId);
    if (messageClass != NO_MESSAGE_CLASS) {
        std::int32_t& highest = indexes->connMsgIds[static_cast<std::size_t>(messageClass)];
        highest = std::max(highest, metadata->connMsgId);
    }
    indexes->lastUniform = metadata->uniformId;
    const std::int32_t seqNum = metadata->seqNum;
    if (seqNum > 0 && metadata->prevSeqNum != 0 && messageClass == APP_TO && metadata->isPossDupFlag == 0) {
        indexes->seqNums[FIRST_PEND] = {metadata->prevSeqNum, metadata->timestamp};
    }
    if (seqNum < 0 && metadata->isOutOfSequence == 0 && messageClass == APP_TO) {
        indexes->seqNums[LAST_PEND] = {seqNum, metadata->timestamp};
    }
    if (seqNum > 0 && metadata->isOutOfSequence == 0 && messageClass != RESENT) {
        indexes->seqNums[LAST_GOOD] = {seqNum, metadata->timestamp};
    }
}

void mthStaticIndexes_print(const mthStaticIndexes* indexes, const char* functionName) noexcept {
    // The line shows the literal text "%I64i", and the nine numbers are taken in the order given here: readers of the
    // log know it this way.
    log_debug(functionName == nullptr ? "mthStaticIndexes_print" : functionName,
              "index: { connMsgIds [APP_FROM=%d, APP_TO=%d, ADMIN_FROM=%d, ADMIN_TO=%d, RESENT=%d], lastUniform=%d, "
              "seqNum[FIRST_PEND=(%d | %%I64i), LAST_PEND=(%d | %%I64i), LAST_GOOD=(%d | %%I64i)] }\n",
              indexes->connMsgIds[APP_FROM], indexes->connMsgIds[APP_TO], indexes->connMsgIds[ADMIN_FROM],
              indexes->connMsgIds[ADMIN_TO], indexes->connMsgIds[RESENT], indexes->lastUniform,
              indexes->seqNums[FIRST_PEND].seqNum, static_cast<std::int32_t>(indexes->seqNums[FIRST_PEND].timestamp),
              indexes->seqNums[LAST_PEND].seqNum);
}

}  // namespace tabulo::internal
