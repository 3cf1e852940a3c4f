// Texts of lines and words with one space between them, as payloads and notes have them.
#pragma once

#include <charconv>
#include <optional>
#include <string_view>
#include <vector>

namespace tabulo::shipping {

// What stands between the separators; of "a  b" also the empty one. Nothing of an empty text.
inline std::vector<std::string_view> splitAt(char separator, std::string_view text) {
    std::vector<std::string_view> parts;
    while (!text.empty()) {
        const std::size_t end = text.find(separator);
        parts.push_back(text.substr(0, end));
        if (end == std::string_view::npos) {
            return parts;
        }
        text.remove_prefix(end + 1);
        if (text.empty() && separator != '\n') {
            parts.emplace_back();
        }
    }
    return parts;
}

// The values of lines that are a name, a space and a value each; of a line without a space an empty one.
inline std::vector<std::string_view> valuesOfLines(std::string_view text) {
    std::vector<std::string_view> values;
    for (const std::string_view line : splitAt('\n', text)) {
        const std::size_t space = line.find(' ');
        values.push_back(space == std::string_view::npos ? std::string_view() : line.substr(space + 1));
    }
    return values;
}

// A whole number, and nothing beside it, within the type.
template <typename Integer>
std::optional<Integer> integerOf(std::string_view text) {
    Integer value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    return error == std::errc{} && end == text.data() + text.size() ? std::optional(value) : std::nullopt;
}

}  // namespace tabulo::shipping
