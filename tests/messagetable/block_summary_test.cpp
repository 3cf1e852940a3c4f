#include "messagetable/block_summary.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include "tests/messagetable/block_summary_fixture.h"
#include "tests/messagetable/expected_bytes.h"
#include "tests/messagetable/message_table_fixture.h"

namespace tabulo::internal::test {
namespace {

constexpr double INFINITE = std::numeric_limits<double>::infinity();

TEST(BlockSummary, OfAnEmptyBlockHasEveryMinimumOneAboveItsMaximum) {
    const Summary empty;
    const RangeRecord& minimum = empty.summary.minimum;
    const RangeRecord& maximum = empty.summary.maximum;
    EXPECT_EQ(empty.summary.messageCount, 0);
    EXPECT_EQ(empty.summary.frameBytes, 0U);
    EXPECT_EQ(maximum.seqNum, 0);
    EXPECT_EQ(maximum.uniformId, 0);
    EXPECT_EQ(maximum.timestamp, 0);
    EXPECT_EQ(maximum.connMsgIds, (std::array<std::int32_t, 5>{-1, -1, -1, -1, -1}));
    EXPECT_EQ(minimum.seqNum, 1);
    EXPECT_EQ(minimum.uniformId, 1);
    EXPECT_EQ(minimum.timestamp, 1);
    EXPECT_EQ(minimum.connMsgIds, (std::array<std::int32_t, 5>{0, 0, 0, 0, 0}));
    EXPECT_EQ(minimum.numericValues[0].type, NumericType::absent);
    EXPECT_EQ(maximum.numericValues[0].type, NumericType::absent);
    EXPECT_EQ(empty.summary.filters.size(), 2U);
}

TEST(BlockSummary, TheFirstValueSetsBothEndsEvenFarFromTheEmptyOnes) {
    Summary block;
    block.add(metadataOf(50, 60, 70, 80));
    EXPECT_EQ(block.summary.minimum.seqNum, 50) << "the empty minimum 1 is no value";
    EXPECT_EQ(block.summary.maximum.seqNum, 50);
    EXPECT_EQ(block.summary.minimum.uniformId, 60);
    EXPECT_EQ(block.summary.minimum.timestamp, 70);
    EXPECT_EQ(block.summary.minimum.connMsgIds[APP_TO], 80);
    EXPECT_EQ(block.summary.maximum.connMsgIds[APP_TO], 80);
}

TEST(BlockSummary, NegativeNumbersAreSummarisedAsWhatTheyAre) {
    Summary block;
    block.add(metadataOf(-50, -60, -70, 0));
    EXPECT_EQ(block.summary.maximum.seqNum, -50) << "the empty maximum 0 is no value";
    EXPECT_EQ(block.summary.maximum.uniformId, -60);
    EXPECT_EQ(block.summary.maximum.timestamp, -70);
    block.add(metadataOf(-49, -61, -69, 0));
    EXPECT_EQ(block.summary.minimum.seqNum, -50);
    EXPECT_EQ(block.summary.maximum.seqNum, -49);
    EXPECT_EQ(block.summary.minimum.uniformId, -61);
    EXPECT_EQ(block.summary.maximum.uniformId, -60);
    EXPECT_EQ(block.summary.maximum.timestamp, -69);
}

TEST(BlockSummary, TheOutermostValuesAreNoOverflow) {
    Summary block;
    constexpr std::int32_t LOWEST = std::numeric_limits<std::int32_t>::min();
    constexpr std::int32_t HIGHEST = std::numeric_limits<std::int32_t>::max();
    block.add(metadataOf(HIGHEST, HIGHEST, std::numeric_limits<std::int64_t>::max(), HIGHEST));
    block.add(metadataOf(LOWEST, LOWEST, std::numeric_limits<std::int64_t>::min(), LOWEST));
    EXPECT_EQ(block.summary.minimum.seqNum, LOWEST);
    EXPECT_EQ(block.summary.maximum.seqNum, HIGHEST);
    EXPECT_EQ(block.summary.minimum.timestamp, std::numeric_limits<std::int64_t>::min());
    EXPECT_EQ(block.summary.maximum.timestamp, std::numeric_limits<std::int64_t>::max());
    EXPECT_EQ(block.summary.minimum.connMsgIds[RESENT], HIGHEST);
}

TEST(BlockSummary, IdsAreKeptByClassAndAClassWithoutIdsStaysEmpty) {
    Summary block;
    block.add(metadataOf(1, 1, 1, 5));
    block.add(metadataOf(1, 1, 1, 3));
    block.add(metadataOf(1, 1, 1, 0x4FFFFFFF));
    block.add(metadataOf(1, 1, 1, -7));
    EXPECT_EQ(block.summary.minimum.connMsgIds, (std::array<std::int32_t, 5>{0, 3, 0x4FFFFFFF, 0, 0}));
    EXPECT_EQ(block.summary.maximum.connMsgIds, (std::array<std::int32_t, 5>{-1, 5, 0x4FFFFFFF, -1, -1}));
}

TEST(BlockSummary, CountsMessagesAndTheirBytesAndUpdatesTheStaticIndexes) {
    Summary block;
    block.add(metadataOf(4, 9, 1, 5), 55);
    block.add(metadataOf(5, 8, 1, 3), 100);
    EXPECT_EQ(block.summary.messageCount, 2);
    EXPECT_EQ(block.summary.frameBytes, 155U);
    EXPECT_EQ(block.summary.staticIndexes.lastUniform, 8);
    EXPECT_EQ(block.summary.staticIndexes.connMsgIds[APP_TO], 5);
    EXPECT_EQ(block.summary.staticIndexes.seqNums[LAST_GOOD].seqNum, 5);
}

TEST(BlockSummaryNumbers, OfOneTypeKeepTheirSmallestAndLargest) {
    Summary longs(ONE_NUMBER);
    longs.addNumber(numericValue_ofLong(5));
    EXPECT_EQ(longs.range(), "long 5 to 5");
    longs.addNumber(numericValue_ofLong(-5));
    longs.addNumber(NumericValue{});
    longs.addNumber(numericValue_ofLong(7));
    EXPECT_EQ(longs.range(), "long -5 to 7");
    Summary doubles(ONE_NUMBER);
    doubles.addNumber(numericValue_ofDouble(-1.5));
    doubles.addNumber(numericValue_ofDouble(-2.5));
    EXPECT_EQ(doubles.range(), "double -2.500000 to -1.500000");
    doubles.addNumber(numericValue_ofDouble(INFINITE));
    EXPECT_EQ(doubles.summary.maximum.numericValues[0].doubleValue, INFINITE);
}

TEST(BlockSummaryNumbers, AbsentOnesLeaveTheSlotEmpty) {
    Summary block(ONE_NUMBER);
    block.addNumber(NumericValue{});
    EXPECT_EQ(block.range(), "none");
}

TEST(BlockSummaryNumbers, FromTheFirstValueOfTheOtherTypeOnNothingIsExcluded) {
    for (const bool longFirst : {true, false}) {
        Summary block(ONE_NUMBER);
        block.addNumber(longFirst ? numericValue_ofLong(5) : numericValue_ofDouble(5));
        block.addNumber(longFirst ? numericValue_ofDouble(6) : numericValue_ofLong(6));
        EXPECT_EQ(block.range(), "double -inf to inf");
        block.addNumber(numericValue_ofLong(7));
        block.addNumber(numericValue_ofDouble(8));
        block.addNumber(NumericValue{});
        EXPECT_EQ(block.range(), "double -inf to inf") << "it stays so for the block";
        blockSummary_reset(&block.summary, true);
        block.addNumber(numericValue_ofLong(7));
        EXPECT_EQ(block.range(), "long 7 to 7") << "and ends with it";
    }
}

TEST(BlockSummaryNumbers, FromTheFirstNaNOnNothingIsExcluded) {
    Summary alone(ONE_NUMBER);
    alone.addNumber(numericValue_ofDouble(std::nan("")));
    EXPECT_EQ(alone.range(), "double -inf to inf");
    alone.addNumber(numericValue_ofDouble(1));
    EXPECT_EQ(alone.range(), "double -inf to inf");
    Summary behind(ONE_NUMBER);
    behind.addNumber(numericValue_ofDouble(1));
    behind.addNumber(numericValue_ofDouble(-std::nan("")));
    EXPECT_EQ(behind.range(), "double -inf to inf");
    Summary afterLong(ONE_NUMBER);
    afterLong.addNumber(numericValue_ofLong(1));
    afterLong.addNumber(numericValue_ofDouble(std::nan("")));
    EXPECT_EQ(afterLong.range(), "double -inf to inf");
}

TEST(BlockSummaryNumbers, EachSlotIsSummarisedByItself) {
    Summary block({3, 4, 2, 2});
    block.numbers[0] = numericValue_ofLong(1);
    block.numbers[1] = numericValue_ofDouble(std::nan(""));
    block.add({});
    EXPECT_EQ(block.range(), "long 1 to 1");
    EXPECT_EQ(block.summary.minimum.numericValues[1].doubleValue, -INFINITE);
}

TEST(BlockSummaryFilters, HoldTheSummarisedFieldsEachInItsOwn) {
    Summary block;
    block.strings[0] = {"first", 6};
    block.strings[1] = {"second", 7};
    block.strings[2] = {"third", 6};
    block.add({});
    EXPECT_TRUE(block.mayContain(0, "first"));
    EXPECT_TRUE(block.mayContain(1, "second"));
    for (const std::size_t filter : {0U, 1U}) {
        EXPECT_FALSE(block.mayContain(filter, "third")) << "only the leading fields are summarised";
    }
    EXPECT_FALSE(block.mayContain(0, "second"));
}

TEST(BlockSummaryFilters, AnAbsentFieldAddsNothing) {
    Summary block;
    block.add({});
    for (const BloomFilter& filter : block.summary.filters) {
        for (const std::uint32_t word : filter.words) {
            EXPECT_EQ(word, 0U);
        }
    }
}

TEST(BlockSummaryFilters, AnEmptyTextIsPresentAndAddedAsTheEmptyKey) {
    Summary block;
    block.addText(withNul(""));
    EXPECT_EQ(block.summary.filters[0].words[0], 0x21U) << "bits 0 and 5";
    EXPECT_TRUE(block.mayContain(0, ""));
}

TEST(BlockSummaryFilters, AKeyEndsAtItsFirstNulOrWithTheValue) {
    Summary withTerminator;
    withTerminator.addText(withNul("IBM"));
    Summary without;
    without.addText("IBM");
    Summary longer;
    longer.addText(std::string("IBM\0tail\0", 9));
    EXPECT_EQ(without.summary.filters[0].words, withTerminator.summary.filters[0].words);
    EXPECT_EQ(longer.summary.filters[0].words, withTerminator.summary.filters[0].words);
    EXPECT_TRUE(longer.mayContain(0, "IBM"));
}

TEST(BlockSummaryFilters, MoreOfThemThanStringFieldsReadNoFieldThatIsNotThere) {
    // A layout may say so; a field array then still has only its own count.
    Summary block({3, 4, 14, 0});
    const std::vector<StringField> four = {{"a", 2}, {"b", 2}, {"c", 2}, {"d", 2}};
    blockSummary_add(&block.summary, block.layout, {MessageMetadata{}, four, {}}, 55);
    EXPECT_TRUE(block.mayContain(3, "d"));
    EXPECT_EQ(block.footer(0).size(), 2U * 36 + 14 * 1256 + 60 + 8);
}

TEST(BlockSummaryReset, EmptiesAllButTheStaticIndexesWhenTheyAreKept) {
    Summary block(ONE_NUMBER);
    block.strings[0] = {"a", 2};
    block.numbers[0] = numericValue_ofLong(1);
    block.add(metadataOf(4, 9, 1, 5));
    const mthStaticIndexes indexes = block.summary.staticIndexes;
    blockSummary_reset(&block.summary, true);
    EXPECT_TRUE(block.summary.staticIndexes == indexes);
    const Summary empty(ONE_NUMBER);
    EXPECT_EQ(hexAt(block.footer(0), 0, 2 * 45 + 2 * 1256), hexAt(empty.footer(0), 0, 2 * 45 + 2 * 1256));
    EXPECT_EQ(block.summary.messageCount, 0);
    EXPECT_EQ(block.summary.frameBytes, 0U);
    blockSummary_reset(&block.summary, false);
    EXPECT_TRUE(block.summary.staticIndexes == mthStaticIndexes{});
}

}  // namespace
}  // namespace tabulo::internal::test
