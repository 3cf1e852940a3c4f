// A fixed-size summary of the newest messages of a table, kept in its header and in every footer: lookups answer from
// it without reading messages.
//
//   offset  width  field (60 bytes, no padding)
//        0   5x4   connMsgIds[5], in class order: the highest id written in that class, -1 for none
//       20     4   lastUniform: uniform id of the last message, 0 for none
//       24  3x12   FIRST_PEND, LAST_PEND, LAST_GOOD: seqNum (int32), timestamp (int64)
#pragma once

#include <array>
#include <cstdint>

#include "core/byte_stream.h"
#include "core/error_codes.h"
#include "messagetable/message_class.h"
#include "messagetable/message_metadata.h"

namespace tabulo::internal {

inline constexpr std::int32_t STATIC_INDEXES_SIZE = 60;

struct SeqNumIndex {
    std::int32_t seqNum = 0;
    std::int64_t timestamp = 0;
    bool operator==(const SeqNumIndex&) const = default;
};

enum SeqNumKind : std::int32_t {
    FIRST_PEND = 0,  // the pending number of the newest pending message that has since been sent
    LAST_PEND = 1,   // the newest pending message
    LAST_GOOD = 2,   // the newest in-sequence message of any direction that was not resent
};
inline constexpr std::int32_t SEQ_NUM_KIND_COUNT = 3;

struct mthStaticIndexes {
    std::array<std::int32_t, MESSAGE_CLASS_COUNT> connMsgIds = {-1, -1, -1, -1, -1};
    std::int32_t lastUniform = 0;
    std::array<SeqNumIndex, SEQ_NUM_KIND_COUNT> seqNums{};
    bool operator==(const mthStaticIndexes&) const = default;
};

// The values of a table without messages.
void mthStaticIndexes_init(mthStaticIndexes* indexes) noexcept;
// Appends, or takes, the 60 bytes; the result is the stream's error (STREAM_EXTENSION_ERROR,
// STREAM_NOT_ENOUGH_DATA_ERROR; a read that fails leaves the indexes unchanged).
ErrorCode mthStaticIndexes_write(const mthStaticIndexes* indexes, KSVByteStream* stream) noexcept;
ErrorCode mthStaticIndexes_read(mthStaticIndexes* indexes, KSVByteStream* stream) noexcept;
// Accepts anything: every value is possible.
ErrorCode mthStaticIndexes_check(const mthStaticIndexes* indexes) noexcept;
// Takes one message into account; called for every message written or re-read.
void mthStaticIndexes_update(mthStaticIndexes* indexes, const MessageMetadata* metadata) noexcept;
// One DEBUG line under functionName, or under "mthStaticIndexes_print" when it is null. No caller of ours: it is there
// for whoever looks for a fault.
void mthStaticIndexes_print(const mthStaticIndexes* indexes, const char* functionName) noexcept;

}  // namespace tabulo::internal
