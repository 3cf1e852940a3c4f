#include "query/query_conditions.h"

#include <gtest/gtest.h>

#include <limits>
#include <string_view>

#include "tests/support/allocation_failure.h"

namespace tabulo::internal::test {
namespace {

constexpr std::int32_t MOST = std::numeric_limits<std::int32_t>::max();

class Conditions : public ::testing::Test {
  protected:
    ErrorCode setRanges(const std::vector<std::int32_t>& starts, const std::vector<std::int32_t>& ends) {
        return conditions_setMessageIdRanges(conditions, starts.data(), static_cast<std::int32_t>(starts.size()),
                                             ends.data(), static_cast<std::int32_t>(ends.size()));
    }
    // The range of a class; none when ids are not asked for by class, too.
    std::optional<IdRange> range(MessageClass messageClass) const {
        const std::optional<ClassIdRanges>& ranges = conditions->metadata.idsByClass;
        return ranges ? (*ranges)[static_cast<std::size_t>(messageClass)] : std::nullopt;
    }
    bool perClassIds() const { return conditions->metadata.idsByClass.has_value(); }

    QueryConditionsPtr owned{conditions_create()};
    QueryConditions* conditions = owned.get();
};

TEST_F(Conditions, AFreshRecordAsksForNothing) {
    EXPECT_FALSE(conditions->iterateBackward);
    EXPECT_FALSE(conditions->inverted);
    EXPECT_EQ(conditions->metadata.seqNums, std::nullopt);
    EXPECT_EQ(conditions->metadata.ids, std::nullopt);
    EXPECT_EQ(conditions->metadata.idsByClass, std::nullopt);
    EXPECT_EQ(conditions->metadata.from, std::nullopt);
    EXPECT_EQ(conditions->metadata.until, std::nullopt);
    EXPECT_EQ(conditions->metadata.possDup, std::nullopt);
    EXPECT_TRUE(conditions->metadata.excludedMsgTypes.empty());
    EXPECT_TRUE(conditions->stringFilters.empty());
    EXPECT_TRUE(conditions->doubleFilters.empty());
    EXPECT_TRUE(conditions->longFilters.empty());
}

TEST_F(Conditions, PlainSettersReachTheirFields) {
    EXPECT_EQ(conditions_setIterateBackward(conditions, true), NO_ERROR);
    EXPECT_EQ(conditions_setInverted(conditions, true), NO_ERROR);
    EXPECT_EQ(conditions_setSeqNumRange(conditions, -5, 7), NO_ERROR);
    EXPECT_EQ(conditions_setStartingTime(conditions, -1), NO_ERROR);
    EXPECT_EQ(conditions_setEndingTime(conditions, std::numeric_limits<std::int64_t>::max()), NO_ERROR);
    EXPECT_TRUE(conditions->iterateBackward);
    EXPECT_TRUE(conditions->inverted);
    EXPECT_EQ(conditions->metadata.seqNums, (ValueRange<std::int32_t>{-5, 7}));
    EXPECT_EQ(conditions->metadata.from, -1);
    EXPECT_EQ(conditions->metadata.until, std::numeric_limits<std::int64_t>::max());
}

TEST_F(Conditions, ThePossDupFlagIsReplacedByALaterOne) {
    EXPECT_EQ(conditions_setPossDupFlag(conditions, true), NO_ERROR);
    EXPECT_EQ(conditions->metadata.possDup, true);
    EXPECT_EQ(conditions_setPossDupFlag(conditions, false), NO_ERROR);
    EXPECT_EQ(conditions->metadata.possDup, false);
}

TEST_F(Conditions, WhatMeansNotSetTakesBackWhatWasSet) {
    EXPECT_EQ(conditions_setSeqNumRange(conditions, 5, 5), NO_ERROR);
    EXPECT_EQ(conditions->metadata.seqNums, (ValueRange<std::int32_t>{5, 5}));
    EXPECT_EQ(conditions_setSeqNumRange(conditions, 5, 4), NO_ERROR);
    EXPECT_EQ(conditions->metadata.seqNums, std::nullopt) << "an end below the begin";
    EXPECT_EQ(conditions_setMessageIdRange(conditions, 5, 4), NO_ERROR);
    EXPECT_EQ(conditions->metadata.ids, (IdRange{5, 4})) << "ids that no message has";
    EXPECT_EQ(conditions_setMessageIdRange(conditions, -1, 4), NO_ERROR);
    EXPECT_EQ(conditions->metadata.ids, std::nullopt) << "a start of -1";
    EXPECT_EQ(conditions_setStartingTime(conditions, 5), NO_ERROR);
    EXPECT_EQ(conditions_setStartingTime(conditions, 0), NO_ERROR);
    EXPECT_EQ(conditions->metadata.from, std::nullopt);
    EXPECT_EQ(conditions_setEndingTime(conditions, 5), NO_ERROR);
    EXPECT_EQ(conditions_setEndingTime(conditions, 0), NO_ERROR);
    EXPECT_EQ(conditions->metadata.until, std::nullopt);
}

TEST_F(Conditions, AClassWithAStartAloneGoesToItsLastId) {
    EXPECT_EQ(setRanges({0x20000005}, {}), NO_ERROR);
    EXPECT_EQ(range(APP_FROM), (IdRange{0x20000005, 0x3FFFFFFE}));
    EXPECT_EQ(range(APP_TO), std::nullopt);
}

TEST_F(Conditions, AClassWhoseStartIsItsEndIsDropped) {
    EXPECT_EQ(setRanges({0x20000005, 3}, {0x20000005, 9}), NO_ERROR);
    EXPECT_EQ(range(APP_FROM), std::nullopt);
    EXPECT_EQ(range(APP_TO), (IdRange{3, 9}));
    EXPECT_EQ(setRanges({MOST}, {}), NO_ERROR);
    EXPECT_FALSE(perClassIds()) << "the class's last id is also its end";
}

TEST_F(Conditions, AClassWithAnEndAloneBeginsAtItsFirstIdAndDoesNotSwitchTheTestOn) {
    EXPECT_EQ(setRanges({}, {100}), NO_ERROR);
    EXPECT_FALSE(perClassIds());
    EXPECT_EQ(setRanges({0x60000000}, {100}), NO_ERROR);
    EXPECT_EQ(range(APP_TO), (IdRange{0, 100}));
    EXPECT_EQ(range(RESENT), (IdRange{0x60000000, MOST}));
}

TEST_F(Conditions, ALaterIdOfAClassReplacesAnEarlierOneAndIdsWithoutAClassAreIgnored) {
    EXPECT_EQ(setRanges({50, -7, 20}, {80, -1, 90}), NO_ERROR);
    EXPECT_EQ(range(APP_TO), (IdRange{20, 90}));
    EXPECT_EQ(setRanges({-7}, {-9}), NO_ERROR);
    EXPECT_FALSE(perClassIds()) << "the bounds of an earlier call are gone";
}

TEST_F(Conditions, ZeroIsAnIdLikeAnyOther) {
    EXPECT_EQ(setRanges({0}, {5}), NO_ERROR);
    EXPECT_EQ(range(APP_TO), (IdRange{0, 5}));
}

TEST_F(Conditions, TheSingleIdRangeSwitchesThePerClassTestOff) {
    EXPECT_EQ(setRanges({5}, {9}), NO_ERROR);
    EXPECT_EQ(conditions_setMessageIdRange(conditions, 3, 4), NO_ERROR);
    EXPECT_FALSE(perClassIds());
    EXPECT_EQ(conditions->metadata.ids, (IdRange{3, 4}));
    EXPECT_EQ(setRanges({5}, {9}), NO_ERROR);
    EXPECT_EQ(conditions_setMessageIdRange(conditions, -1, 4), NO_ERROR);
    EXPECT_FALSE(perClassIds()) << "also one that is not set";
}

TEST_F(Conditions, RangesPerClassReplaceTheSingleOneAlsoWhenNoneIsLeft) {
    EXPECT_EQ(conditions_setMessageIdRange(conditions, 3, 4), NO_ERROR);
    EXPECT_EQ(setRanges({5}, {9}), NO_ERROR);
    EXPECT_EQ(conditions->metadata.ids, std::nullopt);
    EXPECT_EQ(range(APP_TO), (IdRange{5, 9}));
    EXPECT_EQ(conditions_setMessageIdRange(conditions, 3, 4), NO_ERROR);
    EXPECT_EQ(setRanges({}, {9}), NO_ERROR);
    EXPECT_EQ(conditions->metadata.ids, std::nullopt);
    EXPECT_FALSE(perClassIds());
}

TEST_F(Conditions, RefusedRangesLeaveTheOldOnes) {
    const std::int32_t id = 5;
    EXPECT_EQ(conditions_setMessageIdRange(conditions, 3, 4), NO_ERROR);
    EXPECT_EQ(conditions_setMessageIdRanges(conditions, nullptr, 1, &id, 1), NULL_POINTER_ERROR);
    EXPECT_EQ(conditions_setMessageIdRanges(conditions, &id, 1, nullptr, 1), NULL_POINTER_ERROR);
    EXPECT_EQ(conditions_setMessageIdRanges(conditions, &id, 1, &id, -1), WRONG_PARAMETER_ERROR);
    EXPECT_EQ(conditions->metadata.ids, (IdRange{3, 4}));
    EXPECT_FALSE(perClassIds());
}

std::string excluded(const QueryConditions* conditions) {
    std::string all;
    for (const ExcludedMsgType& type : conditions->metadata.excludedMsgTypes) {
        all += std::string(type.data(), type.size()) + "|";
    }
    return all;
}

TEST_F(Conditions, ExcludedMsgTypesAreSortedOnceTheLastIsWritten) {
    using namespace std::string_literals;
    EXPECT_EQ(conditions_setExcludedMsgTypeCount(conditions, 3), NO_ERROR);
    EXPECT_EQ(conditions_setExcludedMsgType(conditions, 0, "D"), NO_ERROR);
    EXPECT_EQ(conditions_setExcludedMsgType(conditions, 1, "0"), NO_ERROR);
    EXPECT_EQ(excluded(conditions), "D\0\0\0\0|0\0\0\0\0|\0\0\0\0\0|"s) << "not sorted yet";
    EXPECT_EQ(conditions_setExcludedMsgType(conditions, 2, "8"), NO_ERROR);
    EXPECT_EQ(excluded(conditions), "0\0\0\0\0|8\0\0\0\0|D\0\0\0\0|"s);
}

TEST_F(Conditions, AnExcludedMsgTypeIsCutToFiveCharactersAndPadded) {
    using namespace std::string_literals;
    EXPECT_EQ(conditions_setExcludedMsgTypeCount(conditions, 1), NO_ERROR);
    EXPECT_EQ(conditions_setExcludedMsgType(conditions, 0, "ABCDEFG"), NO_ERROR);
    EXPECT_EQ(excluded(conditions), "ABCDE|");
    EXPECT_EQ(conditions_setExcludedMsgType(conditions, 0, "x"), NO_ERROR);
    EXPECT_EQ(excluded(conditions), "x\0\0\0\0|"s) << "nothing is left of the longer one";
    EXPECT_EQ(conditions_setExcludedMsgTypeCount(conditions, 0), NO_ERROR);
    EXPECT_EQ(excluded(conditions), "");
}

TEST_F(Conditions, StringValuesAreSortedOnceTheLastIsWritten) {
    EXPECT_EQ(conditions_addStringFilter(conditions, 4, true, true), NO_ERROR);
    EXPECT_EQ(conditions_setStringFilterValueCount(conditions, 3), NO_ERROR);
    EXPECT_EQ(conditions_setStringFilterValue(conditions, "b", 0), NO_ERROR);
    EXPECT_EQ(conditions_setStringFilterValue(conditions, "C", 1), NO_ERROR);
    const StringFilter& filter = conditions->stringFilters.back();
    EXPECT_EQ(filter.values[0], "b");
    EXPECT_EQ(conditions_setStringFilterValue(conditions, "A", 2), NO_ERROR);
    EXPECT_EQ(filter.values[0], "A");
    EXPECT_EQ(filter.values[1], "b");
    EXPECT_EQ(filter.values[2], "C");
    EXPECT_EQ(filter.fieldIndex, 4);
    EXPECT_TRUE(filter.includeNull);
    EXPECT_TRUE(filter.ignoreCase);
}

TEST_F(Conditions, PerFilterSettersActOnTheFilterAddedLast) {
    EXPECT_EQ(conditions_addStringFilter(conditions, 0, false, false), NO_ERROR);
    EXPECT_EQ(conditions_setStringFilterValueCount(conditions, 1), NO_ERROR);
    EXPECT_EQ(conditions_addStringFilter(conditions, 1, false, false), NO_ERROR);
    EXPECT_EQ(conditions_setStringFilterValueCount(conditions, 2), NO_ERROR);
    EXPECT_EQ(conditions_setStringFilterRangeCount(conditions, 4), NO_ERROR);
    EXPECT_EQ(conditions_setStringFilterRange(conditions, nullptr, "m", 2), NO_ERROR);
    EXPECT_EQ(conditions->stringFilters[0].values.size(), 1U);
    EXPECT_EQ(conditions->stringFilters[0].ranges.size(), 0U);
    EXPECT_EQ(conditions->stringFilters[1].values.size(), 2U);
    EXPECT_EQ(conditions->stringFilters[1].ranges[2], std::nullopt);
    EXPECT_EQ(conditions->stringFilters[1].ranges[3], "m");
}

TEST_F(Conditions, SizingAgainDropsWhatWasThere) {
    EXPECT_EQ(conditions_addStringFilter(conditions, 0, false, false), NO_ERROR);
    EXPECT_EQ(conditions_setStringFilterValueCount(conditions, 1), NO_ERROR);
    EXPECT_EQ(conditions_setStringFilterValue(conditions, "a", 0), NO_ERROR);
    EXPECT_EQ(conditions_setStringFilterRangeCount(conditions, 2), NO_ERROR);
    EXPECT_EQ(conditions_setStringFilterRange(conditions, "a", "b", 0), NO_ERROR);
    EXPECT_EQ(conditions_setStringFilterValueCount(conditions, 2), NO_ERROR);
    EXPECT_EQ(conditions_setStringFilterRangeCount(conditions, 2), NO_ERROR);
    const StringFilter& filter = conditions->stringFilters[0];
    EXPECT_EQ(filter.values, std::vector<std::optional<std::string>>(2));
    EXPECT_EQ(filter.ranges, std::vector<std::optional<std::string>>(2));
}

TEST_F(Conditions, SlotsBeyondTheSizedCountAreRefused) {
    EXPECT_EQ(conditions_setExcludedMsgTypeCount(conditions, 2), NO_ERROR);
    EXPECT_EQ(conditions_setExcludedMsgType(conditions, 2, "D"), INDEX_OUT_OF_BOUNDS_ERROR);
    EXPECT_EQ(conditions_setExcludedMsgType(conditions, -1, "D"), INDEX_OUT_OF_BOUNDS_ERROR);
    EXPECT_EQ(conditions_addStringFilter(conditions, 0, false, false), NO_ERROR);
    EXPECT_EQ(conditions_setStringFilterValueCount(conditions, 1), NO_ERROR);
    EXPECT_EQ(conditions_setStringFilterValue(conditions, "a", 1), INDEX_OUT_OF_BOUNDS_ERROR);
    EXPECT_EQ(conditions_setStringFilterValue(conditions, "a", -1), INDEX_OUT_OF_BOUNDS_ERROR);
    EXPECT_EQ(conditions_setStringFilterRangeCount(conditions, 2), NO_ERROR);
    EXPECT_EQ(conditions_setStringFilterRange(conditions, "a", "b", 2), INDEX_OUT_OF_BOUNDS_ERROR);
    EXPECT_EQ(conditions_setStringFilterRange(conditions, "a", "b", -1), INDEX_OUT_OF_BOUNDS_ERROR);
}

TEST_F(Conditions, PerFilterSettersWithoutAFilterOrAnArrayFindNothingToSet) {
    EXPECT_EQ(conditions_setStringFilterValueCount(conditions, 1), NULL_POINTER_ERROR);
    EXPECT_EQ(conditions_setStringFilterRangeCount(conditions, 2), NULL_POINTER_ERROR);
    EXPECT_EQ(conditions_setStringFilterValue(conditions, "a", 0), NULL_POINTER_ERROR);
    EXPECT_EQ(conditions_setStringFilterRange(conditions, "a", "b", 0), NULL_POINTER_ERROR);
    EXPECT_EQ(conditions_setExcludedMsgType(conditions, 0, "D"), NULL_POINTER_ERROR);
    EXPECT_EQ(conditions_addStringFilter(conditions, 0, false, false), NO_ERROR);
    EXPECT_EQ(conditions_setStringFilterValue(conditions, "a", 0), NULL_POINTER_ERROR) << "the array was never sized";
    EXPECT_EQ(conditions_setStringFilterRange(conditions, "a", "b", 0), NULL_POINTER_ERROR);
}

TEST_F(Conditions, EverySetterRefusesAMissingRecord) {
    const std::int32_t id = 5;
    const double real = 1;
    const std::int64_t whole = 1;
    EXPECT_EQ(conditions_setIterateBackward(nullptr, true), NULL_POINTER_ERROR);
    EXPECT_EQ(conditions_setInverted(nullptr, true), NULL_POINTER_ERROR);
    EXPECT_EQ(conditions_setSeqNumRange(nullptr, 1, 2), NULL_POINTER_ERROR);
    EXPECT_EQ(conditions_setMessageIdRange(nullptr, 1, 2), NULL_POINTER_ERROR);
    EXPECT_EQ(conditions_setMessageIdRanges(nullptr, &id, 1, &id, 1), NULL_POINTER_ERROR);
    EXPECT_EQ(conditions_setStartingTime(nullptr, 1), NULL_POINTER_ERROR);
    EXPECT_EQ(conditions_setEndingTime(nullptr, 1), NULL_POINTER_ERROR);
    EXPECT_EQ(conditions_setPossDupFlag(nullptr, true), NULL_POINTER_ERROR);
    EXPECT_EQ(conditions_setExcludedMsgTypeCount(nullptr, 1), NULL_POINTER_ERROR);
    EXPECT_EQ(conditions_setExcludedMsgType(nullptr, 0, "D"), NULL_POINTER_ERROR);
    EXPECT_EQ(conditions_addStringFilter(nullptr, 0, false, false), NULL_POINTER_ERROR);
    EXPECT_EQ(conditions_setStringFilterValueCount(nullptr, 1), NULL_POINTER_ERROR);
    EXPECT_EQ(conditions_setStringFilterValue(nullptr, "a", 0), NULL_POINTER_ERROR);
    EXPECT_EQ(conditions_setStringFilterRangeCount(nullptr, 2), NULL_POINTER_ERROR);
    EXPECT_EQ(conditions_setStringFilterRange(nullptr, "a", "b", 0), NULL_POINTER_ERROR);
    EXPECT_EQ(conditions_addDoubleFilter(nullptr, 0, &real, &real, 1, &real, 1, false), NULL_POINTER_ERROR);
    EXPECT_EQ(conditions_addLongFilter(nullptr, 0, &whole, &whole, 1, &whole, 1, false), NULL_POINTER_ERROR);
    conditions_destroy(nullptr);
}

TEST_F(Conditions, ANumericFilterRefusesCountsBelowZeroAndMissingArraysOfWhatIsCounted) {
    const double real = 1;
    const std::int64_t whole = 1;
    EXPECT_EQ(conditions_addDoubleFilter(conditions, 0, nullptr, &real, 1, &real, 1, false), NULL_POINTER_ERROR);
    EXPECT_EQ(conditions_addDoubleFilter(conditions, 0, &real, nullptr, 1, nullptr, 0, false), NULL_POINTER_ERROR);
    EXPECT_EQ(conditions_addLongFilter(conditions, 0, &whole, &whole, 1, nullptr, 1, false), NULL_POINTER_ERROR);
    EXPECT_EQ(conditions_addLongFilter(conditions, 0, nullptr, nullptr, 0, nullptr, 1, false), NULL_POINTER_ERROR);
    for (const bool hasArrays : {false, true}) {
        const double* reals = hasArrays ? &real : nullptr;
        const std::int64_t* wholes = hasArrays ? &whole : nullptr;
        EXPECT_EQ(conditions_addDoubleFilter(conditions, 0, reals, reals, -1, reals, 0, false), WRONG_PARAMETER_ERROR)
            << "-1 ranges are accepted";
        EXPECT_EQ(conditions_addLongFilter(conditions, 0, wholes, wholes, 0, wholes, -1, false), WRONG_PARAMETER_ERROR)
            << "-1 values are accepted";
    }
    EXPECT_TRUE(conditions->doubleFilters.empty());
    EXPECT_TRUE(conditions->longFilters.empty());
    EXPECT_EQ(conditions_addDoubleFilter(conditions, 0, &real, &real, 1, nullptr, 0, false), NO_ERROR)
        << "values are wanted that are not counted";
    EXPECT_EQ(conditions_addLongFilter(conditions, 0, nullptr, nullptr, 0, &whole, 1, false), NO_ERROR)
        << "ranges are wanted that are not counted";
}

TEST_F(Conditions, NumericFiltersAreKeptByTheirType) {
    const double low = 1;
    const double high = 2;
    const std::int64_t value = 7;
    EXPECT_EQ(conditions_addDoubleFilter(conditions, 3, &low, &high, 1, nullptr, 0, true), NO_ERROR);
    EXPECT_EQ(conditions_addLongFilter(conditions, -4, nullptr, nullptr, 0, &value, 1, false), NO_ERROR);
    ASSERT_EQ(conditions->doubleFilters.size(), 1U);
    ASSERT_EQ(conditions->longFilters.size(), 1U);
    EXPECT_EQ(conditions->doubleFilters[0].fieldIndex, 3);
    EXPECT_TRUE(conditions->doubleFilters[0].includeNull);
    EXPECT_EQ(conditions->doubleFilters[0].entries.size(), 1U);
    EXPECT_EQ(conditions->longFilters[0].fieldIndex, -4) << "the record does not check the index";
    EXPECT_EQ(conditions->longFilters[0].entries[0].low, 7);
    EXPECT_EQ(conditions->longFilters[0].entries[0].flags, 3U);
}

TEST_F(Conditions, WithoutMemoryWhatWasStoredStays) {
    EXPECT_EQ(conditions_addStringFilter(conditions, 0, false, false), NO_ERROR);
    EXPECT_EQ(conditions_setStringFilterValueCount(conditions, 1), NO_ERROR);
    EXPECT_EQ(conditions_setStringFilterValue(conditions, "first", 0), NO_ERROR);
    const std::string longText(100, 'x');
    const std::int64_t value = 7;
    const auto failing = [](auto setter) {
        const AllocationFailure failure(1);
        return setter();
    };
    EXPECT_EQ(failing([] { return conditions_create() == nullptr; }), true);
    EXPECT_EQ(failing([&] { return conditions_setStringFilterValue(conditions, longText.c_str(), 0); }),
              OUT_OF_MEMORY_ERROR);
    EXPECT_EQ(failing([&] { return conditions_setStringFilterRangeCount(conditions, 2); }), OUT_OF_MEMORY_ERROR);
    EXPECT_EQ(failing([&] { return conditions_addStringFilter(conditions, 1, false, false); }), OUT_OF_MEMORY_ERROR);
    EXPECT_EQ(failing([&] { return conditions_setExcludedMsgTypeCount(conditions, 3); }), OUT_OF_MEMORY_ERROR);
    EXPECT_EQ(failing([&] { return conditions_addLongFilter(conditions, 0, nullptr, nullptr, 0, &value, 1, false); }),
              OUT_OF_MEMORY_ERROR);
    EXPECT_EQ(conditions->stringFilters.size(), 1U);
    EXPECT_EQ(conditions->stringFilters[0].values[0], "first");
    EXPECT_TRUE(conditions->longFilters.empty());
}

}  // namespace
}  // namespace tabulo::internal::test
