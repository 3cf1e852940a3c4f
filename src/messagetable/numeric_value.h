// One numeric field of a message: absent, a double or a long.
//
//   in a frame    type byte; 8 value bytes only when the type is not 0
//   in a footer   type byte and always 8 value bytes (zero bytes for an absent value)
//
// Type bytes: 0 absent, 1 double (IEEE 754), 2 long (int64). Any other byte read is CONSISTENCY_ERROR.
#pragma once

#include <cstdint>
#include <cstring>

#include "core/byte_stream.h"
#include "core/error_codes.h"

namespace tabulo::internal {

enum class NumericType : std::uint8_t { absent = 0, doubleValue = 1, longValue = 2 };

inline constexpr std::int32_t NUMERIC_VALUE_BYTES = 8;
inline constexpr std::int32_t FIXED_NUMERIC_SIZE = 1 + NUMERIC_VALUE_BYTES;

struct NumericValue {
    NumericType type = NumericType::absent;
    union {
        std::int64_t longValue = 0;
        double doubleValue;
    };
};
static_assert(sizeof(NumericValue) == 16);

NumericValue numericValue_ofDouble(double value) noexcept;
NumericValue numericValue_ofLong(std::int64_t value) noexcept;
// True for a type byte that a file may hold.
constexpr bool numericValue_isType(std::uint8_t type) noexcept {
    return type <= static_cast<std::uint8_t>(NumericType::longValue);
}
bool numericValue_isNaN(const NumericValue& value) noexcept;

// The library's only conversions between the two types. Double to long truncates towards zero and saturates at the ends
// of int64; NaN gives 0. Long to double rounds to nearest. Called here only: others convert by numericValue_as.
std::int64_t numericValue_longOf(double value) noexcept;
double numericValue_doubleOf(std::int64_t value) noexcept;

// The value as a double or a long, by the conversions above; an absent value is NaN, or 0.
template <typename Number>
Number numericValue_as(const NumericValue& value) noexcept;
template <>
double numericValue_as<double>(const NumericValue& value) noexcept;
template <>
std::int64_t numericValue_as<std::int64_t>(const NumericValue& value) noexcept;

// Bytes that the value takes in a frame.
std::int32_t numericValue_frameSize(const NumericValue& value) noexcept;
// Puts the frame form at `at`, where numericValue_frameSize bytes have room; the result is the place behind it.
inline std::uint8_t* numericValue_putFrame(const NumericValue& value, std::uint8_t* at) noexcept {
    *at++ = static_cast<std::uint8_t>(value.type);
    if (value.type == NumericType::absent) {
        return at;
    }
    std::memcpy(at, &value.longValue, sizeof(value.longValue));
    return at + sizeof(value.longValue);
}
// Appends the footer form; errors stay in the stream.
void numericValue_writeFixed(const NumericValue& value, KSVByteStream* stream) noexcept;
// Reads the footer form. STREAM_NOT_ENOUGH_DATA_ERROR; CONSISTENCY_ERROR for an unknown type byte.
ErrorCode numericValue_readFixed(NumericValue* value, KSVByteStream* stream) noexcept;

}  // namespace tabulo::internal
