// The bytes of a text, and numbers, carried in another form; columns.h shows texts.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "tabulo/columns.h"
#include "tabulo/message.h"

namespace tabulo::tool {

// Appends RFC 4648 Base64, with padding.
void appendBase64(std::string_view bytes, std::string* out);

// Appends a number in the fewest digits that give it back: a double with a fraction or an exponent where it has one;
// "NaN", "Infinity", "-Infinity"; nothing for an absent one.
void appendNumber(const Number& number, std::string* out);
// True for a number that JSON has no word for.
bool isNanOrInfinite(const Number& number) noexcept;

}  // namespace tabulo::tool
