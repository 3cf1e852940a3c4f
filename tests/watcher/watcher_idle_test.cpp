// Calls without a message, the pauses behind them, and stops.
#include <sys/time.h>

#include <chrono>
#include <csignal>
#include <limits>

#include "tests/watcher/watched_tables.h"

namespace tabulo::internal::test {
namespace {

using namespace std::chrono_literals;

class WatcherIdle : public WatcherTest {
  protected:
    // Stops at the given call without a message.
    void stopAt(int call) {
        record.onIdle = [this, call](int calls) {
            if (calls == call) {
                record.stop();
            }
            return NO_ERROR;
        };
    }
};

Events idles(int count) {
    return Events(static_cast<std::size_t>(count), "idle");
}

Events joined(Events left, const Events& right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

TEST_F(WatcherIdle, TheFirstTenPassesDoNotPauseAndTheEleventhPauses270Milliseconds) {
    const WatchedTablePtr table = filled("orders", {});
    const WatcherPtr watcher = watch({table.get()});
    stopAt(14);
    ASSERT_EQ(record.run(watcher.get(), {1}), NO_ERROR);
    EXPECT_EQ(record.events, joined(idles(11), {"pause 270", "idle", "pause 290", "idle", "pause 310", "idle"}));
}

TEST_F(WatcherIdle, PausesGrowWithoutALimitIn64Bits) {
    EXPECT_EQ(messageWatcher_pauseAfter(0), 0);
    EXPECT_EQ(messageWatcher_pauseAfter(1), 0);
    EXPECT_EQ(messageWatcher_pauseAfter(10), 0);
    EXPECT_EQ(messageWatcher_pauseAfter(11), 270);
    EXPECT_EQ(messageWatcher_pauseAfter(12), 290);
    EXPECT_EQ(messageWatcher_pauseAfter(1000), 20050);
    EXPECT_EQ(messageWatcher_pauseAfter(std::numeric_limits<std::int32_t>::max()), 42949672990);
}

TEST_F(WatcherIdle, TheCounterOfIdlePassesDoesNotOverflow) {
    const WatchedTablePtr table = filled("orders", {});
    const WatcherPtr watcher = watch({table.get()});
    record.onIdle = [&](int call) {
        watcher->idlePasses = std::numeric_limits<std::int32_t>::max();
        if (call == 2) {
            record.stop();
        }
        return NO_ERROR;
    };
    ASSERT_EQ(record.run(watcher.get(), {1}), NO_ERROR);
    EXPECT_EQ(record.events, (Events{"idle", "pause 42949672990", "idle"}));
}

TEST_F(WatcherIdle, ADeliveryStartsTheCountOfIdlePassesAnew) {
    const WatchedTablePtr writer = open("orders", OpenMode::create);
    const WatchedTablePtr table = open("orders", OpenMode::read);
    const WatcherPtr watcher = watch({table.get()});
    record.onIdle = [&](int call) {
        if (call == 23) {
            record.stop();
        }
        return call == 12 ? storeMessage(writer.get(), 1) : NO_ERROR;
    };
    ASSERT_EQ(record.run(watcher.get(), {1}), NO_ERROR);
    EXPECT_EQ(record.events, joined(joined(idles(11), {"pause 270", "idle", "pause 290", "1@0"}), idles(11)));
}

TEST_F(WatcherIdle, AMessageThatIsConsumedSilentlyAlsoStartsTheCountAnew) {
    const WatchedTablePtr writer = open("orders", OpenMode::create);
    const WatchedTablePtr table = open("orders", OpenMode::read);
    const WatcherPtr watcher = watch({table.get()});
    record.onIdle = [&](int call) {
        if (call == 17) {
            record.stop();
        }
        return call == 5 ? storeMessage(writer.get(), 1) : NO_ERROR;
    };
    ASSERT_EQ(record.run(watcher.get(), {2}), NO_ERROR);
    EXPECT_EQ(record.events, joined(idles(16), {"pause 270", "idle"}));
}

TEST_F(WatcherIdle, TheCountOfIdlePassesIsZeroBehindAWatchAndAtTheNextStart) {
    const WatchedTablePtr table = filled("orders", {});
    const WatcherPtr watcher = watch({table.get()});
    stopAt(12);
    for (int start = 0; start < 2; ++start) {
        record.clear();
        ASSERT_EQ(record.run(watcher.get(), {1}), NO_ERROR);
        EXPECT_EQ(record.events, joined(idles(11), {"pause 270", "idle"})) << "start " << start;
        EXPECT_EQ(watcher->idlePasses, 0);
    }
    watcher->idlePasses = 99;
    record.clear();
    ASSERT_EQ(record.run(watcher.get(), {1}), NO_ERROR);
    EXPECT_EQ(record.events, joined(idles(11), {"pause 270", "idle"}));
}

TEST_F(WatcherIdle, AnErrorAlsoLeavesTheCountAtZero) {
    const WatchedTablePtr table = filled("orders", {});
    const WatcherPtr watcher = watch({table.get()});
    record.onIdle = [](int call) { return call == 3 ? JNI_ERROR : NO_ERROR; };
    ASSERT_EQ(record.run(watcher.get(), {1}), JNI_ERROR);
    EXPECT_EQ(watcher->idlePasses, 0);
}

TEST_F(WatcherIdle, AGapPassIsNotIdle) {
    const WatchedTablePtr table = filled("orders", {1, 5, 9, 13, 17, 21, 25, 29, 33, 37, 41, 45, 49});
    const WatcherPtr watcher = watch({table.get()});
    ASSERT_EQ(record.run(watcher.get(), {1}), NO_ERROR);
    EXPECT_EQ(record.events, joined(record.deliveries(), {"idle"}));
    EXPECT_EQ(record.deliveries().size(), 13U);
}

TEST_F(WatcherIdle, AStopAtACallWithoutAMessageEndsTheWatchWithoutAPause) {
    const WatchedTablePtr table = filled("orders", {});
    const WatcherPtr watcher = watch({table.get()});
    stopAt(11);
    EXPECT_EQ(record.run(watcher.get(), {1}), NO_ERROR);
    EXPECT_EQ(record.events, idles(11));
}

TEST_F(WatcherIdle, AStopAtAMessageEndsTheWatchAtOnce) {
    const WatchedTablePtr table = filled("orders", {1, 2, 3});
    const WatcherPtr watcher = watch({table.get()});
    record.onMessage = [&](const Received& received) {
        if (received.metadata.uniformId == 2) {
            record.stop();
        }
        return NO_ERROR;
    };
    EXPECT_EQ(record.run(watcher.get(), {1}), NO_ERROR);
    EXPECT_EQ(record.events, (Events{"1@0", "2@0"})) << "nothing follows a stop";
}

TEST_F(WatcherIdle, AStopWithNoDataAsTheResultReturnsZero) {
    const WatchedTablePtr table = filled("orders", {1});
    const WatcherPtr watcher = watch({table.get()});
    record.onMessage = [&](const Received&) {
        record.stop();
        return NO_DATA_ERROR;
    };
    EXPECT_EQ(record.run(watcher.get(), {1}), NO_ERROR);
}

TEST_F(WatcherIdle, NoDataFromADeliveryIsNoErrorAndTheWatchGoesOn) {
    const WatchedTablePtr table = filled("orders", {1, 2});
    const WatcherPtr watcher = watch({table.get()});
    record.onMessage = [](const Received&) { return NO_DATA_ERROR; };
    EXPECT_EQ(record.run(watcher.get(), {1}), NO_ERROR);
    EXPECT_EQ(record.events, (Events{"1@0", "2@0", "idle"}));
}

TEST_F(WatcherIdle, NoDataFromACallWithoutAMessageGoesOnAndPausesLikeAnyOther) {
    const WatchedTablePtr table = filled("orders", {});
    const WatcherPtr watcher = watch({table.get()});
    record.onIdle = [&](int call) {
        if (call == 12) {
            record.stop();
        }
        return NO_DATA_ERROR;
    };
    EXPECT_EQ(record.run(watcher.get(), {1}), NO_ERROR);
    EXPECT_EQ(record.events, joined(idles(11), {"pause 270", "idle"}))
        << "such a receiver must not make the watch spin";
}

TEST_F(WatcherIdle, AWatcherWithoutTablesOnlyIdles) {
    const WatcherPtr watcher = watch({});
    stopAt(12);
    EXPECT_EQ(record.run(watcher.get(), {}), NO_ERROR);
    EXPECT_EQ(record.events, joined(idles(11), {"pause 270", "idle"}));
}

TEST_F(WatcherIdle, AWatchersOwnPauseTakesItsTimeAlsoWhenSignalsCome) {
    const WatchedTablePtr table = filled("orders", {});
    const WatcherPtr watcher = watch({table.get()});
    struct sigaction action {};
    struct sigaction before {};
    action.sa_handler = [](int) {};
    ASSERT_EQ(::sigaction(SIGALRM, &action, &before), 0);
    const itimerval often{{0, 7000}, {0, 7000}};
    const itimerval never{};
    stopAt(12);
    ::setitimer(ITIMER_REAL, &often, nullptr);
    const auto start = std::chrono::steady_clock::now();
    const ErrorCode code = record.runInRealTime(watcher.get(), {1});
    const auto taken = std::chrono::steady_clock::now() - start;
    ::setitimer(ITIMER_REAL, &never, nullptr);
    ::sigaction(SIGALRM, &before, nullptr);
    EXPECT_EQ(code, NO_ERROR);
    EXPECT_GE(taken, 270ms) << "a signal cuts the pause short";
}

}  // namespace
}  // namespace tabulo::internal::test
