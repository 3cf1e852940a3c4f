// Whether a block may match a whole query.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "tests/query/block_of_messages.h"
#include "tests/support/debug_log.h"

namespace tabulo::internal::test {
namespace {

// The block holds plain messages 10 to 20 unless a test says otherwise.
class BlockCheck : public BlockOfMessages {
  protected:
    bool mayMatch() const { return query_blockMayMatch(*conditions, summary, layout); }
    void anew() { conditions = newConditions(); }
    void addDoubles(std::int32_t field, const std::vector<double>& values, bool includeNull = false) {
        ASSERT_EQ(conditions_addDoubleFilter(conditions.get(), field, nullptr, nullptr, 0, values.data(),
                                             static_cast<std::int32_t>(values.size()), includeNull),
                  NO_ERROR);
    }
    void addLongs(std::int32_t field, const std::vector<std::int64_t>& values, bool includeNull = false) {
        ASSERT_EQ(conditions_addLongFilter(conditions.get(), field, nullptr, nullptr, 0, values.data(),
                                           static_cast<std::int32_t>(values.size()), includeNull),
                  NO_ERROR);
    }
    void addStrings(std::int32_t field, const std::vector<const char*>& values, bool includeNull = false,
                    bool ignoreCase = false) {
        EXPECT_EQ(conditions_addStringFilter(conditions.get(), field, includeNull, ignoreCase), NO_ERROR);
        EXPECT_EQ(conditions_setStringFilterValueCount(conditions.get(), static_cast<std::int32_t>(values.size())),
                  NO_ERROR);
        for (std::size_t i = 0; i < values.size(); ++i) {
            ASSERT_EQ(conditions_setStringFilterValue(conditions.get(), values[i], static_cast<std::int32_t>(i)),
                      NO_ERROR);
        }
    }

