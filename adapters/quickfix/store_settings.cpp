#include "adapters/quickfix/store_settings.h"

#include <algorithm>
#include <charconv>
#include <optional>
#include <stdexcept>
#include <string_view>

#include "tabulo/fix.h"

namespace tabulo::quickfix {

namespace {

constexpr std::int32_t LAST_NAMED_TAG = 50'000;

[[noreturn]] void refuse(const char* setting, std::string_view text, const char* allowed) {
    throw std::invalid_argument(std::string(setting) + "=" + std::string(text) + ": " + allowed);
}

std::string_view trimmed(std::string_view text) {
    const std::size_t first = text.find_first_not_of(" \t");
    return first == std::string_view::npos ? std::string_view()
                                           : text.substr(first, text.find_last_not_of(" \t") + 1 - first);
}

// A number of at least 1, with nothing beside it.
std::optional<std::int32_t> countIn(std::string_view text) {
    std::int32_t count = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), count);
    return error == std::errc() && end == text.data() + text.size() && count > 0 ? std::optional(count) : std::nullopt;
}

std::optional<std::int32_t> tagNamed(std::string_view name) {
    const FixDictionary& dictionary = FixDictionary::builtIn();
    for (std::int32_t tag = 1; tag <= LAST_NAMED_TAG; ++tag) {
        if (dictionary.tagName(tag) == name) {
            return tag;
        }
    }
    return std::nullopt;
}

std::vector<IndexedField> fieldsIn(const char* setting, std::string_view text) {
    std::vector<IndexedField> fields;
    while (!text.empty()) {
        const std::size_t comma = std::min(text.find(','), text.size());
        const std::string_view word = trimmed(text.substr(0, comma));
        text.remove_prefix(std::min(comma + 1, text.size()));
        std::optional<std::int32_t> tag = fixTag(word);
        if (!tag.has_value() && !word.empty()) {
            tag = tagNamed(word);
        }
        if (!tag.has_value()) {
            refuse(setting, word, "no tag; tags are given by number or by name, with commas between them");
        }
        const std::string_view name = FixDictionary::builtIn().tagName(*tag);
        if (std::any_of(fields.begin(), fields.end(), [&](const IndexedField& field) { return field.tag == *tag; })) {
            refuse(setting, word, "this tag is given twice");
        }
        fields.push_back({*tag, name.empty() ? std::to_string(*tag) : std::string(name)});
    }
    return fields;
}

SyncSetting syncIn(std::string_view text) {
    if (text.empty() || text == "off") {
        return {};
    }
    if (text == "always") {
        return {.isAlways = true};
    }
    if (text.starts_with("every ")) {
        const std::string_view count = trimmed(text.substr(6));
        const bool isTime = count.ends_with('s');
        const auto number = countIn(isTime ? count.substr(0, count.size() - 1) : count);
        if (number.has_value()) {
            return isTime ? SyncSetting{.seconds = *number} : SyncSetting{.messages = *number};
        }
    }
    refuse("TabuloSync", text, "off, always, every N (messages) or every Ns (seconds)");
}

}  // namespace

StoreSettings storeSettingsOf(const SettingTexts& texts) {
    StoreSettings settings;
    settings.folder = texts.storePath;
    if (settings.folder.empty()) {
        refuse("TabuloStorePath", "", "the folder of the tables is missing");
    }
    settings.texts = fieldsIn("TabuloStringFields", texts.stringFields.empty() ? "11,41,37,55,1" : texts.stringFields);
    settings.numbers = fieldsIn("TabuloNumericFields", texts.numericFields.empty() ? "38,44" : texts.numericFields);
    for (const IndexedField& field : settings.texts) {
        if (std::any_of(settings.numbers.begin(), settings.numbers.end(),
                        [&](const IndexedField& number) { return number.tag == field.tag; })) {
            refuse("TabuloNumericFields", field.name, "this tag is among TabuloStringFields");
        }
    }
    if (!texts.logHeartbeats.empty() && texts.logHeartbeats != "Y" && texts.logHeartbeats != "N") {
        refuse("TabuloLogHeartbeats", texts.logHeartbeats, "Y or N");
    }
    settings.logsHeartbeats = texts.logHeartbeats == "Y";
    settings.sync = syncIn(trimmed(texts.sync));
    const std::string_view roll = trimmed(texts.roll);
    if (!roll.empty() && roll != "none") {
        const auto kept = roll.starts_with("keep ") ? countIn(trimmed(roll.substr(5))) : std::nullopt;
        if (!kept.has_value()) {
            refuse("TabuloRoll", roll, "none, or keep N");
        }
        settings.rolls = true;
        settings.kept = *kept;
    }
    return settings;
}

}  // namespace tabulo::quickfix
