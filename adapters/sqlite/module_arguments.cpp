#include "adapters/sqlite/module_arguments.h"

#include <cctype>
#include <string_view>

namespace tabulo::sqlite {

namespace {

bool isSpace(char character) {
    return std::isspace(static_cast<unsigned char>(character)) != 0;
}

bool isNamePart(char character) {
    return character == '_' || std::isalnum(static_cast<unsigned char>(character)) != 0;
}

std::string_view trimmed(std::string_view text) {
    while (!text.empty() && isSpace(text.front())) {
        text.remove_prefix(1);
    }
    while (!text.empty() && isSpace(text.back())) {
        text.remove_suffix(1);
    }
    return text;
}

// Without quotes around it, where a doubled one stands for itself.
std::string unquoted(std::string_view text) {
    const char quote = text.empty() ? '\0' : text.front();
    if ((quote != '\'' && quote != '"') || text.size() < 2 || text.back() != quote) {
        return std::string(text);
    }
    std::string value;
    for (std::size_t i = 1; i + 1 < text.size(); ++i) {
        value += text[i];
        const bool isDoubled = text[i] == quote && text[i + 1] == quote && i + 2 < text.size();
        i += isDoubled ? 1U : 0U;
    }
    return value;
}

}  // namespace

ModuleArgument moduleArgument(const char* text) {
    const std::string_view whole = trimmed(text);
    std::size_t end = 0;
    while (end < whole.size() && isNamePart(whole[end])) {
        ++end;
    }
    const std::string_view rest = trimmed(whole.substr(end));
    if (end > 0 && rest.starts_with('=')) {
        return {std::string(whole.substr(0, end)), unquoted(trimmed(rest.substr(1)))};
    }
    return {{}, unquoted(whole)};
}

}  // namespace tabulo::sqlite
