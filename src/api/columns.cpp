#include "tabulo/columns.h"

#include <algorithm>
#include <array>

namespace tabulo {

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
        unique = base + "#" + std::to_string(number);
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
        addName(layout.texts[i], "field" + std::to_string(i), &names);
    }
    for (std::size_t i = 0; i < layout.numbers.size(); ++i) {
        addName(layout.numbers[i], "field" + std::to_string(layout.texts.size() + i), &names);
    }
    return names;
}

}  // namespace tabulo
