// Texts as eyes may see them.
#include <fmt/format.h>

#include <array>

#include "tool/listing.h"
#include "tool/text_bytes.h"

namespace tabulo::tool {

std::string shownText(std::string_view text) {
    std::string shown;
    shown.reserve(text.size());
    appendShown(text, &shown);
    return shown;
}

std::size_t shownWidth(std::string_view text) noexcept {
    std::size_t width = 0;
    for (const char byte : text) {
        width += (static_cast<unsigned char>(byte) & 0xC0) == 0x80 ? 0U : 1U;
    }
    return width;
}

std::string cutText(std::string_view text, std::size_t width) {
    if (shownWidth(text) <= width) {
        return std::string(text);
    }
    std::size_t length = 0;
    for (std::size_t kept = 0; length < text.size(); ++length) {
        kept += (static_cast<unsigned char>(text[length]) & 0xC0) == 0x80 ? 0U : 1U;
        if (kept == width) {
            break;
        }
    }
    return width == 0 ? std::string() : std::string(text.substr(0, length)) + "…";
}

std::string shownBytes(std::int64_t bytes) {
    constexpr std::array<const char*, 5> UNITS = {"B", "KiB", "MiB", "GiB", "TiB"};
    auto size = static_cast<double>(bytes);
    std::size_t unit = 0;
    while (size >= 1023.95 && unit + 1 < UNITS.size()) {
        size /= 1024;
        ++unit;
    }
    return fmt::format("{:.{}f} {}", size, unit == 0 ? 0 : 1, UNITS[unit]);
}

}  // namespace tabulo::tool
