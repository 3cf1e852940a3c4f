// The page's files, as they were when the command was built: web/ in the source tree.
#pragma once

#include <span>
#include <string_view>

namespace tabulo::tool::serve {

struct PageFile {
    std::string_view name;  // "index.html"
    std::string_view bytes;
};

std::span<const PageFile> pageFiles() noexcept;

}  // namespace tabulo::tool::serve
