#include "core/system_error.h"

namespace tabulo::internal {

namespace {

thread_local int firstNumber = 0;

}  // namespace

SystemError systemError_first() noexcept {
    return firstNumber;
}

void systemError_keep(SystemError error) noexcept {
    if (firstNumber == 0) {
        firstNumber = error.number;
    }
}

void systemError_clear() noexcept {
    firstNumber = 0;
}

}  // namespace tabulo::internal
