// The bytes of a text as they can be shown, or carried in another form.
#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <string>
#include <string_view>

#include "tabulo/message.h"

namespace tabulo::tool {

// True for a text that is wholly UTF-8, and so may stand in JSON.
bool isUtf8(std::string_view text) noexcept;

// Appends a text as eyes may see it: SOH as "|", every other byte that is not printable as \xHH: control characters,
// those that would turn or hide what stands around them, and what is no UTF-8. Ends in front of what would go beyond so
// many columns (characters); returns how many there are.
std::size_t appendShown(std::string_view text, std::string* out,
                        std::size_t columns = std::numeric_limits<std::size_t>::max());

// Appends RFC 4648 Base64, with padding.
void appendBase64(std::string_view bytes, std::string* out);

// Appends a number in the fewest digits that give it back: a double with a fraction or an exponent where it has one;
// "NaN", "Infinity", "-Infinity"; nothing for an absent one.
void appendNumber(const Number& number, std::string* out);
// True for a number that JSON has no word for.
bool isNanOrInfinite(const Number& number) noexcept;

}  // namespace tabulo::tool
