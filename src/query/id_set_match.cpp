#include "query/id_set_match.h"

#include <algorithm>
#include <new>

#include "messagetable/range_compare.h"

namespace tabulo::internal {

namespace {

constexpr std::int32_t NOT_SET = -1;

bool mayMatch(const IdSetMatch& match, const BlockSummary& summary) {
    for (std::size_t c = 0; c < match.upper.size(); ++c) {
        if (match.upper[c].connMsgId != NOT_SET &&
            mfr_compareRange(summary, match.lower[c], match.upper[c], RANGE_CONN_MSG_ID) == 0) {
            return true;
        }
    }
    return false;
}

}  // namespace

ErrorCode idSetMatch_init(IdSetMatch* match, std::span<const std::int32_t> ids) noexcept {
    for (std::size_t c = 0; c < match->lower.size(); ++c) {
        match->lower[c].connMsgId = NOT_SET;
        match->upper[c].connMsgId = NOT_SET;
    }
    try {
        match->ids.assign(ids.begin(), ids.end());
    } catch (const std::bad_alloc&) {
        return OUT_OF_MEMORY_ERROR;
    }
    std::erase_if(match->ids, [](std::int32_t id) { return classifyConnMsgId(id) == NO_MESSAGE_CLASS; });
    std::sort(match->ids.begin(), match->ids.end());
    match->ids.erase(std::unique(match->ids.begin(), match->ids.end()), match->ids.end());
    for (const std::int32_t id : match->ids) {
        const auto c = static_cast<std::size_t>(classifyConnMsgId(id));
        if (match->lower[c].connMsgId == NOT_SET) {
            match->lower[c].connMsgId = id;
        }
        match->upper[c].connMsgId = id;
    }
    return NO_ERROR;
}

MessageVisitor query_matchIdSet(IdSetMatch* match) noexcept {
    return {match,
            [](void* owner, const BlockSummary& summary, Visit* answer) {
                *answer = mayMatch(*static_cast<IdSetMatch*>(owner), summary) ? Visit::goOn : Visit::skipBlock;
                return NO_ERROR;
            },
            [](void* owner, const MessageView& message, Visit* answer) {
                const auto& selected = *static_cast<IdSetMatch*>(owner);
                if (!std::binary_search(selected.ids.begin(), selected.ids.end(), message.metadata.connMsgId)) {
                    return NO_ERROR;
                }
                return selected.consumer.onMessage(selected.consumer.owner, message, answer);
            }};
}

}  // namespace tabulo::internal
