#include "messagetable/message_class.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace tabulo::internal::test {
namespace {

constexpr std::int32_t MAX_ID = std::numeric_limits<std::int32_t>::max();
constexpr std::int32_t MIN_ID = std::numeric_limits<std::int32_t>::min();

struct Range {
    MessageClass messageClass;
    std::int32_t index;
    std::int32_t first;
    std::int32_t last;
    const char* name;
};

constexpr Range ranges[] = {
    {APP_FROM, 0, 536870911, 1073741822, "app message from counterparty"},
    {APP_TO, 1, 0, 536870910, "app message to counterparty"},
    {ADMIN_FROM, 2, 1342177279, 1610612734, "admin message from counterparty"},
    {ADMIN_TO, 3, 1073741823, 1342177278, "admin message to counterparty"},
    {RESENT, 4, 1610612735, 2147483647, "resent message"},
};

TEST(MessageClass, TheNumberingIsThatOfTheFileAndNotTheOrderOfTheRanges) {
    for (const Range& range : ranges) {
        EXPECT_EQ(static_cast<std::int32_t>(range.messageClass), range.index) << range.name;
    }
    EXPECT_EQ(MESSAGE_CLASS_COUNT, 5);
}

TEST(MessageClass, BothEndsOfEveryRangeBelongToItsClass) {
    for (const Range& range : ranges) {
        EXPECT_EQ(classifyConnMsgId(range.first), range.messageClass) << range.first;
        EXPECT_EQ(classifyConnMsgId(range.last), range.messageClass) << range.last;
        EXPECT_EQ(classifyConnMsgId(range.first + (range.last - range.first) / 2), range.messageClass) << range.name;
    }
}

TEST(MessageClass, TheIdsNextToEachBoundaryFallOnTheirOwnSide) {
    EXPECT_EQ(classifyConnMsgId(0), APP_TO);
    EXPECT_EQ(classifyConnMsgId(0x1FFFFFFE), APP_TO);
    EXPECT_EQ(classifyConnMsgId(0x1FFFFFFF), APP_FROM);
    EXPECT_EQ(classifyConnMsgId(0x3FFFFFFE), APP_FROM);
    EXPECT_EQ(classifyConnMsgId(0x3FFFFFFF), ADMIN_TO);
    EXPECT_EQ(classifyConnMsgId(0x4FFFFFFE), ADMIN_TO);
    EXPECT_EQ(classifyConnMsgId(0x4FFFFFFF), ADMIN_FROM);
    EXPECT_EQ(classifyConnMsgId(0x5FFFFFFE), ADMIN_FROM);
    EXPECT_EQ(classifyConnMsgId(0x5FFFFFFF), RESENT);
    EXPECT_EQ(classifyConnMsgId(0x7FFFFFFF), RESENT);
}

TEST(MessageClass, NegativeIdsBelongToNoClass) {
    EXPECT_EQ(classifyConnMsgId(-1), NO_MESSAGE_CLASS);
    EXPECT_EQ(classifyConnMsgId(MIN_ID), NO_MESSAGE_CLASS);
    EXPECT_EQ(static_cast<std::int32_t>(NO_MESSAGE_CLASS), -1);
}

TEST(MessageClass, ADoubleIsClassifiedByTheSameInclusiveBounds) {
    for (const Range& range : ranges) {
        EXPECT_EQ(classifyConnMsgIdDouble(range.first), range.messageClass) << range.first;
        EXPECT_EQ(classifyConnMsgIdDouble(range.last), range.messageClass) << range.last;
    }
    EXPECT_EQ(classifyConnMsgIdDouble(536870910.5), NO_MESSAGE_CLASS) << "between APP_TO and APP_FROM";
    EXPECT_EQ(classifyConnMsgIdDouble(536870909.5), APP_TO);
    EXPECT_EQ(classifyConnMsgIdDouble(-0.5), NO_MESSAGE_CLASS);
    EXPECT_EQ(classifyConnMsgIdDouble(-0.0), APP_TO);
    EXPECT_EQ(classifyConnMsgIdDouble(2147483647.5), NO_MESSAGE_CLASS);
    EXPECT_EQ(classifyConnMsgIdDouble(std::numeric_limits<double>::infinity()), NO_MESSAGE_CLASS);
    EXPECT_EQ(classifyConnMsgIdDouble(std::nan("")), NO_MESSAGE_CLASS);
}

TEST(MessageClass, TheBoundsOfAClassAreThoseOfItsRange) {
    for (const Range& range : ranges) {
        EXPECT_EQ(connMsgClassFirstId(range.messageClass), range.first) << range.name;
        EXPECT_EQ(connMsgClassLastId(range.messageClass), range.last) << range.name;
    }
    EXPECT_EQ(connMsgClassFirstId(NO_MESSAGE_CLASS), -1);
    EXPECT_EQ(connMsgClassLastId(NO_MESSAGE_CLASS), -1);
}

TEST(MessageClass, TheBoundsOfAnIdAreThoseOfItsClassEvenWhenTheIdLooksLikeAClassNumber) {
    for (const Range& range : ranges) {
        EXPECT_EQ(connMsgClassFirstId(range.last), range.first) << range.name;
        EXPECT_EQ(connMsgClassLastId(range.first), range.last) << range.name;
    }
    // 0 to 4 as ids are all APP_TO; as classes they are the five classes.
    EXPECT_EQ(connMsgClassFirstId(std::int32_t{4}), 0);
    EXPECT_EQ(connMsgClassLastId(std::int32_t{0}), 536870910);
    EXPECT_EQ(connMsgClassFirstId(std::int32_t{-1}), -1);
    EXPECT_EQ(connMsgClassLastId(std::int32_t{-1}), -1);
    EXPECT_EQ(connMsgClassFirstId(MIN_ID), -1);
    EXPECT_EQ(connMsgClassLastId(MAX_ID), MAX_ID);
}

TEST(MessageClass, EveryClassHasItsText) {
    for (const Range& range : ranges) {
        EXPECT_STREQ(connMsgClassName(range.messageClass), range.name);
    }
}

TEST(MessageClass, NumbersThatNameNoClassAreUnknown) {
    EXPECT_STREQ(connMsgClassName(-1), "unknown message class");
    EXPECT_STREQ(connMsgClassName(5), "unknown message class");
    EXPECT_STREQ(connMsgClassName(MIN_ID), "unknown message class");
    EXPECT_STREQ(connMsgClassName(MAX_ID), "unknown message class");
}

}  // namespace
}  // namespace tabulo::internal::test
