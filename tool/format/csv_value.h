// Values of comma-separated files, as RFC 4180 has them.
#pragma once

#include <array>
#include <string>
#include <string_view>

#include "tool/format/pieces.h"

namespace tabulo::tool {

// The characters for which a value is quoted.
inline constexpr auto CSV_SPECIAL = [] {
    std::array<bool, 256> special{};
    for (const char character : {',', '"', '\r', '\n'}) {
        special[static_cast<unsigned char>(character)] = true;
    }
    return special;
}();

inline bool isPlainCsv(std::string_view text) {
    bool isSpecial = text.empty();
    for (const char character : text) {
        isSpecial |= CSV_SPECIAL[static_cast<unsigned char>(character)];
    }
    return !isSpecial;
}

// Appends a text with its quotes doubled.
inline void appendDoubled(std::string_view text, std::string* out) {
    for (std::size_t quote = text.find('"'); quote != std::string_view::npos; quote = text.find('"')) {
        out->append(text.substr(0, quote + 1)).push_back('"');
        text.remove_prefix(quote + 1);
    }
    out->append(text);
}

// Appends a value, quoted where it must be. The empty text is quoted too: nothing between commas is an absent one.
inline void appendCsvValue(std::string_view text, std::string* out, const Spill& spill = {}) {
    const std::string_view quote = isPlainCsv(text) ? "" : "\"";
    out->append(quote);
    appendPieces(text, out, spill, [&](std::string_view piece) {
        quote.empty() ? static_cast<void>(out->append(piece)) : appendDoubled(piece, out);
    });
    out->append(quote);
}

}  // namespace tabulo::tool
