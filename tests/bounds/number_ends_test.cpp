// Numbers of messages at the ends of their types: uniform ids, sequence numbers and ids of 32 bits, times of 64.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <limits>

#include "index/uniform_lookup.h"
#include "messagetable/message_lookup.h"
#include "query/message_read.h"
#include "query/message_table_iterator.h"
#include "tests/messagetable/message_table_fixture.h"
#include "tests/support/log_capture.h"
#include "tests/support/message_takers.h"
#include "tests/support/test_run.h"
#include "tests/watcher/watched_tables.h"

namespace tabulo::internal::test {
namespace {

constexpr std::int32_t LOWEST = std::numeric_limits<std::int32_t>::min();
constexpr std::int32_t HIGHEST = std::numeric_limits<std::int32_t>::max();
constexpr std::int64_t EARLIEST = std::numeric_limits<std::int64_t>::min();
constexpr std::int64_t LATEST = std::numeric_limits<std::int64_t>::max();

using Places = std::vector<std::size_t>;

class NumberEnds : public MessageTableTest {
  protected:
    NumberEnds() {
        shape.messagesPerBlock = 3;
        shape.numericNames = {"long", "double"};
    }

    // Every combination of ends that a message can have, one message each, and a block of ordinary ones between them.
    void store() {
        open(OpenMode::create);
        for (const std::int32_t number : {LOWEST, HIGHEST, 0, -1, 1}) {
            for (const std::int64_t time : {EARLIEST, LATEST, std::int64_t{0}}) {
                for (const std::int32_t id : {0, 0x1FFFFFFE, 0x1FFFFFFF, 0x3FFFFFFE, 0x3FFFFFFF, 0x4FFFFFFE, 0x4FFFFFFF,
                                              0x5FFFFFFE, 0x5FFFFFFF, HIGHEST, LOWEST, -1}) {
                    add(number, time, id);
                }
            }
        }
        for (const Message& message : messages) {
            ASSERT_EQ(write(message), NO_ERROR);
        }
    }

    void add(std::int32_t number, std::int64_t time, std::int32_t connMsgId) {
        Message message = bareMessage(number, shape);
        message.metadata.seqNum = number;
        message.metadata.prevSeqNum = number;
        message.metadata.timestamp = time;
        message.metadata.connMsgId = connMsgId;
        message.numbers[0] = numericValue_ofLong(time);
        message.numbers[1] =
            numericValue_ofDouble(time < 0 ? -std::numeric_limits<double>::max() : std::numeric_limits<double>::max());
        messages.push_back(message);
    }

    template <typename Test>
    Places places(Test test) const {
        Places found;
        for (std::size_t i = 0; i < messages.size(); ++i) {
            if (test(messages[i])) {
                found.push_back(i);
            }
        }
        return found;
    }

    // The messages that a query delivers, forward and backward; identical ones may stand for each other.
    void expectSelected(const std::function<void(QueryConditions*)>& set, const Places& expected) {
        for (const bool backward : {false, true}) {
            QueryConditionsPtr conditions(conditions_create());
            EXPECT_EQ(conditions_setIterateBackward(conditions.get(), backward), NO_ERROR);
            set(conditions.get());
            const MessageTableIteratorPtr iterator(mtIterator_open(table.get(), conditions.release()));
            std::vector<Message> found;
            bool end = false;
            while (mtIterator_next(iterator.get(), &end) == NO_ERROR && !end) {
                Message message = bareMessage(0, shape);
                message.metadata = mtIterator_getMetadata(iterator.get());
                std::copy_n(mtIterator_getNumericValues(iterator.get()), 2, message.numbers.begin());
                found.push_back(message);
            }
            std::vector<Message> wanted;
            for (const std::size_t i : expected) {
                wanted.push_back(messages[i]);
            }
            if (backward) {
                std::reverse(wanted.begin(), wanted.end());
            }
            EXPECT_TRUE(end) << "an error ended the query";
            EXPECT_EQ(found, wanted) << (backward ? "backward" : "forward");
        }
    }

