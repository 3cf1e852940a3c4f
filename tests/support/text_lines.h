// Texts taken apart into lines.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace tabulo::internal::test {

// The lines of a text without their line ends; an unfinished last line counts too.
inline std::vector<std::string> textLines(const std::string& text) {
    std::vector<std::string> lines;
    std::size_t start = 0;
    while (start < text.size()) {
        const std::size_t end = text.find('\n', start);
        lines.push_back(text.substr(start, end - start));
        if (end == std::string::npos) {
            break;
        }
        start = end + 1;
    }
    return lines;
}

}  // namespace tabulo::internal::test
