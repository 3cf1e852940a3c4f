#include "tool/text_bytes.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>

namespace tabulo::tool {

namespace {

unsigned byteAt(std::string_view text, std::size_t index) {
    return static_cast<unsigned char>(text[index]);
}

}  // namespace

void appendBase64(std::string_view bytes, std::string* out) {
    constexpr std::string_view DIGITS = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    for (std::size_t i = 0; i < bytes.size(); i += 3) {
        const std::size_t count = std::min<std::size_t>(3, bytes.size() - i);
        const unsigned second = count > 1 ? byteAt(bytes, i + 1) : 0;
        const unsigned third = count > 2 ? byteAt(bytes, i + 2) : 0;
        const unsigned group = byteAt(bytes, i) << 16U | second << 8U | third;
        out->push_back(DIGITS[group >> 18U]);
        out->push_back(DIGITS[(group >> 12U) & 63U]);
        out->push_back(count > 1 ? DIGITS[(group >> 6U) & 63U] : '=');
        out->push_back(count > 2 ? DIGITS[group & 63U] : '=');
    }
}

void appendNumber(const Number& number, std::string* out) {
    std::array<char, 32> digits{};
    std::to_chars_result end{digits.data(), std::errc()};
    if (const auto* integer = std::get_if<std::int64_t>(&number)) {
        end = std::to_chars(digits.data(), digits.data() + digits.size(), *integer);
    } else if (isNanOrInfinite(number)) {
        const double value = std::get<double>(number);
        out->append(std::isnan(value) ? "NaN" : (value > 0 ? "Infinity" : "-Infinity"));
    } else if (const auto* value = std::get_if<double>(&number)) {
        end = std::to_chars(digits.data(), digits.data() + digits.size(), *value);
    }
    out->append(digits.data(), end.ptr);
}

bool isNanOrInfinite(const Number& number) noexcept {
    const auto* value = std::get_if<double>(&number);
    return value != nullptr && !std::isfinite(*value);
}

}  // namespace tabulo::tool
