// Iterators kept open while other processes write, and the reading of many ids.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <iostream>
#include <random>

#include "query/message_read.h"
#include "tests/query/query_fixture.h"
#include "tests/support/child_process.h"

namespace tabulo::internal::test {
namespace {

using namespace std::chrono_literals;

constexpr std::int32_t MESSAGES = 3000;

class BesideAWriter : public QueryTest, public ::testing::WithParamInterface<std::int32_t> {
  protected:
    // The writing process: messages 1 to MESSAGES, some at once and some after a moment.
    int writeAll() const {
        const MessageTablePtr writer = openTable(directory.root(), layout, OpenMode::write);
        if (writer == nullptr) {
            return 1;
        }
        std::mt19937 random(7);
        for (std::int32_t n = 1; n <= MESSAGES; ++n) {
            if (writeMessage(writer.get(), plain(n)) != NO_ERROR) {
                return 2;
            }
            if (random() % 50 == 0) {
                ::usleep(static_cast<useconds_t>(random() % 2000));
            }
        }
        return mt_close(writer.get());
    }
    // Calls next until the last message has come; the ids in their order.
    static std::vector<std::int32_t> follow(MessageTableIterator* iterator, std::int32_t last) {
        std::vector<std::int32_t> ids;
        const auto deadline = std::chrono::steady_clock::now() + 40s;
        while (ids.empty() || ids.back() != last) {
            bool end = false;
            const ErrorCode code = mtIterator_next(iterator, &end);
            if (code != NO_ERROR) {
                ADD_FAILURE() << getErrorMessage(code) << " behind " << ids.size() << " messages";
                return ids;
            }
            if (!end) {
                ids.push_back(mtIterator_getMetadata(iterator).uniformId);
                continue;
            }
            const bool isDone = iterator->place == IteratorPlace::done;
            if (isDone || std::chrono::steady_clock::now() > deadline) {
                ADD_FAILURE() << "the iterator " << (isDone ? "has ended" : "stands still") << " behind " << ids.size()
                              << " messages";
                return ids;
            }
        }
        return ids;
    }
};

TEST_P(BesideAWriter, AnOpenIteratorDeliversEveryMessageOnceAcrossBlockClosings) {
    layout = layoutOf(GetParam());
    create();
    table.reset();
    const MessageTablePtr reader = openReader();
    ASSERT_NE(reader, nullptr);
    const MessageTableIteratorPtr iterator = openIterator(reader.get(), newConditions());
    ChildProcess writer([&] { return writeAll(); });
    const std::vector<std::int32_t> ids = follow(iterator.get(), MESSAGES);
    EXPECT_EQ(writer.wait(), 0);
    EXPECT_TRUE(ids == idsFromTo(1, MESSAGES)) << ids.size() << " messages came";
    EXPECT_EQ(nextId(iterator.get()), std::nullopt);
}

TEST_P(BesideAWriter, AQueryThatSkipsBlocksDeliversEveryMatchOnce) {
    layout = layoutOf(GetParam());
    create();
    table.reset();
    const MessageTablePtr reader = openReader();
    ASSERT_NE(reader, nullptr);
    QueryConditionsPtr conditions = newConditions();
    std::vector<std::int64_t> wanted;
    for (std::int64_t n = 60; n <= MESSAGES; n += 60) {
        wanted.push_back(n);
    }
    // Of 50 values each block is asked about those that it may hold.
    ASSERT_EQ(conditions_addLongFilter(conditions.get(), 1, nullptr, nullptr, 0, wanted.data(),
                                       static_cast<std::int32_t>(wanted.size()), false),
              NO_ERROR);
    const MessageTableIteratorPtr iterator = openIterator(reader.get(), std::move(conditions));
    ChildProcess writer([&] { return writeAll(); });
    const std::vector<std::int32_t> ids = follow(iterator.get(), MESSAGES);
    EXPECT_EQ(writer.wait(), 0);
    EXPECT_EQ(ids, std::vector<std::int32_t>(wanted.begin(), wanted.end()));
}

TEST_P(BesideAWriter, BackwardIteratorsDeliverWithoutGapsAndRepetitions) {
    layout = layoutOf(GetParam());
    create();
    table.reset();
    const MessageTablePtr reader = openReader();
    ASSERT_NE(reader, nullptr);
    ChildProcess writer([&] { return writeAll(); });
    std::int32_t newest = 0;
    int walks = 0;
    const auto deadline = std::chrono::steady_clock::now() + 40s;
    while (newest < MESSAGES) {
        ASSERT_LT(std::chrono::steady_clock::now(), deadline) << "the writer stands still at " << newest;
        const MessageTableIteratorPtr iterator = openIterator(reader.get(), newConditions(true));
        ASSERT_NE(iterator, nullptr);
        const std::vector<std::int32_t> ids = remainingIds(iterator.get());
        ASSERT_FALSE(HasFailure());
        const std::int32_t first = ids.empty() ? 0 : ids.front();
        ASSERT_GE(first, newest) << "a message that an earlier walk saw is gone";
        ASSERT_TRUE(ids.empty() || ids == idsFromTo(first, 1)) << "walk " << walks << " from " << first;
        newest = first;
        walks += 1;
    }
    EXPECT_EQ(writer.wait(), 0);
    EXPECT_GE(walks, 2) << "the walks did not meet the writer";
}

INSTANTIATE_TEST_SUITE_P(InBlocksOf, BesideAWriter, ::testing::Values(1, 3, 50, 1000));

class IdSetOfManyIds : public QueryTest {
  protected:
    static ErrorCode count(void* owner, const MessageView&, Visit*) {
        *static_cast<std::int64_t*>(owner) += 1;
        return NO_ERROR;
    }
};

TEST_F(IdSetOfManyIds, OfAHundredThousandIdsIsMatchedWithAHundredThousandMessagesInSeconds) {
    constexpr std::int32_t many = 100'000;
    layout = layoutOf(1000);
    create();
    Message message = plain(1);
    message.strings = {std::nullopt, std::nullopt, withNul("8=FIX.4.4"), std::nullopt};
    std::vector<std::int32_t> ids;
    for (std::int32_t n = 0; n < many; ++n) {
        message.metadata.uniformId = n;
        message.metadata.connMsgId = connMsgClassFirstId(static_cast<MessageClass>(n % 5)) + n;
        write(message);
        // Every second message is asked for, and as many ids that nobody has.
        ids.push_back(n % 2 == 0 ? message.metadata.connMsgId : message.metadata.connMsgId + 10 * many);
    }
    std::shuffle(ids.begin(), ids.end(), std::mt19937(3));
    std::int64_t found = 0;
    const MessageListener listener{&found, &IdSetOfManyIds::count, [](void*, ErrorCode code) { return code; }};
    const auto start = std::chrono::steady_clock::now();
    ASSERT_EQ(mt_readMessages(table.get(), ids.data(), many, &listener, false), NO_ERROR);
    const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - start;
    EXPECT_EQ(found, many / 2);
    std::cout << many << " ids over " << many << " messages: " << seconds.count() << " s\n";
}

}  // namespace
}  // namespace tabulo::internal::test
