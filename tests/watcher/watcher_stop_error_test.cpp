// A watch whose callback asks for its end and fails in the same call: the error is its result.
#include "tests/support/log_capture.h"
#include "tests/watcher/watched_tables.h"

namespace tabulo::internal::test {
namespace {

class StopWithAnError : public WatcherTest {
  protected:
    void expectErrorLine(ErrorCode code, std::int32_t lastId) const {
        ASSERT_FALSE(log.warnings().empty());
        EXPECT_EQ(log.warnings().back(), "Tabulo/C: Watcher stopped due to error " + std::to_string(code) +
                                             ". Last sent uniformId = " + std::to_string(lastId));
    }

    LogCapture log;
};

TEST_F(StopWithAnError, AtAMessageIsThatError) {
    const WatchedTablePtr table = filled("orders", {1, 2, 3});
    const WatcherPtr watcher = watch({table.get()});
    record.onMessage = [&](const Received& received) {
        if (received.metadata.uniformId == 2) {
            record.stop();
            return OUT_OF_MEMORY_ERROR;
        }
        return NO_ERROR;
    };
    EXPECT_EQ(record.run(watcher.get(), {1}), OUT_OF_MEMORY_ERROR);
    EXPECT_EQ(record.events, (Events{"1@0", "2@0"}));
    expectErrorLine(OUT_OF_MEMORY_ERROR, 2);
    record.clear();
    record.onMessage = nullptr;
    EXPECT_EQ(record.run(watcher.get(), {3}), NO_ERROR) << "it can be started again";
    EXPECT_EQ(record.deliveries(), Events{"3@0"});
}

TEST_F(StopWithAnError, AtACallWithoutAMessageIsThatError) {
    const WatchedTablePtr table = filled("orders", {1});
    const WatcherPtr watcher = watch({table.get()});
    record.onIdle = [&](int) {
        record.stop();
        return JNI_ERROR;
    };
    EXPECT_EQ(record.run(watcher.get(), {1}), JNI_ERROR);
    EXPECT_EQ(record.events, (Events{"1@0", "idle"})) << "without a pause";
    expectErrorLine(JNI_ERROR, 1);
}

TEST_F(StopWithAnError, OfACallbackThatDestroysItsWatcherAtAMessageIsThatError) {
    const WatchedTablePtr table = filled("orders", {1, 2});
    WatcherPtr watcher = watch({table.get()});
    MessageWatcher* running = watcher.get();
    record.onMessage = [&](const Received&) {
        watcher.reset();
        return JNI_ERROR;
    };
    EXPECT_EQ(record.run(running, {1}), JNI_ERROR);
    EXPECT_EQ(record.events, Events{"1@0"});
    expectErrorLine(JNI_ERROR, 1);
}

TEST_F(StopWithAnError, OfACallbackThatDestroysItsWatcherAtACallWithoutAMessageIsThatError) {
    const WatchedTablePtr table = filled("orders", {});
    WatcherPtr watcher = watch({table.get()});
    MessageWatcher* running = watcher.get();
    record.onIdle = [&](int) {
        watcher.reset();
        return JNI_ERROR;
    };
    EXPECT_EQ(record.run(running, {1}), JNI_ERROR);
    EXPECT_EQ(record.events, Events{"idle"});
    expectErrorLine(JNI_ERROR, -1);
}

TEST_F(StopWithAnError, WithoutTheErrorIsAStop) {
    const WatchedTablePtr table = filled("orders", {1, 2});
    const WatcherPtr watcher = watch({table.get()});
    record.onMessage = [&](const Received&) {
        record.stop();
        return NO_ERROR;
    };
    EXPECT_EQ(record.run(watcher.get(), {1}), NO_ERROR);
    ASSERT_FALSE(log.warnings().empty());
    EXPECT_EQ(log.warnings().back(), "Tabulo/C: Watcher asked to stop. Last sent uniformId = 1");
}

}  // namespace
}  // namespace tabulo::internal::test
