#include "adapters/nats/subject_token.h"

namespace tabulo::shipping {

namespace {

constexpr std::string_view DIGITS = "0123456789ABCDEF";
constexpr std::string_view EMPTY = "%";

bool isPlain(char character) {
    return (character >= '0' && character <= '9') || (character >= 'A' && character <= 'Z') ||
           (character >= 'a' && character <= 'z') || character == '-' || character == '_';
}

}  // namespace

std::string escaped(std::string_view text) {
    if (text.empty()) {
        return std::string(EMPTY);
    }
    std::string part;
    for (const char character : text) {
        if (isPlain(character)) {
            part += character;
        } else {
            const auto byte = static_cast<unsigned char>(character);
            part += '%';
            part += DIGITS[byte / 16];
            part += DIGITS[byte % 16];
        }
    }
    return part;
}

std::optional<std::string> unescaped(std::string_view part) {
    if (part == EMPTY) {
        return "";
    }
    std::string text;
    for (std::size_t i = 0; i < part.size(); ++i) {
        if (isPlain(part[i])) {
            text += part[i];
            continue;
        }
        if (part[i] != '%' || part.size() - i < 3) {
            return std::nullopt;
        }
        const std::size_t high = DIGITS.find(part[i + 1]);
        const std::size_t low = DIGITS.find(part[i + 2]);
        if (high == std::string_view::npos || low == std::string_view::npos) {
            return std::nullopt;
        }
        const auto character = static_cast<char>(high * 16 + low);
        if (isPlain(character)) {
            return std::nullopt;  // one text has one form
        }
        text += character;
        i += 2;
    }
    return text.empty() ? std::nullopt : std::optional(text);
}

}  // namespace tabulo::shipping
