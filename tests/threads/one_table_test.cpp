// One table from several threads of one process: a writer, and readers, iterators and watchers with objects of their
// own.
#include <chrono>
#include <thread>

#include "messagetable/message_lookup.h"
#include "query/message_table_iterator.h"
#include "tests/sessioninfo/session_info_fixture.h"
#include "tests/support/test_run.h"
#include "tests/threads/thread_fixture.h"
#include "watcher/message_watcher.h"

namespace tabulo::internal::test {
namespace {

constexpr std::int32_t MESSAGES = 2500;
constexpr std::chrono::seconds PATIENCE{60};

// Steps until there is nothing more to do; throws when that takes too long.
template <typename Step>
void repeat(Step step) {
    const auto end = std::chrono::steady_clock::now() + PATIENCE * testEffort();
    while (step()) {
        require(std::chrono::steady_clock::now() < end, "not everything has arrived in time");
    }
}

void followLookups(const std::string& root, const TableShape& shape, std::int32_t count) {
    const MessageTablePtr table = openOwn(root, OpenMode::read, shape);
    std::int32_t last = 0;
    repeat([&] {
        std::int32_t uniformId = 0;
        requireCode(mt_getLastUniformMessageId(table.get(), &uniformId), NO_ERROR, "the last uniform id");
        require(uniformId >= last,
                "the last uniform id goes back from " + std::to_string(last) + " to " + std::to_string(uniformId));
        last = uniformId;
        std::int32_t seqNum = 0;
        std::int64_t timestamp = 0;
        requireCode(mt_getLastGoodMsgSeqNum(table.get(), 0, &seqNum, &timestamp), NO_ERROR, "the last good number");
        require(seqNum >= uniformId && timestamp == std::int64_t{1000} * seqNum, "a number has another one's time");
        return last < count;
    });
}

void followIterator(const std::string& root, const TableShape& shape, std::int32_t count) {
    const MessageTablePtr table = openOwn(root, OpenMode::read, shape);
    const MessageTableIteratorPtr iterator(mtIterator_open(table.get(), conditions_create()));
    std::int32_t next = 1;
    repeat([&] {
        bool end = false;
        requireCode(mtIterator_next(iterator.get(), &end), NO_ERROR, "an iterator's step");
        if (!end) {
            const std::int32_t uniformId = mtIterator_getMetadata(iterator.get()).uniformId;
            require(uniformId == next, "message " + std::to_string(uniformId) + " instead of " + std::to_string(next));
            require(stringField_withoutNul(mtIterator_getWireMessage(iterator.get())) == "f2-" + std::to_string(next),
                    "a message has another one's text");
            next += 1;
        }
        return next <= count;
    });
}

void walkAgainAndAgain(const std::string& root, const TableShape& shape, std::int32_t count) {
    const MessageTablePtr table = openOwn(root, OpenMode::read, shape);
    std::size_t seen = 0;
    repeat([&] {
        const ReadMessages read = readAll(table.get());
        requireCode(read.code, NO_ERROR, "a walk");
        require(read.messages.size() >= seen, "a later walk delivers fewer messages");
        seen = read.messages.size();
        require(read.messages == simpleMessages(1, static_cast<std::int32_t>(seen), shape), "a walk delivers others");
        return seen < static_cast<std::size_t>(count);
    });
}

struct Watch {
    std::int32_t next = 1;
    std::int32_t last = 0;
    bool inOrder = true;

    bool isDone() const { return next > last || !inOrder; }
    WatchListener listener() {
        return {this,
                [](void* owner, const MessageView& message, std::int32_t, std::int32_t* stop) {
                    auto* watch = static_cast<Watch*>(owner);
                    watch->inOrder = watch->inOrder && message.metadata.uniformId == watch->next;
                    watch->next += 1;
                    *stop = watch->isDone() ? 1 : 0;
                    return NO_ERROR;
                },
                [](void* owner, std::int32_t* stop) {
                    *stop = static_cast<Watch*>(owner)->isDone() ? 1 : 0;
                    return NO_ERROR;
                }};
    }
};

void followWatch(const std::string& root, const TableShape& shape, std::int32_t count) {
    const MessageTablePtr table = openOwn(root, OpenMode::read, shape);
    MessageTable* watched = table.get();
    MessageWatcher* watcher = messageWatcher_create(&watched, 1);
    watcher->pause = [](std::int64_t) { std::this_thread::yield(); };
    Watch watch;
    watch.last = count;
    const std::int32_t start = 1;
    const ErrorCode code = messageWatcher_startWatching(watcher, 1, &start, watch.listener());
    messageWatcher_destroy(watcher);
    requireCode(code, NO_ERROR, "watching");
    require(watch.inOrder, "a watch delivers another message than " + std::to_string(watch.next - 1));
}

class OneTable : public ThreadsTest {};

TEST_F(OneTable, IsFollowedByReadersIteratorsAndWatchersOfOtherThreads) {
    const std::int32_t count = MESSAGES * testEffort();
    TableShape shape;
    shape.messagesPerBlock = 50;
    const std::string root = directory.root();
    const MessageTablePtr writer = openOwn(root, OpenMode::create, shape);
    requireCode(writeMessage(writer.get(), simpleMessage(1, shape)), NO_ERROR, "the first message");
    runTogether({
        [&] {
            for (std::int32_t n = 2; n <= count; ++n) {
                requireCode(writeMessage(writer.get(), simpleMessage(n, shape)), NO_ERROR, "a write");
            }
        },
        [&] { followLookups(root, shape, count); },
        [&] { followIterator(root, shape, count); },
        [&] { walkAgainAndAgain(root, shape, count); },
        [&] { followWatch(root, shape, count); },
    });
    EXPECT_EQ(messagesIn(root, shape).size(), static_cast<std::size_t>(count));
    reportFigure("threads", "messages followed by four threads while a fifth wrote them", count);
}

TEST_F(OneTable, OfSessionInfoIsReadByOtherThreadsWhileOneWrites) {
    const std::int64_t count = std::int64_t{2000} * testEffort();
    const std::string root = directory.root();
    const SessionInfoTablePtr writer(si_create(makeSessionConfig(root)));
    requireCode(si_init(writer.get(), OpenMode::create), NO_ERROR, "opening a session table");
    const Tags tag = {1};
    const Values first = {0};
    requireCode(si_write(writer.get(), 1, tag.data(), first.data()), NO_ERROR, "the first value");
    const auto follow = [&] {
        const SessionInfoTablePtr reader(si_create(makeSessionConfig(root)));
        requireCode(si_init(reader.get(), OpenMode::read), NO_ERROR, "opening a session table for reading");
        std::int64_t last = 0;
        repeat([&] {
            std::int64_t value = 0;
            requireCode(si_read(reader.get(), 1, tag.data(), &value), NO_ERROR, "a read of a value");
            require(value >= last && value <= count,
                    "a value goes back from " + std::to_string(last) + " to " + std::to_string(value));
            last = value;
            return last < count;
        });
    };
    runTogether({[&] {
                     for (std::int64_t value = 1; value <= count; ++value) {
                         requireCode(si_write(writer.get(), 1, tag.data(), &value), NO_ERROR, "a write of a value");
                     }
                 },
                 follow, follow});
}

}  // namespace
}  // namespace tabulo::internal::test
