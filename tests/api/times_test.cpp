#include "tabulo/times.h"

#include <gtest/gtest.h>

#include <limits>

namespace tabulo::test {

namespace {

TEST(ApiTimesTest, AUnitIsGuessedFromTheYearsAround1990To2100) {
    EXPECT_EQ(guessTimeUnit(1795203105), TimeUnit::seconds);
    EXPECT_EQ(guessTimeUnit(1795203105673), TimeUnit::milliseconds);
    EXPECT_EQ(guessTimeUnit(1795203105673000), TimeUnit::microseconds);
    EXPECT_EQ(guessTimeUnit(1795203105673000000), TimeUnit::nanoseconds);
    EXPECT_EQ(guessTimeUnit(631152000), TimeUnit::seconds);
    EXPECT_EQ(guessTimeUnit(631151999), std::nullopt);
    EXPECT_EQ(guessTimeUnit(4102444799), TimeUnit::seconds);
    EXPECT_EQ(guessTimeUnit(4102444800), std::nullopt);
    EXPECT_EQ(guessTimeUnit(0), std::nullopt);
    EXPECT_EQ(guessTimeUnit(-1795203105), std::nullopt);
    EXPECT_EQ(guessTimeUnit(std::numeric_limits<std::int64_t>::min()), std::nullopt);
    EXPECT_EQ(guessTimeUnit(std::numeric_limits<std::int64_t>::max()), std::nullopt);
}

TEST(ApiTimesTest, ATimeIsIsoTextToItsUnit) {
    EXPECT_EQ(isoTime(1795203105, TimeUnit::seconds), "2026-11-20T19:31:45Z");
    EXPECT_EQ(isoTime(-1, TimeUnit::milliseconds), "1969-12-31T23:59:59.999Z");
    EXPECT_EQ(isoTime(1795203105000042, TimeUnit::microseconds), "2026-11-20T19:31:45.000042Z");
    EXPECT_EQ(isoTime(std::numeric_limits<std::int64_t>::min(), TimeUnit::nanoseconds),
              "1677-09-21T00:12:43.145224192Z");
    EXPECT_EQ(isoTime(1709164800, TimeUnit::seconds), "2024-02-29T00:00:00Z");
}

TEST(ApiTimesTest, WithoutAUnitOrAYearOfFourDigitsATimeIsItsNumber) {
    EXPECT_EQ(isoTime(-5, std::nullopt), "-5");
    EXPECT_EQ(isoTime(-62167219200, TimeUnit::seconds), "0000-01-01T00:00:00Z");
    EXPECT_EQ(isoTime(-62167219201, TimeUnit::seconds), "-62167219201");
    EXPECT_EQ(isoTime(253402300799, TimeUnit::seconds), "9999-12-31T23:59:59Z");
    EXPECT_EQ(isoTime(253402300800, TimeUnit::seconds), "253402300800");
}

}  // namespace

}  // namespace tabulo::test
