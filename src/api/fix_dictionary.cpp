#include <algorithm>

#include "api/fix_dictionary_text.h"
#include "tabulo/fix.h"

namespace tabulo {

namespace {

// Takes the text up to one of the ends, and the end, off the front.
std::string_view take(std::string_view* text, std::string_view ends) {
    const std::size_t end = std::min(text->find_first_of(ends), text->size());
    const std::string_view taken = text->substr(0, end);
    text->remove_prefix(std::min(end + 1, text->size()));
    return taken;
}

// Calls with each pair of words.
template <typename Use>
void forEachPair(std::string_view text, const Use& use) {
    while (!text.empty()) {
        const std::string_view first = take(&text, " \n");
        if (!first.empty()) {
            use(first, take(&text, " \n"));
        }
    }
}

}  // namespace

const FixDictionary& FixDictionary::builtIn() {
    static const FixDictionary BUILT_IN = [] {
        FixDictionary dictionary;
        forEachPair(api::FIX_TAG_NAMES, [&](std::string_view tag, std::string_view name) {
            dictionary.nameTag(fixTag(tag).value(), name);
        });
        forEachPair(api::FIX_MESSAGE_NAMES,
                    [&](std::string_view type, std::string_view name) { dictionary.nameMessage(type, name); });
        for (std::string_view text = api::FIX_VALUE_NAMES; !text.empty();) {
            std::string_view line = take(&text, "\n");
            if (line.empty()) {
                continue;
            }
            const std::int32_t tag = fixTag(take(&line, " ")).value();
            while (!line.empty()) {
                const std::string_view value = take(&line, "=");
                dictionary.nameValue(tag, value, take(&line, ";"));
            }
        }
        return dictionary;
    }();
    return BUILT_IN;
}

void FixDictionary::nameTag(std::int32_t tag, std::string_view name) {
    tags_[tag].name = name;
}

void FixDictionary::nameValue(std::int32_t tag, std::string_view value, std::string_view name) {
    tags_[tag].values.emplace(value, name);
}

void FixDictionary::nameMessage(std::string_view type, std::string_view name) {
    messages_.emplace(type, name);
}

const FixDictionary::Tag* FixDictionary::find(std::int32_t tag) const noexcept {
    const auto found = tags_.find(tag);
    return found == tags_.end() ? nullptr : &found->second;
}

std::string_view FixDictionary::tagName(std::int32_t tag) const noexcept {
    const Tag* found = find(tag);
    if (found != nullptr && !found->name.empty()) {  // else only its values are named here
        return found->name;
    }
    return fallback_ == nullptr ? std::string_view() : fallback_->tagName(tag);
}

std::string_view FixDictionary::messageName(std::string_view type) const noexcept {
    const auto found = messages_.find(type);
    if (found != messages_.end()) {
        return found->second;
    }
    return fallback_ == nullptr ? std::string_view() : fallback_->messageName(type);
}

std::string_view FixDictionary::singleValueName(std::int32_t tag, std::string_view value) const noexcept {
    const Tag* found = find(tag);
    if (found != nullptr && !found->values.empty()) {  // a list of one version is not filled up from another's
        const auto name = found->values.find(value);
        return name == found->values.end() ? std::string_view() : std::string_view(name->second);
    }
    return fallback_ == nullptr ? std::string_view() : fallback_->singleValueName(tag, value);
}

std::string FixDictionary::valueName(std::int32_t tag, std::string_view value) const {
    const std::string_view name = singleValueName(tag, value);
    if (!name.empty() || value.find(' ') == std::string_view::npos) {
        return std::string(name);
    }
    std::string names;
    while (!value.empty()) {
        const std::string_view single = singleValueName(tag, take(&value, " "));
        if (!single.empty()) {
            names += names.empty() ? "" : "; ";
            names += single;
        }
    }
    return names;
}

}  // namespace tabulo
