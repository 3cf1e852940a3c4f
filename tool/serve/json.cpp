#include "tool/serve/json.h"

#include <cmath>
#include <limits>

#include "tabulo/columns.h"
#include "tool/listing.h"

namespace tabulo::tool::serve {

Json& Json::begin() {
    writer_.StartObject();
    return *this;
}

Json& Json::end() {
    writer_.EndObject();
    return *this;
}

Json& Json::beginList() {
    writer_.StartArray();
    return *this;
}

Json& Json::endList() {
    writer_.EndArray();
    return *this;
}

Json& Json::key(std::string_view name) {
    return text(name);
}

Json& Json::text(std::string_view text) {
    if (isUtf8(text)) {
        writer_.String(text.data(), static_cast<rapidjson::SizeType>(text.size()));
    } else {
        const std::string shown = shownText(text);
        writer_.String(shown.data(), static_cast<rapidjson::SizeType>(shown.size()));
    }
    return *this;
}

Json& Json::number(std::int64_t number) {
    writer_.Int64(number);
    return *this;
}

Json& Json::number(double number) {
    if (!writer_.Double(number)) {
        writer_.Null();
    }
    return *this;
}

Json& Json::flag(bool flag) {
    writer_.Bool(flag);
    return *this;
}

Json& Json::null() {
    writer_.Null();
    return *this;
}

Json& Json::time(std::int64_t time, std::optional<TimeUnit> unit) {
    return number(pageTime(time, unit));
}

Json& Json::raw(std::string_view json) {
    writer_.RawValue(json.data(), json.size(), rapidjson::kObjectType);
    return *this;
}

std::string Json::take() {
    return {buffer_.GetString(), buffer_.GetSize()};
}

double pageTime(std::int64_t time, std::optional<TimeUnit> unit) noexcept {
    constexpr double MILLISECONDS = 1000;
    const auto number = static_cast<double>(time);
    return unit.has_value() ? number / (static_cast<double>(timesPerSecond(*unit)) / MILLISECONDS) : number;
}

std::int64_t storedTime(double pageTime, std::optional<TimeUnit> unit) noexcept {
    constexpr double MILLISECONDS = 1000;
    const double stored =
        unit.has_value() ? pageTime * (static_cast<double>(timesPerSecond(*unit)) / MILLISECONDS) : pageTime;
    constexpr double LARGEST = 9.2e18;  // below 2^63
    if (!(stored > -LARGEST)) {         // also what is no number
        return std::numeric_limits<std::int64_t>::min();
    }
    return stored < LARGEST ? static_cast<std::int64_t>(std::ceil(stored)) : std::numeric_limits<std::int64_t>::max();
}

}  // namespace tabulo::tool::serve
