#include "messagetable/range_compare.h"

#include <gtest/gtest.h>

#include <limits>
#include <string>
#include <vector>

#include "tests/support/debug_log.h"
#include "tests/support/log_capture.h"

namespace tabulo::internal::test {
namespace {

using Lines = std::vector<std::string>;

constexpr std::int32_t APP_FROM_FIRST = 0x1FFFFFFF;

MessageMetadata bound(std::int32_t seqNum, std::int32_t uniformId, std::int64_t timestamp, std::int32_t connMsgId) {
    MessageMetadata metadata;
    metadata.seqNum = seqNum;
    metadata.uniformId = uniformId;
    metadata.timestamp = timestamp;
    metadata.connMsgId = connMsgId;
    return metadata;
}

MessageMetadata withId(std::int32_t connMsgId) {
    return bound(0, 0, 0, connMsgId);
}

// Two messages: numbers 10 to 20, ids 30 to 40, times 50 to 60, APP_TO 70 to 80; no other class.
class CompareRange : public ::testing::Test {
  protected:
    void SetUp() override {
        const MessageTableLayout layout{3, 4, 0, 0};
        ASSERT_EQ(blockSummary_init(&block, layout), NO_ERROR);
        const StringField strings[4] = {};
        for (const MessageMetadata& message : {bound(10, 30, 50, 70), bound(20, 40, 60, 80)}) {
            blockSummary_add(&block, layout, {message, strings, {}}, 55);
        }
    }
    std::int32_t seqNums(std::int32_t lower, std::int32_t upper) {
        return mfr_compareRange(block, bound(lower, 0, 0, 0), bound(upper, 0, 0, 0), 1);
    }
    std::int32_t uniformIds(std::int32_t lower, std::int32_t upper) {
        return mfr_compareRange(block, bound(0, lower, 0, 0), bound(0, upper, 0, 0), 2);
    }
    std::int32_t timestamps(std::int64_t lower, std::int64_t upper) {
        return mfr_compareRange(block, bound(0, 0, lower, 0), bound(0, 0, upper, 0), 3);
    }
    std::int32_t ids(std::int32_t lower, std::int32_t upper) {
        return mfr_compareRange(block, withId(lower), withId(upper), 4);
    }

    LogCapture log;
    BlockSummary block;
};

TEST_F(CompareRange, EachFieldIsComparedWithItsOwnRange) {
    EXPECT_EQ(seqNums(12, 18), 0);
    EXPECT_EQ(seqNums(30, 40), 1);
    EXPECT_EQ(uniformIds(32, 38), 0);
    EXPECT_EQ(uniformIds(10, 20), -1);
    EXPECT_EQ(timestamps(52, 58), 0);
    EXPECT_EQ(timestamps(70, 80), 1);
    EXPECT_EQ(ids(72, 78), 0);
    EXPECT_EQ(ids(10, 20), -1);
}

TEST_F(CompareRange, TouchingEndsOverlapAndOneStepBeyondDoesNot) {
    EXPECT_EQ(seqNums(1, 10), 0);
    EXPECT_EQ(seqNums(1, 9), -1);
    EXPECT_EQ(seqNums(20, 30), 0);
    EXPECT_EQ(seqNums(21, 30), 1);
    EXPECT_EQ(uniformIds(1, 29), -1);
    EXPECT_EQ(uniformIds(1, 30), 0);
    EXPECT_EQ(uniformIds(40, 50), 0);
    EXPECT_EQ(uniformIds(41, 50), 1);
    EXPECT_EQ(timestamps(1, 49), -1);
    EXPECT_EQ(timestamps(1, 50), 0);
    EXPECT_EQ(timestamps(60, 99), 0);
    EXPECT_EQ(timestamps(61, 99), 1);
    EXPECT_EQ(ids(1, 69), -1);
    EXPECT_EQ(ids(1, 70), 0);
    EXPECT_EQ(ids(80, 90), 0);
    EXPECT_EQ(ids(81, 90), 1);
}

TEST_F(CompareRange, ARangeAroundTheBlocksOverlaps) {
    EXPECT_EQ(seqNums(1, 100), 0);
    EXPECT_EQ(timestamps(std::numeric_limits<std::int64_t>::min(), std::numeric_limits<std::int64_t>::max()), 0);
    EXPECT_EQ(ids(0, 0x1FFFFFFE), 0);
}

TEST_F(CompareRange, IsSigned) {
    EXPECT_EQ(seqNums(-100, -1), -1);
    EXPECT_EQ(uniformIds(-100, -1), -1);
    EXPECT_EQ(timestamps(-100, -1), -1);
    EXPECT_EQ(seqNums(-1, 10), 0);
}

TEST_F(CompareRange, TimestampsAreComparedInAllTheirBits) {
    EXPECT_EQ(timestamps(0x1'0000'0034, 0x1'0000'0038), 1);
    EXPECT_EQ(timestamps(52 - 0x1'0000'0000, 56 - 0x1'0000'0000), -1);
}

TEST_F(CompareRange, TheHighEndDecidesFirstInAnInvertedRange) {
    EXPECT_EQ(seqNums(100, 1), -1);
}

TEST_F(CompareRange, AClassWithoutIdsInTheBlockIsNoOverlap) {
    EXPECT_EQ(NO_OVERLAP, 3599);
    EXPECT_EQ(ids(APP_FROM_FIRST, APP_FROM_FIRST + 10), 3599);
    EXPECT_EQ(ids(0x5FFFFFFF, 0x7FFFFFFF), 3599);
    EXPECT_TRUE(log.all().empty()) << log.all().front();
}

TEST_F(CompareRange, IdsWithoutAClassAreNoOverlap) {
    EXPECT_EQ(ids(-5, -1), 3599);
    EXPECT_TRUE(log.all().empty()) << log.all().front();
}

TEST_F(CompareRange, IdsOfTwoClassesAreNoOverlapWithANoteThatNamesTheUpperClassFirst) {
    EXPECT_EQ(ids(70, APP_FROM_FIRST), 3599);
    EXPECT_EQ(log.notes(),
              Lines{noteLine("mfr_compareRange",
                             "error: lowerConnMsgId=70 and upperConnMsgId=536870911 belong to different classes ('app "
                             "message from counterparty' and 'app message to counterparty'). Cannot perform "
                             "comparison, assuming no messages match against such request.")});
}

TEST_F(CompareRange, AnIdWithoutAClassBesideOneWithAClassIsSaidToBeUnknown) {
    EXPECT_EQ(ids(-1, 75), 3599);
    EXPECT_EQ(log.notes(),
              Lines{noteLine("mfr_compareRange",
                             "error: lowerConnMsgId=-1 and upperConnMsgId=75 belong to different classes ('app "
                             "message to counterparty' and 'unknown message class'). Cannot perform comparison, "
                             "assuming no messages match against such request.")});
}

TEST_F(CompareRange, AnUnknownFieldIsANoteAndOverlaps) {
    for (const std::int32_t field : {0, 5, -1}) {
        log.clear();
        EXPECT_EQ(mfr_compareRange(block, withId(1), withId(2), field), 0);
        EXPECT_EQ(log.notes(), Lines{noteLine("mfr_compareRange",
                                              "internal error: unknown field index " + std::to_string(field) + ".")});
    }
}

}  // namespace
}  // namespace tabulo::internal::test
