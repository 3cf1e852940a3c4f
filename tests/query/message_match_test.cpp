// The message test: which messages meet a query, whatever their blocks.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "query/match.h"
#include "tests/query/query_fixture.h"

namespace tabulo::internal::test {
namespace {

constexpr std::int64_t LEAST = std::numeric_limits<std::int64_t>::min();
constexpr std::int64_t MOST = std::numeric_limits<std::int64_t>::max();
constexpr double INFINITE = std::numeric_limits<double>::infinity();

class MessageTest : public ::testing::Test {
  protected:
    bool matches() const { return query_messageMatches(*conditions, MessageFields(message).view()); }
    void anew() { conditions = newConditions(); }
    bool matchesDouble(std::int32_t field, const std::vector<double>& values, bool includeNull = false) {
        anew();
        EXPECT_EQ(conditions_addDoubleFilter(conditions.get(), field, nullptr, nullptr, 0, values.data(),
                                             static_cast<int>(values.size()), includeNull),
                  NO_ERROR);
        return matches();
    }
    bool matchesLong(std::int32_t field, const std::vector<std::int64_t>& values, bool includeNull = false) {
        anew();
        EXPECT_EQ(conditions_addLongFilter(conditions.get(), field, nullptr, nullptr, 0, values.data(),
                                           static_cast<int>(values.size()), includeNull),
                  NO_ERROR);
        return matches();
    }
    bool matchesString(std::int32_t field, const char* value, bool includeNull = false, bool ignoreCase = false) {
        anew();
        EXPECT_EQ(conditions_addStringFilter(conditions.get(), field, includeNull, ignoreCase), NO_ERROR);
        if (value != nullptr) {
            EXPECT_EQ(conditions_setStringFilterValueCount(conditions.get(), 1), NO_ERROR);
            EXPECT_EQ(conditions_setStringFilterValue(conditions.get(), value, 0), NO_ERROR);
        }
        return matches();
    }
    bool matchesRange(std::int32_t field, const char* minimum, const char* maximum, bool includeNull = false,
                      bool ignoreCase = false) {
        anew();
        EXPECT_EQ(conditions_addStringFilter(conditions.get(), field, includeNull, ignoreCase), NO_ERROR);
        EXPECT_EQ(conditions_setStringFilterRangeCount(conditions.get(), 2), NO_ERROR);
        EXPECT_EQ(conditions_setStringFilterRange(conditions.get(), minimum, maximum, 0), NO_ERROR);
        return matches();
    }

