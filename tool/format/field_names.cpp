#include "tool/format/field_names.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>

#include "tool/text_bytes.h"

namespace tabulo::tool {

namespace {

constexpr std::array<std::string_view, 13> LEADING = {"table",         "uid",   "seq",     "prevSeq", "id",
                                                      "class",         "time",  "timeRaw", "type",    "possDup",
                                                      "outOfSequence", "text0", "text1"};
constexpr std::array<std::string_view, 4> TRAILING = {"wire", "nonMetadata", "wireBase64", "nonMetadataBase64"};

void addName(const std::string& name, const std::string& placeName, std::vector<std::string>* names) {
    std::string base = name.empty() ? placeName : (isUtf8(name) ? name : std::string());
    if (base.empty()) {
        appendShown(name, &base);
    }
    std::string unique = base;
    for (int number = 2; std::find(names->begin(), names->end(), unique) != names->end(); ++number) {
        unique = fmt::format("{}#{}", base, number);
    }
    names->push_back(std::move(unique));
}

}  // namespace

std::span<const std::string_view> leadingColumns() noexcept {
    return LEADING;
}

std::span<const std::string_view> trailingColumns() noexcept {
    return TRAILING;
}

std::vector<std::string> fieldNames(const Layout& layout) {
    std::vector<std::string> names;
    for (std::size_t i = 0; i < layout.texts.size(); ++i) {
        addName(layout.texts[i], fmt::format("field{}", i), &names);
    }
    for (std::size_t i = 0; i < layout.numbers.size(); ++i) {
        addName(layout.numbers[i], fmt::format("field{}", layout.texts.size() + i), &names);
    }
    return names;
}

}  // namespace tabulo::tool
