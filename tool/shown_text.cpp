// Texts as eyes may see them.
#include <fmt/format.h>

#include <array>
#include <cstdint>

#include "tool/listing.h"

namespace tabulo::tool {

namespace {

struct Character {
    std::uint32_t code = 0;
    std::size_t length = 0;  // in bytes; 0 for what is no UTF-8
};

// The character at the beginning of a text that is not empty.
Character firstCharacter(std::string_view text) noexcept {
    const auto byte = [text](std::size_t i) { return static_cast<std::uint32_t>(static_cast<unsigned char>(text[i])); };
    const std::uint32_t lead = byte(0);
    if (lead < 0x80) {
        return {lead, 1};
    }
    const std::size_t length = lead >= 0xC2 && lead < 0xE0 ? 2 : (lead & 0xF0) == 0xE0 ? 3 : lead < 0xF0 ? 0 : 4;
    if (length == 0 || lead > 0xF4 || text.size() < length) {
        return {};
    }
    std::uint32_t code = lead & (0xFFU >> (length + 1));
    for (std::size_t i = 1; i < length; ++i) {
        if ((byte(i) & 0xC0) != 0x80) {
            return {};
        }
        code = code << 6 | (byte(i) & 0x3F);
    }
    constexpr std::array<std::uint32_t, 5> SMALLEST = {0, 0, 0x80, 0x800, 0x10000};
    const bool isSurrogate = code >= 0xD800 && code <= 0xDFFF;
    return code < SMALLEST[length] || code > 0x10FFFF || isSurrogate ? Character{} : Character{code, length};
}

bool isPrintable(std::uint32_t code) noexcept {
    const bool isControl = code < 0x20 || (code >= 0x7F && code < 0xA0);
    const bool turns = (code >= 0x200B && code <= 0x200F) || (code >= 0x2028 && code <= 0x202E) ||
                       (code >= 0x2060 && code <= 0x206F) || code == 0xFEFF || code == 0x061C;
    return !isControl && !turns;
}

bool isPlain(char byte) noexcept {
    return byte >= 0x20 && byte < 0x7F;
}

}  // namespace

bool isUtf8(std::string_view text) noexcept {
    while (!text.empty()) {
        const Character character = firstCharacter(text);
        if (character.length == 0) {
            return false;
        }
        text.remove_prefix(character.length);
    }
    return true;
}

std::string shownText(std::string_view text) {
    constexpr std::string_view DIGITS = "0123456789ABCDEF";
    std::string shown;
    shown.reserve(text.size());
    while (!text.empty()) {
        std::size_t plain = 0;
        while (plain < text.size() && isPlain(text[plain])) {
            ++plain;
        }
        shown.append(text.substr(0, plain));
        text.remove_prefix(plain);
        if (text.empty()) {
            break;
        }
        const Character character = firstCharacter(text);
        const std::size_t length = character.length == 0 ? 1 : character.length;
        if (character.length != 0 && isPrintable(character.code)) {
            shown.append(text.substr(0, length));
        } else if (text.front() == '\x01') {
            shown += '|';
        } else {
            for (const char byte : text.substr(0, length)) {
                const auto value = static_cast<unsigned char>(byte);
                shown += {'\\', 'x', DIGITS[value >> 4], DIGITS[value & 15]};
            }
        }
        text.remove_prefix(length);
    }
    return shown;
}

std::size_t shownWidth(std::string_view text) noexcept {
    std::size_t width = 0;
    for (const char byte : text) {
        width += (static_cast<unsigned char>(byte) & 0xC0) == 0x80 ? 0U : 1U;
    }
    return width;
}

std::string cutText(std::string_view text, std::size_t width) {
    if (shownWidth(text) <= width) {
        return std::string(text);
    }
    std::size_t length = 0;
    for (std::size_t kept = 0; length < text.size(); ++length) {
        kept += (static_cast<unsigned char>(text[length]) & 0xC0) == 0x80 ? 0U : 1U;
        if (kept == width) {
            break;
        }
    }
    return width == 0 ? std::string() : std::string(text.substr(0, length)) + "…";
}

std::string shownBytes(std::int64_t bytes) {
    constexpr std::array<const char*, 5> UNITS = {"B", "KiB", "MiB", "GiB", "TiB"};
    auto size = static_cast<double>(bytes);
    std::size_t unit = 0;
    while (size >= 1023.95 && unit + 1 < UNITS.size()) {
        size /= 1024;
        ++unit;
    }
    return fmt::format("{:.{}f} {}", size, unit == 0 ? 0 : 1, UNITS[unit]);
}

}  // namespace tabulo::tool