    MessageTableLayout layout = layoutOf(1000, 1, 2);
    Message message = plainMessage(10, layout);
    QueryConditionsPtr conditions = newConditions();
};

TEST_F(MessageTest, AFreshRecordMatchesEveryMessage) {
    EXPECT_TRUE(matches());
    message.metadata = MessageMetadata{};
    message.metadata.connMsgId = -1;
    message.metadata.seqNum = -1;
    message.strings.assign(5, std::nullopt);
    message.numbers.assign(2, NumericValue{});
    EXPECT_TRUE(matches());
}

TEST_F(MessageTest, SequenceNumbersAreInclusiveAndSigned) {
    for (const auto& [begin, end, expected] : std::vector<std::tuple<std::int32_t, std::int32_t, bool>>{
             {10, 10, true}, {1, 10, true}, {10, 20, true}, {11, 20, false}, {1, 9, false}, {-5, -1, false}}) {
        EXPECT_EQ(conditions_setSeqNumRange(conditions.get(), begin, end), NO_ERROR);
        EXPECT_EQ(matches(), expected) << begin << " to " << end;
    }
    message.metadata.seqNum = -3;
    EXPECT_EQ(conditions_setSeqNumRange(conditions.get(), -5, -3), NO_ERROR);
    EXPECT_TRUE(matches());
    EXPECT_EQ(conditions_setSeqNumRange(conditions.get(), -5, -4), NO_ERROR);
    EXPECT_FALSE(matches());
}

TEST_F(MessageTest, ASequenceRangeWhoseEndIsBelowItsBeginSelectsEverything) {
    EXPECT_EQ(conditions_setSeqNumRange(conditions.get(), 5, 0), NO_ERROR);
    EXPECT_TRUE(matches());
    message.metadata.seqNum = 1;
    EXPECT_TRUE(matches());
}

TEST_F(MessageTest, ZeroIsASequenceNumberLikeAnyOther) {
    EXPECT_EQ(conditions_setSeqNumRange(conditions.get(), 0, 0), NO_ERROR);
    EXPECT_FALSE(matches());
    message.metadata.seqNum = 0;
    EXPECT_TRUE(matches());
}

TEST_F(MessageTest, TimesAreInclusiveAndZeroIsNotSet) {
    EXPECT_EQ(conditions_setStartingTime(conditions.get(), 10'000), NO_ERROR);
    EXPECT_EQ(conditions_setEndingTime(conditions.get(), 10'000), NO_ERROR);
    EXPECT_TRUE(matches());
    EXPECT_EQ(conditions_setStartingTime(conditions.get(), 10'001), NO_ERROR);
    EXPECT_FALSE(matches());
    EXPECT_EQ(conditions_setStartingTime(conditions.get(), 0), NO_ERROR);
    EXPECT_TRUE(matches());
    EXPECT_EQ(conditions_setEndingTime(conditions.get(), 9'999), NO_ERROR);
    EXPECT_FALSE(matches());
    message.metadata.timestamp = -5;
    EXPECT_TRUE(matches());
    EXPECT_EQ(conditions_setStartingTime(conditions.get(), -4), NO_ERROR);
    EXPECT_FALSE(matches());
}

TEST_F(MessageTest, ThePossDupConditionRequiresOrForbidsTheFlag) {
    EXPECT_EQ(conditions_setPossDupFlag(conditions.get(), true), NO_ERROR);
    EXPECT_FALSE(matches());
    message.metadata.isPossDupFlag = 1;
    EXPECT_TRUE(matches());
    EXPECT_EQ(conditions_setPossDupFlag(conditions.get(), false), NO_ERROR);
    EXPECT_FALSE(matches());
    message.metadata.isPossDupFlag = 0;
    EXPECT_TRUE(matches());
}

TEST_F(MessageTest, ASingleIdRangeIsInclusiveWhateverTheClasses) {
    EXPECT_EQ(conditions_setMessageIdRange(conditions.get(), 10, 10), NO_ERROR);
    EXPECT_TRUE(matches());
    EXPECT_EQ(conditions_setMessageIdRange(conditions.get(), 11, 99), NO_ERROR);
    EXPECT_FALSE(matches());
    EXPECT_EQ(conditions_setMessageIdRange(conditions.get(), 0, 0x7FFFFFFF), NO_ERROR);
    EXPECT_TRUE(matches());
    EXPECT_EQ(conditions_setMessageIdRange(conditions.get(), -1, 5), NO_ERROR);
    EXPECT_TRUE(matches()) << "a start of -1 is not set, and the end alone is not tested";
    EXPECT_EQ(conditions_setMessageIdRange(conditions.get(), 5, -1), NO_ERROR);
    EXPECT_FALSE(matches()) << "an end of -1 lies below every id from 5 up";
    message.metadata.connMsgId = -4;
    EXPECT_EQ(conditions_setMessageIdRange(conditions.get(), -9, -2), NO_ERROR);
    EXPECT_TRUE(matches()) << "ids below 0 compare with their sign";
}

TEST_F(MessageTest, PerClassIdsRejectIdsOfOtherClassesAndOfNone) {
    const std::int32_t start = 0x20000005;
    ASSERT_EQ(conditions_setMessageIdRanges(conditions.get(), &start, 1, nullptr, 0), NO_ERROR);
    EXPECT_FALSE(matches()) << "an APP_TO message has no bounds of its own";
    message.metadata.connMsgId = 0x20000005;
    EXPECT_TRUE(matches());
    message.metadata.connMsgId = 0x20000004;
    EXPECT_FALSE(matches());
    message.metadata.connMsgId = 0x3FFFFFFE;
    EXPECT_TRUE(matches());
    message.metadata.connMsgId = 0x3FFFFFFF;
    EXPECT_FALSE(matches());
    message.metadata.connMsgId = -1;
    EXPECT_FALSE(matches());
}

TEST_F(MessageTest, AClassWithOnlyAnUpperBoundIsTestedByItAlone) {
    const std::int32_t start = 0x20000005;
    const std::int32_t end = 10;
    ASSERT_EQ(conditions_setMessageIdRanges(conditions.get(), &start, 1, &end, 1), NO_ERROR);
    EXPECT_TRUE(matches());
    message.metadata.connMsgId = 11;
    EXPECT_FALSE(matches());
    ASSERT_EQ(conditions_setMessageIdRanges(conditions.get(), nullptr, 0, &end, 1), NO_ERROR);
    EXPECT_TRUE(matches()) << "upper bounds alone do not switch the test on";
}

TEST_F(MessageTest, ExcludedMsgTypesCompareFiveCharacters) {
    const auto exclude = [this](const std::vector<const char*>& types) {
        EXPECT_EQ(conditions_setExcludedMsgTypeCount(conditions.get(), static_cast<int>(types.size())), NO_ERROR);
        for (std::size_t i = 0; i < types.size(); ++i) {
            EXPECT_EQ(conditions_setExcludedMsgType(conditions.get(), static_cast<int>(i), types[i]), NO_ERROR);
        }
    };
    exclude({"E", "D", "0", "8"});
    EXPECT_FALSE(matches());
    setMsgType(&message.metadata, "DD");
    EXPECT_TRUE(matches());
    setMsgType(&message.metadata, "d");
    EXPECT_TRUE(matches());
    exclude({"ABCDEFGH"});
    setMsgType(&message.metadata, "ABCDE");
    EXPECT_FALSE(matches());
    setMsgType(&message.metadata, "");
    EXPECT_TRUE(matches());
    exclude({"\x80", "", "z"});
    EXPECT_FALSE(matches()) << "an empty type excludes messages without one";
    setMsgType(&message.metadata, "\x80");
    EXPECT_FALSE(matches());
}

TEST_F(MessageTest, NumericFiltersReadBothTypes) {
    message.numbers[0] = numericValue_ofDouble(7.9);
    message.numbers[1] = numericValue_ofLong(42);
    EXPECT_TRUE(matchesDouble(0, {7.9}));
    EXPECT_FALSE(matchesDouble(0, {7}));
    EXPECT_TRUE(matchesLong(0, {7})) << "a double is truncated for a long filter";
    EXPECT_FALSE(matchesLong(0, {8}));
    EXPECT_TRUE(matchesDouble(1, {42.0}));
    EXPECT_TRUE(matchesLong(1, {42}));
    message.numbers[0] = numericValue_ofDouble(-7.9);
    EXPECT_TRUE(matchesLong(0, {-7})) << "towards zero";
}

TEST_F(MessageTest, ConversionsSaturate) {
    message.numbers[0] = numericValue_ofDouble(1e300);
    EXPECT_TRUE(matchesLong(0, {MOST}));
    message.numbers[0] = numericValue_ofDouble(-INFINITE);
    EXPECT_TRUE(matchesLong(0, {LEAST}));
    message.numbers[0] = numericValue_ofLong(MOST);
    EXPECT_TRUE(matchesDouble(0, {9223372036854775808.0}));
}

TEST_F(MessageTest, AnAbsentNumberPassesWhereAbsentFieldsDo) {
    message.numbers[0] = NumericValue{};
    EXPECT_FALSE(matchesDouble(0, {0}));
    EXPECT_FALSE(matchesLong(0, {0}));
    EXPECT_TRUE(matchesDouble(0, {5}, true));
    EXPECT_TRUE(matchesLong(0, {5}, true));
    EXPECT_FALSE(matchesDouble(1, {5}, true)) << "a present value is tested all the same";
}

TEST_F(MessageTest, ANaNIsAbsentForDoublesAndZeroForLongs) {
    message.numbers[0] = numericValue_ofDouble(std::nan(""));
    EXPECT_FALSE(matchesDouble(0, {0}));
    EXPECT_TRUE(matchesDouble(0, {5}, true));
    EXPECT_TRUE(matchesLong(0, {0}));
    EXPECT_FALSE(matchesLong(0, {5}, true)) << "includeNull does not apply to a NaN in a long filter";
}

TEST_F(MessageTest, PseudoFieldsStandBehindTheTablesOwnNumericFields) {
    message.metadata.uniformId = -1;
    message.metadata.seqNum = -2;
    message.metadata.prevSeqNum = -3;
    message.metadata.connMsgId = -4;
    message.metadata.timestamp = LEAST + 5;
    message.metadata.isPossDupFlag = 1;
    message.metadata.isOutOfSequence = 0;
    const std::vector<std::int64_t> expected = {-1, -2, -3, -4, LEAST + 5, 1, 0};
    for (std::int32_t k = 0; k < 7; ++k) {
        const std::int64_t value = expected[static_cast<std::size_t>(k)];
        EXPECT_TRUE(matchesLong(2 + k, {value})) << k;
        EXPECT_FALSE(matchesLong(2 + k, {value + 1}, true)) << k;
        EXPECT_TRUE(matchesDouble(2 + k, {static_cast<double>(value)})) << k;
        EXPECT_FALSE(matchesDouble(2 + k, {77}, true)) << k;
    }
    message.metadata.isPossDupFlag = 0;
    message.metadata.isOutOfSequence = 1;
    EXPECT_TRUE(matchesLong(7, {0}));
    EXPECT_TRUE(matchesLong(8, {1}));
}

TEST_F(MessageTest, FiltersOnIndexesThatNameNothingAreIgnored) {
    EXPECT_TRUE(matchesDouble(9, {77}));
    EXPECT_TRUE(matchesDouble(-1, {}));
    EXPECT_TRUE(matchesLong(9, {}));
    EXPECT_TRUE(matchesLong(std::numeric_limits<std::int32_t>::min(), {77}));
    EXPECT_TRUE(matchesLong(std::numeric_limits<std::int32_t>::max(), {77}));
    EXPECT_TRUE(matchesString(6, "x"));
    EXPECT_TRUE(matchesString(-1, nullptr));
    EXPECT_TRUE(matchesString(std::numeric_limits<std::int32_t>::max(), "x"));
}

TEST_F(MessageTest, AFilterWithoutEntriesMatchesNoPresentValue) {
    EXPECT_FALSE(matchesDouble(0, {}));
    EXPECT_FALSE(matchesLong(0, {}));
    EXPECT_FALSE(matchesString(0, nullptr));
    message.numbers[0] = NumericValue{};
    message.strings[0] = std::nullopt;
    EXPECT_TRUE(matchesDouble(0, {}, true));
    EXPECT_TRUE(matchesString(0, nullptr, true));
}

TEST_F(MessageTest, AStringIndexIsTheSlotInTheMessage) {
    for (std::int32_t slot = 0; slot < 5; ++slot) {
        const std::string text = "f" + std::to_string(slot) + "-10";
        EXPECT_TRUE(matchesString(slot, text.c_str())) << slot;
        EXPECT_FALSE(matchesString(slot, "other")) << slot;
    }
    EXPECT_TRUE(matchesString(5, "D")) << "one behind the last slot is the MsgType";
    EXPECT_FALSE(matchesString(5, "E"));
}

TEST_F(MessageTest, AnEmptyTextIsAbsentForIncludeNullAndATextOtherwise) {
    message.strings[0] = withNul("");
    EXPECT_TRUE(matchesString(0, "x", true));
    EXPECT_FALSE(matchesString(0, "x"));
    EXPECT_TRUE(matchesString(0, ""));
    EXPECT_TRUE(matchesRange(0, nullptr, "a"));
    EXPECT_FALSE(matchesRange(0, "", nullptr)) << "\"\" is not above itself";
    message.strings[0] = std::nullopt;
    EXPECT_TRUE(matchesString(0, "x", true));
    EXPECT_FALSE(matchesString(0, "")) << "nothing is stored";
    EXPECT_FALSE(matchesRange(0, nullptr, nullptr));
}

TEST_F(MessageTest, ATextThatOnlyBeginsWithANulIsPresent) {
    message.strings[0] = std::string("\0ab", 3);
    EXPECT_FALSE(matchesString(0, "x", true));
    EXPECT_TRUE(matchesString(0, ""));
    message.strings[0] = std::string("\0\0", 2);
    EXPECT_FALSE(matchesString(0, "x", true)) << "one byte is left in front of the closing NUL";
}

TEST_F(MessageTest, ATextOfOneByteWithoutANulIsThatByte) {
    message.strings[0] = "a";
    EXPECT_TRUE(matchesString(0, "a"));
    EXPECT_FALSE(matchesString(0, "x", true));
    message.strings[0] = std::string("abc");
    EXPECT_TRUE(matchesString(0, "abc"));
}

TEST_F(MessageTest, IgnoringCaseHoldsForValuesAndNotForRangesOrTheMsgType) {
    message.strings[0] = withNul("AbC");
    EXPECT_TRUE(matchesString(0, "aBc", false, true));
    EXPECT_FALSE(matchesString(0, "aBc"));
    EXPECT_FALSE(matchesRange(0, "a", "c", false, true));
    EXPECT_TRUE(matchesRange(0, "A", "C", false, true));
    EXPECT_FALSE(matchesString(5, "d", false, true));
    EXPECT_TRUE(matchesString(5, "D", false, true));
}

TEST_F(MessageTest, IncludeNullDoesNotApplyToTheMsgType) {
    setMsgType(&message.metadata, "");
    EXPECT_FALSE(matchesString(5, "x", true));
    EXPECT_TRUE(matchesString(5, ""));
    EXPECT_TRUE(matchesRange(5, nullptr, "A", true));
}

TEST_F(MessageTest, TheMsgTypeLiesInsideRangesByFiveCharacters) {
    setMsgType(&message.metadata, "ABCDE");
    EXPECT_FALSE(matchesRange(5, "ABCDEFG", nullptr));
    EXPECT_FALSE(matchesRange(5, nullptr, "ABCDEFG"));
    EXPECT_TRUE(matchesRange(5, "ABCDD", "ABCDF"));
}

TEST_F(MessageTest, EveryConditionMustHold) {
    EXPECT_EQ(conditions_setSeqNumRange(conditions.get(), 10, 10), NO_ERROR);
    EXPECT_EQ(conditions_setStartingTime(conditions.get(), 1), NO_ERROR);
    EXPECT_EQ(conditions_setPossDupFlag(conditions.get(), false), NO_ERROR);
    const std::int64_t number = 1000;
    EXPECT_EQ(conditions_addLongFilter(conditions.get(), 0, nullptr, nullptr, 0, &number, 1, false), NO_ERROR);
    EXPECT_EQ(conditions_addStringFilter(conditions.get(), 0, false, false), NO_ERROR);
    EXPECT_EQ(conditions_setStringFilterValueCount(conditions.get(), 1), NO_ERROR);
    EXPECT_EQ(conditions_setStringFilterValue(conditions.get(), "f0-10", 0), NO_ERROR);
    EXPECT_TRUE(matches());
    EXPECT_EQ(conditions_addStringFilter(conditions.get(), 1, false, false), NO_ERROR);
    EXPECT_FALSE(matches());
}

TEST_F(MessageTest, TheDirectionAndTheInvertedFlagAreNotLookedAt) {
    EXPECT_EQ(conditions_setIterateBackward(conditions.get(), true), NO_ERROR);
    EXPECT_EQ(conditions_setInverted(conditions.get(), true), NO_ERROR);
    EXPECT_TRUE(matches());
}

}  // namespace
}  // namespace tabulo::internal::test