    std::vector<Message> messages;
    LogCapture log;
};

TEST_F(NumberEnds, AreReadAsWrittenBothWaysAndAfterRecovery) {
    store();
    EXPECT_EQ(readAll(table.get()).messages, messages);
    EXPECT_EQ(messagesIn(directory.root(), shape), messages);
    open(OpenMode::write);
    std::vector<Message> backward = readAllBackward(table.get()).messages;
    std::reverse(backward.begin(), backward.end());
    EXPECT_EQ(backward, messages);
    reportFigure("bounds", "messages with numbers at the ends of their types",
                 static_cast<std::int64_t>(messages.size()));
}

TEST_F(NumberEnds, OfSequenceNumbersAreSelectedAsAnyOthers) {
    store();
    for (const auto& [low, high] : {std::pair(LOWEST, LOWEST), std::pair(HIGHEST, HIGHEST), std::pair(LOWEST, -1),
                                    std::pair(LOWEST, HIGHEST), std::pair(2, HIGHEST), std::pair(0, 0)}) {
        SCOPED_TRACE("from " + std::to_string(low) + " to " + std::to_string(high));
        const std::int32_t first = low;
        const std::int32_t last = high;
        expectSelected(
            [&](QueryConditions* query) { EXPECT_EQ(conditions_setSeqNumRange(query, first, last), NO_ERROR); },
            places([&](const Message& message) {
                return message.metadata.seqNum >= first && message.metadata.seqNum <= last;
            }));
    }
}

TEST_F(NumberEnds, OfTimesAreSelectedAsAnyOthers) {
    store();
    for (const std::int64_t time : {EARLIEST, LATEST, std::int64_t{1}, std::int64_t{-1}}) {
        SCOPED_TRACE("time " + std::to_string(time));
        expectSelected([&](QueryConditions* query) { EXPECT_EQ(conditions_setStartingTime(query, time), NO_ERROR); },
                       places([&](const Message& message) { return message.metadata.timestamp >= time; }));
        expectSelected([&](QueryConditions* query) { EXPECT_EQ(conditions_setEndingTime(query, time), NO_ERROR); },
                       places([&](const Message& message) { return message.metadata.timestamp <= time; }));
    }
}

TEST_F(NumberEnds, OfNumericFieldsAndUniformIdsAreSelectedAsAnyOthers) {
    store();
    const auto isLong = [](std::int64_t wanted) {
        return [wanted](const Message& message) { return message.numbers[0].longValue == wanted; };
    };
    for (const std::int64_t number : {EARLIEST, LATEST}) {
        expectSelected(
            [&](QueryConditions* query) {
                EXPECT_EQ(conditions_addLongFilter(query, 0, nullptr, nullptr, 0, &number, 1, false), NO_ERROR);
            },
            places(isLong(number)));
    }
    constexpr double largest = std::numeric_limits<double>::max();
    expectSelected(
        [&](QueryConditions* query) {
            EXPECT_EQ(conditions_addDoubleFilter(query, 1, nullptr, nullptr, 0, &largest, 1, false), NO_ERROR);
        },
        places([](const Message& message) { return message.numbers[1].doubleValue == largest; }));
    for (const std::int32_t id : {LOWEST, HIGHEST}) {
        const std::int64_t uniformId = id;  // behind the two configured fields
        expectSelected(
            [&](QueryConditions* query) {
                EXPECT_EQ(conditions_addLongFilter(query, 2, nullptr, nullptr, 0, &uniformId, 1, false), NO_ERROR);
            },
            places([id](const Message& message) { return message.metadata.uniformId == id; }));
    }
}

TEST_F(NumberEnds, OfConnectionMessageIdsAreFoundByIdAndClass) {
    store();
    for (const std::int32_t id : {0, 0x1FFFFFFE, 0x1FFFFFFF, HIGHEST}) {
        std::vector<std::int32_t> found;
        const auto take = [&](const MessageView& message) {
            found.push_back(message.metadata.connMsgId);
            return Visit::goOn;
        };
        const MessageListener listener = listenerOf(&take);
        EXPECT_EQ(mt_readMessages(table.get(), &id, 1, &listener, false), NO_ERROR);
        EXPECT_EQ(found, std::vector<std::int32_t>(15, id));
    }
    std::int32_t last = 0;
    for (const auto& [base, highest] : {std::pair(0, 0x1FFFFFFE), std::pair(0x1FFFFFFF, 0x3FFFFFFE),
                                        std::pair(0x5FFFFFFF, HIGHEST), std::pair(HIGHEST, HIGHEST)}) {
        EXPECT_EQ(mt_getLastMessageId(table.get(), base, &last), NO_ERROR);
        EXPECT_EQ(last, highest);
    }
}

TEST_F(NumberEnds, OfPendingNumbersAreLookedUpWithoutOverflow) {
    open(OpenMode::create);
    Message message = bareMessage(HIGHEST, shape);
    message.metadata.seqNum = LOWEST;
    message.metadata.timestamp = EARLIEST;
    ASSERT_EQ(write(message), NO_ERROR);
    std::int32_t seqNum = 77;
    EXPECT_EQ(mt_getLastPendingMsgSeqNum(table.get(), EARLIEST, &seqNum), NO_ERROR);
    EXPECT_EQ(seqNum, LOWEST);
    EXPECT_EQ(mt_getLastPendingMsgSeqNum(table.get(), EARLIEST + 1, &seqNum), NO_ERROR);
    EXPECT_EQ(seqNum, 0) << "it is older";
    // Sent: the pending number is the lowest, and the answer one below a number that is not the lowest.
    message.metadata.seqNum = HIGHEST;
    message.metadata.prevSeqNum = LOWEST + 1;
    message.metadata.timestamp = LATEST;
    ASSERT_EQ(write(message), NO_ERROR);
    EXPECT_EQ(mt_getFirstPendingMsgSeqNum(table.get(), LATEST, &seqNum), NO_ERROR);
    EXPECT_EQ(seqNum, LOWEST);
    // One below the lowest there is none: no answer is promised but that there is one.
    message.metadata.prevSeqNum = LOWEST;
    ASSERT_EQ(write(message), NO_ERROR);
    EXPECT_EQ(mt_getFirstPendingMsgSeqNum(table.get(), LATEST, &seqNum), NO_ERROR);
    std::int64_t timestamp = 0;
    EXPECT_EQ(mt_getLastGoodMsgSeqNum(table.get(), LATEST, &seqNum, &timestamp), NO_ERROR);
    EXPECT_EQ(seqNum, HIGHEST);
    EXPECT_EQ(timestamp, LATEST);
}

TEST_F(NumberEnds, OfUniformIdsAreFoundInOrder) {
    open(OpenMode::create);
    const std::vector<std::int32_t> ids = {LOWEST, LOWEST + 1, -1, 0, 1, HIGHEST - 1, HIGHEST};
    for (const std::int32_t id : ids) {
        ASSERT_EQ(write(bareMessage(id, shape)), NO_ERROR);
    }
    UniformPlace place;
    for (std::size_t i = 0; i < ids.size(); ++i) {
        EXPECT_EQ(mt_findUniformId(table.get(), ids[i], &place), NO_ERROR);
        EXPECT_EQ(place.ordinal, static_cast<std::int64_t>(i)) << "uniform id " << ids[i];
    }
    EXPECT_EQ(mt_findUniformId(table.get(), 2, &place), NO_ERROR);
    EXPECT_EQ(place.ordinal, 5);
}

using WatchEnds = WatcherTest;

TEST_F(WatchEnds, OfUniformIdsAreDeliveredInOrderToTheHighest) {
    fill("first", {LOWEST, LOWEST + 1, HIGHEST - 2, HIGHEST});
    fill("second", {HIGHEST - 1});
    const WatchedTablePtr first = open("first", OpenMode::read);
    const WatchedTablePtr second = open("second", OpenMode::read);
    const LogCapture log;
    const WatcherPtr watcher = watch({first.get(), second.get()});
    ASSERT_EQ(record.run(watcher.get(), {LOWEST, LOWEST}), NO_ERROR);
    const auto at = [](std::int32_t id, int reader) { return std::to_string(id) + "@" + std::to_string(reader); };
    EXPECT_EQ(record.deliveries(),
              (Events{at(LOWEST, 0), at(LOWEST + 1, 0), at(HIGHEST - 2, 0), at(HIGHEST - 1, 1), at(HIGHEST, 0)}));
}

TEST_F(WatchEnds, OfUniformIdsAreStartedFrom) {
    fill("first", {1, HIGHEST - 1, HIGHEST});
    const WatchedTablePtr first = open("first", OpenMode::read);
    const LogCapture log;
    const WatcherPtr watcher = watch({first.get()});
    ASSERT_EQ(record.run(watcher.get(), {HIGHEST}), NO_ERROR);
    EXPECT_EQ(record.deliveries(), Events{std::to_string(HIGHEST) + "@0"});
}

// Behind the highest id an engine starts over; that is a gap like any other.
TEST_F(WatchEnds, OfUniformIdsAreGapsWhenTheyFollowEachOther) {
    fill("first", {HIGHEST, LOWEST, LOWEST + 1});
    const WatchedTablePtr first = open("first", OpenMode::read);
    const LogCapture log;
    const WatcherPtr watcher = watch({first.get()});
    ASSERT_EQ(record.run(watcher.get(), {LOWEST}), NO_ERROR);
    EXPECT_EQ(record.deliveries(), (Events{std::to_string(HIGHEST) + "@0", std::to_string(LOWEST) + "@0",
                                           std::to_string(LOWEST + 1) + "@0"}));
}

}  // namespace
}  // namespace tabulo::internal::test
