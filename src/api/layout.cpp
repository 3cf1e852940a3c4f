#include "api/layout.h"

#include <filesystem>
#include <new>
#include <string_view>

#include "api/call.h"
#include "storage/generic_header.h"

namespace tabulo {

bool Layout::operator==(const Layout& other) const noexcept {
    const auto summarised = [](const Layout& layout) {
        return static_cast<std::size_t>(layout.summarisedTexts.value_or(static_cast<std::int32_t>(layout.texts.size()) +
                                                                        internal::LEADING_BUILT_IN_STRING_FIELDS));
    };
    return texts == other.texts && numbers == other.numbers && messagesPerBlock == other.messagesPerBlock &&
           summarised(*this) == summarised(other) && builtInTexts == other.builtInTexts;
}

namespace api {

namespace {

std::string nameOf(const internal::FieldName& name) {
    std::string_view text(name.text, static_cast<std::size_t>(name.length));
    if (!text.empty() && text.back() == '\0') {
        text.remove_suffix(1);
    }
    return std::string(text);
}

// Adds the bytes that the names take in a header.
void checkNames(const std::vector<std::string>& names, std::size_t* bytes) {
    for (const std::string& name : names) {
        if (name.find('\0') != std::string::npos) {
            refuse("the name of a field holds a zero byte");
        }
        *bytes += sizeof(std::uint32_t) + (name.empty() ? 0 : name.size() + 1);
    }
}

template <typename Slots>
void setNames(Slots& slots, const std::vector<std::string>& names) {
    for (std::size_t i = 0; i < names.size(); ++i) {
        if (!names[i].empty()) {
            slots[i] = names[i];
        }
    }
}

}  // namespace

internal::MessageTableLayout layout_numbers(const Layout& layout) {
    if (layout.texts.size() > static_cast<std::size_t>(internal::MAX_CONFIGURED_STRING_FIELDS)) {
        refuse(Code::stringFieldsLimit, "the layout has " + std::to_string(layout.texts.size()) + " texts");
    }
    if (layout.numbers.size() > static_cast<std::size_t>(internal::MAX_NUMERIC_FIELDS)) {
        refuse(Code::numericFieldsLimit, "the layout has " + std::to_string(layout.numbers.size()) + " numbers");
    }
    if (layout.builtInTexts < 2 || layout.builtInTexts > internal::BUILT_IN_STRING_FIELDS ||
        (layout.builtInTexts < internal::BUILT_IN_STRING_FIELDS && !layout.texts.empty())) {
        refuse("no table has " + std::to_string(layout.builtInTexts) + " built-in and " +
               std::to_string(layout.texts.size()) + " indexed texts");
    }
    internal::MessageTableLayout numbers;
    numbers.messagesPerBlock = layout.messagesPerBlock;
    numbers.stringFieldCount = layout.builtInTexts + static_cast<std::int32_t>(layout.texts.size());
    numbers.summarisedStringFieldCount = layout.summarisedTexts.value_or(
        static_cast<std::int32_t>(layout.texts.size()) + internal::LEADING_BUILT_IN_STRING_FIELDS);
    numbers.numericFieldCount = static_cast<std::int32_t>(layout.numbers.size());
    if (internal::mtLayout_check(&numbers) != internal::NO_ERROR) {
        refuse("no table has " + std::to_string(numbers.messagesPerBlock) + " messages per block and " +
               std::to_string(numbers.summarisedStringFieldCount) + " texts with filters");
    }
    return numbers;
}

Layout layout_ofHeader(const internal::MessageTableHeader& header) {
    const internal::MessageTableLayout& numbers = header.layout;
    Layout layout;
    layout.messagesPerBlock = numbers.messagesPerBlock;
    layout.summarisedTexts = numbers.summarisedStringFieldCount;
    layout.builtInTexts = std::min(numbers.stringFieldCount, internal::BUILT_IN_STRING_FIELDS);
    const std::int32_t texts = internal::mtLayout_configuredStringCount(&numbers);
    for (std::int32_t i = 0; i < texts; ++i) {
        layout.texts.push_back(nameOf(header.stringFieldNames[static_cast<std::size_t>(i)]));
    }
    for (std::int32_t i = 0; i < numbers.numericFieldCount; ++i) {
        layout.numbers.push_back(nameOf(header.numericFieldNames[static_cast<std::size_t>(i)]));
    }
    return layout;
}

internal::TableConfigPtr config_create(const std::string& path, internal::FilePresence presence) {
    const std::string name = std::filesystem::path(path).filename().string();
    internal::TableConfigPtr config(internal::tableConfig_create(name.c_str(), 1));
    if (config == nullptr) {
        throw std::bad_alloc();
    }
    config->paths[0] = path;
    config->presence = presence;
    return config;
}

namespace {

internal::TableConfigPtr configure(const Layout& layout, const std::string& path, internal::FilePresence presence) {
    const internal::MessageTableLayout numbers = layout_numbers(layout);
    internal::TableConfigPtr config = config_create(path, presence);
    config->layout = numbers;
    setNames(config->stringFieldNames, layout.texts);
    setNames(config->numericFieldNames, layout.numbers);
    return config;
}

}  // namespace

internal::TableConfigPtr layout_configure(const Layout& layout, const std::string& path,
                                          internal::FilePresence presence) {
    std::size_t header =
        internal::GENERIC_HEADER_SIZE + internal::TYPE_RECORD_SIZE + internal::LAYOUT_SIZE + internal::HEADER_TAIL_SIZE;
    checkNames(layout.texts, &header);
    checkNames(layout.numbers, &header);
    if (header > static_cast<std::size_t>(internal::MAX_HEADER_SIZE)) {
        refuse("the names of the fields take more room than a header has");
    }
    return configure(layout, path, presence);
}

internal::TableConfigPtr layout_configureAsStored(const Layout& layout, const std::string& path) {
    internal::TableConfigPtr config = configure(layout, path, internal::FilePresence::existing);
    config->namesAreStored = true;
    return config;
}

}  // namespace api

}  // namespace tabulo
