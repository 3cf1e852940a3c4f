#include "adapters/nats/session_text.h"

#include "adapters/nats/text_lines.h"

namespace tabulo::shipping {

std::string sessionText(std::span<const SessionValue> values) {
    std::string text;
    for (const SessionValue& value : values) {
        text += std::to_string(value.tag) + ' ' + std::to_string(value.value) + '\n';
    }
    return text;
}

std::optional<std::vector<SessionValue>> sessionValuesOf(std::string_view text) {
    std::vector<SessionValue> values;
    for (const std::string_view line : splitAt('\n', text)) {
        const std::vector<std::string_view> words = splitAt(' ', line);
        const auto tag = words.size() == 2 ? integerOf<std::int32_t>(words[0]) : std::nullopt;
        const auto value = words.size() == 2 ? integerOf<std::int64_t>(words[1]) : std::nullopt;
        if (!tag.has_value() || !value.has_value()) {
            return std::nullopt;
        }
        values.push_back({*tag, *value});
    }
    return values;
}

}  // namespace tabulo::shipping