    QueryConditionsPtr conditions = newConditions();
};

TEST_F(BlockCheck, AFreshRecordExcludesNothing) {
    addPlain(10, 20);
    EXPECT_TRUE(mayMatch());
}

TEST_F(BlockCheck, ASequenceRangeExcludesWhatLiesOutsideIt) {
    addPlain(10, 20);
    EXPECT_EQ(conditions_setSeqNumRange(conditions.get(), 21, 30), NO_ERROR);
    EXPECT_FALSE(mayMatch());
    EXPECT_EQ(conditions_setSeqNumRange(conditions.get(), 20, 30), NO_ERROR);
    EXPECT_TRUE(mayMatch());
    EXPECT_EQ(conditions_setSeqNumRange(conditions.get(), 0, 9), NO_ERROR);
    EXPECT_FALSE(mayMatch());
    EXPECT_EQ(conditions_setSeqNumRange(conditions.get(), 0, 0), NO_ERROR);
    EXPECT_FALSE(mayMatch()) << "zero is a sequence number like any other";
    EXPECT_EQ(conditions_setSeqNumRange(conditions.get(), 5, 0), NO_ERROR);
    EXPECT_TRUE(mayMatch()) << "a range whose end is below its begin is off";
}

TEST_F(BlockCheck, TimesExcludeAndZeroIsNoBound) {
    addPlain(10, 20);
    EXPECT_EQ(conditions_setStartingTime(conditions.get(), 20'001), NO_ERROR);
    EXPECT_FALSE(mayMatch());
    EXPECT_EQ(conditions_setStartingTime(conditions.get(), 20'000), NO_ERROR);
    EXPECT_TRUE(mayMatch());
    EXPECT_EQ(conditions_setStartingTime(conditions.get(), 0), NO_ERROR);
    EXPECT_EQ(conditions_setEndingTime(conditions.get(), 9'999), NO_ERROR);
    EXPECT_FALSE(mayMatch());
    EXPECT_EQ(conditions_setEndingTime(conditions.get(), 10'000), NO_ERROR);
    EXPECT_TRUE(mayMatch());
}

TEST_F(BlockCheck, ANegativeEndingTimeIsABoundAlsoWithoutAStartingTime) {
    Message message = plain(1);
    message.metadata.timestamp = -500;
    add(message);
    EXPECT_EQ(conditions_setEndingTime(conditions.get(), -501), NO_ERROR);
    EXPECT_FALSE(mayMatch());
    EXPECT_EQ(conditions_setEndingTime(conditions.get(), -500), NO_ERROR);
    EXPECT_TRUE(mayMatch());
    EXPECT_EQ(conditions_setStartingTime(conditions.get(), -499), NO_ERROR);
    EXPECT_EQ(conditions_setEndingTime(conditions.get(), 0), NO_ERROR);
    EXPECT_FALSE(mayMatch());
}

TEST_F(BlockCheck, ASingleIdRangeExcludesByItsClass) {
    addPlain(10, 20);
    EXPECT_EQ(conditions_setMessageIdRange(conditions.get(), 21, 30), NO_ERROR);
    EXPECT_FALSE(mayMatch());
    EXPECT_EQ(conditions_setMessageIdRange(conditions.get(), 20, 30), NO_ERROR);
    EXPECT_TRUE(mayMatch());
    EXPECT_TRUE(log.all().empty());
}

TEST_F(BlockCheck, ASingleIdRangeOverTwoClassesOrNoneExcludesTheBlock) {
    addPlain(10, 20);
    EXPECT_EQ(conditions_setMessageIdRange(conditions.get(), 0, std::numeric_limits<std::int32_t>::max()), NO_ERROR);
    EXPECT_FALSE(mayMatch());
    EXPECT_EQ(log.notes().size(), 1U);
    log.clear();
    EXPECT_EQ(conditions_setMessageIdRange(conditions.get(), -9, -2), NO_ERROR);
    EXPECT_FALSE(mayMatch());
    EXPECT_TRUE(log.all().empty()) << "both ends have the same class: none";
}

TEST_F(BlockCheck, PerClassIdsNeedOneClassThatOverlaps) {
    addIds({15, 25, 0x60000000});
    const auto set = [this](const std::vector<std::int32_t>& starts, const std::vector<std::int32_t>& ends) {
        ASSERT_EQ(conditions_setMessageIdRanges(conditions.get(), starts.data(), static_cast<int>(starts.size()),
                                                ends.data(), static_cast<int>(ends.size())),
                  NO_ERROR);
    };
    set({26, 0x60000001}, {99, 0x60000009});
    EXPECT_FALSE(mayMatch());
    set({26, 0x60000000}, {99, 0x60000009});
    EXPECT_TRUE(mayMatch());
    set({25}, {});
    EXPECT_TRUE(mayMatch());
    set({0x20000000}, {});
    EXPECT_FALSE(mayMatch()) << "the block has no id of that class";
    EXPECT_TRUE(log.all().empty());
}

TEST_F(BlockCheck, AClassWithOnlyAnUpperBoundStartsAtItsFirstId) {
    addIds({0x60000000, 0x60000005});
    const std::int32_t start = 26;
    std::int32_t end = 0x60000000;
    ASSERT_EQ(conditions_setMessageIdRanges(conditions.get(), &start, 1, &end, 1), NO_ERROR);
    EXPECT_TRUE(mayMatch()) << "the message test accepts ids of the class up to the bound";
    end = 0x5FFFFFFF;
    ASSERT_EQ(conditions_setMessageIdRanges(conditions.get(), &start, 1, &end, 1), NO_ERROR);
    EXPECT_FALSE(mayMatch());
    EXPECT_TRUE(log.all().empty());
}

TEST_F(BlockCheck, NumericFiltersNeedOneEntryThatOverlaps) {
    addPlain(10, 20);
    addDoubles(0, {1, 999, 2001});
    EXPECT_FALSE(mayMatch());
    anew();
    addDoubles(0, {1, 1500, 2001});
    EXPECT_TRUE(mayMatch());
    anew();
    addLongs(0, {999, 2001});
    EXPECT_FALSE(mayMatch());
    anew();
    addLongs(0, {999, 2000});
    EXPECT_TRUE(mayMatch());
}

TEST_F(BlockCheck, EveryFilterMustAgree) {
    addPlain(10, 20);
    addLongs(0, {1500});
    addDoubles(1, {1});
    EXPECT_FALSE(mayMatch());
    anew();
    addDoubles(1, {1001});
    addLongs(0, {1});
    EXPECT_FALSE(mayMatch());
    anew();
    addDoubles(1, {1001});
    addLongs(0, {1500});
    addStrings(0, {"f0-10"});
    addStrings(1, {"f1-99"});
    EXPECT_FALSE(mayMatch());
}

TEST_F(BlockCheck, AFieldWithoutANumberIsSkippedWholeUnlessAbsentFieldsPass) {
    addNumber(NumericValue{});
    addDoubles(0, {5});
    EXPECT_FALSE(mayMatch());
    anew();
    addLongs(0, {5});
    EXPECT_FALSE(mayMatch());
    anew();
    addDoubles(0, {5}, true);
    addLongs(0, {5}, true);
    EXPECT_TRUE(mayMatch());
}

TEST_F(BlockCheck, ALongFilterBehindMoreThanSixtyFourEntriesIsJudgedByItsBounds) {
    addPlain(10, 20);  // field 0 holds 1000 to 2000
    std::vector<std::int64_t> values;
    for (std::int64_t i = 0; i < 32; ++i) {
        values.push_back(i);
        values.push_back(3000 + i);
    }
    addLongs(0, values);
    ASSERT_EQ(conditions->longFilters[0].entries.size(), 64U);
    EXPECT_FALSE(mayMatch()) << "64 entries are looked at one by one";
    anew();
    values.push_back(9999);
    addLongs(0, values);
    EXPECT_TRUE(mayMatch()) << "65 entries from 0 to 9999 overlap as a whole";
    anew();
    values.assign(values.size(), 0);
    for (std::size_t i = 0; i < values.size(); ++i) {
        values[i] = 2001 + static_cast<std::int64_t>(i);
    }
    addLongs(0, values);
    EXPECT_FALSE(mayMatch()) << "the overall bounds lie outside";
}

TEST_F(BlockCheck, AFilterWithoutEntriesOnARealFieldExcludesTheBlock) {
    addPlain(10, 20);
    addDoubles(0, {});
    EXPECT_FALSE(mayMatch());
    anew();
    addLongs(layout.numericFieldCount, {});
    EXPECT_FALSE(mayMatch());
    anew();
    addStrings(0, {});
    EXPECT_FALSE(mayMatch());
}

TEST_F(BlockCheck, AStringFilterNeedsOneValueThatTheBlockMayHold) {
    addPlain(10, 20);
    addStrings(1, {"f1-9", "f1-21"});
    EXPECT_FALSE(mayMatch());
    anew();
    addStrings(1, {"f1-9", "f1-11"});
    EXPECT_TRUE(mayMatch());
}

TEST_F(BlockCheck, AbsentFieldsIgnoredCaseAndRangesKeepABlock) {
    addPlain(10, 20);
    addStrings(1, {"x"}, true, false);
    EXPECT_TRUE(mayMatch());
    anew();
    addStrings(1, {"x"}, false, true);
    EXPECT_TRUE(mayMatch());
    anew();
    addStrings(1, {"x"});
    EXPECT_EQ(conditions_setStringFilterRangeCount(conditions.get(), 2), NO_ERROR);
    EXPECT_EQ(conditions_setStringFilterRange(conditions.get(), "y", "z", 0), NO_ERROR);
    EXPECT_TRUE(mayMatch());
}

TEST_F(BlockCheck, AnEmptyTextIsKnownToTheFooterAndAnAbsentOneIsNot) {
    addText(0, withNul(""));
    addStrings(0, {""});
    EXPECT_TRUE(mayMatch());
    reset();
    addText(0, std::nullopt);
    EXPECT_FALSE(mayMatch());
}

TEST_F(BlockCheck, ATextIsKnownUpToItsFirstNul) {
    addText(0, std::string("ab\0cd", 5));
    addStrings(0, {"ab"});
    EXPECT_TRUE(mayMatch());
}

TEST_F(BlockCheck, UnsummarisedFieldsAndTheMsgTypeExcludeNothing) {
    addPlain(10, 20);
    for (const std::int32_t field : {3, 4, 5}) {
        anew();
        addStrings(field, {"not there"});
        EXPECT_TRUE(mayMatch()) << field;
    }
}

TEST_F(BlockCheck, MoreSummarisedFieldsThanAMessageHasDoNotExcludeByTheMsgType) {
    layout = layoutOf(1000, 0, 2);
    layout.summarisedStringFieldCount = 14;
    reset();
    addPlain(10, 20);
    addStrings(4, {"D"});
    EXPECT_TRUE(mayMatch());
    EXPECT_TRUE(log.all().empty());
}

TEST_F(BlockCheck, PossDupAndExcludedMsgTypesExcludeNothing) {
    addPlain(10, 20);
    EXPECT_EQ(conditions_setPossDupFlag(conditions.get(), true), NO_ERROR);
    EXPECT_EQ(conditions_setExcludedMsgTypeCount(conditions.get(), 1), NO_ERROR);
    EXPECT_EQ(conditions_setExcludedMsgType(conditions.get(), 0, "D"), NO_ERROR);
    EXPECT_TRUE(mayMatch());
}

TEST_F(BlockCheck, AnIgnoredFilterExcludesNothingAndIsNotedOnce) {
    addPlain(10, 20);
    addDoubles(9, {1, 2, 3});
    EXPECT_TRUE(mayMatch());
    EXPECT_EQ(log.notes(), std::vector<std::string>{noteLine("mfr_compareNumericIndexDouble",
                                                             "internal error: index number 9 is out of range [0..9)")});
    log.clear();
    anew();
    addLongs(-1, {1, 2, 3});
    EXPECT_TRUE(mayMatch());
    EXPECT_EQ(log.notes().size(), 1U);
    log.clear();
    anew();
    addStrings(6, {"a", "b"});
    EXPECT_TRUE(mayMatch());
    EXPECT_EQ(log.notes(), std::vector<std::string>{
                               noteLine("mfr_compareStr", "internal error: index number 6 is out of range [0..6)")});
}

TEST_F(BlockCheck, AnIgnoredFilterWithManyEntriesIsNotedOnceToo) {
    addPlain(10, 20);
    std::vector<std::int64_t> values;
    for (std::int64_t i = 0; i < 100; ++i) {
        values.push_back(5 * i);
    }
    addLongs(100, values);
    EXPECT_TRUE(mayMatch());
    EXPECT_EQ(log.notes().size(), 1U);
}

TEST_F(BlockCheck, AnIgnoredFilterThatCannotExcludeAnywayIsNotNoted) {
    addPlain(10, 20);
    addDoubles(9, {});
    addLongs(-1, {});
    addDoubles(9, {1}, true);
    addLongs(9, {1}, true);
    addStrings(6, {});
    addStrings(6, {"a"}, true, false);
    addStrings(-1, {"a"}, false, true);
    addStrings(6, {"a"});
    EXPECT_EQ(conditions_setStringFilterRangeCount(conditions.get(), 2), NO_ERROR);
    EXPECT_TRUE(mayMatch());
    EXPECT_TRUE(log.all().empty()) << log.all()[0];
}

TEST_F(BlockCheck, AnIgnoredFilterIsNotNotedForABlockThatIsExcludedBefore) {
    addPlain(10, 20);
    addStrings(6, {"a"});
    addDoubles(0, {1});
    EXPECT_FALSE(mayMatch());
    EXPECT_TRUE(log.all().empty());
}

}  // namespace
}  // namespace tabulo::internal::test
