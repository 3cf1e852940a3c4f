#include "core/byte_stream.h"

#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <limits>

#include "tests/support/allocation_failure.h"
#include "tests/support/bytes.h"
#include "tests/support/captured_output.h"

namespace tabulo::internal::test {
namespace {

constexpr std::int32_t INT32_LARGEST = std::numeric_limits<std::int32_t>::max();

// A created stream that holds the given bytes.
ByteStreamPtr streamOf(const Bytes& bytes) {
    ByteStreamPtr stream(byteStream_create(static_cast<std::int32_t>(bytes.size())));
    byteStream_putBytes(stream.get(), bytes.data(), static_cast<std::int32_t>(bytes.size()));
    return stream;
}

std::string filledHex(const KSVByteStream& stream) {
    return toHex({byteStream_buffer(&stream), static_cast<std::size_t>(byteStream_writeMark(&stream))});
}

class FixedStream : public ::testing::Test {
  protected:
    void SetUp() override { byteStream_init(&stream, buffer.data(), 16); }

    std::array<std::uint8_t, 17> buffer{};
    KSVByteStream stream;
};

TEST_F(FixedStream, BeginsForwardEmptyAndWithoutError) {
    EXPECT_EQ(byteStream_buffer(&stream), buffer.data());
    EXPECT_EQ(byteStream_capacity(&stream), 16);
    EXPECT_EQ(byteStream_readMark(&stream), 0);
    EXPECT_EQ(byteStream_writeMark(&stream), 0);
    EXPECT_EQ(byteStream_error(&stream), NO_ERROR);
    EXPECT_EQ(stream.direction, BYTE_STREAM_FORWARD);
}

TEST_F(FixedStream, TakesSixteenBytesRefusesTheSeventeenthAndThenIgnoresPuts) {
    for (int i = 0; i < 16; ++i) {
        ASSERT_EQ(byteStream_put(&stream, static_cast<std::uint8_t>(i)).bytes, 1) << "byte " << i;
    }
    buffer[16] = 0xEE;
    EXPECT_EQ(byteStream_put(&stream, std::uint8_t{16}).bytes, -1);
    EXPECT_EQ(byteStream_error(&stream), STREAM_EXTENSION_ERROR);
    EXPECT_EQ(byteStream_put(&stream, std::uint8_t{17}).bytes, 0);
    EXPECT_EQ(byteStream_putBytes(&stream, "x", 1).bytes, 0);
    EXPECT_EQ(byteStream_writeMark(&stream), 16);
    EXPECT_EQ(buffer[16], 0xEE) << "a refused put wrote behind the buffer";
}

TEST_F(FixedStream, AValueThatFitsOnlyInPartIsRefusedWhole) {
    ASSERT_EQ(byteStream_putBytes(&stream, pattern(13).data(), 13).bytes, 13);
    EXPECT_EQ(byteStream_put(&stream, std::uint32_t{1}).bytes, -1);
    EXPECT_EQ(byteStream_writeMark(&stream), 13);
    EXPECT_EQ(byteStream_error(&stream), STREAM_EXTENSION_ERROR);
}

TEST_F(FixedStream, PutsDoNothingUntilTheErrorIsCleared) {
    stream.error = STREAM_READ_RESET_ERROR;
    EXPECT_EQ(byteStream_put(&stream, std::int64_t{1}).bytes, 0);
    EXPECT_EQ(byteStream_writeMark(&stream), 0);
    byteStream_clearError(&stream);
    EXPECT_EQ(byteStream_put(&stream, std::int64_t{1}).bytes, 8);
    EXPECT_EQ(byteStream_writeMark(&stream), 8);
}

TEST_F(FixedStream, AnErrorIsStickyForLaterPutsButNotForGets) {
    byteStream_put(&stream, std::uint8_t{5});
    stream.error = STREAM_EXTENSION_ERROR;
    std::uint8_t value = 0;
    EXPECT_EQ(byteStream_get(&stream, &value).bytes, 1) << "a get must not look at the sticky error";
    EXPECT_EQ(value, 5);
    EXPECT_EQ(byteStream_error(&stream), STREAM_EXTENSION_ERROR);
}

TEST_F(FixedStream, NegativeCountsAreRefused) {
    byteStream_putBytes(&stream, "abcd", 4);
    std::uint8_t destination = 0;
    EXPECT_EQ(byteStream_getBytes(&stream, &destination, -1).bytes, -1);
    EXPECT_EQ(byteStream_error(&stream), STREAM_NOT_ENOUGH_DATA_ERROR);
    byteStream_clearError(&stream);
    EXPECT_EQ(byteStream_skip(&stream, -3).bytes, -1);
    EXPECT_EQ(byteStream_error(&stream), STREAM_NOT_ENOUGH_DATA_ERROR);
    byteStream_clearError(&stream);
    EXPECT_EQ(byteStream_putBytes(&stream, "x", -1).bytes, -1);
    EXPECT_EQ(byteStream_error(&stream), WRONG_PARAMETER_ERROR);
    EXPECT_EQ(byteStream_readMark(&stream), 0);
    EXPECT_EQ(byteStream_writeMark(&stream), 4);
}

TEST_F(FixedStream, NothingCanBePutAndTaken) {
    EXPECT_EQ(byteStream_putBytes(&stream, nullptr, 0).bytes, 0);
    EXPECT_EQ(byteStream_getBytes(&stream, nullptr, 0).bytes, 0);
    EXPECT_EQ(byteStream_error(&stream), NO_ERROR);
}

TEST(ByteStream, TypedValuesStandInTheMachinesByteOrder) {
    const ByteStreamPtr stream(byteStream_create(64));
    EXPECT_EQ(byteStream_put(stream.get(), std::uint8_t{0x01}).bytes, 1);
    EXPECT_EQ(byteStream_put(stream.get(), std::uint16_t{0x0302}).bytes, 2);
    EXPECT_EQ(byteStream_put(stream.get(), std::int32_t{0x07060504}).bytes, 4);
    EXPECT_EQ(byteStream_put(stream.get(), std::int64_t{-2}).bytes, 8);
    EXPECT_EQ(byteStream_put(stream.get(), 1.0).bytes, 8);
    EXPECT_EQ(filledHex(*stream), "01 02 03 04 05 06 07 fe ff ff ff ff ff ff ff 00 00 00 00 00 00 f0 3f");
    std::uint8_t one = 0;
    std::uint16_t two = 0;
    std::int32_t four = 0;
    std::int64_t eight = 0;
    double real = 0;
    EXPECT_EQ(byteStream_get(stream.get(), &one).bytes, 1);
    EXPECT_EQ(byteStream_get(stream.get(), &two).bytes, 2);
    EXPECT_EQ(byteStream_get(stream.get(), &four).bytes, 4);
    EXPECT_EQ(byteStream_get(stream.get(), &eight).bytes, 8);
    EXPECT_EQ(byteStream_get(stream.get(), &real).bytes, 8);
    EXPECT_EQ(one, 0x01);
    EXPECT_EQ(two, 0x0302);
    EXPECT_EQ(four, 0x07060504);
    EXPECT_EQ(eight, -2);
    EXPECT_EQ(real, 1.0);
    EXPECT_EQ(byteStream_unread(stream.get()), 0);
}

TEST(ByteStream, ACreatedStreamOfTenThatReceivesTwelveBytesGrowsToSeventeen) {
    const ByteStreamPtr stream(byteStream_create(10));
    const Bytes bytes = pattern(12);
    EXPECT_EQ(byteStream_putBytes(stream.get(), bytes.data(), 12).bytes, 12);
    EXPECT_EQ(byteStream_capacity(stream.get()), 17);
    EXPECT_EQ(filledHex(*stream), toHex(bytes));
}

TEST(ByteStream, GrowthAsksForTheMissingBytesOnlyAndKeepsWhatIsThere) {
    const ByteStreamPtr stream(byteStream_create(10));
    const Bytes bytes = pattern(16);
    ASSERT_EQ(byteStream_putBytes(stream.get(), bytes.data(), 8).bytes, 8);
    std::uint16_t head = 0;
    ASSERT_EQ(byteStream_get(stream.get(), &head).bytes, 2);
    EXPECT_EQ(byteStream_putBytes(stream.get(), bytes.data() + 8, 8).bytes, 8);
    EXPECT_EQ(byteStream_capacity(stream.get()), 10 * 3 / 2 + 6);
    EXPECT_EQ(filledHex(*stream), toHex(bytes));
    EXPECT_EQ(byteStream_readMark(stream.get()), 2);
}

TEST(ByteStream, TypedPutsGrowTheStreamToo) {
    const ByteStreamPtr stream(byteStream_create(3));
    EXPECT_EQ(byteStream_put(stream.get(), std::uint32_t{0x04030201}).bytes, 4);
    EXPECT_EQ(byteStream_capacity(stream.get()), 3 * 3 / 2 + 1);
    EXPECT_EQ(filledHex(*stream), "01 02 03 04");
}

TEST(ByteStream, AStreamOfCapacityZeroGrows) {
    const ByteStreamPtr stream(byteStream_create(0));
    ASSERT_NE(stream, nullptr);
    EXPECT_EQ(byteStream_putBytes(stream.get(), "ab", 2).bytes, 2);
    EXPECT_EQ(byteStream_capacity(stream.get()), 2);
}

TEST(ByteStream, AStreamGrowsToTheLargestCapacityThereIs) {
    const ByteStreamPtr stream(byteStream_create(0));
    ASSERT_TRUE(stream->extend(stream.get(), INT32_LARGEST));
    EXPECT_EQ(byteStream_capacity(stream.get()), INT32_LARGEST);
}

TEST(ByteStream, GrowthBeyondTheLargestCapacityIsRefused) {
    const ByteStreamPtr stream(byteStream_create(10));
    const char source = 'x';  // not read: the growth is refused before
    EXPECT_EQ(byteStream_putBytes(stream.get(), &source, INT32_LARGEST).bytes, -1);
    EXPECT_EQ(byteStream_error(stream.get()), STREAM_EXTENSION_ERROR);
    EXPECT_EQ(byteStream_capacity(stream.get()), 10);
    EXPECT_EQ(byteStream_writeMark(stream.get()), 0);
}

TEST(ByteStream, GrowthOfAHugeBufferIsComputedWithoutOverflow) {
    std::uint8_t byte = 0;
    const ByteStreamPtr stream(byteStream_create(1));
    // The stream believes in a buffer of 1.5 GiB; three halves of it leave 32 bits.
    stream->capacity = 1'610'612'736;
    stream->writeMark = stream->capacity;
    EXPECT_EQ(byteStream_putBytes(stream.get(), &byte, 1).bytes, -1);
    EXPECT_EQ(byteStream_error(stream.get()), STREAM_EXTENSION_ERROR);
    EXPECT_EQ(byteStream_capacity(stream.get()), 1'610'612'736);
}

TEST(ByteStream, CreatingWithANegativeCapacityGivesNone) {
    EXPECT_EQ(byteStream_create(-1), nullptr);
}

TEST(ByteStream, CreatingWithoutMemoryGivesNone) {
    for (int n = 1; n <= 2; ++n) {
        KSVByteStream* stream = nullptr;
        {
            const AllocationFailure failure(n);
            stream = byteStream_create(100);
        }
        EXPECT_EQ(stream, nullptr) << "allocation " << n << " failed";
        byteStream_destroy(stream);
    }
}

TEST(ByteStream, GrowingWithoutMemoryIsAnExtensionErrorAndKeepsTheBytes) {
    const ByteStreamPtr stream = streamOf(pattern(4));
    StreamCount result;
    {
        const AllocationFailure failure(1);
        result = byteStream_putBytes(stream.get(), "abc", 3);
    }
    EXPECT_EQ(result.bytes, -1);
    EXPECT_EQ(byteStream_error(stream.get()), STREAM_EXTENSION_ERROR);
    EXPECT_EQ(filledHex(*stream), toHex(pattern(4)));
}

TEST(ByteStream, TheGrowingOperationItselfReportsOutOfMemory) {
    const ByteStreamPtr stream(byteStream_create(4));
    bool grown = true;
    {
        const AllocationFailure failure(1);
        grown = stream->extend(stream.get(), 3);
    }
    EXPECT_FALSE(grown);
    EXPECT_EQ(byteStream_error(stream.get()), OUT_OF_MEMORY_ERROR);
}

TEST(ByteStream, DestroyingNoneIsAllowed) {
    byteStream_destroy(nullptr);
}

TEST(ByteStream, BackwardReadsTakeTheLastValueFirst) {
    const ByteStreamPtr stream(byteStream_create(4));
    for (std::uint8_t i = 1; i <= 4; ++i) {
        byteStream_put(stream.get(), i);
    }
    ASSERT_EQ(byteStream_rewind(stream.get(), BYTE_STREAM_BACKWARD).bytes, 0);
    for (std::uint8_t i = 4; i >= 1; --i) {
        std::uint8_t value = 0;
        ASSERT_EQ(byteStream_get(stream.get(), &value).bytes, 1);
        EXPECT_EQ(value, i);
    }
    std::uint8_t value = 0;
    EXPECT_EQ(byteStream_get(stream.get(), &value).bytes, -1);
}

TEST(ByteStream, AValueReadBackwardKeepsItsStoredOrder) {
    const ByteStreamPtr stream = streamOf(fromHex("01 02 03 04"));
    byteStream_rewind(stream.get(), BYTE_STREAM_BACKWARD);
    std::array<std::uint8_t, 2> value{};
    ASSERT_EQ(byteStream_getBytes(stream.get(), value.data(), 2).bytes, 2);
    EXPECT_EQ(toHex(value), "03 04");
    ASSERT_EQ(byteStream_getBytes(stream.get(), value.data(), 2).bytes, 2);
    EXPECT_EQ(toHex(value), "01 02");
}

TEST(ByteStream, GettingFourBytesOfThreeFailsAndMovesNothing) {
    const ByteStreamPtr stream = streamOf(fromHex("01 02 03 04"));
    std::uint8_t first = 0;
    byteStream_get(stream.get(), &first);
    std::uint32_t value = 77;
    EXPECT_EQ(byteStream_get(stream.get(), &value).bytes, -1);
    EXPECT_EQ(byteStream_error(stream.get()), STREAM_NOT_ENOUGH_DATA_ERROR);
    EXPECT_EQ(byteStream_readMark(stream.get()), 1);
    EXPECT_EQ(value, 77U);
}

TEST(ByteStream, SkippingConsumesInTheReadDirection) {
    const ByteStreamPtr stream = streamOf(fromHex("01 02 03 04 05"));
    EXPECT_EQ(byteStream_skip(stream.get(), 2).bytes, 2);
    EXPECT_EQ(*byteStream_readPointer(stream.get()), 3);
    byteStream_rewind(stream.get(), BYTE_STREAM_BACKWARD);
    EXPECT_EQ(byteStream_getBytes(stream.get(), nullptr, 2).bytes, 2);
    std::uint8_t value = 0;
    byteStream_get(stream.get(), &value);
    EXPECT_EQ(value, 3);
}

TEST(ByteStream, ResettingTheReadMarkBeyondTheWriteMarkFails) {
    const ByteStreamPtr stream = streamOf(pattern(4));
    ASSERT_EQ(byteStream_resetRead(stream.get(), BYTE_STREAM_FORWARD, 4).bytes, 0)
        << "the write mark itself is allowed";
    EXPECT_EQ(byteStream_resetRead(stream.get(), BYTE_STREAM_BACKWARD, 5).bytes, -1);
    EXPECT_EQ(byteStream_error(stream.get()), STREAM_READ_RESET_ERROR);
    EXPECT_EQ(byteStream_readMark(stream.get()), 4);
    EXPECT_EQ(stream->direction, BYTE_STREAM_FORWARD) << "a refused reset must not turn the stream";
    byteStream_clearError(stream.get());
    EXPECT_EQ(byteStream_resetRead(stream.get(), BYTE_STREAM_FORWARD, -1).bytes, -1);
    EXPECT_EQ(byteStream_error(stream.get()), STREAM_READ_RESET_ERROR);
}

TEST(ByteStream, ResettingTheWriteMarkClearsTheErrorOrReportsItsOwn) {
    const ByteStreamPtr stream = streamOf(pattern(4));
    stream->error = STREAM_EXTENSION_ERROR;
    EXPECT_EQ(byteStream_resetWrite(stream.get(), 4).bytes, 0) << "the capacity itself is allowed";
    EXPECT_EQ(byteStream_error(stream.get()), NO_ERROR);
    EXPECT_EQ(byteStream_resetWrite(stream.get(), 5).bytes, -1);
    EXPECT_EQ(byteStream_error(stream.get()), STREAM_WRITE_RESET_ERROR);
    byteStream_clearError(stream.get());
    EXPECT_EQ(byteStream_resetWrite(stream.get(), -1).bytes, -1);
    EXPECT_EQ(byteStream_error(stream.get()), STREAM_WRITE_RESET_ERROR);
    EXPECT_EQ(byteStream_writeMark(stream.get()), 4);
}

TEST(ByteStream, AWriteMarkBelowTheReadMarkPullsTheReadMarkDown) {
    const ByteStreamPtr stream = streamOf(pattern(8));
    byteStream_skip(stream.get(), 6);
    EXPECT_EQ(byteStream_resetWrite(stream.get(), 3).bytes, 0);
    EXPECT_EQ(byteStream_readMark(stream.get()), 3);
    EXPECT_EQ(byteStream_unread(stream.get()), 0);
    std::uint8_t value = 0;
    EXPECT_EQ(byteStream_get(stream.get(), &value).bytes, -1) << "nothing is unread";
}

TEST(ByteStream, AWriteMarkAboveTheReadMarkLeavesIt) {
    const ByteStreamPtr stream = streamOf(pattern(8));
    byteStream_skip(stream.get(), 2);
    EXPECT_EQ(byteStream_resetWrite(stream.get(), 5).bytes, 0);
    EXPECT_EQ(byteStream_readMark(stream.get()), 2);
}

TEST(ByteStream, ResetStartsOverInTheGivenDirection) {
    const ByteStreamPtr stream = streamOf(pattern(8));
    byteStream_skip(stream.get(), 2);
    stream->error = STREAM_EXTENSION_ERROR;
    byteStream_reset(stream.get(), BYTE_STREAM_BACKWARD);
    EXPECT_EQ(byteStream_readMark(stream.get()), 0);
    EXPECT_EQ(byteStream_writeMark(stream.get()), 0);
    EXPECT_EQ(stream->direction, BYTE_STREAM_BACKWARD);
    EXPECT_EQ(byteStream_error(stream.get()), NO_ERROR);
}

TEST(ByteStream, ClearKeepsTheCapacity) {
    const ByteStreamPtr stream = streamOf(pattern(8));
    EXPECT_EQ(byteStream_clear(stream.get()).bytes, 0);
    EXPECT_EQ(byteStream_writeMark(stream.get()), 0);
    EXPECT_EQ(byteStream_capacity(stream.get()), 8);
}

TEST(ByteStream, GivingMemoryBackEmptiesTheStreamAlsoWhenItKeepsItsBuffer) {
    const ByteStreamPtr stream(byteStream_create(10));
    byteStream_putBytes(stream.get(), "abc", 3);
    byteStream_giveBack(stream.get(), 10);
    EXPECT_EQ(byteStream_writeMark(stream.get()), 0);
    EXPECT_EQ(byteStream_capacity(stream.get()), 10);
    byteStream_giveBack(stream.get(), 9);
    EXPECT_EQ(byteStream_capacity(stream.get()), 0);
}

TEST(ByteStream, ReplacingTheBufferByALargerOneKeepsTheMarks) {
    std::array<std::uint8_t, 4> small{};
    std::array<std::uint8_t, 8> large{};
    KSVByteStream stream;
    byteStream_init(&stream, small.data(), 4);
    byteStream_putBytes(&stream, "abc", 3);
    byteStream_skip(&stream, 1);
    EXPECT_EQ(byteStream_setBuffer(&stream, large.data(), 8), 0);
    EXPECT_EQ(byteStream_buffer(&stream), large.data());
    EXPECT_EQ(byteStream_capacity(&stream), 8);
    EXPECT_EQ(byteStream_writeMark(&stream), 3);
    EXPECT_EQ(byteStream_readMark(&stream), 1);
}

TEST(ByteStream, ABufferThatEndsAtTheWriteMarkIsLargeEnough) {
    std::array<std::uint8_t, 4> buffer{};
    KSVByteStream stream;
    byteStream_init(&stream, buffer.data(), 4);
    byteStream_putBytes(&stream, "abc", 3);
    EXPECT_EQ(byteStream_setBuffer(&stream, buffer.data(), 3), 0);
    EXPECT_EQ(byteStream_capacity(&stream), 3);
}

TEST(ByteStream, ABufferBelowTheMarksIsRefusedWithALineOnStandardOutput) {
    std::array<std::uint8_t, 4> buffer{};
    std::array<std::uint8_t, 2> tooSmall{};
    KSVByteStream stream;
    byteStream_init(&stream, buffer.data(), 4);
    byteStream_putBytes(&stream, "abc", 3);
    byteStream_skip(&stream, 1);
    std::string printed;
    {
        const CapturedOutput output(stdout);
        EXPECT_EQ(byteStream_setBuffer(&stream, tooSmall.data(), 2), 1);
        printed = output.text();
    }
    EXPECT_EQ(
        printed,
        "internal error: attempt to shrink KSVByteStream's buffer beyond read/write marks range. Details: (capacity "
        "= 4, new capacity = 2, read mark = 1, write mark = 3)\n");
    EXPECT_EQ(byteStream_error(&stream), WRONG_PARAMETER_ERROR);
    EXPECT_EQ(byteStream_buffer(&stream), buffer.data());
    EXPECT_EQ(byteStream_capacity(&stream), 4);
}

}  // namespace
}  // namespace tabulo::internal::test
