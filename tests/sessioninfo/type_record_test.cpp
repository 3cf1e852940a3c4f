#include "sessioninfo/type_record.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>

#include "core/byte_stream.h"
#include "tests/support/allocation_failure.h"
#include "tests/support/bytes.h"

namespace tabulo::internal::test {
namespace {

const char* const twoTags =
    "11 00 00 00"
    "53 65 73 73 69 6f 6e 49 6e 66 6f 54 61 62 6c 65 00"
    "02 00 00 00"
    "2a 00 00 00"
    "fe ff ff ff";

ByteStreamPtr streamOf(const Bytes& bytes) {
    ByteStreamPtr stream(byteStream_create(64));
    byteStream_putBytes(stream.get(), bytes.data(), static_cast<std::int32_t>(bytes.size()));
    return stream;
}

ErrorCode readCodeOf(const Bytes& bytes) {
    SessionInfoTags stored;
    stored.count = 31;
    const ErrorCode code = siX_readTypeRecord(&stored, streamOf(bytes).get());
    if (code != NO_ERROR) {
        EXPECT_EQ(stored.count, 31) << "a refused record must not be handed out";
    }
    return code;
}

TEST(TypeRecord, IsLengthNameCountAndTags) {
    const ByteStreamPtr stream(byteStream_create(8));
    const std::array<std::int32_t, 3> tags = {42, -2, 9};
    EXPECT_EQ(siX_writeTypeRecord(2, tags.data(), stream.get()), NO_ERROR);
    const std::uint8_t* begin = byteStream_buffer(stream.get());
    EXPECT_EQ(toHex(Bytes(begin, begin + byteStream_writeMark(stream.get()))), toHex(fromHex(twoTags)));
}

TEST(TypeRecord, ReadsBackAndLeavesTheStreamBehindIt) {
    Bytes bytes = fromHex(twoTags);
    bytes.resize(60, 0xee);
    const ByteStreamPtr stream = streamOf(bytes);
    SessionInfoTags stored;
    EXPECT_EQ(siX_readTypeRecord(&stored, stream.get()), NO_ERROR);
    EXPECT_EQ(stored.count, 2);
    EXPECT_EQ(stored.tags[0], 42);
    EXPECT_EQ(stored.tags[1], -2);
    EXPECT_TRUE(std::all_of(stored.tags.begin() + 2, stored.tags.end(), [](std::int32_t tag) { return tag == 0; }))
        << "slots behind the count are 0";
    EXPECT_EQ(byteStream_readMark(stream.get()), 33);
}

TEST(TypeRecord, CutAnywhereHasNotEnoughData) {
    const Bytes whole = fromHex(twoTags);
    for (std::size_t length = 0; length < whole.size(); ++length) {
        EXPECT_EQ(readCodeOf(Bytes(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(length))),
                  STREAM_NOT_ENOUGH_DATA_ERROR)
            << "cut to " << length;
    }
    EXPECT_EQ(readCodeOf(whole), NO_ERROR);
}

TEST(TypeRecord, OfAMessageTableIsATableTypeError) {
    EXPECT_EQ(readCodeOf(fromHex("0d 00 00 00 4d 65 73 73 61 67 65 54 61 62 6c 65 00")), TABLE_TYPE_ERROR);
}

TEST(TypeRecord, CountsFromOneToThirtyTwoTags) {
    for (const int count : {0, 1, 32, 33, 255}) {
        Bytes bytes = fromHex(twoTags);
        bytes.resize(21 + 4 + 4 * 255, 1);
        bytes[21] = static_cast<std::uint8_t>(count);
        EXPECT_EQ(readCodeOf(bytes), count >= 1 && count <= 32 ? NO_ERROR : HEADER_CORRUPTED_ERROR) << count;
    }
}

TEST(TypeRecord, ThatFindsNoRoomIsAStreamExtensionError) {
    const ByteStreamPtr stream(byteStream_create(8));
    const std::int32_t tag = 1;
    ErrorCode code = NO_ERROR;
    {
        const AllocationFailure failure(1);
        code = siX_writeTypeRecord(1, &tag, stream.get());
    }
    EXPECT_EQ(code, STREAM_EXTENSION_ERROR);
}

}  // namespace
}  // namespace tabulo::internal::test
