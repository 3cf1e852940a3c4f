// Names that count in either case.
#pragma once

#include <algorithm>
#include <string>
#include <string_view>

namespace tabulo::tool {

// A text with A to Z as a to z.
inline std::string lowered(std::string_view text) {
    std::string low(text);
    std::transform(low.begin(), low.end(), low.begin(), [](char letter) {
        return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter + ('a' - 'A')) : letter;
    });
    return low;
}

}  // namespace tabulo::tool
