#include "query/id_set_match.h"

#include <gtest/gtest.h>

#include <limits>
#include <string>
#include <vector>

#include "tests/support/allocation_failure.h"
#include "tests/support/log_capture.h"

namespace tabulo::internal::test {
namespace {

constexpr std::int32_t APP_FROM_FIRST = 0x1FFFFFFF;
constexpr std::int32_t ADMIN_TO_FIRST = 0x3FFFFFFF;
constexpr std::int32_t RESENT_FIRST = 0x5FFFFFFF;

// Takes what the match hands on, and answers what a test wants.
struct Consumer {
    std::vector<std::int32_t> ids;
    Visit answer = Visit::goOn;
    ErrorCode code = NO_ERROR;
    Visit answerBefore = Visit::stop;
    bool fieldsArrived = true;
};

const StringField someStrings[2] = {{"a", 2}, {"b", 2}};
const NumericValue someNumbers[1] = {};

ErrorCode consume(void* owner, const MessageView& message, Visit* answer) {
    auto* consumer = static_cast<Consumer*>(owner);
    consumer->answerBefore = *answer;
    consumer->ids.push_back(message.metadata.connMsgId);
    consumer->fieldsArrived = consumer->fieldsArrived && message.texts.data() == someStrings &&
                              message.texts.size() == 2 && message.numbers.data() == someNumbers &&
                              message.numbers.size() == 1;
    *answer = consumer->answer;
    return consumer->code;
}

class IdSet : public ::testing::Test {
  protected:
    void request(const std::vector<std::int32_t>& ids) {
        ASSERT_EQ(idSetMatch_init(&match, ids), NO_ERROR);
        match.consumer = {&consumer, nullptr, consume};
    }
    Visit askMessage(std::int32_t connMsgId) {
        MessageMetadata metadata;
        metadata.connMsgId = connMsgId;
        Visit answer = Visit::goOn;
        const MessageVisitor visitor = query_matchIdSet(&match);
        code = visitor.onMessage(visitor.owner, {metadata, someStrings, someNumbers}, &answer);
        return answer;
    }
    // The answer for a block that holds messages with these ids.
    Visit askBlock(const std::vector<std::int32_t>& ids) {
        const MessageTableLayout layout{1000, 4, 0, 0};
        BlockSummary block;
        EXPECT_EQ(blockSummary_init(&block, layout), NO_ERROR);
        const StringField strings[4] = {};
        for (const std::int32_t id : ids) {
            MessageMetadata metadata;
            metadata.connMsgId = id;
            blockSummary_add(&block, layout, {metadata, strings, {}}, 55);
        }
        Visit answer = Visit::goOn;
        const MessageVisitor visitor = query_matchIdSet(&match);
        EXPECT_EQ(visitor.onBlock(visitor.owner, block, &answer), NO_ERROR);
        return answer;
    }

