#include "core/platform.h"

namespace tabulo::internal {

std::FILE* platform_openLog(const char* path) noexcept {
    return std::fopen(path, "ae");
}

}  // namespace tabulo::internal
