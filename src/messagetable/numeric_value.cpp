#include "messagetable/numeric_value.h"

#include <cmath>
#include <limits>

namespace tabulo::internal {

NumericValue numericValue_ofDouble(double value) noexcept {
    NumericValue made;
    made.type = NumericType::doubleValue;
    made.doubleValue = value;
    return made;
}

NumericValue numericValue_ofLong(std::int64_t value) noexcept {
    NumericValue made;
    made.type = NumericType::longValue;
    made.longValue = value;
    return made;
}

bool numericValue_isNaN(const NumericValue& value) noexcept {
    return value.type == NumericType::doubleValue && std::isnan(value.doubleValue);
}

std::int64_t numericValue_longOf(double value) noexcept {
    constexpr double firstTooLarge = 9223372036854775808.0;  // 2^63; every double below it fits
    if (std::isnan(value)) {
        return 0;
    }
    if (value >= firstTooLarge) {
        return std::numeric_limits<std::int64_t>::max();
    }
    if (value < -firstTooLarge) {
        return std::numeric_limits<std::int64_t>::min();
    }
    return static_cast<std::int64_t>(value);
}

double numericValue_doubleOf(std::int64_t value) noexcept {
    return static_cast<double>(value);
}

template <>
double numericValue_as<double>(const NumericValue& value) noexcept {
    switch (value.type) {
        case NumericType::doubleValue:
            return value.doubleValue;
        case NumericType::longValue:
            return numericValue_doubleOf(value.longValue);
        default:
            return std::numeric_limits<double>::quiet_NaN();
    }
}

template <>
std::int64_t numericValue_as<std::int64_t>(const NumericValue& value) noexcept {
    switch (value.type) {
        case NumericType::doubleValue:
            return numericValue_longOf(value.doubleValue);
        case NumericType::longValue:
            return value.longValue;
        default:
            return 0;
    }
}

std::int32_t numericValue_frameSize(const NumericValue& value) noexcept {
    return value.type == NumericType::absent ? 1 : FIXED_NUMERIC_SIZE;
}

void numericValue_writeFixed(const NumericValue& value, KSVByteStream* stream) noexcept {
    byteStream_put(stream, static_cast<std::uint8_t>(value.type));
    byteStream_put(stream, value.type == NumericType::absent ? std::int64_t{0} : value.longValue);
}

ErrorCode numericValue_readFixed(NumericValue* value, KSVByteStream* stream) noexcept {
    std::uint8_t type = 0;
    std::int64_t bits = 0;
    if (byteStream_get(stream, &type).failed() || byteStream_get(stream, &bits).failed()) {
        return byteStream_error(stream);
    }
    if (!numericValue_isType(type)) {
        return CONSISTENCY_ERROR;
    }
    value->type = static_cast<NumericType>(type);
    value->longValue = bits;
    return NO_ERROR;
}

}  // namespace tabulo::internal
