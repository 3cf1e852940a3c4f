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

ErrorCode callListener(void* owner, const MessageView& message, Visit* answer) {
    auto* stoppable = static_cast<StoppableListener*>(owner);
    const ErrorCode code = stoppable->listener->onMessage(stoppable->listener->owner, message, answer);
    stoppable->stopped = code != NO_ERROR || *answer == Visit::stop;
    return code;
}

}  // namespace

ErrorCode mt_readMessages(MessageTable* table, const std::int32_t* connMsgIds, std::int32_t count,
                          const MessageListener* listener, bool backward) noexcept {
    if (table == nullptr || mt_storage(table) == nullptr || listener == nullptr || listener->onMessage == nullptr ||
        listener->onEnd == nullptr || (connMsgIds == nullptr && count > 0)) {
        return NULL_POINTER_ERROR;
    }
    if (count < 0) {
        return WRONG_PARAMETER_ERROR;
    }
    const MessageTableUse use(table);
    StoppableListener stoppable{listener};
    IdSetMatch match;
    match.consumer = {&stoppable, nullptr, callListener};
    ErrorCode code = idSetMatch_init(&match, {connMsgIds, static_cast<std::size_t>(count)});
    if (code != NO_ERROR) {
        return code;
    }
    code = mt_refresh(table);
    // Damage: a walk forward delivers what stands before it, then tells; one backward can begin where the view ends.
    if (code != NO_ERROR && code != CONSISTENCY_ERROR && (code != HEADER_CORRUPTED_ERROR || backward)) {
        return code;
    }
    const TableStorage* storage = mt_storage(table);
    const BlockReaderPtr reader(mfr_createReader(mt_storage(table), mt_layout(table)));
    if (reader == nullptr) {
        return OUT_OF_MEMORY_ERROR;
    }
    const MessageVisitor visitor = query_matchIdSet(&match);
    code = backward ? mfr_readBackward(reader.get(), mt_openBlockStart(table), visitor)
                    : mfr_readForward(reader.get(), storage->headerSize, visitor);
    if (stoppable.stopped || mt_isDestroyed(table)) {
        return code;
    }
    return listener->onEnd(listener->owner, code);
}

}  // namespace tabulo::internal
