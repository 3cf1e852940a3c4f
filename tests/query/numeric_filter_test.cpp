#include "query/numeric_filter.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <sstream>
#include <utility>

#include "query/pseudo_field.h"

namespace tabulo::internal::test {
namespace {

using Long = std::int64_t;

constexpr double INFINITE = std::numeric_limits<double>::infinity();
constexpr double NOT_A_NUMBER = std::numeric_limits<double>::quiet_NaN();
constexpr Long LEAST = std::numeric_limits<Long>::min();
constexpr Long MOST = std::numeric_limits<Long>::max();

template <typename Number>
NumericFilter<Number> filterOf(const std::vector<std::pair<Number, Number>>& pairs, const std::vector<Number>& values) {
    std::vector<Number> minimums;
    std::vector<Number> maximums;
    for (const auto& pair : pairs) {
        minimums.push_back(pair.first);
        maximums.push_back(pair.second);
    }
    NumericFilter<Number> filter;
    numericFilter_build(&filter, minimums.data(), maximums.data(), static_cast<std::int32_t>(pairs.size()),
                        values.data(), static_cast<std::int32_t>(values.size()));
    return filter;
}

bool matches(const NumericFilter<double>& filter, double number) {
    const NumericValue value = numericValue_ofDouble(number);
    return numericFilter_matches(filter, MessageView{MessageMetadata{}, {}, {&value, 1}});
}

bool matches(const NumericFilter<Long>& filter, Long number) {
    const NumericValue value = numericValue_ofLong(number);
    return numericFilter_matches(filter, MessageView{MessageMetadata{}, {}, {&value, 1}});
}

// "(1,4) [7,7]": what the filter came to, its excluded ends with round brackets.
template <typename Number>
std::string entriesOf(const NumericFilter<Number>& filter) {
    std::ostringstream text;
    for (const auto& entry : filter.entries) {
        text << (text.tellp() > 0 ? " " : "") << ((entry.flags & LOW_INCLUSIVE) != 0 ? '[' : '(') << entry.low << ','
             << entry.high << ((entry.flags & HIGH_INCLUSIVE) != 0 ? ']' : ')');
    }
    return text.str();
}

std::string doubles(const std::vector<std::pair<double, double>>& pairs, const std::vector<double>& values) {
    return entriesOf(filterOf(pairs, values));
}

std::string longs(const std::vector<std::pair<Long, Long>>& pairs, const std::vector<Long>& values) {
    return entriesOf(filterOf(pairs, values));
}

TEST(NumericFilter, AnIntervalInsideAnotherIsAbsorbed) {
    EXPECT_EQ(doubles({{1, 10}, {2, 3}}, {}), "(1,10)");
    EXPECT_EQ(longs({{1, 10}, {2, 3}}, {}), "(1,10)");
    EXPECT_EQ(doubles({{2, 3}, {1, 10}}, {}), "(1,10)");
}

TEST(NumericFilter, ValuesAtBothTouchingPointsJoinThreeIntervals) {
    EXPECT_EQ(doubles({{1, 2}, {2, 3}, {3, 4}}, {2, 3}), "(1,4)");
    EXPECT_EQ(longs({{3, 4}, {2, 3}, {1, 2}}, {3, 2}), "(1,4)");
}

TEST(NumericFilter, AValueAtOneTouchingPointJoinsOnlyThere) {
    EXPECT_EQ(doubles({{1, 2}, {2, 3}, {3, 4}}, {3}), "(1,2) (2,4)");
    EXPECT_EQ(longs({{1, 2}, {2, 3}, {3, 4}}, {3}), "(1,2) (2,4)");
}

TEST(NumericFilter, ValuesAtEveryEndCloseTheJoinedInterval) {
    EXPECT_EQ(doubles({{1, 2}, {2, 3}}, {1, 2, 3}), "[1,3]");
    EXPECT_EQ(longs({{1, 2}, {2, 3}}, {1, 2, 3}), "[1,3]");
}

TEST(NumericFilter, AValueAtAnEndClosesThatEndAlone) {
    EXPECT_EQ(doubles({{1, 5}, {7, 9}}, {7}), "(1,5) [7,9)");
    EXPECT_EQ(doubles({{1, 5}, {7, 9}}, {5}), "(1,5] (7,9)");
    EXPECT_EQ(longs({{1, 5}, {7, 9}}, {7}), "(1,5) [7,9)");
    EXPECT_EQ(longs({{1, 5}, {7, 9}}, {5}), "(1,5] (7,9)");
}

TEST(NumericFilter, OverlappingAndTouchingIntervalsJoinThroughAValue) {
    EXPECT_EQ(doubles({{1, 4}, {3, 6}, {6, 9}}, {6}), "(1,9)");
    EXPECT_EQ(longs({{1, 4}, {3, 6}, {6, 9}}, {6}), "(1,9)");
}

TEST(NumericFilter, IntervalsFromOneLowEndKeepTheLargestHighEnd) {
    EXPECT_EQ(doubles({{1, 5}, {1, 8}, {1, 2}}, {}), "(1,8)");
    EXPECT_EQ(longs({{1, 5}, {1, 8}, {1, 2}}, {}), "(1,8)");
}

TEST(NumericFilter, APairWithoutAnInteriorGivesWayToAValue) {
    EXPECT_EQ(doubles({{5, 5}}, {5}), "[5,5]");
    EXPECT_EQ(longs({{5, 5}}, {5}), "[5,5]");
    EXPECT_EQ(doubles({{9, 3}}, {4}), "[4,4]");
    EXPECT_EQ(longs({{9, 3}}, {4}), "[4,4]");
}

TEST(NumericFilter, APairWhoseMaximumIsItsMinimumGivesNoEntry) {
    const DoubleFilter filter = filterOf<double>({{5, 5}}, {});
    EXPECT_TRUE(filter.entries.empty());
    EXPECT_GT(filter.overallMin, filter.overallMax);
}

TEST(NumericFilter, TheWholeLineExcludesItsInfinitiesUnlessTheyAreValues) {
    const DoubleFilter open = filterOf<double>({{-INFINITE, INFINITE}}, {});
    EXPECT_EQ(entriesOf(open), "(-inf,inf)");
    EXPECT_TRUE(matches(open, std::numeric_limits<double>::max()));
    EXPECT_FALSE(matches(open, INFINITE));
    EXPECT_FALSE(matches(open, -INFINITE));
    const DoubleFilter closed = filterOf<double>({{-INFINITE, INFINITE}}, {INFINITE, -INFINITE});
    EXPECT_EQ(entriesOf(closed), "[-inf,inf]");
    EXPECT_TRUE(matches(closed, INFINITE));
    EXPECT_TRUE(matches(closed, -INFINITE));
    EXPECT_FALSE(matches(closed, NOT_A_NUMBER));
}

TEST(NumericFilter, APairWithANaNIsDropped) {
    EXPECT_EQ(doubles({{NOT_A_NUMBER, 5}, {1, NOT_A_NUMBER}, {NOT_A_NUMBER, NOT_A_NUMBER}, {7, 8}}, {}), "(7,8)");
}

TEST(NumericFilter, NaNValuesAreRemoved) {
    EXPECT_EQ(doubles({}, {NOT_A_NUMBER, 3, NOT_A_NUMBER, 2}), "[2,2] [3,3]");
    EXPECT_EQ(doubles({}, {NOT_A_NUMBER}), "");
}

TEST(NumericFilter, NegativeAndPositiveZeroAreOnePointThatMatchesBoth) {
    const DoubleFilter filter = filterOf<double>({}, {0.0, -0.0});
    EXPECT_EQ(filter.entries.size(), 1U);
    EXPECT_TRUE(matches(filter, 0.0));
    EXPECT_TRUE(matches(filter, -0.0));
    EXPECT_EQ(filterOf<double>({{-0.0, 1}}, {0.0}).entries.size(), 1U) << "the value closes the interval's end";
    EXPECT_TRUE(matches(filterOf<double>({{0.0, 1}}, {-0.0}), 0.0));
}

TEST(NumericFilter, LongIntervalsReachBothEndsOfTheirType) {
    const LongFilter filter = filterOf<Long>({{LEAST, -1}, {-1, MOST}}, {-1, MOST});
    EXPECT_EQ(entriesOf(filter), "(-9223372036854775808,9223372036854775807]");
    EXPECT_FALSE(matches(filter, LEAST));
    EXPECT_TRUE(matches(filter, LEAST + 1));
    EXPECT_TRUE(matches(filter, MOST));
    EXPECT_EQ(filter.overallMin, LEAST);
    EXPECT_EQ(filter.overallMax, MOST);
}

TEST(NumericFilter, ALongIntervalBetweenNeighboursIsKeptAndMatchesNothing) {
    const LongFilter filter = filterOf<Long>({{1, 2}}, {});
    EXPECT_EQ(entriesOf(filter), "(1,2)");
    EXPECT_FALSE(matches(filter, 1));
    EXPECT_FALSE(matches(filter, 2));
}

TEST(NumericFilter, AValueThatClosesAnIntervalJoinsItWithTheNextOne) {
    const DoubleFilter filter = filterOf<double>({{1, 5}, {3, 8}, {8, 10}}, {8, 12, NOT_A_NUMBER, 12});
    EXPECT_EQ(entriesOf(filter), "(1,10) [12,12]");
    EXPECT_EQ(filter.overallMin, 1);
    EXPECT_EQ(filter.overallMax, 12);
}

TEST(NumericFilter, ValuesBeforeBetweenAndBehindIntervalsBecomePoints) {
    EXPECT_EQ(longs({{10, 20}, {30, 40}}, {50, 25, 5, 15, 25, 0}), "[0,0] [5,5] (10,20) [25,25] (30,40) [50,50]");
}

TEST(NumericFilter, AFilterWithoutEntriesMatchesNothingAndHasNoBounds) {
    const LongFilter filter = filterOf<Long>({}, {});
    EXPECT_FALSE(matches(filter, 0));
    EXPECT_EQ(filter.overallMin, 0);
    EXPECT_EQ(filter.overallMax, -1);
    EXPECT_FALSE(matches(filterOf<double>({}, {}), 0.0));
}

TEST(NumericFilter, TheOverallBoundsOfNegativeEntriesDoNotReachZero) {
    const LongFilter filter = filterOf<Long>({{-9, -7}}, {-3});
    EXPECT_EQ(filter.overallMin, -9);
    EXPECT_EQ(filter.overallMax, -3);
}

TEST(NumericFilter, ExcludedEndsAreOutsideAndIncludedOnesInside) {
    const DoubleFilter filter = filterOf<double>({{1, 5}, {7, 9}}, {7});
    EXPECT_FALSE(matches(filter, 1));
    EXPECT_TRUE(matches(filter, std::nextafter(1.0, 2.0)));
    EXPECT_FALSE(matches(filter, 5));
    EXPECT_FALSE(matches(filter, 6));
    EXPECT_TRUE(matches(filter, 7));
    EXPECT_FALSE(matches(filter, 9));
}

TEST(NumericFilter, EveryPointOfALongFilterIsFoundAndNothingBetweenThem) {
    std::vector<Long> values;
    for (Long value = 0; value < 500; ++value) {
        values.push_back(value * 3);
    }
    const LongFilter filter = filterOf<Long>({}, values);
    ASSERT_EQ(filter.entries.size(), 500U);
    for (Long value = -2; value < 1502; ++value) {
        EXPECT_EQ(matches(filter, value), value >= 0 && value < 1500 && value % 3 == 0) << value;
    }
}

TEST(PseudoField, ANumberThatNamesNoneHasTheValueZero) {
    const MessageMetadata metadata{};
    for (const std::int32_t field : {-1, std::int32_t{PSEUDO_FIELD_COUNT}, 1000}) {
        EXPECT_EQ(pseudoField_value(metadata, field), 0) << field;
    }
}

}  // namespace
}  // namespace tabulo::internal::test
