// Wrong arguments, and errors that end a watch.
#include <cerrno>
#include <memory>

#include "tests/support/allocation_failure.h"
#include "tests/support/fault_platform.h"
#include "tests/support/log_capture.h"
#include "tests/watcher/watched_tables.h"

namespace tabulo::internal::test {
namespace {

class WatcherErrors : public WatcherTest {
  protected:
    // The line at the end of the last watch.
    std::string endLine() const { return log.warnings().empty() ? "" : log.warnings().back(); }
    static std::string errorLine(ErrorCode code, std::int32_t lastId) {
        return "Tabulo/C: Watcher stopped due to error " + std::to_string(code) +
               ". Last sent uniformId = " + std::to_string(lastId);
    }

    LogCapture log;
};

ErrorCode mustNotCome(std::int32_t* stop) {
    ADD_FAILURE() << "the listener is called";
    *stop = 1;
    return NO_ERROR;
}

const WatchListener neverCalled{
    nullptr, [](void*, const MessageView&, std::int32_t, std::int32_t* stop) { return mustNotCome(stop); },
    [](void*, std::int32_t* stop) { return mustNotCome(stop); }};

TEST_F(WatcherErrors, AWatcherNeedsItsTables) {
    const WatchedTablePtr table = filled("orders", {1});
    MessageTable* tables[] = {table.get(), nullptr};
    EXPECT_EQ(messageWatcher_create(nullptr, 1), nullptr);
    EXPECT_EQ(messageWatcher_create(tables, 2), nullptr);
    EXPECT_EQ(messageWatcher_create(tables, -1), nullptr);
    EXPECT_NE(WatcherPtr(messageWatcher_create(nullptr, 0)), nullptr);
    messageWatcher_destroy(nullptr);
}

TEST_F(WatcherErrors, AWatcherThatCannotBeMadeLeavesNothing) {
    const WatchedTablePtr table = filled("orders", {1});
    MessageTable* tables[] = {table.get(), table.get(), table.get()};
    int failures = 0;
    for (int n = 1; n < 100; ++n) {
        MessageWatcher* made = nullptr;
        {
            const AllocationFailure failure(n);
            made = messageWatcher_create(tables, 3);
        }
        if (made != nullptr) {
            messageWatcher_destroy(made);
            break;
        }
        failures += 1;
    }
    EXPECT_GE(failures, 4) << "the record, and a reader and its buffer for each table, are allocated";
    EXPECT_LT(failures, 99) << "it fails also when no allocation does";
}

TEST_F(WatcherErrors, EachReaderHasABufferOf16384BytesAndItsPlace) {
    const WatchedTablePtr one = filled("one", {});
    const WatchedTablePtr two = filled("two", {});
    const WatcherPtr watcher = watch({one.get(), two.get()});
    ASSERT_EQ(watcher->readers.size(), 2U);
    for (std::size_t i = 0; i < 2; ++i) {
        EXPECT_EQ(watcher->readers[i]->buffer.size(), 16384U);
        EXPECT_EQ(watcher->readers[i]->index, static_cast<std::int32_t>(i));
    }
    EXPECT_EQ(watcher->readers[0]->table, one.get());
    EXPECT_EQ(watcher->readers[1]->table, two.get());
}

TEST_F(WatcherErrors, NullArgumentsAreRefused) {
    const WatchedTablePtr table = filled("orders", {1});
    const WatcherPtr watcher = watch({table.get()});
    const std::int32_t id = 1;
    EXPECT_EQ(messageWatcher_startWatching(nullptr, 1, &id, neverCalled), NULL_POINTER_ERROR);
    EXPECT_EQ(messageWatcher_startWatching(watcher.get(), 1, nullptr, neverCalled), NULL_POINTER_ERROR);
    const WatchListener withoutMessages{nullptr, nullptr, neverCalled.onIdle};
    const WatchListener withoutIdle{nullptr, neverCalled.onMessage, nullptr};
    EXPECT_EQ(messageWatcher_startWatching(watcher.get(), 1, &id, withoutMessages), NULL_POINTER_ERROR);
    EXPECT_EQ(messageWatcher_startWatching(watcher.get(), 1, &id, withoutIdle), NULL_POINTER_ERROR);
}

TEST_F(WatcherErrors, FewerIdsThanTablesAreRefusedBeforeAnythingIsPositioned) {
    const WatchedTablePtr one = filled("one", {1, 2});
    const WatchedTablePtr two = filled("two", {3});
    const WatcherPtr watcher = watch({one.get(), two.get()});
    ASSERT_EQ(record.run(watcher.get(), {1, 1}), NO_ERROR);
    const std::int64_t offset = watcher->readers[0]->fileOffset;
    const std::int64_t ordinal = watcher->readers[0]->ordinal;
    const std::int32_t ids[] = {1};
    for (const std::int32_t count : {1, 0, -1}) {
        EXPECT_EQ(messageWatcher_startWatching(watcher.get(), count, ids, neverCalled), INDEX_OUT_OF_BOUNDS_ERROR)
            << "count " << count;
        EXPECT_EQ(watcher->readers[0]->fileOffset, offset);
        EXPECT_EQ(watcher->readers[0]->ordinal, ordinal);
    }
}

TEST_F(WatcherErrors, MoreIdsThanTablesAreIgnored) {
    const WatchedTablePtr table = filled("orders", {1, 2});
    const WatcherPtr watcher = watch({table.get()});
    EXPECT_EQ(record.run(watcher.get(), {2, 1, 1}), NO_ERROR);
    EXPECT_EQ(record.deliveries(), Events{"2@0"});
}

TEST_F(WatcherErrors, ATableThatIsNotOpenIsRefusedAtTheStart) {
    const WatchedTablePtr open = filled("open", {1});
    const WatchedTablePtr closed = makeWatched(directory.root(), "closed");
    const WatcherPtr watcher = watch({open.get(), closed.get()});
    EXPECT_EQ(record.run(watcher.get(), {1, 1}), MASTER_INACTIVE_ERROR);
    EXPECT_EQ(record.events, Events{}) << "nothing was gathered that could be handed on";
    EXPECT_EQ(endLine(), errorLine(MASTER_INACTIVE_ERROR, -1));
}

TEST_F(WatcherErrors, ATableThatLosesItsMasterEndsTheWatchBehindOneMoreCall) {
    const WatchedTablePtr table = filled("orders", {1, 2});
    const WatcherPtr watcher = watch({table.get()});
    record.onIdle = [&](int) {
        tableStorage_closeAll(table->storage.get());
        return NO_ERROR;
    };
    EXPECT_EQ(record.run(watcher.get(), {1}), MASTER_INACTIVE_ERROR);
    EXPECT_EQ(record.events, (Events{"1@0", "2@0", "idle", "idle"}));
    EXPECT_EQ(endLine(), errorLine(MASTER_INACTIVE_ERROR, 2));
}

TEST_F(WatcherErrors, AnErrorOfADeliveryEndsTheWatchWithoutAFurtherCall) {
    const WatchedTablePtr table = filled("orders", {1, 2, 3});
    const WatcherPtr watcher = watch({table.get()});
    record.onMessage = [](const Received& received) { return received.metadata.uniformId == 2 ? JNI_ERROR : NO_ERROR; };
    EXPECT_EQ(record.run(watcher.get(), {1}), JNI_ERROR);
    EXPECT_EQ(record.events, (Events{"1@0", "2@0"}));
    EXPECT_EQ(endLine(), errorLine(JNI_ERROR, 2));
}

TEST_F(WatcherErrors, AnErrorOfACallWithoutAMessageEndsTheWatch) {
    const WatchedTablePtr table = filled("orders", {1});
    const WatcherPtr watcher = watch({table.get()});
    record.onIdle = [](int call) { return call == 2 ? OUT_OF_MEMORY_ERROR : NO_ERROR; };
    EXPECT_EQ(record.run(watcher.get(), {1}), OUT_OF_MEMORY_ERROR);
    EXPECT_EQ(record.events, (Events{"1@0", "idle", "idle"}));
    EXPECT_EQ(endLine(), errorLine(OUT_OF_MEMORY_ERROR, 1));
}

TEST_F(WatcherErrors, AnErrorThatComesWithAStopIsTheResult) {
    const WatchedTablePtr table = filled("orders", {1, 2});
    const WatcherPtr watcher = watch({table.get()});
    record.onMessage = [&](const Received&) {
        record.stop();
        return JNI_ERROR;
    };
    EXPECT_EQ(record.run(watcher.get(), {1}), JNI_ERROR);
    EXPECT_EQ(record.events, Events{"1@0"});
    EXPECT_EQ(endLine(), errorLine(JNI_ERROR, 1));
    record.clear();
    record.onMessage = nullptr;
    record.onIdle = [&](int) {
        record.stop();
        return OUT_OF_MEMORY_ERROR;
    };
    EXPECT_EQ(record.run(watcher.get(), {1}), OUT_OF_MEMORY_ERROR);
    EXPECT_EQ(record.events, (Events{"1@0", "2@0", "idle"}));
    EXPECT_EQ(endLine(), errorLine(OUT_OF_MEMORY_ERROR, 2));
}

// Errors of reading, met behind the first message.
class WatcherReadErrors : public WatcherErrors {
  protected:
    void SetUp() override {
        writer = open("orders", OpenMode::create);
        ASSERT_EQ(storeMessage(writer.get(), 1), NO_ERROR);
        table = open("orders", OpenMode::read);
        watcher = watch({table.get()});
    }
    // Stores message 2 with a trailing length that differs from the leading one.
    void storeDamaged() {
        ASSERT_EQ(storeMessage(writer.get(), 2), NO_ERROR);
        const std::string path = directory.file("orders");
        const Bytes wrong{1};
        patchFile(path, readFile(path).size() - 1, wrong);
    }

