// Different tables from different threads: everything that can be done with a table, done by all threads at once.
#include <filesystem>

#include "messagetable/message_lookup.h"
#include "query/message_read.h"
#include "query/message_table_iterator.h"
#include "tests/sessioninfo/session_info_fixture.h"
#include "tests/support/message_takers.h"
#include "tests/support/test_run.h"
#include "tests/threads/thread_fixture.h"
#include "watcher/message_watcher.h"

namespace tabulo::internal::test {
namespace {

constexpr int THREADS = 4;
constexpr int ROUNDS = 12;
constexpr std::int32_t MESSAGES = 40;

TableShape shapeOf(int thread) {
    TableShape shape;
    shape.name = "table" + std::to_string(thread);
    shape.messagesPerBlock = 7;
    shape.stringNames = {"Symbol", "Account"};
    shape.numericNames = {"Price"};
    return shape;
}

Message messageOf(int thread, std::int32_t n) {
    return simpleMessage(n, shapeOf(thread));
}

void requireLast(MessageTable* table, std::int32_t n) {
    std::int32_t number = 0;
    std::int64_t timestamp = 0;
    requireCode(mt_getLastUniformMessageId(table, &number), NO_ERROR, "the last uniform id");
    require(number == n, "the last uniform id is " + std::to_string(number) + " and not " + std::to_string(n));
    requireCode(mt_getLastMessageId(table, 0, &number), NO_ERROR, "the last message id");
    require(number == n, "the last message id is another one");
    requireCode(mt_getLastGoodMsgSeqNum(table, 0, &number, &timestamp), NO_ERROR, "the last good number");
    require(number == n && timestamp == std::int64_t{1000} * n, "the last good number is another one");
}

void requireMessages(MessageTable* table, int thread, std::int32_t last) {
    const std::vector<Message> expected = simpleMessages(1, last, shapeOf(thread));
    require(readAll(table).messages == expected, "a walk delivers other messages than were written");
    require(readAllBackward(table).messages.size() == expected.size(), "a walk backward delivers too few or too many");
}

void query(MessageTable* table, std::int32_t first, std::int32_t last, bool backward) {
    QueryConditionsPtr conditions(conditions_create());
    requireCode(conditions_setIterateBackward(conditions.get(), backward), NO_ERROR, "a condition");
    requireCode(conditions_setSeqNumRange(conditions.get(), first, last), NO_ERROR, "a condition");
    requireCode(conditions_addStringFilter(conditions.get(), 2, false, true), NO_ERROR, "a condition");
    requireCode(conditions_setStringFilterValueCount(conditions.get(), last - first + 1), NO_ERROR, "a condition");
    for (std::int32_t n = first; n <= last; ++n) {
        requireCode(conditions_setStringFilterValue(conditions.get(), ("F2-" + std::to_string(n)).c_str(), n - first),
                    NO_ERROR, "a condition");
    }
    const double low = 100.0 * first - 1;
    const double high = 100.0 * last + 1;
    requireCode(conditions_addDoubleFilter(conditions.get(), 0, &low, &high, 1, nullptr, 0, false), NO_ERROR,
                "a condition");
    const MessageTableIteratorPtr iterator(mtIterator_open(table, conditions.release()));
    require(iterator != nullptr, "an iterator cannot be opened");
    std::int32_t found = 0;
    for (bool end = false;;) {
        requireCode(mtIterator_next(iterator.get(), &end), NO_ERROR, "an iterator's step");
        if (end) {
            break;
        }
        const std::int32_t expected = backward ? last - found : first + found;
        require(mtIterator_getMetadata(iterator.get()).seqNum == expected, "a query delivers another message");
        found += 1;
    }
    require(found == last - first + 1, "a query delivers " + std::to_string(found) + " messages");
}

void readById(MessageTable* table) {
    const std::vector<std::int32_t> ids = {1, 8, 13, MESSAGES};
    int count = 0;
    const auto take = [&](const MessageView&) {
        count += 1;
        return Visit::goOn;
    };
    const MessageListener listener = listenerOf(&take);
    requireCode(mt_readMessages(table, ids.data(), 4, &listener, true), NO_ERROR, "reading by id");
    require(count == 4, "reading by id delivers " + std::to_string(count) + " messages");
}

void watch(MessageTable* table) {
    MessageWatcher* watcher = messageWatcher_create(&table, 1);
    require(watcher != nullptr, "a watcher cannot be made");
    std::vector<std::int32_t> ids;
    const std::int32_t start = 3;
    const auto take = [&](const MessageView& message, std::int32_t) {
        ids.push_back(message.metadata.uniformId);
        return message.metadata.uniformId != MESSAGES;
    };
    const ErrorCode code = messageWatcher_startWatching(watcher, 1, &start, watchListenerOf(&take));
    messageWatcher_destroy(watcher);
    requireCode(code, NO_ERROR, "watching");
    require(ids.size() == static_cast<std::size_t>(MESSAGES - start + 1) && ids.front() == start,
            "a watch delivers " + std::to_string(ids.size()) + " messages");
}

// The life of one message table, with a crash and a drop.
void useMessageTable(const std::string& root, int thread) {
    const TableShape shape = shapeOf(thread);
    MessageTablePtr writer = openOwn(root, OpenMode::create, shape);
    const MessageTablePtr reader = openOwn(root, OpenMode::read, shape);
    for (std::int32_t n = 1; n <= MESSAGES / 2; ++n) {
        requireCode(writeMessage(writer.get(), messageOf(thread, n)), NO_ERROR, "a write");
        requireLast(reader.get(), n);
    }
    requireCode(mt_open(MessageTablePtr(mt_create(makeConfig(root, shape))).get(), OpenMode::write), FILE_OPEN_ERROR,
                "opening a second writer");
    writer.reset();  // as a crash does; the next open recovers
    writer = openOwn(root, OpenMode::write, shape);
    for (std::int32_t n = MESSAGES / 2 + 1; n <= MESSAGES; ++n) {
        const Bytes frame = frameOf(messageOf(thread, n));
        requireCode(mt_writeRawMessage(writer.get(), frame.data(), static_cast<std::int32_t>(frame.size())), NO_ERROR,
                    "a write of a frame");
    }
    for (MessageTable* table : {writer.get(), reader.get()}) {
        requireLast(table, MESSAGES);
        requireMessages(table, thread, MESSAGES);
        query(table, 5, 24, false);
        query(table, 11, MESSAGES, true);
        readById(table);
    }
    watch(reader.get());
    requireCode(writeMessage(reader.get(), messageOf(thread, 1)), READ_ONLY_ERROR, "a write on a reader");
    requireCode(mt_close(writer.get()), NO_ERROR, "a close");
    requireCode(mt_drop(writer.get()), NO_ERROR, "a drop");
    requireMessages(reader.get(), thread, 0);
}

void useSessionTable(const std::string& root) {
    SessionInfoTablePtr writer(si_create(makeSessionConfig(root)));
    requireCode(si_init(writer.get(), OpenMode::create), NO_ERROR, "opening a session table");
    const SessionInfoTablePtr reader(si_create(makeSessionConfig(root)));
    requireCode(si_init(reader.get(), OpenMode::read), NO_ERROR, "opening a session table for reading");
    const Tags tags = {1, 2, 3};
    for (std::int64_t i = 0; i < 50; ++i) {
        const Values values = {i, -i, i * i};
        requireCode(si_write(writer.get(), 3, tags.data(), values.data()), NO_ERROR, "a write of values");
        Values found(3);
        requireCode(si_read(reader.get(), 3, tags.data(), found.data()), NO_ERROR, "a read of values");
        require(found == values, "a reader's values are not those that were written");
    }
    writer.reset();
    writer.reset(si_create(makeSessionConfig(root)));
    requireCode(si_init(writer.get(), OpenMode::write), NO_ERROR, "opening a session table again");
    requireCode(si_drop(writer.get()), NO_ERROR, "a drop of values");
}

class OwnTables : public ThreadsTest {};

TEST_F(OwnTables, OfDifferentThreadsDoNotDisturbEachOther) {
    const int rounds = ROUNDS * testEffort();
    std::vector<std::function<void()>> bodies;
    for (int thread = 0; thread < THREADS; ++thread) {
        const std::string root = directory.root() + std::to_string(thread) + "/";
        std::filesystem::create_directory(root);
        bodies.emplace_back([root, thread, rounds] {
            for (int i = 0; i < rounds; ++i) {
                useMessageTable(root, thread);
                useSessionTable(root);
            }
        });
    }
    runTogether(bodies);
    // The writer that was refused, and the recovery, of every round; the watch's start and end.
    EXPECT_GE(warnings.load(), std::int64_t{THREADS} * rounds * 3);
    EXPECT_GE(notes.load(), std::int64_t{THREADS} * rounds * 8) << "a storage's life is noted";
    reportFigure("threads", "lives of tables, each beside three others", std::int64_t{2} * THREADS * rounds);
}

// All in one directory: what differs is the table's name.
TEST_F(OwnTables, OfOneDirectoryAndDifferentThreadsDoNotDisturbEachOther) {
    std::vector<std::function<void()>> bodies;
    for (int thread = 0; thread < THREADS; ++thread) {
        bodies.emplace_back([this, thread] { useMessageTable(directory.root(), thread); });
    }
    runTogether(bodies);
}

TEST_F(OwnTables, ThatAreRefusedTellEveryThreadItsOwnReason) {
    std::vector<std::function<void()>> bodies;
    for (int thread = 0; thread < THREADS; ++thread) {
        bodies.emplace_back([this, thread] {
            for (int i = 0; i < 50; ++i) {
                TableShape shape = shapeOf(thread);
                requireCode(
                    mt_open(MessageTablePtr(mt_create(makeConfig(directory.root(), shape))).get(), OpenMode::read),
                    FILE_OPEN_ERROR, "opening a missing table");
                const MessageTablePtr table = openOwn(directory.root(), OpenMode::create, shape);
                shape.stringNames.back() = "Other";
                requireCode(
                    mt_open(MessageTablePtr(mt_create(makeConfig(directory.root(), shape))).get(), OpenMode::read),
                    STRING_FIELDS_NAMES_MISMATCH_ERROR, "opening a table with other names");
                std::filesystem::remove(directory.file(shape.name));
            }
        });
    }
    runTogether(bodies);
    EXPECT_GE(warnings.load(), THREADS * 50 * 2);
}

}  // namespace
}  // namespace tabulo::internal::test