    LogCapture log;
    IdSetMatch match;
    Consumer consumer;
    ErrorCode code = NO_ERROR;
};

TEST_F(IdSet, TheBoundsAreTheSmallestAndLargestIdOfEachClass) {
    request({7, 3, APP_FROM_FIRST + 9, 5, RESENT_FIRST, APP_FROM_FIRST});
    EXPECT_EQ(match.lower[APP_TO].connMsgId, 3);
    EXPECT_EQ(match.upper[APP_TO].connMsgId, 7);
    EXPECT_EQ(match.lower[APP_FROM].connMsgId, APP_FROM_FIRST);
    EXPECT_EQ(match.upper[APP_FROM].connMsgId, APP_FROM_FIRST + 9);
    EXPECT_EQ(match.lower[RESENT].connMsgId, RESENT_FIRST);
    EXPECT_EQ(match.upper[RESENT].connMsgId, RESENT_FIRST);
    for (const MessageClass unset : {ADMIN_FROM, ADMIN_TO}) {
        EXPECT_EQ(match.lower[static_cast<std::size_t>(unset)].connMsgId, -1);
        EXPECT_EQ(match.upper[static_cast<std::size_t>(unset)].connMsgId, -1);
    }
}

TEST_F(IdSet, IdsWithoutAClassAreIgnored) {
    request({-1, -5, std::numeric_limits<std::int32_t>::min()});
    for (std::size_t c = 0; c < 5; ++c) {
        EXPECT_EQ(match.lower[c].connMsgId, -1);
        EXPECT_EQ(match.upper[c].connMsgId, -1);
    }
    EXPECT_EQ(askMessage(-1), Visit::goOn);
    EXPECT_EQ(askMessage(-5), Visit::goOn);
    EXPECT_TRUE(consumer.ids.empty()) << "a message without a class is not delivered";
    EXPECT_EQ(askBlock({1, -1}), Visit::skipBlock);
}

TEST_F(IdSet, TheIdZeroIsAnIdLikeAnyOther) {
    request({0});
    EXPECT_EQ(match.lower[APP_TO].connMsgId, 0);
    EXPECT_EQ(askMessage(0), Visit::goOn);
    EXPECT_EQ(consumer.ids, std::vector<std::int32_t>{0});
    EXPECT_EQ(askBlock({0}), Visit::goOn);
}

TEST_F(IdSet, ExactlyTheRequestedIdsReachTheConsumerAndNotAllOfTheirRange) {
    request({3, 7, APP_FROM_FIRST});
    for (const std::int32_t id : {2, 3, 4, 5, 6, 7, 8, APP_FROM_FIRST, APP_FROM_FIRST + 1, RESENT_FIRST, -1}) {
        EXPECT_EQ(askMessage(id), Visit::goOn);
    }
    EXPECT_EQ(consumer.ids, (std::vector<std::int32_t>{3, 7, APP_FROM_FIRST}));
    EXPECT_TRUE(consumer.fieldsArrived);
}

TEST_F(IdSet, AnIdGivenTwiceDeliversItsMessageOnce) {
    request({7, 3, 7, 3, 7});
    EXPECT_EQ(askMessage(7), Visit::goOn);
    EXPECT_EQ(consumer.ids, std::vector<std::int32_t>{7});
}

TEST_F(IdSet, TheConsumerDecidesTheAnswerWhichIsGoOnBefore) {
    request({7});
    for (const Visit answer : {Visit::goOn, Visit::stop, Visit::skipBlock}) {
        consumer.answer = answer;
        EXPECT_EQ(askMessage(7), answer);
        EXPECT_EQ(consumer.answerBefore, Visit::goOn);
    }
    EXPECT_EQ(askMessage(8), Visit::goOn) << "a message that was not asked for is skipped";
}

TEST_F(IdSet, TheConsumersCodeIsReturned) {
    request({7});
    consumer.code = JNI_ERROR;
    askMessage(7);
    EXPECT_EQ(code, JNI_ERROR);
    askMessage(8);
    EXPECT_EQ(code, NO_ERROR);
}

TEST_F(IdSet, ABlockIsSkippedUnlessARangeOfSomeClassTouchesItsOwn) {
    request({10, 20, ADMIN_TO_FIRST + 5});
    EXPECT_EQ(askBlock({9}), Visit::skipBlock);
    EXPECT_EQ(askBlock({10}), Visit::goOn);
    EXPECT_EQ(askBlock({15}), Visit::goOn) << "within the range, though not asked for: its messages decide";
    EXPECT_EQ(askBlock({20, 30}), Visit::goOn);
    EXPECT_EQ(askBlock({21, 30}), Visit::skipBlock);
    EXPECT_EQ(askBlock({5, 25}), Visit::goOn);
    EXPECT_EQ(askBlock({9, ADMIN_TO_FIRST + 5}), Visit::goOn) << "one class is enough";
    EXPECT_EQ(askBlock({9, ADMIN_TO_FIRST + 6}), Visit::skipBlock);
    EXPECT_EQ(askBlock({RESENT_FIRST}), Visit::skipBlock) << "a class without ids in the block";
    EXPECT_EQ(askBlock({-1}), Visit::skipBlock) << "no id of any class";
    EXPECT_TRUE(log.all().empty()) << log.all().front();
}

TEST_F(IdSet, WithoutIdsEveryBlockIsSkipped) {
    request({});
    EXPECT_EQ(askBlock({0, APP_FROM_FIRST}), Visit::skipBlock);
    EXPECT_EQ(askMessage(0), Visit::goOn);
    EXPECT_TRUE(consumer.ids.empty());
}

TEST_F(IdSet, MadeAgainForgetsTheIdsBefore) {
    request({7, RESENT_FIRST});
    request({9});
    EXPECT_EQ(match.lower[RESENT].connMsgId, -1);
    askMessage(7);
    askMessage(9);
    EXPECT_EQ(consumer.ids, std::vector<std::int32_t>{9});
}

TEST_F(IdSet, WithoutMemoryIsOutOfMemory) {
    const std::vector<std::int32_t> ids = {1, 2, 3};
    ErrorCode result = NO_ERROR;
    {
        const AllocationFailure failure(1);
        result = idSetMatch_init(&match, ids);
    }
    EXPECT_EQ(result, OUT_OF_MEMORY_ERROR);
}

}  // namespace
}  // namespace tabulo::internal::test
