#include "adapters/nats/owner.h"

#include <unistd.h>

#include <array>
#include <cstdio>
#include <ctime>
#include <random>
#include <vector>

#include "adapters/nats/subject_token.h"
#include "adapters/nats/text_lines.h"

namespace tabulo::shipping {

namespace {

bool isId(std::string_view text) {
    return text.size() == 16 && text.find_first_not_of("0123456789abcdef") == std::string_view::npos;
}

}  // namespace

std::string randomId() {
    std::random_device random;
    std::array<char, 17> id{};
    std::snprintf(id.data(), id.size(), "%08x%08x", static_cast<unsigned>(random()), static_cast<unsigned>(random()));
    return id.data();
}

Owner Owner::here() {
    std::array<char, 256> host{};
    const bool hasName = ::gethostname(host.data(), host.size() - 1) == 0;
    return {hasName ? host.data() : "unknown", ::getpid(), std::time(nullptr), randomId(), 0};
}

std::string Owner::text() const {
    return "host " + escaped(host) + "\npid " + std::to_string(pid) + "\nstarted " + std::to_string(started) + "\nid " +
           id + "\n" + (ended == 0 ? "" : "ended " + std::to_string(ended) + "\n");
}

std::string Owner::sentence() const {
    const std::time_t seconds = started;
    std::tm time{};
    std::array<char, 32> shown{};
    if (::gmtime_r(&seconds, &time) == nullptr ||
        std::strftime(shown.data(), shown.size(), "%Y-%m-%dT%H:%M:%SZ", &time) == 0) {
        shown[0] = '\0';
    }
    return "process " + std::to_string(pid) + " on " + host + ", since " + shown.data();
}

std::string Owner::subject(std::string_view stream) const {
    return "_TABULO." + std::string(stream) + ".owner." + id;
}

std::optional<Owner> ownerOf(std::string_view text) {
    const std::vector<std::string_view> values = valuesOfLines(text);
    if (values.size() != 4 && values.size() != 5) {
        return std::nullopt;
    }
    const auto host = unescaped(values[0]);
    const auto pid = integerOf<std::int64_t>(values[1]);
    const auto started = integerOf<std::int64_t>(values[2]);
    const auto ended = integerOf<std::int64_t>(values.size() == 5 ? values[4] : "0");
    if (!host.has_value() || !pid.has_value() || !started.has_value() || !isId(values[3]) || !ended.has_value()) {
        return std::nullopt;
    }
    const Owner owner{*host, *pid, *started, std::string(values[3]), *ended};
    return owner.text() == text ? std::optional(owner) : std::nullopt;
}

std::string lagSubject(std::string_view stream) {
    return "_TABULO." + std::string(stream) + ".lag";
}

}  // namespace tabulo::shipping
