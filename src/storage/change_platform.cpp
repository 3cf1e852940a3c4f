#include "storage/change_platform.h"

namespace tabulo::internal {

namespace {

const ChangePlatform* installedPlatform = nullptr;  // null is the system's own

}  // namespace

const ChangePlatform& changePlatform() noexcept {
    return installedPlatform == nullptr ? changePlatform_system() : *installedPlatform;
}

void changePlatform_install(const ChangePlatform* platform) noexcept {
    installedPlatform = platform;
}

}  // namespace tabulo::internal
