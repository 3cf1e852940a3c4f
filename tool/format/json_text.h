// Strings of JSON, for messages by the million: RapidJSON looks at each byte on its own, which is most of the time that
// a message takes to be printed.
#pragma once

#include <rapidjson/stringbuffer.h>

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

namespace tabulo::tool {

// What stands in a JSON string for one of the first 128 bytes: itself, or an escape.
struct JsonCharacter {
    std::array<char, 6> text{};
    std::uint8_t length = 1;
};

inline constexpr std::array<JsonCharacter, 128> JSON_CHARACTERS = [] {
    constexpr std::string_view DIGITS = "0123456789ABCDEF";
    constexpr std::string_view SHORT = "\bb\ff\nn\rr\tt\"\"\\\\";
    std::array<JsonCharacter, 128> all{};
    for (std::size_t code = 0; code < all.size(); ++code) {
        all[code] = code < 0x20 ? JsonCharacter{{'\\', 'u', '0', '0', DIGITS[code >> 4U], DIGITS[code & 15U]}, 6}
                                : JsonCharacter{{static_cast<char>(code)}, 1};
    }
    for (std::size_t i = 0; i < SHORT.size(); i += 2) {
        all[static_cast<std::size_t>(SHORT[i])] = {{'\\', SHORT[i + 1]}, 2};
    }
    return all;
}();

// How many bytes at the front of eight, as they stand in memory, stand for themselves in a JSON string. Every sum stays
// within its byte, whose high bit then tells: at least a space, no quote, no backslash; or no ASCII.
inline std::size_t plainBytes(std::uint64_t eight) noexcept {
    constexpr std::uint64_t ONES = 0x0101010101010101U;
    constexpr std::uint64_t LOW_BITS = 0x7F * ONES;
    const std::uint64_t low = eight & LOW_BITS;
    const std::uint64_t isNoControl = low + 0x60 * ONES;
    const std::uint64_t isNoQuote = (low ^ ('"' * ONES)) + LOW_BITS;
    const std::uint64_t isNoBackslash = (low ^ ('\\' * ONES)) + LOW_BITS;
    const std::uint64_t special = ~((isNoControl & isNoQuote & isNoBackslash) | eight | LOW_BITS);
    const int bits = std::endian::native == std::endian::little ? std::countr_zero(special) : std::countl_zero(special);
    return static_cast<std::size_t>(bits) / 8;
}

// Appends UTF-8 as a JSON string without its quotes.
inline void appendJsonText(std::string_view text, rapidjson::StringBuffer* out) {
    constexpr std::size_t LONGEST = sizeof(JsonCharacter::text);
    const std::size_t room = LONGEST * text.size() + sizeof(std::uint64_t);
    char* const begin = out->Push(room);
    char* to = begin;
    const char* from = text.data();
    const char* const end = from + text.size();
    const auto put = [&](char character) {
        const auto code = static_cast<unsigned char>(character);
        if (code >= JSON_CHARACTERS.size()) {
            *to++ = character;
            return;
        }
        const JsonCharacter& known = JSON_CHARACTERS[code];
        std::memcpy(to, known.text.data(), LONGEST);
        to += known.length;
    };
    while (static_cast<std::size_t>(end - from) >= sizeof(std::uint64_t)) {
        std::uint64_t eight = 0;
        std::memcpy(&eight, from, sizeof(eight));
        std::memcpy(to, from, sizeof(eight));
        const std::size_t plain = plainBytes(eight);
        to += plain;
        from += plain;
        if (plain < sizeof(eight)) {
            put(*from++);
        }
    }
    while (from < end) {
        put(*from++);
    }
    out->Pop(room - static_cast<std::size_t>(to - begin));
}

// Appends UTF-8 as a JSON string.
inline void appendJsonString(std::string_view text, rapidjson::StringBuffer* out) {
    out->Put('"');
    appendJsonText(text, out);
    out->Put('"');
}

}  // namespace tabulo::tool
