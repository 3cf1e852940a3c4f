#include "adapters/quickfix/session_name.h"

#include <string_view>
#include <vector>

namespace tabulo::quickfix {

namespace {

constexpr std::string_view DIGITS = "0123456789ABCDEF";

bool isPlain(char letter) {
    return (letter >= '0' && letter <= '9') || (letter >= 'A' && letter <= 'Z') || (letter >= 'a' && letter <= 'z') ||
           letter == '_';
}

std::string escaped(std::string_view text, bool isFirst) {
    std::string name;
    for (const char letter : text) {
        if (isPlain(letter) || (isFirst && letter == '.' && !name.empty())) {
            name += letter;
        } else {
            const auto byte = static_cast<unsigned char>(letter);
            name += {'%', DIGITS[byte >> 4U], DIGITS[byte & 15U]};
        }
    }
    return name;
}

// What escaped has made a part of, or something else that escaping again tells.
std::string unescaped(std::string_view part) {
    std::string text;
    for (std::size_t i = 0; i < part.size(); ++i) {
        const std::size_t high = i + 2 < part.size() ? DIGITS.find(part[i + 1]) : std::string_view::npos;
        const std::size_t low = i + 2 < part.size() ? DIGITS.find(part[i + 2]) : std::string_view::npos;
        if (part[i] == '%' && high != std::string_view::npos && low != std::string_view::npos) {
            text += static_cast<char>(high * 16 + low);
            i += 2;
        } else {
            text += part[i];
        }
    }
    return text;
}

}  // namespace

std::string tableNameOf(const SessionName& session) {
    std::string name = escaped(session.beginString, true) + '-' + escaped(session.senderCompId, false) + '-' +
                       escaped(session.targetCompId, false);
    if (!session.qualifier.empty()) {
        name += '-' + escaped(session.qualifier, false);
    }
    return name;
}

std::string sessionTableNameOf(const SessionName& session) {
    return tableNameOf(session) + ".session";
}

bool sessionOfTable(const std::string& name, SessionName* session) {
    std::vector<std::string> parts(1);
    for (const char letter : name) {
        if (letter == '-') {
            parts.emplace_back();
        } else {
            parts.back() += letter;
        }
    }
    if (parts.size() != 3 && parts.size() != 4) {
        return false;
    }
    SessionName found{unescaped(parts[0]), unescaped(parts[1]), unescaped(parts[2]),
                      parts.size() == 4 ? unescaped(parts[3]) : std::string()};
    if (tableNameOf(found) != name) {
        return false;
    }
    *session = std::move(found);
    return true;
}

}  // namespace tabulo::quickfix
