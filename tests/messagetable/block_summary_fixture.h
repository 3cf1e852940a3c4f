// A block summary of a test: messages go in, and its footer comes out and in.
#pragma once

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <string>
#include <string_view>

#include "messagetable/block_summary.h"
#include "tests/support/bytes.h"

namespace tabulo::internal::test {

// A summary of a layout, and the fields of the message that is added next.
struct Summary {
    explicit Summary(const MessageTableLayout& wanted = {3, 4, 2, 0}) : layout(wanted) {
        EXPECT_EQ(blockSummary_init(&summary, layout), NO_ERROR);
    }
    void add(const MessageMetadata& metadata, std::int32_t frameLength = 55) {
        const MessageView message{metadata,
                                  {strings.data(), static_cast<std::size_t>(layout.stringFieldCount)},
                                  {numbers.data(), static_cast<std::size_t>(layout.numericFieldCount)}};
        blockSummary_add(&summary, layout, message, frameLength);
    }
    // A message that has only this number in its only numeric field.
    void addNumber(const NumericValue& value) {
        numbers[0] = value;
        add({});
    }
    // A message that has only this text in its first field.
    void addText(std::string_view text) {
        strings[0] = {text.data(), static_cast<std::int32_t>(text.size())};
        add({});
    }
    bool mayContain(std::size_t filter, std::string_view key) const {
        return blockSummary_mayContain(summary, static_cast<std::int32_t>(filter), key);
    }
    // The footer with its last field.
    Bytes footer(std::uint64_t blockLength) const {
        const ByteStreamPtr stream(byteStream_create(0));
        EXPECT_EQ(blockSummary_writeFooter(&summary, layout, stream.get()), NO_ERROR);
        byteStream_put(stream.get(), blockLength);
        const std::uint8_t* begin = byteStream_buffer(stream.get());
        return Bytes(begin, begin + byteStream_writeMark(stream.get()));
    }
    ErrorCode read(Bytes footerBytes, std::uint64_t blockLength) {
        KSVByteStream stream;
        byteStream_init(&stream, footerBytes.data(), static_cast<std::int32_t>(footerBytes.size()));
        byteStream_resetWrite(&stream, static_cast<std::int32_t>(footerBytes.size()));
        return blockSummary_readFooter(&summary, layout, &stream, blockLength);
    }
    // The only numeric slot's range, or none.
    std::string range() const {
        const NumericValue& low = summary.minimum.numericValues[0];
        const NumericValue& high = summary.maximum.numericValues[0];
        if (low.type != high.type) {
            return "types differ";
        }
        switch (low.type) {
            case NumericType::absent:
                return "none";
            case NumericType::longValue:
                return "long " + std::to_string(low.longValue) + " to " + std::to_string(high.longValue);
            case NumericType::doubleValue:
                return "double " + std::to_string(low.doubleValue) + " to " + std::to_string(high.doubleValue);
        }
        return "?";
    }

    MessageTableLayout layout;
    BlockSummary summary;
    std::array<StringField, MAX_STRING_FIELDS> strings{};
    std::array<NumericValue, MAX_NUMERIC_FIELDS> numbers{};
};

// The layout of one numeric field.
inline constexpr MessageTableLayout ONE_NUMBER{3, 4, 2, 1};

inline MessageMetadata metadataOf(std::int32_t seqNum, std::int32_t uniformId, std::int64_t timestamp,
                                  std::int32_t connMsgId) {
    MessageMetadata metadata;
    metadata.seqNum = seqNum;
    metadata.uniformId = uniformId;
    metadata.timestamp = timestamp;
    metadata.connMsgId = connMsgId;
    return metadata;
}

}  // namespace tabulo::internal::test
