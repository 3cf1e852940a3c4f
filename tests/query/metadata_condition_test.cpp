// What a condition on the metadata says of a message, and of a block.
#include "query/metadata_condition.h"

#include <gtest/gtest.h>

#include <limits>
#include <string_view>

#include "tests/support/bytes.h"
#include "tests/support/log_capture.h"

namespace tabulo::internal::test {
namespace {

constexpr std::int32_t MOST = std::numeric_limits<std::int32_t>::max();
constexpr std::int32_t APP_FROM_FIRST = 0x1FFFFFFF;
constexpr std::int32_t APP_FROM_LAST = 0x3FFFFFFE;
constexpr std::int32_t RESENT_FIRST = 0x5FFFFFFF;

MessageMetadata metadataOf(std::int32_t number) {
    MessageMetadata metadata;
    metadata.seqNum = number;
    metadata.connMsgId = number;
    metadata.timestamp = number;
    metadata.msgType = {'D'};
    return metadata;
}

ExcludedMsgType excluded(std::string_view type) {
    ExcludedMsgType made{};
    type.copy(made.data(), made.size());
    return made;
}

class MetadataOfAQuery : public ::testing::Test {
  protected:
    void SetUp() override { ASSERT_EQ(blockSummary_init(&block, layout), NO_ERROR); }

    void add(const MessageMetadata& metadata) {
        const std::vector<StringField> texts(static_cast<std::size_t>(layout.stringFieldCount));
        blockSummary_add(&block, layout, {metadata, texts, {}}, 100);
    }
    void addIds(const std::vector<std::int32_t>& ids) {
        for (const std::int32_t id : ids) {
            add(metadataOf(id));
        }
    }
    bool mayMatch() const { return metadataCondition_mayMatchBlock(condition, block); }
    bool matches(const MessageMetadata& metadata) const { return metadataCondition_matches(condition, metadata); }
    bool matches(std::int32_t number) const { return matches(metadataOf(number)); }
    bool matchesFlag(std::uint8_t possDup) const {
        MessageMetadata metadata;
        metadata.isPossDupFlag = possDup;
        return matches(metadata);
    }
    bool matchesType(std::string_view type) const {
        MessageMetadata metadata;
        type.copy(metadata.msgType.data(), MSG_TYPE_LENGTH);
        return matches(metadata);
    }
    void setIdsOf(MessageClass messageClass, IdRange ids) {
        if (!condition.idsByClass) {
            condition.idsByClass.emplace();
        }
        (*condition.idsByClass)[static_cast<std::size_t>(messageClass)] = ids;
    }

