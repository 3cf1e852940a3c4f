#include "messagetable/message_read.h"

#include "messagetable/id_set_match.h"
#include "messagetable/message_lookup.h"
#include "messagetable/message_table.h"
#include "messagetable/table_walk.h"

namespace tabulo::internal {

namespace {

// Remembers whether the listener asked to stop: it then gets no end-of-data call.
struct StoppableListener {
    const MessageListener* listener;
    bool stopped = false;
};

ErrorCode callListener(std::int32_t* answer, void* context, const BlockSummary* summary,
                       const MessageMetadata* metadata, const StringField* stringFields, std::int32_t stringFieldCount,
                       const NumericValue* numericFields, std::int32_t numericFieldCount) {
    auto* stoppable = static_cast<StoppableListener*>(context);
    const ErrorCode code =
        stoppable->listener->onMessage(answer, stoppable->listener->context, summary, metadata, stringFields,
                                       stringFieldCount, numericFields, numericFieldCount);
    stoppable->stopped = *answer == MATCH_YES;
    return code;
}

}  // namespace

ErrorCode mt_readMessages(MessageTable* table, const std::int32_t* connMsgIds, std::int32_t count,
                          const MessageListener* listener, bool backward) noexcept {
    if (table == nullptr || table->storage == nullptr || listener == nullptr || listener->onMessage == nullptr ||
        (connMsgIds == nullptr && count > 0)) {
        return NULL_POINTER_ERROR;
    }
    if (count < 0) {
        return WRONG_PARAMETER_ERROR;
    }
    const MessageTableUse use(table);
    StoppableListener stoppable{listener};
    IdSetMatch match;
    match.consumer = callListener;
    match.consumerContext = &stoppable;
    ErrorCode code = idSetMatch_init(&match, {connMsgIds, static_cast<std::size_t>(count)});
    if (code != NO_ERROR) {
        return code;
    }
    code = mt_refresh(table);
    // A frame of the open block that does not decode: the walk delivers what stands before it, then tells.
    if (code != NO_ERROR && code != CONSISTENCY_ERROR) {
        return code;
    }
    const MessageFramesPtr reader(mfr_create(table->storage.get(), &table->header.layout));
    if (reader == nullptr) {
        return OUT_OF_MEMORY_ERROR;
    }
    mfr_resetAll(reader.get());
    code = backward ? mfr_readBackward(reader.get(), mt_openBlockStart(table), query_matchIdSet, &match)
                    : mfr_readForward(reader.get(), table->storage->headerSize, query_matchIdSet, &match);
    if (code != NO_ERROR || stoppable.stopped || table->destroyRequested) {
        return code;
    }
    std::int32_t answer = MATCH_NO;
    return callListener(&answer, &stoppable, nullptr, nullptr, nullptr, 0, nullptr, 0);
}

}  // namespace tabulo::internal