    WatchedTablePtr writer;
    WatchedTablePtr table;
    WatcherPtr watcher;
};

TEST_F(WatcherReadErrors, ADamagedFrameEndsTheWatchBehindOneMoreCall) {
    record.onIdle = [&](int call) {
        if (call == 1) {
            storeDamaged();
        }
        return NO_ERROR;
    };
    EXPECT_EQ(record.run(watcher.get(), {1}), CONSISTENCY_ERROR);
    EXPECT_EQ(record.events, (Events{"1@0", "idle", "idle"})) << "what was gathered is handed on once";
    EXPECT_EQ(endLine(), errorLine(CONSISTENCY_ERROR, 1));
}

TEST_F(WatcherReadErrors, WhatTheCallBehindAnErrorAnswersChangesNothing) {
    record.onIdle = [&](int call) {
        if (call == 1) {
            storeDamaged();
            return NO_ERROR;
        }
        record.stop();
        return OUT_OF_MEMORY_ERROR;
    };
    EXPECT_EQ(record.run(watcher.get(), {1}), CONSISTENCY_ERROR);
    EXPECT_EQ(record.events, (Events{"1@0", "idle", "idle"}));
    EXPECT_EQ(endLine(), errorLine(CONSISTENCY_ERROR, 1));
}

TEST_F(WatcherReadErrors, AnErrorOfALaterTableKeepsTheMessageThatAnEarlierOneHas) {
    const WatchedTablePtr first = open("first", OpenMode::create);
    watcher = watch({first.get(), table.get()});
    record.onIdle = [&](int call) {
        if (call == 1) {
            storeDamaged();
            return storeMessage(first.get(), 2);
        }
        return NO_ERROR;
    };
    EXPECT_EQ(record.run(watcher.get(), {1, 1}), CONSISTENCY_ERROR);
    EXPECT_EQ(record.events, (Events{"1@1", "idle", "idle"})) << "an error ends the search";
}

TEST_F(WatcherReadErrors, AReadThatTheSystemRefusesEndsTheWatch) {
    FaultPlatform platform;
    record.onIdle = [&](int) {
        platform.failAll(FileCall::readAt, EIO);
        return NO_ERROR;
    };
    EXPECT_EQ(record.run(watcher.get(), {1}), FILE_READ_ERROR);
    EXPECT_EQ(record.events, (Events{"1@0", "idle", "idle"}));
    EXPECT_EQ(endLine(), errorLine(FILE_READ_ERROR, 1));
}

TEST_F(WatcherReadErrors, AStopComesBeforeAnErrorThatTheNextPassWouldFind) {
    record.onMessage = [&](const Received&) {
        tableStorage_closeAll(table->storage.get());
        record.stop();
        return NO_ERROR;
    };
    EXPECT_EQ(record.run(watcher.get(), {1}), NO_ERROR);
    EXPECT_EQ(record.events, Events{"1@0"}) << "nothing is handed over behind a stop";
}

// A receiver that lets the next allocation fail behind its first message.
struct Starver {
    std::unique_ptr<AllocationFailure> failure;
    int messages = 0;
    int calls = 0;  // without a message

