// Tables of the default layout that hold no message, one, and as many as fill a block or two, one less and one more.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <stdexcept>

#include "index/uniform_lookup.h"
#include "messagetable/message_lookup.h"
#include "query/message_read.h"
#include "query/message_table_iterator.h"
#include "tests/messagetable/message_table_fixture.h"
#include "tests/support/log_capture.h"
#include "tests/support/test_run.h"

namespace tabulo::internal::test {
namespace {

constexpr std::int32_t PER_BLOCK = 1000;
constexpr std::int64_t HEADER = 140;
constexpr std::int64_t FOOTER = 2652;

using Ids = std::vector<std::int32_t>;

Ids idsFrom(std::int32_t first, std::int32_t last) {
    Ids ids;
    for (std::int32_t id = first; id <= last; ++id) {
        ids.push_back(id);
    }
    return ids;
}

// Ids into a list, and -1 for the end.
MessageListener hearing(Ids* ids) {
    return {ids,
            [](void* owner, const MessageView& message, Visit*) {
                static_cast<Ids*>(owner)->push_back(message.metadata.uniformId);
                return NO_ERROR;
            },
            [](void* owner, ErrorCode code) {
                static_cast<Ids*>(owner)->push_back(-1);
                return code;
            }};
}

class BlockCounts : public ::testing::TestWithParam<std::int32_t> {
  protected:
    // Opens `table` anew; the one before is abandoned.
    void open(OpenMode mode) {
        table.reset();
        table = openTable(directory.root(), mode, shape);
        if (table == nullptr) {
            throw std::runtime_error("the table cannot be opened");
        }
    }

    std::int64_t expectedSize() const {
        std::int64_t size = HEADER + (count + PER_BLOCK - 1) / PER_BLOCK * 8 + count / PER_BLOCK * FOOTER;
        for (std::int32_t n = 1; n <= count; ++n) {
            size += static_cast<std::int64_t>(frameOf(simpleMessage(n, shape)).size());
        }
        return size;
    }

    Ids select(std::int32_t firstSeqNum, std::int32_t lastSeqNum, bool backward) {
        QueryConditionsPtr conditions(conditions_create());
        EXPECT_EQ(conditions_setIterateBackward(conditions.get(), backward), NO_ERROR);
        EXPECT_EQ(conditions_setSeqNumRange(conditions.get(), firstSeqNum, lastSeqNum), NO_ERROR);
        const MessageTableIteratorPtr iterator(mtIterator_open(table.get(), conditions.release()));
        Ids ids;
        for (bool end = iterator == nullptr;;) {
            EXPECT_EQ(mtIterator_next(iterator.get(), &end), NO_ERROR);
            if (end || ids.size() > static_cast<std::size_t>(count)) {
                return ids;
            }
            ids.push_back(mtIterator_getMetadata(iterator.get()).uniformId);
        }
    }

    void checkQueries() {
        for (const auto& [low, high] : {std::pair(1, count), std::pair(999, 1001), std::pair(1999, 2001),
                                        std::pair(count, count + 5), std::pair(count + 1, count + 5)}) {
            SCOPED_TRACE("sequence numbers " + std::to_string(low) + " to " + std::to_string(high));
            // An end below the begin is no condition.
            Ids expected = high < low ? idsFrom(1, count) : idsFrom(std::max(low, 1), std::min(high, count));
            EXPECT_EQ(select(low, high, false), expected);
            std::reverse(expected.begin(), expected.end());
            EXPECT_EQ(select(low, high, true), expected);
        }
    }

    void checkLookups() {
        std::int32_t number = 77;
        std::int64_t timestamp = 77;
        EXPECT_EQ(mt_getLastMessageId(table.get(), 0, &number), NO_ERROR);
        EXPECT_EQ(number, count);
        EXPECT_EQ(mt_getLastUniformMessageId(table.get(), &number), NO_ERROR);
        EXPECT_EQ(number, count);
        EXPECT_EQ(mt_getLastGoodMsgSeqNum(table.get(), 0, &number, &timestamp), NO_ERROR);
        EXPECT_EQ(number, count);
        EXPECT_EQ(timestamp, std::int64_t{1000} * count);
        UniformPlace place;
        for (const std::int32_t id :
             {1, PER_BLOCK, PER_BLOCK + 1, 2 * PER_BLOCK, 2 * PER_BLOCK + 1, count, count + 1}) {
            EXPECT_EQ(mt_findUniformId(table.get(), id, &place), NO_ERROR);
            EXPECT_EQ(place.ordinal, std::min(std::max(id, 1) - 1, count)) << "uniform id " << id;
            EXPECT_EQ(place.skip, place.ordinal % PER_BLOCK == 0 ? 8 : 0) << "uniform id " << id;
        }
        EXPECT_EQ(place.offset, expectedSize()) << "no message stands behind the last one";
    }

