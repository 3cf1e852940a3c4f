// What a receiver may do to the watcher and its tables while it is called.
#include "tests/support/log_capture.h"
#include "tests/watcher/watched_tables.h"

namespace tabulo::internal::test {
namespace {

class WatcherCallback : public WatcherTest {
  protected:
    std::string endLine() const { return log.warnings().empty() ? "" : log.warnings().back(); }

    LogCapture log;
};

TEST_F(WatcherCallback, AWatcherThatRunsIsNotStartedASecondTime) {
    const WatchedTablePtr table = filled("orders", {1, 2});
    const WatcherPtr watcher = watch({table.get()});
    WatchRecord inner;
    ErrorCode refused = NO_ERROR;
    record.onMessage = [&](const Received& received) {
        if (received.metadata.uniformId == 1) {
            const std::size_t lines = log.warnings().size();
            refused = inner.runInRealTime(watcher.get(), {1});
            EXPECT_EQ(log.warnings().size(), lines) << "a start that is refused is no start";
        }
        return NO_ERROR;
    };
    EXPECT_EQ(record.run(watcher.get(), {1}), NO_ERROR);
    EXPECT_EQ(refused, WRONG_PARAMETER_ERROR);
    EXPECT_EQ(inner.events, Events{});
    EXPECT_EQ(record.events, (Events{"1@0", "2@0", "idle"})) << "the watch that runs goes on";
    EXPECT_EQ(record.run(watcher.get(), {2}), NO_ERROR) << "behind its end it can be started again";
}

TEST_F(WatcherCallback, AWatcherThatIsDestroyedAtAMessageStopsThere) {
    const WatchedTablePtr table = filled("orders", {1, 2, 3});
    WatcherPtr watcher = watch({table.get()});
    MessageWatcher* running = watcher.get();
    record.onMessage = [&](const Received& received) {
        if (received.metadata.uniformId == 2) {
            watcher.reset();
        }
        return NO_ERROR;
    };
    EXPECT_EQ(record.run(running, {1}), NO_ERROR);
    EXPECT_EQ(record.events, (Events{"1@0", "2@0"}));
    EXPECT_EQ(endLine(), "Tabulo/C: Watcher asked to stop. Last sent uniformId = 2");
}

TEST_F(WatcherCallback, AWatcherThatIsDestroyedAtACallWithoutAMessageStopsWithoutAPause) {
    const WatchedTablePtr table = filled("orders", {});
    WatcherPtr watcher = watch({table.get()});
    MessageWatcher* running = watcher.get();
    record.onIdle = [&](int call) {
        if (call == 11) {
            watcher.reset();
        }
        return NO_ERROR;
    };
    EXPECT_EQ(record.run(running, {1}), NO_ERROR);
    EXPECT_EQ(record.events, Events(11, "idle"));
}

TEST_F(WatcherCallback, AWatcherMayBeDestroyedInTheCallBehindAnError) {
    const WatchedTablePtr table = filled("orders", {1});
    WatcherPtr watcher = watch({table.get()});
    MessageWatcher* running = watcher.get();
    record.onIdle = [&](int call) {
        if (call == 1) {
            tableStorage_closeAll(table->storage.get());
        } else {
            watcher.reset();
        }
        return NO_ERROR;
    };
    EXPECT_EQ(record.run(running, {1}), MASTER_INACTIVE_ERROR);
    EXPECT_EQ(record.events, (Events{"1@0", "idle", "idle"}));
}

TEST_F(WatcherCallback, ATableThatIsDestroyedEndsTheWatch) {
    WatchedTablePtr table = filled("orders", {1, 2});
    const WatchedTablePtr other = filled("other", {});
    const WatcherPtr watcher = watch({table.get(), other.get(), table.get()});
    record.onIdle = [&](int) {
        table.reset();
        return NO_ERROR;
    };
    EXPECT_EQ(record.run(watcher.get(), {1, 1, 3}), MASTER_INACTIVE_ERROR);
    EXPECT_EQ(record.events, (Events{"1@0", "2@0", "idle", "idle"}));
    EXPECT_EQ(endLine(), "Tabulo/C: Watcher stopped due to error " + std::to_string(MASTER_INACTIVE_ERROR) +
                             ". Last sent uniformId = 2");
}

TEST_F(WatcherCallback, AReceiverMayDestroyTheWatcherAndItsTablesAtOnce) {
    WatchedTablePtr table = filled("orders", {1, 2});
    WatcherPtr watcher = watch({table.get()});
    MessageWatcher* running = watcher.get();
    record.onMessage = [&](const Received&) {
        watcher.reset();
        table.reset();
        return NO_ERROR;
    };
    EXPECT_EQ(record.run(running, {1}), NO_ERROR);
    EXPECT_EQ(record.events, Events{"1@0"});
}

TEST_F(WatcherCallback, AReceiverMayDropTheTableOfTheMessageThatItReceives) {
    const WatchedTablePtr writer = open("orders", OpenMode::create);
    for (std::int32_t id = 1; id <= 5; ++id) {
        ASSERT_EQ(storeMessage(writer.get(), id, std::string(9000, 'x')), NO_ERROR);
    }
    const WatcherPtr watcher = watch({writer.get()});
    record.onMessage = [&](const Received& received) {
        return received.metadata.uniformId == 5 ? mt_drop(writer.get()) : NO_ERROR;
    };
    record.onIdle = [&](int call) {
        if (call == 2) {
            return storeMessage(writer.get(), 6, "new");
        }
        if (call == 4) {
            record.stop();
        }
        return NO_ERROR;
    };
    EXPECT_EQ(record.run(watcher.get(), {1}), NO_ERROR);
    EXPECT_EQ(record.deliveries(), (Events{"1@0", "2@0", "3@0", "4@0", "5@0", "6@0"}));
    EXPECT_EQ(record.received.back().wire(), "new");
}

}  // namespace
}  // namespace tabulo::internal::test
