// Names that count in either case.
#pragma once

#include <algorithm>
#include <string>
#include <string_view>

namespace tabulo::tool {

// A letter from A to Z as one from a to z.
constexpr char loweredLetter(char letter) noexcept {
    return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter + ('a' - 'A')) : letter;
}

// A text with A to Z as a to z.
inline std::string lowered(std::string_view text) {
    std::string low(text);
    std::transform(low.begin(), low.end(), low.begin(), loweredLetter);
    return low;
}

}  // namespace tabulo::tool
