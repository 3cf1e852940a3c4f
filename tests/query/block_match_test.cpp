// The compare helpers: one range of a query against the summary of one block.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "tests/query/block_of_messages.h"
#include "tests/support/debug_log.h"

namespace tabulo::internal::test {
namespace {

constexpr std::int64_t LEAST = std::numeric_limits<std::int64_t>::min();
constexpr std::int64_t MOST = std::numeric_limits<std::int64_t>::max();
constexpr double INFINITE = std::numeric_limits<double>::infinity();

using BlockHelpers = BlockOfMessages;

MessageMetadata boundOf(std::int32_t number) {
    MessageMetadata bound;
    bound.seqNum = number;
    bound.uniformId = number;
    bound.timestamp = number;
    bound.connMsgId = number;
    return bound;
}

TEST_F(BlockHelpers, ARangeIsBelowAboveOrOverlapsAndTouchingEndsOverlap) {
    addPlain(10, 20);
    for (const std::int32_t field : {RANGE_SEQ_NUM, RANGE_UNIFORM_ID, RANGE_CONN_MSG_ID}) {
        EXPECT_EQ(mfr_compareRange(summary, boundOf(1), boundOf(9), field), -1) << field;
        EXPECT_EQ(mfr_compareRange(summary, boundOf(1), boundOf(10), field), 0) << field;
        EXPECT_EQ(mfr_compareRange(summary, boundOf(12), boundOf(13), field), 0) << field;
        EXPECT_EQ(mfr_compareRange(summary, boundOf(20), boundOf(99), field), 0) << field;
        EXPECT_EQ(mfr_compareRange(summary, boundOf(21), boundOf(99), field), 1) << field;
    }
    EXPECT_EQ(mfr_compareRange(summary, boundOf(1), boundOf(9'999), RANGE_TIMESTAMP), -1);
    EXPECT_EQ(mfr_compareRange(summary, boundOf(1), boundOf(10'000), RANGE_TIMESTAMP), 0);
    EXPECT_EQ(mfr_compareRange(summary, boundOf(20'001), boundOf(99'999), RANGE_TIMESTAMP), 1);
}

TEST_F(BlockHelpers, OneValueIsComparedAsARangeOfItself) {
    addPlain(10, 20);
    for (const std::int32_t field : {RANGE_SEQ_NUM, RANGE_UNIFORM_ID, RANGE_CONN_MSG_ID}) {
        EXPECT_EQ(mfr_compareNum(summary, boundOf(9), field), -1) << field;
        EXPECT_EQ(mfr_compareNum(summary, boundOf(10), field), 0) << field;
        EXPECT_EQ(mfr_compareNum(summary, boundOf(20), field), 0) << field;
        EXPECT_EQ(mfr_compareNum(summary, boundOf(21), field), 1) << field;
    }
    EXPECT_EQ(mfr_compareNum(summary, boundOf(20'000), RANGE_TIMESTAMP), 0);
    EXPECT_EQ(mfr_compareNum(summary, boundOf(-1), RANGE_CONN_MSG_ID), NO_OVERLAP);
}

TEST_F(BlockHelpers, RangesCompareWithTheirSign) {
    addPlain(-20, -10);
    EXPECT_EQ(mfr_compareRange(summary, boundOf(-9), boundOf(5), RANGE_SEQ_NUM), 1);
    EXPECT_EQ(mfr_compareRange(summary, boundOf(-30), boundOf(-20), RANGE_SEQ_NUM), 0);
    EXPECT_EQ(mfr_compareRange(summary, boundOf(std::numeric_limits<std::int32_t>::min()), boundOf(-21), RANGE_SEQ_NUM),
              -1);
}

TEST_F(BlockHelpers, IdsOfTwoClassesCannotBeComparedAndANoteNamesBoth) {
    addPlain(10, 20);
    EXPECT_EQ(mfr_compareRange(summary, boundOf(5), boundOf(0x20000000), RANGE_CONN_MSG_ID), 3599);
    EXPECT_EQ(log.notes(),
              std::vector<std::string>{noteLine(
                  "mfr_compareRange",
                  "error: lowerConnMsgId=5 and upperConnMsgId=536870912 belong to different classes ('app message from "
                  "counterparty' and 'app message to counterparty'). Cannot perform comparison, assuming no messages "
                  "match against such request.")});
    log.clear();
    EXPECT_EQ(mfr_compareRange(summary, boundOf(5), boundOf(-1), RANGE_CONN_MSG_ID), 3599);
    ASSERT_EQ(log.notes().size(), 1U);
    EXPECT_NE(log.notes()[0].find("lowerConnMsgId=5 and upperConnMsgId=-1 belong to different classes ('unknown "
                                  "message class' and 'app message to counterparty')"),
              std::string::npos)
        << log.notes()[0];
}

TEST_F(BlockHelpers, IdsWithoutAClassOrOfAClassThatTheBlockLacksDoNotOverlapAndLeaveNoNote) {
    addPlain(10, 20);
    EXPECT_EQ(mfr_compareRange(summary, boundOf(-9), boundOf(-2), RANGE_CONN_MSG_ID), 3599);
    EXPECT_EQ(mfr_compareRange(summary, boundOf(0x60000000), boundOf(0x60000009), RANGE_CONN_MSG_ID), 3599);
    EXPECT_TRUE(log.all().empty());
}

TEST_F(BlockHelpers, AnUnknownFieldIsNotedByItsOwnHelperAndExcludesNothing) {
    addPlain(10, 20);
    EXPECT_EQ(mfr_compareRange(summary, boundOf(99), boundOf(99), 0), 0);
    EXPECT_EQ(mfr_compareRange(summary, boundOf(99), boundOf(99), 5), 0);
    EXPECT_EQ(mfr_compareNum(summary, boundOf(99), 7), 0);
    EXPECT_EQ(log.notes(),
              (std::vector<std::string>{noteLine("mfr_compareRange", "internal error: unknown field index 0."),
                                        noteLine("mfr_compareRange", "internal error: unknown field index 5."),
                                        noteLine("mfr_compareNum", "internal error: unknown field index 7.")}));
}

TEST_F(BlockHelpers, ADamagedRangeExcludesNothing) {
    addPlain(10, 20);
    std::swap(summary.minimum.seqNum, summary.maximum.seqNum);
    std::swap(summary.minimum.timestamp, summary.maximum.timestamp);
    EXPECT_EQ(mfr_compareRange(summary, boundOf(99), boundOf(99), RANGE_SEQ_NUM), 0);
    EXPECT_EQ(mfr_compareRange(summary, boundOf(1), boundOf(1), RANGE_TIMESTAMP), 0);
    EXPECT_EQ(mfr_compareNum(summary, boundOf(1), RANGE_SEQ_NUM), 0);
    EXPECT_EQ(compareLong(99, 99, layout.numericFieldCount + 1), 0);
    std::swap(summary.minimum.numericValues[0], summary.maximum.numericValues[0]);
    EXPECT_EQ(compareLong(1, 1, 0), 0);
    EXPECT_EQ(compareDouble(1e9, 1e9, 0), 0);
}

TEST_F(BlockHelpers, ALongFieldIsComparedWithLongsAndWithDoubles) {
    addPlain(10, 20);  // field 0 holds 1000 to 2000, field 1 one more
    EXPECT_EQ(compareLong(LEAST, 999, 0), -1);
    EXPECT_EQ(compareLong(LEAST, 1000, 0), 0);
    EXPECT_EQ(compareLong(2000, MOST, 0), 0);
    EXPECT_EQ(compareLong(2001, MOST, 0), 1);
    EXPECT_EQ(compareLong(2001, MOST, 1), 0);
    EXPECT_EQ(compareDouble(-INFINITE, 999.9, 0), -1);
    EXPECT_EQ(compareDouble(-INFINITE, 1000, 0), 0);
    EXPECT_EQ(compareDouble(2000, INFINITE, 0), 0);
    EXPECT_EQ(compareDouble(2000.1, INFINITE, 0), 1);
}

TEST_F(BlockHelpers, ADoubleFieldIsTruncatedForLongs) {
    addNumbers({-2.9, 7.9});
    EXPECT_EQ(compareLong(LEAST, -3, 0), -1);
    EXPECT_EQ(compareLong(LEAST, -2, 0), 0);
    EXPECT_EQ(compareLong(7, MOST, 0), 0) << "7.9 is 7 for a long filter";
    EXPECT_EQ(compareLong(8, MOST, 0), 1);
    EXPECT_EQ(compareDouble(7.95, INFINITE, 0), 1);
}

TEST_F(BlockHelpers, InfiniteValuesReachTheEndsOfLongs) {
    addNumbers({-INFINITE, 1e300});
    EXPECT_EQ(compareLong(LEAST, LEAST, 0), 0);
    EXPECT_EQ(compareLong(MOST, MOST, 0), 0);
}

TEST_F(BlockHelpers, AFieldWithANaNOrOfBothTypesExcludesNothing) {
    addNumbers({5.0, std::nan(""), 6.0});
    EXPECT_EQ(compareLong(0, 0, 0), 0) << "a NaN reads as 0";
    EXPECT_EQ(compareDouble(99, 99, 0), 0);
    reset();
    addNumbers({5.0});
    addNumber(numericValue_ofLong(6));
    EXPECT_EQ(compareLong(99, 99, 0), 0);
    EXPECT_EQ(compareDouble(99, 99, 0), 0);
}

TEST_F(BlockHelpers, AFieldThatIsAbsentInTheWholeBlockDoesNotOverlap) {
    addNumber(NumericValue{});
    EXPECT_EQ(compareLong(LEAST, MOST, 0), 3599);
    EXPECT_EQ(compareDouble(-INFINITE, INFINITE, 0), 3599);
}

TEST_F(BlockHelpers, PseudoFieldsUseTheBlocksOwnRanges) {
    addPlain(10, 20);
    const std::int32_t n = layout.numericFieldCount;
    for (const std::int32_t field : {n + 0, n + 1}) {
        EXPECT_EQ(compareLong(1, 9, field), -1) << field;
        EXPECT_EQ(compareLong(1, 10, field), 0) << field;
        EXPECT_EQ(compareLong(21, 22, field), 1) << field;
        EXPECT_EQ(compareDouble(1, 9.5, field), -1) << field;
        EXPECT_EQ(compareDouble(20, 22, field), 0) << field;
        EXPECT_EQ(compareDouble(20.5, 22, field), 1) << field;
    }
    EXPECT_EQ(compareLong(1, 9'999, n + 4), -1);
    EXPECT_EQ(compareLong(20'000, MOST, n + 4), 0);
    EXPECT_EQ(compareDouble(20'000.5, INFINITE, n + 4), 1);
    for (const std::int32_t field : {n + 2, n + 5, n + 6}) {
        EXPECT_EQ(compareLong(99, 99, field), 0) << field;
        EXPECT_EQ(compareDouble(99, 99, field), 0) << field;
    }
}

TEST_F(BlockHelpers, TheIdAsANumberOverlapsWhenThatOfAnyClassDoes) {
    addIds({15, 25, 0x60000000, 0x60000005});
    const std::int32_t field = layout.numericFieldCount + 3;
    EXPECT_EQ(compareLong(0, 14, field), 3599);
    EXPECT_EQ(compareLong(0, 15, field), 0);
    EXPECT_EQ(compareLong(26, 0x5FFFFFFF, field), 3599);
    EXPECT_EQ(compareLong(26, 0x60000000, field), 0) << "numbers span classes, unlike ids";
    EXPECT_EQ(compareLong(0x60000006, MOST, field), 3599);
    EXPECT_EQ(compareDouble(25.5, 26, field), 3599);
    EXPECT_EQ(compareDouble(24.5, 26, field), 0);
}

TEST_F(BlockHelpers, TheIdAsANumberBelowZeroExcludesNothing) {
    addIds({15, -3});
    const std::int32_t field = layout.numericFieldCount + 3;
    EXPECT_EQ(compareLong(-9, -1, field), 0);
    EXPECT_EQ(compareLong(-9, 5, field), 0) << "-3 lies in there, and has no class";
    EXPECT_EQ(compareDouble(-0.5, 0.5, field), 0);
    EXPECT_EQ(compareLong(0, 5, field), 3599);
}

TEST_F(BlockHelpers, ANumericIndexOutOfRangeIsNotedAndExcludesNothing) {
    addPlain(10, 20);
    ASSERT_EQ(layout.numericFieldCount, 2);
    EXPECT_EQ(compareDouble(99, 99, 9), 0);
    EXPECT_EQ(compareLong(99, 99, -1), 0);
    EXPECT_EQ(compareLong(99, 99, std::numeric_limits<std::int32_t>::max()), 0);
    EXPECT_EQ(log.notes(),
              (std::vector<std::string>{
                  noteLine("mfr_compareNumericIndexDouble", "internal error: index number 9 is out of range [0..9)"),
                  noteLine("mfr_compareNumericIndexLong", "internal error: index number -1 is out of range [0..9)"),
                  noteLine("mfr_compareNumericIndexLong",
                           "internal error: index number 2147483647 is out of range [0..9)")}));
}

TEST_F(BlockHelpers, ATextIsRejectedOnlyByTheFilterOfASummarisedField) {
    addPlain(10, 20);
    ASSERT_EQ(layout.stringFieldCount, 5);
    ASSERT_EQ(layout.summarisedStringFieldCount, 3);
    for (std::int32_t field = 0; field < 3; ++field) {
        const std::string there = "f" + std::to_string(field) + "-10";
        EXPECT_EQ(mfr_compareStr(summary, layout, there.c_str(), field), 0) << field;
        EXPECT_EQ(mfr_compareStr(summary, layout, "not there", field), -1) << field;
        EXPECT_EQ(mfr_compareStr(summary, layout, nullptr, field), 0) << field;
    }
    for (std::int32_t field = 3; field <= 5; ++field) {
        EXPECT_EQ(mfr_compareStr(summary, layout, "not there", field), 0) << field;
    }
    EXPECT_TRUE(log.all().empty());
}

TEST_F(BlockHelpers, AStringIndexOutOfRangeIsNotedAndExcludesNothing) {
    addPlain(10, 20);
    EXPECT_EQ(mfr_compareStr(summary, layout, "x", 6), 0);
    EXPECT_EQ(mfr_compareStr(summary, layout, "x", -1), 0);
    EXPECT_EQ(log.notes(), (std::vector<std::string>{
                               noteLine("mfr_compareStr", "internal error: index number 6 is out of range [0..6)"),
                               noteLine("mfr_compareStr", "internal error: index number -1 is out of range [0..6)")}));
}

}  // namespace
}  // namespace tabulo::internal::test
