#include "tool/times.h"

#include <gtest/gtest.h>

#include <limits>
#include <string>

#include "tests/support/captured_output.h"

namespace tabulo::tool {

namespace {

constexpr std::int64_t NEWEST = 1795203105673;  // 2026-11-20T19:31:45.673Z

class TimesTest : public ::testing::Test {
  protected:
    Times times(const std::string& zone = "", const std::string& unit = "ms") {
        return Times({unit, zone}, std::nullopt, console);
    }
    std::string refusal(const Times& zoned, const std::string& text) {
        try {
            return "parsed as " + std::to_string(zoned.parse(text, NEWEST));
        } catch (const UsageError& error) {
            return error.what();
        }
    }

    Console console;
};

TEST_F(TimesTest, AGuessIsToldOnceAndAGivenUnitIsNot) {
    internal::test::CapturedOutput errors(stderr);
    const Times guessed({}, NEWEST, console);
    EXPECT_EQ(guessed.unit(), TimeUnit::milliseconds);
    EXPECT_EQ(guessed.iso(NEWEST), "2026-11-20T19:31:45.673Z");
    EXPECT_EQ(errors.text(), "tabulo: times are taken for milliseconds (--time-unit)\n");
    EXPECT_EQ(Times({"us", ""}, NEWEST, console).unit(), TimeUnit::microseconds);
    EXPECT_EQ(Times({}, 0, console).unit(), std::nullopt);
    EXPECT_EQ(errors.text(), "tabulo: times are taken for milliseconds (--time-unit)\n");
}

TEST_F(TimesTest, AnUnknownUnitOrZoneIsWrongUse) {
    EXPECT_THROW(times("", "min"), UsageError);
    EXPECT_THROW(times("Europe/Nowhere"), UsageError);
}

TEST_F(TimesTest, ATimeIsShownToItsUnit) {
    EXPECT_EQ(times("", "s").iso(1795203105), "2026-11-20T19:31:45Z");
    EXPECT_EQ(times("", "us").iso(1795203105000042), "2026-11-20T19:31:45.000042Z");
    EXPECT_EQ(times("", "ns").iso(1795203105000000001), "2026-11-20T19:31:45.000000001Z");
    EXPECT_EQ(times().iso(0), "1970-01-01T00:00:00.000Z");
    EXPECT_EQ(times().iso(-1), "1969-12-31T23:59:59.999Z");
    EXPECT_EQ(times().text(NEWEST), "2026-11-20 19:31:45.673");
}

TEST_F(TimesTest, AYearOfOtherThanFourDigitsIsShownAsTheNumber) {
    EXPECT_EQ(times("", "s").iso(253402300799), "9999-12-31T23:59:59Z");
    EXPECT_EQ(times("", "s").iso(253402300800), "253402300800");
    EXPECT_EQ(times("", "s").iso(-62167219200), "0000-01-01T00:00:00Z");
    EXPECT_EQ(times("", "s").text(-62167219201), "-62167219201");
    EXPECT_EQ(times("Asia/Tokyo", "s").text(253402300799), "253402300799");
    EXPECT_EQ(times("", "s").minute(253402300800), "253402300800");
    const std::int64_t least = std::numeric_limits<std::int64_t>::min();
    EXPECT_EQ(times("", "s").iso(least), std::to_string(least));
    EXPECT_EQ(times("", "ns").iso(least), "1677-09-21T00:12:43.145224192Z");
}

TEST_F(TimesTest, WithoutAUnitATimeIsItsNumber) {
    const Times plain({}, std::nullopt, console);
    EXPECT_EQ(plain.iso(5), "5");
    EXPECT_EQ(plain.text(5), "5");
    EXPECT_EQ(plain.day(5), "5");
    EXPECT_EQ(plain.parse("5", 0), 5);
    EXPECT_THROW(plain.parse("19:31", 0), UsageError);
    EXPECT_THROW(plain.parse("-10m", 0), UsageError);
}

TEST_F(TimesTest, EyesSeeTheirZoneAndJsonSeesUtc) {
    const Times berlin = times("Europe/Berlin");
    EXPECT_EQ(berlin.text(NEWEST), "2026-11-20 20:31:45.673");
    EXPECT_EQ(berlin.iso(NEWEST), "2026-11-20T19:31:45.673Z");
    EXPECT_EQ(berlin.text(1782851400000), "2026-06-30 22:30:00.000");
    EXPECT_EQ(berlin.minute(NEWEST), "2026-11-20 20:31");
    EXPECT_EQ(berlin.hour(NEWEST), "2026-11-20 20:00");
    EXPECT_EQ(berlin.day(NEWEST), "2026-11-20");
    EXPECT_EQ(times("Asia/Tokyo").day(NEWEST), "2026-11-21");
    EXPECT_EQ(times("Asia/Kolkata").hour(NEWEST), "2026-11-21 01:00");
}

TEST_F(TimesTest, APointInTimeIsReadInEachOfItsForms) {
    EXPECT_EQ(times().parse("2026-11-20T19:31:45.673", 0), NEWEST);
    EXPECT_EQ(times().parse("2026-11-20 19:31:45.673", 0), NEWEST);
    EXPECT_EQ(times().parse("2026-11-20T19:31:45", 0), 1795203105000);
    EXPECT_EQ(times().parse("2026-11-20T19:31", 0), 1795203060000);
    EXPECT_EQ(times().parse("2026-11-20", 0), 1795219200000 - 86400000);
    EXPECT_EQ(times().parse("19:31", NEWEST), 1795203060000);
    EXPECT_EQ(times().parse("19:31:45.5", NEWEST), 1795203105500);
    EXPECT_EQ(times().parse("-10m", NEWEST), NEWEST - 600000);
    EXPECT_EQ(times().parse("-2s", NEWEST), NEWEST - 2000);
    EXPECT_EQ(times().parse("-3h", NEWEST), NEWEST - 3 * 3600000);
    EXPECT_EQ(times().parse("-1d", NEWEST), NEWEST - 86400000);
    EXPECT_EQ(times().parse("42", NEWEST), 42);
}

TEST_F(TimesTest, APointInTimeIsReadInItsZone) {
    const Times berlin = times("Europe/Berlin");
    EXPECT_EQ(berlin.parse("2026-11-20T20:31:45.673", 0), NEWEST);
    EXPECT_EQ(berlin.parse("2026-11-20T19:31:45.673Z", 0), NEWEST);
    EXPECT_EQ(times("Asia/Tokyo").parse("04:31:45.673", NEWEST), NEWEST);
    EXPECT_EQ(times("Asia/Tokyo").parse("2026-11-21", 0), 1795219200000 - 9 * 3600000);
}

TEST_F(TimesTest, AFractionFinerThanTheUnitGivesTheFirstTimeBehindIt) {
    EXPECT_EQ(times("", "s").parse("2026-11-20T19:31:45.000", 0), 1795203105);
    EXPECT_EQ(times("", "s").parse("2026-11-20T19:31:45.001", 0), 1795203106);
    EXPECT_EQ(times().parse("2026-11-20T19:31:45.6730001", 0), NEWEST + 1);
}

TEST_F(TimesTest, ALocalTimeThatNeverWasOrWasTwiceIsRefused) {
    const Times berlin = times("Europe/Berlin");
    EXPECT_EQ(refusal(berlin, "2026-03-29T02:30"),
              "'2026-03-29T02:30' is no point in time: the clocks of Europe/Berlin skip it");
    EXPECT_EQ(refusal(berlin, "2026-10-25T02:30"),
              "'2026-10-25T02:30' is no point in time: the clocks of Europe/Berlin show it twice; give it in UTC, with "
              "a Z behind it");
    EXPECT_EQ(berlin.parse("2026-10-25T01:30Z", 0), berlin.parse("2026-10-25T00:30Z", 0) + 3600000);
    EXPECT_EQ(berlin.text(berlin.parse("2026-03-29T03:00", 0) - 1), "2026-03-29 01:59:59.999");
}

TEST_F(TimesTest, ADayWithoutMidnightStartsWithItsFirstSecond) {
    const Times beirut = times("Asia/Beirut");
    EXPECT_EQ(beirut.text(beirut.parse("2022-03-27", 0)), "2022-03-27 01:00:00.000");
    const Times havana = times("America/Havana");  // 00:00 to 01:00 comes twice
    EXPECT_EQ(havana.parse("2022-11-06", 0), havana.parse("2022-11-06T02:00", 0) - 3 * 3600000);
}

TEST_F(TimesTest, WhatIsNoPointInTimeIsRefused) {
    const Times utc = times();
    for (const char* text : {"",
                             "-",
                             "yesterday",

                             "2026-11",
                             "2026-11-",
                             "2026-11-20T",
                             "2026-11-20T19",
                             "2026-11-20T19:3",
                             "2026-11-20T19:31:",
                             "2026-11-20T19:31:45.",
                             "2026-11-20T19:31:45,5",
                             "2026-11-20T19:31Zx",
                             "19:31Z",

                             "19:",
                             "-10",
                             "-10y",
                             "--1m",
                             "-m",
                             "+1",
                             "1.5",
                             "2026-11-20x",
                             " 19:31",
                             "2026-11-20T19:31:45.0000000001"}) {
        const std::string said = refusal(utc, text);
        EXPECT_NE(said.find("is no point in time"), std::string::npos) << text << ": " << said;
    }
    EXPECT_EQ(refusal(utc, "2026-02-29"), "'2026-02-29' is no point in time: the calendar has no such day");
    EXPECT_EQ(refusal(utc, "2026-13-01"), "'2026-13-01' is no point in time: the calendar has no such day");
    EXPECT_EQ(refusal(utc, "24:00"), "'24:00' is no point in time: no day has this time");
    EXPECT_EQ(refusal(utc, "19:60"), "'19:60' is no point in time: no day has this time");
    EXPECT_EQ(refusal(utc, "19:31:60"), "'19:31:60' is no point in time: no day has this time");
    EXPECT_EQ(refusal(utc, "9223372036854775808"),
              "'9223372036854775808' is no point in time: it does not fit into 64 bits");
    EXPECT_EQ(refusal(utc, "-9223372036854775807d"), "'-9223372036854775807d' is no point in time: it is too far back");
    EXPECT_EQ(refusal(times("", "ns"), "2300-01-01"),
              "'2300-01-01' is no point in time: it does not fit into 64 bits of nanoseconds");
}

}  // namespace

}  // namespace tabulo::tool
