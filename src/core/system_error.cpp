#include "core/system_error.h"

#include <array>
#include <cstdio>

namespace tabulo::internal {

namespace {

constexpr std::size_t KEPT_PATH = 1024;

struct Kept {
    int number = 0;
    const char* what = nullptr;
    bool hasPath = false;
    std::array<char, KEPT_PATH> path{};
};

thread_local Kept kept;

}  // namespace

RefusedCall systemError_refused() noexcept {
    return {kept.number, kept.what, kept.hasPath ? kept.path.data() : nullptr};
}

SystemError systemError_first() noexcept {
    return kept.number;
}

void systemError_keep(SystemError error, const char* what, const char* path) noexcept {
    if (!error.failed() || kept.number != 0) {
        return;
    }
    kept.number = error.number;
    kept.what = what;
    kept.hasPath = path != nullptr;
    std::snprintf(kept.path.data(), kept.path.size(), "%s", path == nullptr ? "" : path);
}

void systemError_clear() noexcept {
    kept.number = 0;
}

}  // namespace tabulo::internal
