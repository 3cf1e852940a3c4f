#include "tool/times.h"

#include <date/tz.h>
#include <fmt/format.h>

#include <charconv>
#include <stdexcept>

#include "tool/status.h"

namespace tabulo::tool {

namespace {

constexpr std::int64_t MINUTE = 60;
constexpr std::int64_t HOUR = 60 * MINUTE;
constexpr std::int64_t DAY = 24 * HOUR;
constexpr std::int64_t NANOSECONDS = 1000000000;

std::int64_t floorDivide(std::int64_t number, std::int64_t divisor) noexcept {
    return number / divisor - (number % divisor < 0 ? 1 : 0);
}

[[noreturn]] void refuse(std::string_view text, std::string_view why) {
    throw UsageError(fmt::format("'{}' is no point in time: {}", text, why));
}

[[noreturn]] void refuseForm(std::string_view text) {
    refuse(text, "write 2026-11-20T19:31:45.673, 2026-11-20, 19:31, -10m or the table's own number");
}

// Takes so many digits, or none.
std::optional<std::int64_t> takeNumber(std::string_view* rest, std::size_t digits) {
    std::int64_t number = 0;
    if (rest->size() < digits) {
        return std::nullopt;
    }
    for (const char digit : rest->substr(0, digits)) {
        if (digit < '0' || digit > '9') {
            return std::nullopt;
        }
        number = number * 10 + (digit - '0');
    }
    rest->remove_prefix(digits);
    return number;
}

bool takeSign(std::string_view* rest, std::string_view signs) {
    if (rest->empty() || signs.find(rest->front()) == std::string_view::npos) {
        return false;
    }
    rest->remove_prefix(1);
    return true;
}

// A time of day: the second in it, and the nanoseconds behind.
struct DayTime {
    std::int64_t second = 0;
    std::int64_t nanoseconds = 0;
};

// "19:31", "19:31:45" or "19:31:45.673". Throws for what does not begin so, or what no clock shows.
DayTime takeDayTime(std::string_view text, std::string_view* rest) {
    const auto hour = takeNumber(rest, 2);
    const bool hasMinute = hour.has_value() && takeSign(rest, ":");
    const auto minute = hasMinute ? takeNumber(rest, 2) : std::nullopt;
    if (!minute.has_value()) {
        refuseForm(text);
    }
    DayTime time;
    std::int64_t second = 0;
    if (takeSign(rest, ":")) {
        const auto given = takeNumber(rest, 2);
        if (!given.has_value()) {
            refuseForm(text);
        }
        second = *given;
        if (takeSign(rest, ".")) {
            std::int64_t scale = NANOSECONDS;
            while (const auto digit = takeNumber(rest, 1)) {
                scale /= 10;  // 0 from the tenth digit on
                if (scale == 0) {
                    refuse(text, "it has more than nine digits behind the point");
                }
                time.nanoseconds += *digit * scale;
            }
            if (scale == NANOSECONDS) {
                refuseForm(text);
            }
        }
    }
    if (*hour > 23 || *minute > 59 || second > 59) {
        refuse(text, "no day has this time");
    }
    time.second = *hour * HOUR + *minute * MINUTE + second;
    return time;
}

// "2026-11-20", as days since 1970; nothing for what does not begin so. Throws for a day that no calendar has.
std::optional<std::int64_t> takeDate(std::string_view text, std::string_view* rest) {
    std::string_view ahead = *rest;
    const auto year = takeNumber(&ahead, 4);
    if (!year.has_value() || !takeSign(&ahead, "-")) {
        return std::nullopt;
    }
    const auto month = takeNumber(&ahead, 2);
    const bool hasDay = month.has_value() && takeSign(&ahead, "-");
    const auto day = hasDay ? takeNumber(&ahead, 2) : std::nullopt;
    if (!day.has_value()) {
        refuseForm(text);
    }
    const date::year_month_day whole{date::year{static_cast<int>(*year)}, date::month{static_cast<unsigned>(*month)},
                                     date::day{static_cast<unsigned>(*day)}};
    if (!whole.ok()) {
        refuse(text, "the calendar has no such day");
    }
    *rest = ahead;
    return date::sys_days{whole}.time_since_epoch().count();
}

enum class LocalTime { exact, startOfDay };

// The second at which the clocks of a zone show a local one.
std::int64_t secondAt(const date::time_zone* zone, std::int64_t shown, LocalTime meaning, std::string_view text) {
    if (zone == nullptr) {
        return shown;
    }
    const date::local_info info = zone->get_info(date::local_seconds{std::chrono::seconds(shown)});
    if (meaning == LocalTime::exact && info.result == date::local_info::nonexistent) {
        refuse(text, fmt::format("the clocks of {} skip it", zone->name()));
    }
    if (meaning == LocalTime::exact && info.result == date::local_info::ambiguous) {
        refuse(text, fmt::format("the clocks of {} show it twice; give it in UTC, with a Z behind it", zone->name()));
    }
    if (info.result == date::local_info::nonexistent) {
        return info.first.end.time_since_epoch().count();
    }
    return shown - info.first.offset.count();
}

const date::time_zone* zoneNamed(const std::string& name) {
    if (name.empty()) {
        return nullptr;
    }
    try {
        return date::locate_zone(name);
    } catch (const std::runtime_error&) {
        throw UsageError(fmt::format("'{}' is no time zone that this system knows; one is Europe/Berlin", name));
    }
}

std::string_view pluralOf(TimeUnit unit) noexcept {
    switch (unit) {
        case TimeUnit::seconds:
            return "seconds";
        case TimeUnit::milliseconds:
            return "milliseconds";
        case TimeUnit::microseconds:
            return "microseconds";
        case TimeUnit::nanoseconds:
            break;
    }
    return "nanoseconds";
}

TimeUnit unitNamed(std::string_view name) {
    for (const TimeUnit unit :
         {TimeUnit::seconds, TimeUnit::milliseconds, TimeUnit::microseconds, TimeUnit::nanoseconds}) {
        if (timeUnitName(unit) == name) {
            return unit;
        }
    }
    throw UsageError(fmt::format("'{}' is no unit of time; they are s, ms, us and ns", name));
}

}  // namespace

Times::Times(const TimeOptions& options, std::optional<std::int64_t> sample, Console& console)
    : zone_(zoneNamed(options.zone)) {
    if (!options.unit.empty()) {
        unit_ = unitNamed(options.unit);
    } else if (sample.has_value()) {
        unit_ = guessTimeUnit(*sample);
        if (unit_.has_value()) {
            console.say(fmt::format("times are taken for {} (--time-unit)", pluralOf(*unit_)));
        }
    }
}

std::optional<std::int64_t> Times::second(std::int64_t time) const noexcept {
    return unit_.has_value() ? std::optional(secondOfTime(time, *unit_)) : std::nullopt;
}

std::int64_t Times::local(std::int64_t second) const {
    const auto* zone = static_cast<const date::time_zone*>(zone_);
    if (zone == nullptr || !hasFourDigitYear(second)) {
        return second;
    }
    if (second < offset_.begin || second >= offset_.end) {
        const date::sys_info info = zone->get_info(date::sys_seconds{std::chrono::seconds(second)});
        offset_ = {info.begin.time_since_epoch().count(), info.end.time_since_epoch().count(), info.offset.count()};
    }
    return second + offset_.seconds;
}

std::string Times::iso(std::int64_t time) const {
    return isoTime(time, unit_);
}

std::string Times::text(std::int64_t time) const {
    const auto inSeconds = second(time);
    if (!inSeconds.has_value() || !hasFourDigitYear(*inSeconds) || !hasFourDigitYear(local(*inSeconds))) {
        return std::to_string(time);
    }
    std::string text;
    appendSecond(local(*inSeconds), ' ', &text);
    appendFraction(time, *unit_, &text);
    return text;
}

std::string Times::localStart(std::int64_t time, std::int64_t step, std::size_t shown) const {
    const auto inSeconds = second(time);
    if (!inSeconds.has_value() || !hasFourDigitYear(*inSeconds) || !hasFourDigitYear(local(*inSeconds))) {
        return std::to_string(time);
    }
    std::string text;
    appendSecond(floorDivide(local(*inSeconds), step) * step, ' ', &text);
    text.resize(shown);
    return text;
}

std::string Times::minute(std::int64_t time) const {
    return localStart(time, MINUTE, 16);
}

std::string Times::hour(std::int64_t time) const {
    return localStart(time, HOUR, 16);
}

std::string Times::day(std::int64_t time) const {
    return localStart(time, DAY, 10);
}

// A second and what is behind it in the table's unit.
std::int64_t Times::scaled(std::string_view text, std::int64_t second, std::int64_t nanoseconds) const {
    const std::int64_t perSecond = timesPerSecond(*unit_);
    const std::int64_t nanosecondsEach = NANOSECONDS / perSecond;
    const std::int64_t behind = (nanoseconds + nanosecondsEach - 1) / nanosecondsEach;
    std::int64_t time = 0;
    if (__builtin_mul_overflow(second, perSecond, &time) || __builtin_add_overflow(time, behind, &time)) {
        refuse(text, fmt::format("it does not fit into 64 bits of {}", pluralOf(*unit_)));
    }
    return time;
}

// "-10m".
std::int64_t Times::back(std::string_view text, std::int64_t newest) const {
    std::int64_t count = 0;
    const char* const end = text.data() + text.size();
    const auto parsed = std::from_chars(text.data() + 1, end, count);
    const std::string_view unit(parsed.ptr, static_cast<std::size_t>(end - parsed.ptr));
    const std::int64_t length = unit == "s" ? 1 : unit == "m" ? MINUTE : unit == "h" ? HOUR : unit == "d" ? DAY : 0;
    if (parsed.ptr == text.data() + 1 || count < 0 || length == 0) {
        refuseForm(text);
    }
    std::int64_t distance = 0;
    std::int64_t time = 0;
    if (parsed.ec != std::errc() || __builtin_mul_overflow(count, length, &distance) ||
        __builtin_mul_overflow(distance, timesPerSecond(*unit_), &distance) ||
        __builtin_sub_overflow(newest, distance, &time)) {
        refuse(text, "it is too far back");
    }
    return time;
}

std::int64_t Times::parse(std::string_view text, std::int64_t newest) const {
    if (!text.empty() && text.find_first_not_of("0123456789") == std::string_view::npos) {
        std::int64_t raw = 0;
        if (std::from_chars(text.data(), text.data() + text.size(), raw).ec != std::errc()) {
            refuse(text, "it does not fit into 64 bits");
        }
        return raw;
    }
    if (!unit_.has_value()) {
        refuse(text, "the unit of the table's times cannot be guessed; --time-unit tells it");
    }
    if (text.starts_with('-')) {
        return back(text, newest);
    }
    const auto* zone = static_cast<const date::time_zone*>(zone_);
    std::string_view rest = text;
    const auto days = takeDate(text, &rest);
    if (days.has_value() && rest.empty()) {
        return scaled(text, secondAt(zone, *days * DAY, LocalTime::startOfDay, text), 0);
    }
    if (days.has_value() && !takeSign(&rest, "T ")) {
        refuseForm(text);
    }
    const DayTime time = takeDayTime(text, &rest);
    const bool utc = days.has_value() && takeSign(&rest, "Z");
    if (!rest.empty()) {
        refuseForm(text);
    }
    const std::int64_t day = days.has_value() ? *days : floorDivide(local(*second(newest)), DAY);
    return scaled(text, secondAt(utc ? nullptr : zone, day * DAY + time.second, LocalTime::exact, text),
                  time.nanoseconds);
}

const Times& TimesOfTables::of(std::optional<std::int64_t> sample) {
    const bool guess = options_.unit.empty() && sample.has_value();
    const std::optional<TimeUnit> unit = guess ? guessTimeUnit(*sample) : std::nullopt;
    const auto found = times_.find(unit);
    return found != times_.end() ? found->second
                                 : times_.emplace(unit, Times(options_, sample, console_)).first->second;
}

}  // namespace tabulo::tool
