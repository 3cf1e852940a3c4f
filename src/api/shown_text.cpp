#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>

#include "tabulo/columns.h"

namespace tabulo {

namespace {

constexpr char SOH = '\x01';

// What a text begins with: a character, or a byte that begins none.
struct Character {
    char32_t code = 0;
    std::size_t length = 0;  // in bytes; 0 for none
};

unsigned byteAt(std::string_view text, std::size_t index) {
    return static_cast<unsigned char>(text[index]);
}

// A character of two to four bytes. Overlong forms, halves of surrogate pairs and what lies beyond Unicode are none.
Character longCharacter(std::string_view text) {
    constexpr std::array<char32_t, 5> SMALLEST = {0, 0, 0x80, 0x800, 0x10000};
    const unsigned first = byteAt(text, 0);
    const std::size_t length = first >= 0xF0 ? 4 : (first >= 0xE0 ? 3 : 2);
    if (first < 0xC2 || first > 0xF4 || text.size() < length) {
        return {};
    }
    char32_t code = first & (0xFFU >> (length + 1));
    for (std::size_t i = 1; i < length; ++i) {
        const unsigned next = byteAt(text, i);
        if ((next & 0xC0U) != 0x80U) {
            return {};
        }
        code = (code << 6U) | (next & 0x3FU);
    }
    const bool isSurrogate = code >= 0xD800 && code <= 0xDFFF;
    return code < SMALLEST[length] || isSurrogate || code > 0x10FFFF ? Character{} : Character{code, length};
}

Character firstCharacter(std::string_view text) {
    const unsigned first = byteAt(text, 0);
    return first < 0x80 ? Character{first, 1} : longCharacter(text);
}

bool isWithin(char32_t code, char32_t first, char32_t last) {
    return first <= code && code <= last;
}

bool isPrintable(char32_t code) {
    const bool isControl = code < 0x20 || isWithin(code, 0x7F, 0x9F);
    const bool turnsOrHides = isWithin(code, 0x200B, 0x200F) || isWithin(code, 0x2028, 0x202E) ||
                              isWithin(code, 0x2060, 0x206F) || code == 0xFEFF || code == 0x061C;
    return !isControl && !turnsOrHides;
}

bool isPlainAscii(char character) {
    return character >= 0x20 && character < 0x7F;
}

// Bytes in front of the first one that is not plain ASCII.
std::size_t plainLength(std::string_view text) {
    std::size_t length = 0;
    while (length < text.size() && isPlainAscii(text[length])) {
        ++length;
    }
    return length;
}

void appendEscaped(std::string_view bytes, std::string* out) {
    constexpr std::string_view DIGITS = "0123456789ABCDEF";
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        out->append("\\x");
        out->push_back(DIGITS[byteAt(bytes, i) >> 4U]);
        out->push_back(DIGITS[byteAt(bytes, i) & 15U]);
    }
}

}  // namespace

bool isUtf8(std::string_view text) noexcept {
    constexpr std::uint64_t HIGH_BITS = 0x8080808080808080U;
    while (!text.empty()) {
        std::uint64_t eight = HIGH_BITS;
        if (text.size() >= sizeof(eight)) {
            std::memcpy(&eight, text.data(), sizeof(eight));
        }
        const bool isAscii = (eight & HIGH_BITS) == 0;
        const std::size_t length = isAscii ? sizeof(eight) : firstCharacter(text).length;
        if (length == 0) {
            return false;
        }
        text.remove_prefix(length);
    }
    return true;
}

std::size_t appendShown(std::string_view text, std::string* out, std::size_t columns) {
    std::size_t used = 0;
    while (!text.empty() && used < columns) {
        const std::size_t plain = std::min(plainLength(text), columns - used);
        out->append(text.substr(0, plain));
        text.remove_prefix(plain);
        used += plain;
        if (text.empty() || used >= columns) {
            break;
        }
        const Character character = firstCharacter(text);
        const std::string_view bytes = text.substr(0, character.length == 0 ? 1 : character.length);
        const bool isShown = bytes[0] == SOH || (character.length > 0 && isPrintable(character.code));
        const std::size_t needed = isShown ? 1 : 4 * bytes.size();
        if (needed > columns - used) {
            break;
        }
        if (bytes[0] == SOH) {
            out->push_back('|');
        } else if (isShown) {
            out->append(bytes);
        } else {
            appendEscaped(bytes, out);
        }
        text.remove_prefix(bytes.size());
        used += needed;
    }
    return used;
}

}  // namespace tabulo
