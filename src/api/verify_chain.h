// What the messages of a table come to, added up from block to block while it is verified.
#pragma once

#include <cstdint>
#include <optional>

#include "messagetable/static_indexes.h"

namespace tabulo::api {

// The table as it was up to some place: what a header that was saved there must say.
struct VerifiedPlace {
    std::int64_t blockStart = 0;
    std::int64_t messages = 0;
    bool messagesKnown = false;  // no message in front of it was lost
    internal::mthStaticIndexes indexes;
    bool indexesKnown = false;
};

struct VerifyChain {
    std::int64_t messages = 0;  // whole ones
    bool messagesKnown = true;  // none was lost on the way
    internal::mthStaticIndexes indexes;
    bool indexesKnown = true;  // no lost message can have changed them
    std::optional<std::int32_t> lastUniformId;
    std::int64_t blockStart = 0;  // of the block at hand
    // Asked for: the place at which the header's data ends, and whether a block begins where it says.
    std::int64_t wantedEnd = 0;
    std::int64_t wantedBlock = 0;
    std::optional<VerifiedPlace> atWantedEnd;
    bool sawWantedBlock = false;
    // Places in stretches whose blocks could not be told from each other may have been passed unseen.
    std::int64_t unseenBegin = 0;  // 0: there is no such stretch
    std::int64_t unseenEnd = 0;

    void passBlockStart(std::int64_t offset) {
        blockStart = offset;
        sawWantedBlock = sawWantedBlock || offset == wantedBlock;
        passEnd(offset);
    }
    // A message, or a block, ends here and may have been the last one.
    void passEnd(std::int64_t offset) {
        if (offset == wantedEnd) {
            atWantedEnd = {blockStart, messages, messagesKnown, indexes, indexesKnown};
        }
    }
};

}  // namespace tabulo::api
