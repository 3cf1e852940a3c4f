#include "adapters/nats/layout_text.h"

#include <span>
#include <vector>

#include "adapters/nats/subject_token.h"
#include "adapters/nats/text_lines.h"

namespace tabulo::shipping {

namespace {

void addNames(std::string_view key, std::span<const std::string> names, std::string* text) {
    *text += key;
    for (const std::string& name : names) {
        *text += ' ' + escaped(name);
    }
    *text += '\n';
}

void addNumber(std::string_view key, std::int32_t number, std::string* text) {
    *text += std::string(key) + ' ' + std::to_string(number) + '\n';
}

bool takeNames(std::span<const std::string_view> words, std::vector<std::string>* names) {
    for (const std::string_view word : words) {
        std::optional<std::string> name = unescaped(word);
        if (!name.has_value()) {
            return false;
        }
        names->push_back(std::move(*name));
    }
    return true;
}

template <typename Value>
bool takeNumber(std::span<const std::string_view> words, Value* value) {
    const auto number = words.size() == 1 ? integerOf<std::int32_t>(words[0]) : std::nullopt;
    if (number.has_value()) {
        *value = *number;
    }
    return number.has_value();
}

bool takeLine(std::span<const std::string_view> words, Layout* layout) {
    const std::string_view key = words[0];
    const auto values = words.subspan(1);
    if (key == "texts") {
        return takeNames(values, &layout->texts);
    }
    if (key == "numbers") {
        return takeNames(values, &layout->numbers);
    }
    if (key == "messagesPerBlock") {
        return takeNumber(values, &layout->messagesPerBlock);
    }
    if (key == "summarisedTexts") {
        return takeNumber(values, &layout->summarisedTexts);
    }
    return key == "builtInTexts" && takeNumber(values, &layout->builtInTexts);
}

}  // namespace

std::string layoutText(const Layout& layout) {
    std::string text;
    addNames("texts", layout.texts, &text);
    addNames("numbers", layout.numbers, &text);
    addNumber("messagesPerBlock", layout.messagesPerBlock, &text);
    if (layout.summarisedTexts.has_value()) {
        addNumber("summarisedTexts", *layout.summarisedTexts, &text);
    }
    addNumber("builtInTexts", layout.builtInTexts, &text);
    return text;
}

std::optional<Layout> layoutOf(std::string_view text) {
    Layout layout;
    for (const std::string_view line : splitAt('\n', text)) {
        const std::vector<std::string_view> words = splitAt(' ', line);
        if (words.empty() || !takeLine(words, &layout)) {
            return std::nullopt;
        }
    }
    return layoutText(layout) == text ? std::optional(layout) : std::nullopt;
}

}  // namespace tabulo::shipping
