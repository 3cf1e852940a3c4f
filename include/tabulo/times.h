// The times of messages as people read them. A table stores numbers whose unit nobody has told it.
//
// Nothing here fails but for want of memory, which is std::bad_alloc.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace tabulo {

enum class TimeUnit { seconds, milliseconds, microseconds, nanoseconds };

// "s", "ms", "us", "ns".
std::string_view timeUnitName(TimeUnit unit) noexcept;
// 1, 1000, 1000000, 1000000000.
std::int64_t timesPerSecond(TimeUnit unit) noexcept;
// The unit in which a time lies between 1990 and 2100; none when no unit does (0, for example).
std::optional<TimeUnit> guessTimeUnit(std::int64_t time) noexcept;

// The second that a time lies in, counted from the start of 1970 in UTC; negative before.
std::int64_t secondOfTime(std::int64_t time, TimeUnit unit) noexcept;
// True for a second whose year has four digits: from 0000 to 9999.
bool hasFourDigitYear(std::int64_t second) noexcept;
// Appends "2026-11-20T19:31:45", with such a character between day and time, for a second whose year has four digits;
// for others the text is of that form, and means nothing.
void appendSecond(std::int64_t second, char between, std::string* text);
// Appends what of a time lies behind its second: ".673"; nothing for a time in seconds.
void appendFraction(std::int64_t time, TimeUnit unit, std::string* text);

// ISO 8601 in UTC to the unit: "2026-11-20T19:31:45.673Z"; the number as text when there is no unit, or the year would
// not have four digits.
std::string isoTime(std::int64_t time, std::optional<TimeUnit> unit);

}  // namespace tabulo
