// What a block footer says about its messages, and how it is kept while the block is open.
//
// A block:
//   8       block length: uint64, 0 while the block is open, else the whole block including this word and the footer
//   var     frames (frame.h)
//   footer  only behind the last frame of a full block:
//             36 + 9 x numericFieldCount   minimum record: seqNum int32, uniformId int32, timestamp int64,
//                                          connMsgIds[5] int32 in class order, numeric values in the fixed form
//             36 + 9 x numericFieldCount   maximum record, the same fields
//             1256 x summarised fields     Bloom filters of the leading string fields' values (bloom_filter.h)
//             60                           static indexes after the block's last message
//             8                            block length, equal to the leading one
//
// A minimum that is its maximum plus one marks "no value": the first value sets both. A numeric slot takes the type of
// its first value; from the first value of the other type or the first NaN on it is a double from -infinity to
// +infinity, which excludes nothing. An empty text (its NUL alone) goes into the filter as the empty key, an absent one
// not at all.
//
// blockSummary_add is the only code that adds a message, whoever asks: writing, recovery, or a reader's scan.
#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "core/bloom_filter.h"
#include "core/byte_stream.h"
#include "core/error_codes.h"
#include "messagetable/message.h"
#include "messagetable/recent_keys.h"
#include "messagetable/static_indexes.h"
#include "storage/table_config.h"

namespace tabulo::internal {

inline constexpr std::int32_t BLOCK_LENGTH_SIZE = 8;

// The smallest, or the largest, of each value of a block's messages.
struct RangeRecord {
    std::int32_t seqNum = 0;
    std::int32_t uniformId = 0;
    std::int64_t timestamp = 0;
    std::array<std::int32_t, MESSAGE_CLASS_COUNT> connMsgIds{};
    std::array<NumericValue, MAX_NUMERIC_FIELDS> numericValues{};
};

// Bytes of a stored record.
inline std::int32_t rangeRecord_size(const MessageTableLayout& layout) noexcept {
    return 36 + FIXED_NUMERIC_SIZE * layout.numericFieldCount;
}
// Appends a record; errors stay in the stream.
void rangeRecord_write(const RangeRecord& record, const MessageTableLayout& layout, KSVByteStream* stream) noexcept;
// HEADER_CORRUPTED_ERROR when it is not all there; CONSISTENCY_ERROR for an unknown numeric type.
ErrorCode rangeRecord_read(RangeRecord* record, const MessageTableLayout& layout, KSVByteStream* stream) noexcept;

struct BlockSummary {
    std::int32_t messageCount = 0;
    std::uint64_t frameBytes = 0;
    RangeRecord minimum;
    RangeRecord maximum;
    std::vector<BloomFilter> filters;    // one per summarised string field; none where they are not known
    std::vector<RecentKeys> recentKeys;  // of each filter
    // After a footer was read: where its filters stand, in the stream that it was read into. They are asked in place,
    // until something else is read into that stream; `filters` know nothing of them. Null at other times.
    const std::uint8_t* storedFilters = nullptr;
    mthStaticIndexes staticIndexes;
};

// Makes the filters of a layout and empties the summary, static indexes included. OUT_OF_MEMORY_ERROR.
ErrorCode blockSummary_init(BlockSummary* summary, const MessageTableLayout& layout) noexcept;
// Empties the summary and its filters; the static indexes only without keepStaticIndexes.
void blockSummary_reset(BlockSummary* summary, bool keepStaticIndexes) noexcept;
// Copies without allocating; both were made for the same layout.
void blockSummary_copy(BlockSummary* target, const BlockSummary& source) noexcept;
// Adds one message whose frame takes frameLength bytes.
void blockSummary_add(BlockSummary* summary, const MessageTableLayout& layout, const MessageView& message,
                      std::int32_t frameLength) noexcept;

// False when no message of the block has this text in the summarised string field `field`. That is certain, true is
// not.
bool blockSummary_mayContain(const BlockSummary& summary, std::int32_t field, std::string_view text) noexcept;

// The length of this block when it is closed: length word, frames and footer.
inline std::uint64_t blockSummary_closedLength(const BlockSummary& summary, std::int32_t footerSize) noexcept {
    return BLOCK_LENGTH_SIZE + summary.frameBytes + static_cast<std::uint64_t>(footerSize);
}

// Appends the footer without its last field, the block length, of a summary to which messages were added (one that was
// read has its filters elsewhere). The result is the stream's error.
ErrorCode blockSummary_writeFooter(const BlockSummary* summary, const MessageTableLayout& layout,
                                   KSVByteStream* stream) noexcept;
// Takes a whole footer, which must be all that is unread, with its block length; the filters are not copied
// (storedFilters). messageCount and frameBytes become those of a full block. HEADER_CORRUPTED_ERROR when it does not
// parse to exactly its size, its filters have another size than this library writes, or its length word differs from
// blockLength; CONSISTENCY_ERROR for an unknown numeric type. On failure the static indexes are unchanged, the rest is
// undefined until the next reset.
ErrorCode blockSummary_readFooter(BlockSummary* summary, const MessageTableLayout& layout, KSVByteStream* stream,
                                  std::uint64_t blockLength) noexcept;

}  // namespace tabulo::internal
