#include "query/message_read.h"

#include <memory>
#include <new>
#include <vector>

#include "index/side_index.h"
#include "messagetable/message_lookup.h"
#include "messagetable/message_table.h"
#include "messagetable/table_walk.h"
#include "query/id_set_match.h"
#include "query/indexed_keys.h"
#include "query/listed_read.h"

namespace tabulo::internal {

namespace {

// Remembers whether the listener asked to stop: it then gets no end-of-data call.
struct StoppableListener {
    const MessageListener* listener;
    bool stopped = false;
    std::uint32_t known = 0;  // so many of the next messages it has got already
};

ErrorCode callListener(void* owner, const MessageView& message, Visit* answer) {
    auto* stoppable = static_cast<StoppableListener*>(owner);
    if (stoppable->known > 0) {
        stoppable->known -= 1;
        return NO_ERROR;
    }
    const ErrorCode code = stoppable->listener->onMessage(stoppable->listener->owner, message, answer);
    stoppable->stopped = code != NO_ERROR || *answer == Visit::stop;
    return code;
}

// The messages of the covered blocks that have one of the ids; none, and false, without an index that tells.
bool listMessages(MessageTable* table, const IdSetMatch& match, std::shared_ptr<SideIndex>* index,
                  std::vector<std::uint32_t>* messages) {
    constexpr std::size_t MOST_LISTED = 100'000;
    TableFile* file = tableStorage_master(mt_storage(table));
    try {
        *index = file == nullptr ? nullptr : sideIndex_of(table, file);
        if (*index == nullptr) {
            return false;
        }
        const IndexedKeys keys = indexedKeys_ofIds(match.ids);
        return (*index)->collect(keys.part, keys.ranges, MOST_LISTED, messages);
    } catch (const std::bad_alloc&) {
        return false;
    }
}

// By the index as far as it covers the table, then by a walk over the rest.
ErrorCode readForward(MessageTable* table, BlockReader* reader, const IdSetMatch& match, const MessageVisitor& visitor,
                      StoppableListener* listener) {
    std::shared_ptr<SideIndex> index;
    std::vector<std::uint32_t> messages;
    ListedRead listed;
    listed.nextBlock = mt_storage(table)->headerSize;
    if (listMessages(table, match, &index, &messages)) {
        const ErrorCode code = listedRead_forward(reader, index.get(), messages, visitor, &listed);
        if (code != NO_ERROR || listed.isOver) {
            return code;
        }
        listener->known = listed.shownThere;
    }
    return mfr_readForward(reader, listed.nextBlock, visitor);
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
    const BlockReaderPtr reader(mfr_createReader(mt_storage(table), mt_layout(table)));
    if (reader == nullptr) {
        return OUT_OF_MEMORY_ERROR;
    }
    const MessageVisitor visitor = query_matchIdSet(&match);
    code = backward ? mfr_readBackward(reader.get(), mt_openBlockStart(table), visitor)
                    : readForward(table, reader.get(), match, visitor, &stoppable);
    if (stoppable.stopped || mt_isDestroyed(table)) {
        return code;
    }
    return listener->onEnd(listener->owner, code);
}

}  // namespace tabulo::internal
