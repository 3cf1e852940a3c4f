#include "adapters/nats/lag.h"

#include <array>
#include <cstdio>
#include <vector>

#include "adapters/nats/subject_token.h"
#include "adapters/nats/text_lines.h"

namespace tabulo::shipping {

std::string lagText(const LagReport& report) {
    std::array<char, 32> seconds{};
    std::snprintf(seconds.data(), seconds.size(), "%.3f", report.seconds);
    return "stream " + escaped(report.stream) + "\nrole " + escaped(report.role) + "\nhost " + escaped(report.host) +
           "\npid " + std::to_string(report.pid) + "\nmessages " + std::to_string(report.messages) + "\nbytes " +
           std::to_string(report.bytes) + "\nseconds " + seconds.data() + "\n";
}

std::optional<LagReport> lagReportOf(std::string_view text) {
    const std::vector<std::string_view> values = valuesOfLines(text);
    if (values.size() != 7) {
        return std::nullopt;
    }
    const auto stream = unescaped(values[0]);
    const auto role = unescaped(values[1]);
    const auto host = unescaped(values[2]);
    const auto pid = integerOf<std::int64_t>(values[3]);
    const auto messages = integerOf<std::int64_t>(values[4]);
    const auto bytes = integerOf<std::int64_t>(values[5]);
    double seconds = 0;
    const std::string_view last = values[6];
    const auto [end, error] = std::from_chars(last.data(), last.data() + last.size(), seconds);
    if (!stream || !role || !host || !pid || !messages || !bytes || error != std::errc{}) {
        return std::nullopt;
    }
    const LagReport report{*stream, *role, *host, *pid, *messages, *bytes, seconds};
    return lagText(report) == text ? std::optional(report) : std::nullopt;
}

}  // namespace tabulo::shipping
