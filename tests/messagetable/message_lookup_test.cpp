#include "messagetable/message_lookup.h"

#include <gtest/gtest.h>

#include <limits>

#include "tests/messagetable/table_image.h"
#include "tests/support/debug_log.h"
#include "tests/support/fault_platform.h"

namespace tabulo::internal::test {
namespace {

constexpr std::int64_t NO_LIMIT = std::numeric_limits<std::int64_t>::min();

std::int32_t lastId(const MessageTablePtr& table, std::int32_t classBaseId) {
    std::int32_t id = -77;
    EXPECT_EQ(mt_getLastMessageId(table.get(), classBaseId, &id), NO_ERROR);
    return id;
}

std::int32_t firstPending(const MessageTablePtr& table, std::int64_t since = NO_LIMIT) {
    std::int32_t seqNum = -77;
    EXPECT_EQ(mt_getFirstPendingMsgSeqNum(table.get(), since, &seqNum), NO_ERROR);
    return seqNum;
}

std::int32_t lastPending(const MessageTablePtr& table, std::int64_t since = NO_LIMIT) {
    std::int32_t seqNum = -77;
    EXPECT_EQ(mt_getLastPendingMsgSeqNum(table.get(), since, &seqNum), NO_ERROR);
    return seqNum;
}

using LastGood = std::pair<std::int32_t, std::int64_t>;
using Asked = std::initializer_list<const MessageTablePtr*>;  // writer and reader, which must answer alike

LastGood lastGood(const MessageTablePtr& table, std::int64_t since = NO_LIMIT) {
    LastGood found{-77, -77};
    EXPECT_EQ(mt_getLastGoodMsgSeqNum(table.get(), since, &found.first, &found.second), NO_ERROR);
    return found;
}

std::int32_t lastUniform(const MessageTablePtr& table) {
    std::int32_t id = -77;
    EXPECT_EQ(mt_getLastUniformMessageId(table.get(), &id), NO_ERROR);
    return id;
}

// A pending outgoing message, the same message when it is sent, and a message received.
Message pending(std::int32_t n, std::int32_t number) {
    Message message = simpleMessage(n);
    message.metadata.seqNum = -number;
    return message;
}

Message sent(std::int32_t n, std::int32_t seqNum, std::int32_t pendingNumber) {
    Message message = simpleMessage(n);
    message.metadata.seqNum = seqNum;
    message.metadata.prevSeqNum = pendingNumber;
    return message;
}

class Lookup : public TableImageTest {
  protected:
    MessageTablePtr openReader() const { return openTable(directory.root(), OpenMode::read, shape); }
};

TEST_F(Lookup, AFreshTableAnswersThatThereIsNothing) {
    open(OpenMode::create);
    const MessageTablePtr reader = openReader();
    for (const MessageTablePtr* asked : Asked{&table, &reader}) {
        EXPECT_EQ(firstPending(*asked), -1);
        EXPECT_EQ(lastPending(*asked), 0);
        EXPECT_EQ(lastGood(*asked), LastGood(0, 0));
        EXPECT_EQ(lastUniform(*asked), 0);
        for (const std::int32_t base : {0, 100, 536870911, 1073741823, 1342177279, 1610612735, 2147483647}) {
            EXPECT_EQ(lastId(*asked, base), base) << "a class without messages yields the id passed in";
        }
    }
}

TEST_F(Lookup, TheLastIdIsTheHighestOfTheClassThatTheGivenIdBelongsTo) {
    open(OpenMode::create);
    const std::vector<std::int32_t> ids = {700, 500, 536870912, 1342177290, 1342177280, 2000000000};
    for (const std::int32_t id : ids) {
        Message message = simpleMessage(id, shape);
        ASSERT_EQ(write(message), NO_ERROR);
    }
    const MessageTablePtr reader = openReader();
    for (const MessageTablePtr* asked : Asked{&table, &reader}) {
        EXPECT_EQ(lastId(*asked, 0), 700);
        EXPECT_EQ(lastId(*asked, 536870910), 700) << "any id of the class names it";
        EXPECT_EQ(lastId(*asked, 536870911), 536870912);
        EXPECT_EQ(lastId(*asked, 1342177279), 1342177290);
        EXPECT_EQ(lastId(*asked, 1073741823), 1073741823) << "no message of that class";
        EXPECT_EQ(lastId(*asked, 1610612735), 2000000000);
        EXPECT_EQ(lastUniform(*asked), 2000000000);
    }
}

TEST_F(Lookup, AnIdWithoutAClassIsOutOfBounds) {
    open(OpenMode::create);
    for (const std::int32_t id : {-1, std::numeric_limits<std::int32_t>::min()}) {
        log.clear();
        std::int32_t found = 55;
        EXPECT_EQ(mt_getLastMessageId(table.get(), id, &found), INDEX_OUT_OF_BOUNDS_ERROR);
        EXPECT_EQ(found, 55);
        const std::vector<std::string> expected = {warningLine(
            "mt_getLastMessageId", "Connection message id offset (" + std::to_string(id) + ") out of bounds")};
        EXPECT_EQ(log.warnings(), expected);
    }
}

TEST_F(Lookup, PendingAndGoodNumbersFollowTheMessages) {
    open(OpenMode::create);
    ASSERT_EQ(write(pending(1, 5)), NO_ERROR);
    ASSERT_EQ(write(pending(2, 6)), NO_ERROR);
    ASSERT_EQ(write(sent(3, 41, -5)), NO_ERROR);
    const MessageTablePtr reader = openReader();
    for (const MessageTablePtr* asked : Asked{&table, &reader}) {
        EXPECT_EQ(lastPending(*asked), -6);
        EXPECT_EQ(firstPending(*asked), -5 - 1) << "the number is decreased by one";
        EXPECT_EQ(lastGood(*asked), LastGood(41, 3000));
    }
}

TEST_F(Lookup, ATimestampThatIsSinceCountsAndOneBeforeDoesNot) {
    open(OpenMode::create);
    ASSERT_EQ(write(pending(1, 5)), NO_ERROR);
    ASSERT_EQ(write(sent(2, 41, -5)), NO_ERROR);
    const MessageTablePtr reader = openReader();
    for (const MessageTablePtr* asked : Asked{&table, &reader}) {
        EXPECT_EQ(lastPending(*asked, 999), -5);
        EXPECT_EQ(lastPending(*asked, 1000), -5);
        EXPECT_EQ(lastPending(*asked, 1001), 0);
        EXPECT_EQ(firstPending(*asked, 2000), -6);
        EXPECT_EQ(firstPending(*asked, 2001), -1) << "decreased also when there is none";
        EXPECT_EQ(lastGood(*asked, 2000), LastGood(41, 2000));
        EXPECT_EQ(lastGood(*asked, 2001), LastGood(0, 0));
    }
}

TEST_F(Lookup, TheTimestampOfTheLastGoodNumberMayBeOmitted) {
    open(OpenMode::create);
    ASSERT_EQ(writeSimple(1, 2), NO_ERROR);
    std::int32_t seqNum = 0;
    EXPECT_EQ(mt_getLastGoodMsgSeqNum(table.get(), 0, &seqNum, nullptr), NO_ERROR);
    EXPECT_EQ(seqNum, 2);
}

TEST_F(Lookup, WithoutAPlaceForTheResultIsRefused) {
    open(OpenMode::create);
    EXPECT_EQ(mt_getLastMessageId(table.get(), 0, nullptr), NULL_POINTER_ERROR);
    EXPECT_EQ(mt_getLastGoodMsgSeqNum(table.get(), 0, nullptr, nullptr), NULL_POINTER_ERROR);
    EXPECT_EQ(mt_getFirstPendingMsgSeqNum(table.get(), 0, nullptr), NULL_POINTER_ERROR);
    EXPECT_EQ(mt_getLastPendingMsgSeqNum(table.get(), 0, nullptr), NULL_POINTER_ERROR);
    EXPECT_EQ(mt_getLastUniformMessageId(table.get(), nullptr), NULL_POINTER_ERROR);
}

TEST_F(Lookup, WithoutAnActiveFileIsRefused) {
    table = createTable(directory.root(), shape);
    std::int32_t value = 0;
    EXPECT_EQ(mt_refresh(table.get()), MASTER_INACTIVE_ERROR);
    EXPECT_EQ(mt_getLastMessageId(table.get(), 0, &value), MASTER_INACTIVE_ERROR);
    EXPECT_EQ(mt_getLastGoodMsgSeqNum(table.get(), 0, &value, nullptr), MASTER_INACTIVE_ERROR);
    EXPECT_EQ(mt_getFirstPendingMsgSeqNum(table.get(), 0, &value), MASTER_INACTIVE_ERROR);
    EXPECT_EQ(mt_getLastPendingMsgSeqNum(table.get(), 0, &value), MASTER_INACTIVE_ERROR);
    EXPECT_EQ(mt_getLastUniformMessageId(table.get(), &value), MASTER_INACTIVE_ERROR);
}

TEST_F(Lookup, WithoutAnActiveFileIsRefusedAlsoOnATableThatLostIt) {
    open(OpenMode::create);
    ASSERT_EQ(writeSimple(1, 2), NO_ERROR);
    TableStorageFileIterator iterator;
    ASSERT_NE(tableStorage_nextFile(table->storage.get(), &iterator), nullptr);
    ASSERT_EQ(tableStorage_closeFile(table->storage.get(), &iterator), NO_ERROR);
    std::int32_t value = 0;
    EXPECT_EQ(mt_refresh(table.get()), MASTER_INACTIVE_ERROR);
    EXPECT_EQ(mt_getLastUniformMessageId(table.get(), &value), MASTER_INACTIVE_ERROR);
    EXPECT_EQ(writeSimple(3, 3), FILE_WRITE_ERROR);
}

TEST_F(Lookup, OfAWriterReadNothingFromTheFile) {
    open(OpenMode::create);
    ASSERT_EQ(writeSimple(1, 6), NO_ERROR);
    FaultPlatform platform;
    EXPECT_EQ(lastUniform(table), 6);
    EXPECT_EQ(lastId(table, 0), 6);
    EXPECT_EQ(platform.calls().size(), 0U) << platform.sequence();
}

}  // namespace
}  // namespace tabulo::internal::test
