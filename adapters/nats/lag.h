// How far behind a shipper or a receiver is: what it answers when it is asked.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace tabulo::shipping {

struct LagReport {
    std::string stream{};
    std::string role{};  // "shipper", which is behind its tables; "receiver", which is behind the stream
    std::string host{};
    std::int64_t pid = 0;
    std::int64_t messages = 0;
    std::int64_t bytes = 0;
    double seconds = 0;  // since it was last up to date; 0 when it is
};

// Lines of a name and a value, as owner.h has them.
std::string lagText(const LagReport& report);
// None for a text that lagText cannot have made.
std::optional<LagReport> lagReportOf(std::string_view text);

}  // namespace tabulo::shipping