    LogCapture log;
    MessageTableLayout layout;
    BlockSummary block;
    MetadataCondition condition;
};

TEST_F(MetadataOfAQuery, SelectsEverythingWhileNothingIsAsked) {
    addIds({10, 20});
    EXPECT_TRUE(mayMatch());
    EXPECT_TRUE(matches(MessageMetadata{}));
    EXPECT_TRUE(matches(-1));
    EXPECT_TRUE(matches(MOST));
}

TEST_F(MetadataOfAQuery, TakesBothEndsOfASequenceNumberRange) {
    addIds({10, 20});
    condition.seqNums = {10, 20};
    EXPECT_FALSE(matches(9));
    EXPECT_TRUE(matches(10));
    EXPECT_TRUE(matches(20));
    EXPECT_FALSE(matches(21));
    EXPECT_TRUE(mayMatch());
    condition.seqNums = {20, MOST};
    EXPECT_TRUE(mayMatch());
    condition.seqNums = {21, MOST};
    EXPECT_FALSE(mayMatch());
    condition.seqNums = {-MOST, 10};
    EXPECT_TRUE(mayMatch());
    condition.seqNums = {-MOST, 9};
    EXPECT_FALSE(mayMatch());
}

TEST_F(MetadataOfAQuery, SelectsNothingByARangeThatEndsBelowItsFirst) {
    condition.seqNums = {20, 10};
    for (const std::int32_t number : {5, 10, 15, 20, 25}) {
        EXPECT_FALSE(matches(number)) << number;
    }
    condition.seqNums.reset();
    condition.ids = {20, 10};
    for (const std::int32_t number : {5, 10, 15, 20, 25}) {
        EXPECT_FALSE(matches(number)) << number;
    }
}

TEST_F(MetadataOfAQuery, TakesBothEndsOfTheTimesAndEachAlone) {
    addIds({10, 20});
    condition.from = 20;
    EXPECT_FALSE(matches(19));
    EXPECT_TRUE(matches(20));
    EXPECT_TRUE(mayMatch());
    condition.from = 21;
    EXPECT_FALSE(mayMatch());
    condition.from.reset();
    condition.until = 10;
    EXPECT_TRUE(matches(10));
    EXPECT_FALSE(matches(11));
    EXPECT_TRUE(mayMatch());
    condition.until = 9;
    EXPECT_FALSE(mayMatch());
    condition.from = 12;
    condition.until = 13;
    EXPECT_TRUE(mayMatch()) << "the block's messages of 10 and 20 lie around it";
    EXPECT_FALSE(matches(10));
    EXPECT_FALSE(matches(20));
}

TEST_F(MetadataOfAQuery, TakesTheTimeZeroForATimeOnceItIsAsked) {
    condition.until = 0;
    EXPECT_TRUE(matches(-5));
    EXPECT_TRUE(matches(0));
    EXPECT_FALSE(matches(1));
    addIds({1, 5});
    EXPECT_FALSE(mayMatch());
}

TEST_F(MetadataOfAQuery, TakesBothEndsOfAnIdRangeOfOneClass) {
    addIds({10, 20});
    condition.ids = {20, 30};
    EXPECT_TRUE(mayMatch());
    EXPECT_FALSE(matches(19));
    EXPECT_TRUE(matches(20));
    EXPECT_TRUE(matches(30));
    EXPECT_FALSE(matches(31));
    condition.ids = {21, 30};
    EXPECT_FALSE(mayMatch());
    condition.ids = {RESENT_FIRST, MOST};
    EXPECT_FALSE(mayMatch()) << "the block has no id of that class";
    EXPECT_TRUE(log.notes().empty());
}

TEST_F(MetadataOfAQuery, RulesEveryBlockOutByIdsOfTwoClassesAndSaysSo) {
    addIds({10, APP_FROM_FIRST});
    condition.ids = {5, APP_FROM_FIRST};
    EXPECT_TRUE(matches(10));
    EXPECT_TRUE(matches(APP_FROM_FIRST));
    EXPECT_FALSE(mayMatch());
    ASSERT_EQ(log.notes().size(), 1U);
    EXPECT_NE(log.notes()[0].find("mfr_compareRange"), std::string::npos) << log.notes()[0];
    EXPECT_NE(log.notes()[0].find("lowerConnMsgId=5 and upperConnMsgId=536870911"), std::string::npos)
        << log.notes()[0];
    log.clear();
    condition.ids = {-9, -2};
    EXPECT_TRUE(matches(-5)) << "ids below 0 compare with their sign";
    EXPECT_FALSE(mayMatch()) << "they have no class";
    EXPECT_TRUE(log.notes().empty());
}

TEST_F(MetadataOfAQuery, AsksEachClassForItsOwnIds) {
    addIds({10, 20, APP_FROM_FIRST});
    setIdsOf(APP_TO, {20, 30});
    EXPECT_TRUE(mayMatch());
    EXPECT_FALSE(matches(19));
    EXPECT_TRUE(matches(20));
    EXPECT_TRUE(matches(30));
    EXPECT_FALSE(matches(31));
    EXPECT_FALSE(matches(APP_FROM_FIRST)) << "a class without a range selects nothing";
    EXPECT_FALSE(matches(-1)) << "an id without a class has none";
    setIdsOf(APP_TO, {21, 30});
    EXPECT_FALSE(mayMatch());
    setIdsOf(APP_FROM, {APP_FROM_FIRST, APP_FROM_FIRST});
    EXPECT_TRUE(mayMatch()) << "one class is enough";
    EXPECT_TRUE(matches(APP_FROM_FIRST));
    EXPECT_FALSE(matches(20));
    setIdsOf(APP_FROM, {APP_FROM_FIRST + 1, APP_FROM_LAST});
    EXPECT_FALSE(mayMatch());
    EXPECT_TRUE(log.notes().empty());
}

TEST_F(MetadataOfAQuery, SelectsNothingByClassesWithoutAnyRange) {
    addIds({10, 20});
    condition.idsByClass.emplace();
    EXPECT_FALSE(matches(10));
    EXPECT_FALSE(mayMatch());
}

TEST_F(MetadataOfAQuery, AsksForIdsByClassInsteadOfTheSingleRange) {
    addIds({10, 20});
    condition.ids = {10, 10};
    setIdsOf(APP_TO, {20, 30});
    EXPECT_FALSE(matches(10));
    EXPECT_TRUE(matches(20));
    EXPECT_TRUE(mayMatch());
    condition.ids = {20, 20};
    setIdsOf(APP_TO, {30, 30});
    EXPECT_FALSE(mayMatch());
}

TEST_F(MetadataOfAQuery, TakesEveryPossDupByteButZeroForSet) {
    condition.possDup = true;
    EXPECT_FALSE(matchesFlag(0));
    for (const std::uint8_t flag : Bytes{1, 2, 128, 255}) {
        condition.possDup = true;
        EXPECT_TRUE(matchesFlag(flag)) << int{flag};
        condition.possDup = false;
        EXPECT_FALSE(matchesFlag(flag)) << int{flag};
    }
    EXPECT_TRUE(matchesFlag(0));
    addIds({10});
    EXPECT_TRUE(mayMatch()) << "a footer does not know the flag";
}

TEST_F(MetadataOfAQuery, FindsExcludedTypesOnceTheyAreSorted) {
    condition.excludedMsgTypes = {excluded("z"), excluded("D"), excluded("\x80"), excluded("ABCDEFG"), excluded("0")};
    metadataCondition_sortExcluded(&condition);
    EXPECT_EQ(condition.excludedMsgTypes,
              (std::vector{excluded("0"), excluded("ABCDE"), excluded("D"), excluded("z"), excluded("\x80")}))
        << "as unsigned bytes";
    for (const char* type : {"z", "D", "\x80", "ABCDE", "0"}) {
        EXPECT_FALSE(matchesType(type)) << type;
    }
    for (const char* type : {"", "d", "DD", "ABCD", "ABCDF", "1", "zz", "\x81"}) {
        EXPECT_TRUE(matchesType(type)) << type;
    }
    addIds({10});
    EXPECT_TRUE(mayMatch()) << "a footer does not know the types";
}

TEST_F(MetadataOfAQuery, MustMeetEachOfItsParts) {
    addIds({10, 20});
    condition.seqNums = {10, 20};
    condition.ids = {10, 20};
    condition.from = 10;
    condition.until = 20;
    condition.possDup = false;
    condition.excludedMsgTypes = {excluded("E")};
    const MetadataCondition all = condition;
    EXPECT_TRUE(matches(15));
    EXPECT_TRUE(mayMatch());
    condition.seqNums = {21, 30};
    EXPECT_FALSE(matches(15));
    EXPECT_FALSE(mayMatch());
    condition = all;
    condition.ids = {21, 30};
    EXPECT_FALSE(matches(15));
    EXPECT_FALSE(mayMatch());
    condition = all;
    condition.from = 21;
    EXPECT_FALSE(matches(15));
    EXPECT_FALSE(mayMatch());
    condition = all;
    condition.until = 9;
    EXPECT_FALSE(matches(15));
    EXPECT_FALSE(mayMatch());
    condition = all;
    condition.possDup = true;
    EXPECT_FALSE(matches(15));
    condition = all;
    condition.excludedMsgTypes = {excluded("D")};
    EXPECT_FALSE(matches(15));
}

TEST_F(MetadataOfAQuery, RulesNoBlockOutByARangeThatIsDamaged) {
    addIds({10, 20});
    std::swap(block.minimum.seqNum, block.maximum.seqNum);
    std::swap(block.minimum.timestamp, block.maximum.timestamp);
    condition.seqNums = {1, 2};
    condition.from = 99;
    EXPECT_TRUE(mayMatch());
}

using Ids = std::vector<std::int32_t>;

std::optional<IdRange> rangeOf(const Ids& starts, const Ids& ends, MessageClass messageClass) {
    const std::optional<ClassIdRanges> ranges = metadataCondition_classIdRanges(starts, ends);
    EXPECT_TRUE(ranges.has_value()) << "no class has a range";
    return ranges ? (*ranges)[static_cast<std::size_t>(messageClass)] : std::nullopt;
}

TEST(ClassIdRangesOfIds, GoToTheEndOfAClassWithoutAnEndAndBeginAtItsFirstIdWithoutAStart) {
    EXPECT_EQ(rangeOf({APP_FROM_FIRST + 5}, {}, APP_FROM), (IdRange{APP_FROM_FIRST + 5, APP_FROM_LAST}));
    EXPECT_EQ(rangeOf({APP_FROM_FIRST + 5}, {}, APP_TO), std::nullopt);
    EXPECT_EQ(rangeOf({RESENT_FIRST}, {APP_FROM_LAST}, APP_FROM), (IdRange{APP_FROM_FIRST, APP_FROM_LAST}));
    EXPECT_EQ(rangeOf({RESENT_FIRST}, {0}, APP_TO), (IdRange{0, 0})) << "an end alone is not the class's start";
}

TEST(ClassIdRangesOfIds, LeaveOutARangeWhoseStartIsItsEnd) {
    EXPECT_EQ(rangeOf({7, RESENT_FIRST}, {7}, APP_TO), std::nullopt);
    EXPECT_EQ(metadataCondition_classIdRanges(Ids{7}, Ids{7}), std::nullopt);
    EXPECT_EQ(metadataCondition_classIdRanges(Ids{MOST}, Ids{}), std::nullopt) << "the class's last id is its end";
    EXPECT_EQ(rangeOf({0}, {1}, APP_TO), (IdRange{0, 1}));
    EXPECT_EQ(rangeOf({9}, {3}, APP_TO), (IdRange{9, 3})) << "a range that selects nothing is one";
}

TEST(ClassIdRangesOfIds, AreNoneWithoutAStartThatIsLeft) {
    EXPECT_EQ(metadataCondition_classIdRanges(Ids{}, Ids{}), std::nullopt);
    EXPECT_EQ(metadataCondition_classIdRanges(Ids{}, (Ids{100, APP_FROM_LAST})), std::nullopt);
    EXPECT_EQ(metadataCondition_classIdRanges(Ids{-7}, Ids{100}), std::nullopt);
    EXPECT_EQ(metadataCondition_classIdRanges(Ids{7}, (Ids{7, APP_FROM_LAST})), std::nullopt);
}

TEST(ClassIdRangesOfIds, TakeTheLaterIdOfAClassAndIgnoreIdsWithoutOne) {
    EXPECT_EQ(rangeOf({50, -7, 20}, {80, -1, 90}, APP_TO), (IdRange{20, 90}));
    EXPECT_EQ(rangeOf({20, -1}, {}, APP_TO), (IdRange{20, 0x1FFFFFFE}));
}

}  // namespace
}  // namespace tabulo::internal::test