    void checkReadMessages() {
        const Ids wanted = {1, PER_BLOCK - 1, PER_BLOCK, PER_BLOCK + 1, 2 * PER_BLOCK, 2 * PER_BLOCK + 1};
        for (const bool backward : {false, true}) {
            Ids expected;
            std::copy_if(wanted.begin(), wanted.end(), std::back_inserter(expected),
                         [this](std::int32_t id) { return id <= count; });
            if (backward) {
                std::reverse(expected.begin(), expected.end());
            }
            expected.push_back(-1);  // the end
            Ids heard;
            const MessageListener listener = hearing(&heard);
            EXPECT_EQ(mt_readMessages(table.get(), wanted.data(), static_cast<std::int32_t>(wanted.size()), &listener,
                                      backward),
                      NO_ERROR);
            EXPECT_EQ(heard, expected) << (backward ? "backward" : "forward");
        }
    }

    void checkAll(const char* when) {
        SCOPED_TRACE(when);
        EXPECT_EQ(static_cast<std::int64_t>(std::filesystem::file_size(directory.file(shape.name))), expectedSize());
        std::vector<Message> messages = simpleMessages(1, count, shape);
        ReadMessages read = readAll(table.get());
        EXPECT_EQ(read.code, NO_ERROR);
        EXPECT_TRUE(read.messages == messages) << read.messages.size() << " messages forward";
        EXPECT_EQ(read.blocks, (count + PER_BLOCK - 1) / PER_BLOCK);
        EXPECT_EQ(mt_refresh(table.get()), NO_ERROR);
        read = readAllBackward(table.get());
        std::reverse(messages.begin(), messages.end());
        EXPECT_EQ(read.code, NO_ERROR);
        EXPECT_TRUE(read.messages == messages) << read.messages.size() << " messages backward";
        EXPECT_EQ(mt_openBlockStart(table.get()) == expectedSize(), count % PER_BLOCK == 0);
        checkLookups();
        checkQueries();
        checkReadMessages();
    }

    const std::int32_t count = GetParam();
    const TableShape shape = defaultShape();
    TemporaryDirectory directory;
    LogCapture log;
    MessageTablePtr table;
};

TEST_P(BlockCounts, AreWrittenReadClosedRecoveredAndContinued) {
    open(OpenMode::create);
    ASSERT_EQ(writeSimpleMessages(table.get(), 1, count, shape), NO_ERROR);
    checkAll("the writer");
    const MessageTablePtr writer = std::move(table);
    open(OpenMode::read);
    checkAll("a reader beside the writer");
    table = nullptr;
    ASSERT_EQ(mt_close(writer.get()), NO_ERROR);
    ASSERT_EQ(tableStorage_uninit(writer->storage.get()), NO_ERROR);
    open(OpenMode::read);
    checkAll("a reader of the closed table");
    log.clear();
    open(OpenMode::write);
    EXPECT_TRUE(log.warnings().empty()) << "a table that was closed is not recovered";
    checkAll("the writer that has opened it again");
    EXPECT_EQ(table->records.dataInfo.messageCount, count);
    // One more message and no close: the next open recovers.
    ASSERT_EQ(writeMessage(table.get(), simpleMessage(count + 1, shape)), NO_ERROR);
    ASSERT_EQ(writeMessage(table.get(), simpleMessage(count + 2, shape)), NO_ERROR);
    open(OpenMode::write);
    EXPECT_EQ(table->records.dataInfo.messageCount, count + 2);
    const std::vector<Message> messages = messagesIn(directory.root(), shape);
    EXPECT_TRUE(messages == simpleMessages(1, count + 2, shape)) << messages.size() << " messages after recovery";
    reportFigure("bounds", "tables of 0 to 2001 messages", 1);
}

TEST_P(BlockCounts, AreRecoveredFromAFileThatWasNeverClosed) {
    open(OpenMode::create);
    ASSERT_EQ(writeSimpleMessages(table.get(), 1, count, shape), NO_ERROR);
    // The bytes of a frame that was cut make recovery certain, also for an empty table.
    table.reset();
    Bytes torn = frameOf(simpleMessage(count + 1, shape));
    torn.resize(torn.size() - 1);
    if (count % PER_BLOCK == 0) {
        torn.insert(torn.begin(), 8, 0);
    }
    appendFile(directory.file(shape.name), torn);
    open(OpenMode::write);
    EXPECT_EQ(log.warnings().size(), 1U) << "one recovery";
    EXPECT_EQ(table->records.dataInfo.messageCount, count);
    checkAll("the writer after recovery");
    ASSERT_EQ(mt_drop(table.get()), NO_ERROR);
    EXPECT_TRUE(readAll(table.get()).messages.empty());
}

INSTANTIATE_TEST_SUITE_P(Messages, BlockCounts, ::testing::Values(0, 1, 999, 1000, 1001, 1999, 2000, 2001));

}  // namespace
}  // namespace tabulo::internal::test
