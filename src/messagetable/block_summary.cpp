#include "messagetable/block_summary.h"

#include <algorithm>
#include <limits>
#include <new>

namespace tabulo::internal {

namespace {

constexpr std::int32_t NO_ID_MAXIMUM = -1;

// The record of a block without messages: the minimum is the maximum plus one.
RangeRecord emptyRecord(std::int32_t above) {
    RangeRecord record;
    record.seqNum = above;
    record.uniformId = above;
    record.timestamp = above;
    record.connMsgIds.fill(NO_ID_MAXIMUM + above);
    return record;
}

template <typename T>
void widen(T* minimum, T* maximum, T value) {
    if (*minimum > *maximum) {
        *minimum = value;
        *maximum = value;
    } else {
        *minimum = std::min(*minimum, value);
        *maximum = std::max(*maximum, value);
    }
}

void widenNumeric(NumericValue* minimum, NumericValue* maximum, const NumericValue& value) {
    if (value.type == NumericType::absent) {
        return;
    }
    const bool first = minimum->type == NumericType::absent;
    if (numericValue_isNaN(value) || (!first && minimum->type != value.type)) {
        // Longs and doubles in one block, or a NaN: no range can speak for all of them.
        *minimum = numericValue_ofDouble(-std::numeric_limits<double>::infinity());
        *maximum = numericValue_ofDouble(std::numeric_limits<double>::infinity());
    } else if (first) {
        *minimum = value;
        *maximum = value;
    } else if (value.type == NumericType::doubleValue) {
        minimum->doubleValue = std::min(minimum->doubleValue, value.doubleValue);
        maximum->doubleValue = std::max(maximum->doubleValue, value.doubleValue);
    } else {
        minimum->longValue = std::min(minimum->longValue, value.longValue);
        maximum->longValue = std::max(maximum->longValue, value.longValue);
    }
}

}  // namespace

void rangeRecord_write(const RangeRecord& record, const MessageTableLayout& layout, KSVByteStream* stream) noexcept {
    byteStream_put(stream, record.seqNum);
    byteStream_put(stream, record.uniformId);
    byteStream_put(stream, record.timestamp);
    for (const std::int32_t id : record.connMsgIds) {
        byteStream_put(stream, id);
    }
    for (std::int32_t i = 0; i < layout.numericFieldCount; ++i) {
        numericValue_writeFixed(record.numericValues[static_cast<std::size_t>(i)], stream);
    }
}

ErrorCode rangeRecord_read(RangeRecord* record, const MessageTableLayout& layout, KSVByteStream* stream) noexcept {
    byteStream_get(stream, &record->seqNum);
    byteStream_get(stream, &record->uniformId);
    byteStream_get(stream, &record->timestamp);
    for (std::int32_t& id : record->connMsgIds) {
        byteStream_get(stream, &id);
    }
    for (std::int32_t i = 0; i < layout.numericFieldCount; ++i) {
        const ErrorCode code = numericValue_readFixed(&record->numericValues[static_cast<std::size_t>(i)], stream);
        if (code != NO_ERROR) {
            return code == CONSISTENCY_ERROR ? code : HEADER_CORRUPTED_ERROR;
        }
    }
    return byteStream_error(stream) == NO_ERROR ? NO_ERROR : HEADER_CORRUPTED_ERROR;
}

ErrorCode blockSummary_init(BlockSummary* summary, const MessageTableLayout& layout) noexcept {
    try {
        summary->filters.clear();
        summary->recentKeys.assign(static_cast<std::size_t>(layout.summarisedStringFieldCount), RecentKeys());
        for (std::int32_t i = 0; i < layout.summarisedStringFieldCount; ++i) {
            const BloomFilterPtr filter(bloomFilter_create());
            if (filter == nullptr) {
                return OUT_OF_MEMORY_ERROR;
            }
            summary->filters.push_back(std::move(*filter));
        }
    } catch (const std::bad_alloc&) {
        return OUT_OF_MEMORY_ERROR;
    }
    blockSummary_reset(summary, false);
    return NO_ERROR;
}

void blockSummary_reset(BlockSummary* summary, bool keepStaticIndexes) noexcept {
    summary->messageCount = 0;
    summary->frameBytes = 0;
    summary->storedFilters = nullptr;
    summary->minimum = emptyRecord(1);
    summary->maximum = emptyRecord(0);
    for (BloomFilter& filter : summary->filters) {
        bloomFilter_clear(&filter);
    }
    for (RecentKeys& keys : summary->recentKeys) {
        keys.clear();
    }
    if (!keepStaticIndexes) {
        mthStaticIndexes_init(&summary->staticIndexes);
    }
}

void blockSummary_copy(BlockSummary* target, const BlockSummary& source) noexcept {
    target->messageCount = source.messageCount;
    target->frameBytes = source.frameBytes;
    target->minimum = source.minimum;
    target->maximum = source.maximum;
    target->staticIndexes = source.staticIndexes;
    for (std::size_t i = 0; i < source.filters.size(); ++i) {
        bloomFilter_setBits(&target->filters[i], source.filters[i].words.data());
        target->recentKeys[i] = source.recentKeys[i];
    }
}

void blockSummary_add(BlockSummary* summary, const MessageTableLayout& layout, const MessageView& message,
                      std::int32_t frameLength) noexcept {
    const MessageMetadata& metadata = message.metadata;
    RangeRecord& minimum = summary->minimum;
    RangeRecord& maximum = summary->maximum;
    widen(&minimum.seqNum, &maximum.seqNum, metadata.seqNum);
    widen(&minimum.uniformId, &maximum.uniformId, metadata.uniformId);
    widen(&minimum.timestamp, &maximum.timestamp, metadata.timestamp);
    const MessageClass messageClass = classifyConnMsgId(metadata.connMsgId);
    if (messageClass != NO_MESSAGE_CLASS) {
        const auto c = static_cast<std::size_t>(messageClass);
        widen(&minimum.connMsgIds[c], &maximum.connMsgIds[c], metadata.connMsgId);
    }
    summary->messageCount += 1;
    summary->frameBytes += static_cast<std::uint64_t>(frameLength);
    const std::int32_t filtered = std::min(layout.summarisedStringFieldCount, layout.stringFieldCount);
    for (std::int32_t i = 0; i < filtered; ++i) {
        const auto slot = static_cast<std::size_t>(i);
        const std::string_view key = stringField_bytes(message.texts[slot]);
        if (!key.empty() && !summary->recentKeys[slot].seen(key)) {
            bloomFilter_add(&summary->filters[slot], key);
        }
    }
    for (std::int32_t i = 0; i < layout.numericFieldCount; ++i) {
        const auto slot = static_cast<std::size_t>(i);
        widenNumeric(&minimum.numericValues[slot], &maximum.numericValues[slot], message.numbers[slot]);
    }
    mthStaticIndexes_update(&summary->staticIndexes, &metadata);
}

bool blockSummary_mayContain(const BlockSummary& summary, std::int32_t field, std::string_view text) noexcept {
    if (summary.storedFilters != nullptr) {
        return bloomFilter_storedMayContain(summary.storedFilters + std::ptrdiff_t{field} * BLOOM_FILTER_STORED_SIZE,
                                            text);
    }
    if (summary.filters.empty()) {
        return true;
    }
    return bloomFilter_mayContain(&summary.filters[static_cast<std::size_t>(field)], text) != 0;
}

ErrorCode blockSummary_writeFooter(const BlockSummary* summary, const MessageTableLayout& layout,
                                   KSVByteStream* stream) noexcept {
    rangeRecord_write(summary->minimum, layout, stream);
    rangeRecord_write(summary->maximum, layout, stream);
    for (const BloomFilter& filter : summary->filters) {
        (void)bloomFilter_write(&filter, stream);  // the stream keeps its first error
    }
    return mthStaticIndexes_write(&summary->staticIndexes, stream);
}

ErrorCode blockSummary_readFooter(BlockSummary* summary, const MessageTableLayout& layout, KSVByteStream* stream,
                                  std::uint64_t blockLength) noexcept {
    const std::int32_t footerSize = byteStream_unread(stream);
    ErrorCode code = rangeRecord_read(&summary->minimum, layout, stream);
    if (code == NO_ERROR) {
        code = rangeRecord_read(&summary->maximum, layout, stream);
    }
    if (code != NO_ERROR) {
        return code;
    }
    const std::uint8_t* storedFilters = byteStream_readPointer(stream);
    for (std::size_t i = 0; i < summary->filters.size(); ++i) {
        std::uint32_t bitCount = 0;
        byteStream_get(stream, &bitCount);
        if (bitCount != BLOOM_FILTER_BITS ||
            byteStream_skip(stream, BLOOM_FILTER_STORED_SIZE - static_cast<std::int32_t>(sizeof(bitCount))).failed()) {
            return HEADER_CORRUPTED_ERROR;
        }
    }
    mthStaticIndexes indexes;
    std::uint64_t trailingLength = 0;
    if (mthStaticIndexes_read(&indexes, stream) != NO_ERROR || byteStream_get(stream, &trailingLength).failed() ||
        byteStream_unread(stream) != 0 || trailingLength != blockLength) {
        return HEADER_CORRUPTED_ERROR;
    }
    summary->storedFilters = storedFilters;
    summary->staticIndexes = indexes;
    summary->messageCount = layout.messagesPerBlock;
    summary->frameBytes = blockLength - static_cast<std::uint64_t>(footerSize) - BLOCK_LENGTH_SIZE;
    return NO_ERROR;
}

}  // namespace tabulo::internal
