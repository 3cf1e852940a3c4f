#include "messagetable/numeric_value.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "core/byte_stream.h"
#include "tests/support/bytes.h"

namespace tabulo::internal::test {
namespace {

constexpr std::int64_t LONG_MAX_VALUE = std::numeric_limits<std::int64_t>::max();
constexpr std::int64_t LONG_MIN_VALUE = std::numeric_limits<std::int64_t>::min();
constexpr double INFINITE = std::numeric_limits<double>::infinity();

using Writer = void (*)(const NumericValue&, KSVByteStream*) noexcept;

std::string stored(const NumericValue& value, Writer write) {
    const ByteStreamPtr stream(byteStream_create(0));
    write(value, stream.get());
    EXPECT_EQ(byteStream_error(stream.get()), NO_ERROR);
    return toHex(
        std::span(byteStream_buffer(stream.get()), static_cast<std::size_t>(byteStream_writeMark(stream.get()))));
}

void writeFrame(const NumericValue& value, KSVByteStream* stream) noexcept {
    std::uint8_t bytes[9];
    const std::uint8_t* end = numericValue_putFrame(value, bytes);
    byteStream_putBytes(stream, bytes, static_cast<std::int32_t>(end - bytes));
}

ErrorCode readFixed(Bytes bytes, NumericValue* value) {
    KSVByteStream stream;
    byteStream_init(&stream, bytes.data(), static_cast<std::int32_t>(bytes.size()));
    byteStream_resetWrite(&stream, static_cast<std::int32_t>(bytes.size()));
    const ErrorCode code = numericValue_readFixed(value, &stream);
    EXPECT_TRUE(code != NO_ERROR || byteStream_readMark(&stream) == 9);
    return code;
}

TEST(NumericValue, AnAbsentOneTakesOneByteInAFrameAndNineInAFooter) {
    const NumericValue absent{};
    EXPECT_EQ(stored(absent, writeFrame), "00");
    EXPECT_EQ(stored(absent, numericValue_writeFixed), "00 00 00 00 00 00 00 00 00");
    EXPECT_EQ(numericValue_frameSize(absent), 1);
}

TEST(NumericValue, AnAbsentOneIsStoredAsZeroesWhateverItsValueBytesAre) {
    NumericValue absent = numericValue_ofLong(-1);
    absent.type = NumericType::absent;
    EXPECT_EQ(stored(absent, writeFrame), "00");
    EXPECT_EQ(stored(absent, numericValue_writeFixed), "00 00 00 00 00 00 00 00 00");
}

TEST(NumericValue, ADoubleIsTypeOneAndItsBitsInBothForms) {
    const NumericValue value = numericValue_ofDouble(-1.5);
    EXPECT_EQ(stored(value, writeFrame), "01 00 00 00 00 00 00 f8 bf");
    EXPECT_EQ(stored(value, numericValue_writeFixed), "01 00 00 00 00 00 00 f8 bf");
    EXPECT_EQ(numericValue_frameSize(value), 9);
}

TEST(NumericValue, ALongIsTypeTwoAndItsBytesInBothForms) {
    const NumericValue value = numericValue_ofLong(0x0102030405060708);
    EXPECT_EQ(stored(value, writeFrame), "02 08 07 06 05 04 03 02 01");
    EXPECT_EQ(stored(value, numericValue_writeFixed), "02 08 07 06 05 04 03 02 01");
    EXPECT_EQ(stored(numericValue_ofLong(-2), numericValue_writeFixed), "02 fe ff ff ff ff ff ff ff");
}

TEST(NumericValue, AStreamThatCannotGrowHoldsAnExtensionError) {
    Bytes room(8);
    KSVByteStream stream;
    byteStream_init(&stream, room.data(), 8);
    numericValue_writeFixed(numericValue_ofLong(1), &stream);
    EXPECT_EQ(byteStream_error(&stream), STREAM_EXTENSION_ERROR);
}

TEST(NumericValue, TheFooterFormIsReadBack) {
    NumericValue value = numericValue_ofLong(5);
    EXPECT_EQ(readFixed(fromHex("00 00 00 00 00 00 00 00 00"), &value), NO_ERROR);
    EXPECT_EQ(value.type, NumericType::absent);
    EXPECT_EQ(readFixed(fromHex("01 00 00 00 00 00 00 f8 bf"), &value), NO_ERROR);
    EXPECT_EQ(value.type, NumericType::doubleValue);
    EXPECT_EQ(value.doubleValue, -1.5);
    EXPECT_EQ(readFixed(fromHex("02 fe ff ff ff ff ff ff ff"), &value), NO_ERROR);
    EXPECT_EQ(value.type, NumericType::longValue);
    EXPECT_EQ(value.longValue, -2);
}

TEST(NumericValue, AnyOtherTypeByteIsInconsistent) {
    for (int type = 3; type < 256; ++type) {
        Bytes bytes(9);
        bytes[0] = static_cast<std::uint8_t>(type);
        NumericValue value;
        EXPECT_EQ(readFixed(bytes, &value), CONSISTENCY_ERROR) << "type " << type;
        EXPECT_FALSE(numericValue_isType(static_cast<std::uint8_t>(type)));
    }
    EXPECT_TRUE(numericValue_isType(0));
    EXPECT_TRUE(numericValue_isType(1));
    EXPECT_TRUE(numericValue_isType(2));
}

TEST(NumericValue, ACutFooterFormIsNotEnoughData) {
    for (std::size_t length = 0; length < 9; ++length) {
        NumericValue value;
        EXPECT_EQ(readFixed(Bytes(length), &value), STREAM_NOT_ENOUGH_DATA_ERROR) << length << " bytes";
    }
}

TEST(NumericValue, OnlyADoubleCanBeNaN) {
    EXPECT_TRUE(numericValue_isNaN(numericValue_ofDouble(std::nan(""))));
    EXPECT_FALSE(numericValue_isNaN(numericValue_ofDouble(INFINITE)));
    NumericValue value = numericValue_ofDouble(std::nan(""));
    value.type = NumericType::longValue;
    EXPECT_FALSE(numericValue_isNaN(value));
    value.type = NumericType::absent;
    EXPECT_FALSE(numericValue_isNaN(value));
}

TEST(NumericValue, ADoubleBecomesALongByTruncationTowardsZero) {
    EXPECT_EQ(numericValue_longOf(2.9), 2);
    EXPECT_EQ(numericValue_longOf(-2.9), -2);
    EXPECT_EQ(numericValue_longOf(0.9), 0);
    EXPECT_EQ(numericValue_longOf(-0.9), 0);
    EXPECT_EQ(numericValue_longOf(-0.0), 0);
}

TEST(NumericValue, ADoubleBeyondTheLongsSaturates) {
    EXPECT_EQ(numericValue_longOf(9223372036854775808.0), LONG_MAX_VALUE);
    EXPECT_EQ(numericValue_longOf(1e300), LONG_MAX_VALUE);
    EXPECT_EQ(numericValue_longOf(INFINITE), LONG_MAX_VALUE);
    EXPECT_EQ(numericValue_longOf(-9223372036854775808.0), LONG_MIN_VALUE);
    EXPECT_EQ(numericValue_longOf(-1e300), LONG_MIN_VALUE);
    EXPECT_EQ(numericValue_longOf(-INFINITE), LONG_MIN_VALUE);
    EXPECT_EQ(numericValue_longOf(9223372036854774784.0), 9223372036854774784) << "the largest double below 2^63";
}

TEST(NumericValue, NaNBecomesTheLongZero) {
    EXPECT_EQ(numericValue_longOf(std::nan("")), 0);
    EXPECT_EQ(numericValue_longOf(-std::nan("")), 0);
}

TEST(NumericValue, ALongBecomesTheNearestDouble) {
    EXPECT_EQ(numericValue_doubleOf(-7), -7.0);
    EXPECT_EQ(numericValue_doubleOf(9007199254740993), 9007199254740992.0);
    EXPECT_EQ(numericValue_doubleOf(LONG_MAX_VALUE), 9223372036854775808.0);
    EXPECT_EQ(numericValue_doubleOf(LONG_MIN_VALUE), -9223372036854775808.0);
}

}  // namespace
}  // namespace tabulo::internal::test
