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

// The first call that the system refused this thread since the last clear: the cause that an operation's code has no
// room for. Kept by filePlatform_repeat.
struct RefusedCall {
    SystemError error;           // 0 for none
    const char* what = nullptr;  // what was asked for, as "write"; null when nobody has said
    const char* path = nullptr;  // of the file, cut to what is kept; null when nobody has said
};
RefusedCall systemError_refused() noexcept;
// Its error alone.
SystemError systemError_first() noexcept;
// `what` must stay; the path is copied. Nothing happens without an error, and behind the first one.
void systemError_keep(SystemError error, const char* what = nullptr, const char* path = nullptr) noexcept;
void systemError_clear() noexcept;

}  // namespace tabulo::internal
