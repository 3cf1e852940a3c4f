// Times as people write and read them, in the zone of their choice.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "tabulo/times.h"
#include "tool/console.h"

namespace CLI {
class App;
}  // namespace CLI

namespace tabulo::tool {

// What the options --time-unit and --tz have said.
struct TimeOptions {
    std::string unit;  // empty: guessed
    std::string zone;  // a name of the tz database; empty: UTC
};

// Declares the two.
void declareTimes(CLI::App& app, TimeOptions* options);

// Reads and writes the times of a set of tables. One thread at a time uses it.
class Times {
  public:
    // Without a unit it is guessed from `sample`, a time of the tables, and said once on standard error; a sample from
    // which nothing can be guessed leaves times the numbers that they are. UsageError for an unknown unit or zone.
    Times(const TimeOptions& options, std::optional<std::int64_t> sample, Console& console);

    std::optional<TimeUnit> unit() const noexcept { return unit_; }
    // The second that a time lies in, counted from 1970 on; none when there is no unit.
    std::optional<std::int64_t> second(std::int64_t time) const noexcept;
    // ISO 8601 in UTC to the unit: "2026-11-20T19:31:45.673Z"; the number when there is no unit, or the year would not
    // have four digits.
    std::string iso(std::int64_t time) const;
    // For eyes, in the chosen zone: "2026-11-20 19:31:45.673".
    std::string text(std::int64_t time) const;
    // A point in time as the user gives it: "2026-11-20T19:31:45.673", "2026-11-20" (its start), "19:31" (on the day of
    // `newest`), "-10m" (back from `newest`; s, m, h, d), all digits (raw); in the chosen zone, or in UTC with a "Z"
    // behind it. A fraction finer than the unit gives the first time of the unit that is not before it, so that it
    // means the same as the lower end of a range and as one that is excluded. UsageError for anything else, for a local
    // time that exists twice or never, and where the unit is not known but needed. A day whose midnight does not exist
    // starts with its first second.
    std::int64_t parse(std::string_view text, std::int64_t newest) const;
    // The start of the time's minute, hour or day in the chosen zone, as the user reads it: "2026-11-20 19:31",
    // "2026-11-20 19:00", "2026-11-20"; the number when there is no unit.
    std::string minute(std::int64_t time) const;
    std::string hour(std::int64_t time) const;
    std::string day(std::int64_t time) const;

  private:
    // The stretch of seconds in which the zone has one distance from UTC, as it was asked for last.
    struct Offset {
        std::int64_t begin = 0;
        std::int64_t end = 0;
        std::int64_t seconds = 0;
    };

    std::int64_t local(std::int64_t second) const;
    std::string localStart(std::int64_t time, std::int64_t step, std::size_t shown) const;
    std::int64_t scaled(std::string_view text, std::int64_t second, std::int64_t nanoseconds) const;
    std::int64_t back(std::string_view text, std::int64_t newest) const;

    std::optional<TimeUnit> unit_;
    const void* zone_ = nullptr;  // of the date library; null for UTC
    mutable Offset offset_;
};

// The Times of tables that each may have a unit of their own; a guessed unit is said once.
class TimesOfTables {
  public:
    TimesOfTables(TimeOptions options, Console& console) : options_(std::move(options)), console_(console) {}
    // Of the table that has such a time. Valid as long as this object.
    const Times& of(std::optional<std::int64_t> sample);

  private:
    TimeOptions options_;
    Console& console_;
    std::map<std::optional<TimeUnit>, Times> times_;  // by the guessed unit
};

}  // namespace tabulo::tool
