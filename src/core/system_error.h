// The operating system's word about one call: 0 when it was done, else its error number.
//
// A type of its own, so that no system's number is ever taken for one of the library's codes or for a count of bytes.
#pragma once

namespace tabulo::internal {

struct [[nodiscard]] SystemError {
    int number = 0;

    constexpr SystemError() noexcept = default;
    constexpr SystemError(int systemNumber) noexcept : number(systemNumber) {}  // implicit: what errno and hooks give

    constexpr bool failed() const noexcept { return number != 0; }
    friend constexpr bool operator==(SystemError, SystemError) noexcept = default;
};

// The first error that the system gave this thread since the last clear, 0 for none: the cause that an operation's code
// has no room for. Kept by filePlatform_repeat.
SystemError systemError_first() noexcept;
void systemError_keep(SystemError error) noexcept;
void systemError_clear() noexcept;

}  // namespace tabulo::internal