    WatchListener listener() {
        return {this,
                [](void* owner, const MessageView&, std::int32_t, std::int32_t*) {
                    auto* self = static_cast<Starver*>(owner);
                    self->messages += 1;
                    self->failure = std::make_unique<AllocationFailure>(1);
                    return NO_ERROR;
                },
                [](void* owner, std::int32_t* stop) {
                    auto* self = static_cast<Starver*>(owner);
                    self->failure.reset();
                    self->calls += 1;
                    *stop = 1;
                    return NO_ERROR;
                }};
    }
};

TEST_F(WatcherReadErrors, ABufferThatCannotGrowEndsTheWatchBehindOneMoreCall) {
    ASSERT_EQ(storeMessage(writer.get(), 2, std::string(40000, 'x')), NO_ERROR);
    Starver starver;
    const std::int32_t from = 1;
    EXPECT_EQ(messageWatcher_startWatching(watcher.get(), 1, &from, starver.listener()), OUT_OF_MEMORY_ERROR);
    EXPECT_EQ(starver.messages, 1);
    EXPECT_EQ(starver.calls, 1) << "what was gathered is handed on";
}

TEST_F(WatcherReadErrors, TextsThatCannotBeCopiedEndTheWatchBehindOneMoreCall) {
    // Fits the buffer, so that the copy of its text is the first allocation behind message 1.
    ASSERT_EQ(storeMessage(writer.get(), 2, std::string(9000, 'x')), NO_ERROR);
    Starver starver;
    const std::int32_t from = 1;
    EXPECT_EQ(messageWatcher_startWatching(watcher.get(), 1, &from, starver.listener()), OUT_OF_MEMORY_ERROR);
    EXPECT_EQ(starver.messages, 1);
    EXPECT_EQ(starver.calls, 1) << "what was gathered is handed on";
}

}  // namespace
}  // namespace tabulo::internal::test
