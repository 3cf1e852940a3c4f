#include "tabulo/times.h"

#include <array>
#include <chrono>
#include <cstddef>

namespace tabulo {

namespace {

constexpr std::int64_t YEAR_1990 = 631152000;
constexpr std::int64_t YEAR_2100 = 4102444800;
constexpr std::int64_t YEAR_0 = -62167219200;
constexpr std::int64_t YEAR_10000 = 253402300800;
constexpr std::int64_t MINUTE = 60;
constexpr std::int64_t HOUR = 60 * MINUTE;
constexpr std::int64_t DAY = 24 * HOUR;

struct Unit {
    std::string_view name;
    std::int64_t perSecond;
    int digits;  // behind the point
};
constexpr std::array<Unit, 4> UNITS = {{{"s", 1, 0}, {"ms", 1000, 3}, {"us", 1000000, 6}, {"ns", 1000000000, 9}}};

const Unit& unitOf(TimeUnit unit) noexcept {
    return UNITS[static_cast<std::size_t>(unit)];
}

std::int64_t floorDivide(std::int64_t number, std::int64_t divisor) noexcept {
    return number / divisor - (number % divisor < 0 ? 1 : 0);
}

void putDigits(char* to, std::int64_t number, int count) noexcept {
    for (char* digit = to + count; digit != to; number /= 10) {
        *--digit = static_cast<char>('0' + number % 10);
    }
}

}  // namespace

std::string_view timeUnitName(TimeUnit unit) noexcept {
    return unitOf(unit).name;
}

std::int64_t timesPerSecond(TimeUnit unit) noexcept {
    return unitOf(unit).perSecond;
}

std::optional<TimeUnit> guessTimeUnit(std::int64_t time) noexcept {
    for (std::size_t i = 0; i < UNITS.size(); ++i) {
        const std::int64_t second = floorDivide(time, UNITS[i].perSecond);
        if (second >= YEAR_1990 && second < YEAR_2100) {
            return static_cast<TimeUnit>(i);
        }
    }
    return std::nullopt;
}

std::int64_t secondOfTime(std::int64_t time, TimeUnit unit) noexcept {
    return floorDivide(time, unitOf(unit).perSecond);
}

bool hasFourDigitYear(std::int64_t second) noexcept {
    return second >= YEAR_0 && second < YEAR_10000;
}

void appendSecond(std::int64_t second, char between, std::string* text) {
    const std::int64_t days = floorDivide(second, DAY);
    const std::int64_t inDay = second - days * DAY;
    const std::chrono::year_month_day day{std::chrono::sys_days{std::chrono::days{days}}};
    std::array<char, 19> shown{};
    putDigits(&shown[0], static_cast<int>(day.year()), 4);
    shown[4] = '-';
    putDigits(&shown[5], static_cast<unsigned>(day.month()), 2);
    shown[7] = '-';
    putDigits(&shown[8], static_cast<unsigned>(day.day()), 2);
    shown[10] = between;
    putDigits(&shown[11], inDay / HOUR, 2);
    shown[13] = ':';
    putDigits(&shown[14], inDay / MINUTE % 60, 2);
    shown[16] = ':';
    putDigits(&shown[17], inDay % MINUTE, 2);
    text->append(shown.data(), shown.size());
}

void appendFraction(std::int64_t time, TimeUnit unit, std::string* text) {
    const auto& [name, perSecond, digits] = unitOf(unit);
    if (digits > 0) {
        std::array<char, 10> shown{'.'};
        putDigits(&shown[1], (time % perSecond + perSecond) % perSecond, digits);
        text->append(shown.data(), static_cast<std::size_t>(digits) + 1);
    }
}

std::string isoTime(std::int64_t time, std::optional<TimeUnit> unit) {
    if (!unit.has_value() || !hasFourDigitYear(secondOfTime(time, *unit))) {
        return std::to_string(time);
    }
    std::string text;
    appendSecond(secondOfTime(time, *unit), 'T', &text);
    appendFraction(time, *unit, &text);
    text += 'Z';
    return text;
}

}  // namespace tabulo
