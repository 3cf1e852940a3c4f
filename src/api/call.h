// What every operation of the public API stands in: it gathers what the library says meanwhile, and turns an error code
// into an Error.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "core/error_codes.h"
#include "core/warning_gatherer.h"
#include "tabulo/error.h"

namespace tabulo::api {

// Stands first in every operation that may fail. While it lives, the warnings of this thread are gathered in it; inside
// another one they are that one's, too.
class Call {
  public:
    // A call that concerns no file, or one; the path must outlive the call.
    Call() noexcept : Call(nullptr) {}
    explicit Call(const std::filesystem::path& path) noexcept : Call(&path) {}
    // A part of a call that concerns another file: its Errors name that one. Both arguments must outlive it, in
    // whatever order such parts go.
    Call(const Call& whole, const std::filesystem::path& path) noexcept
        : path_(&path), outer_(nullptr), whole_(&whole) {}
    ~Call();
    Call(const Call&) = delete;
    Call& operator=(const Call&) = delete;

    // Throws an Error for every code but NO_ERROR.
    void check(internal::ErrorCode code) const {
        if (code != internal::NO_ERROR) {
            fail(code);
        }
    }
    // Throws. The system's words are added where a call to it can be the cause.
    [[noreturn]] void fail(internal::ErrorCode code, std::optional<std::int64_t> offset = std::nullopt,
                           std::string detail = {}, std::int64_t stored = 0) const;

    const std::vector<std::string>& warnings() const noexcept {
        return whole_ == nullptr ? warnings_ : whole_->warnings_;
    }
    void addWarning(std::string_view line);

  private:
    explicit Call(const std::filesystem::path* path) noexcept;

    const std::filesystem::path* path_;
    Call* outer_;
    const Call* whole_ = nullptr;  // this one is a part of
    std::optional<internal::WarningGatherer> gatherer_;
    std::vector<std::string> warnings_;
};

// Throws an Error of an argument that cannot be, or of one of the given code.
[[noreturn]] void refuse(std::string detail);
[[noreturn]] void refuse(Code code, std::string detail);

// The path as the system takes it. Throws for an empty one and for one with a zero byte.
std::string checkedPath(const std::filesystem::path& path);

// The object behind a public one. Throws for one that was closed or moved from.
template <typename State>
auto& use(const State& state, const char* what) {
    if (state == nullptr) {
        refuse(Code::tableClosed, std::string(what) + " was closed or moved from");
    }
    return *state;
}

}  // namespace tabulo::api
