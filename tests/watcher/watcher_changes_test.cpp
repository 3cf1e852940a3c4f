// Pauses that end when a followed file changes, and what stays as it is without that.
#include <algorithm>
#include <atomic>
#include <cerrno>
#include <filesystem>
#include <thread>

#include "tests/faults/resources.h"
#include "tests/support/log_capture.h"
#include "tests/watcher/read_hook.h"
#include "tests/watcher/watcher_changes.h"

namespace tabulo::internal::test {
namespace {

TEST_F(WatcherChanges, WithoutWritesTheEleventhPassWaits270MillisecondsAndTheTwelfth290) {
    stopAt(14);
    run();
    EXPECT_EQ(behindTheFirst(11), (Events{"wait 270", "idle", "wait 290", "idle", "wait 310", "idle"}));
}

TEST_F(WatcherChanges, AChangeEndsThePauseAndItsMessageIsDelivered) {
    onWait = [&](int wait, std::int64_t milliseconds) {
        if (wait > 1) {
            return Waited{milliseconds};
        }
        EXPECT_EQ(storeMessage(writer.get(), 1), NO_ERROR);
        return Waited{5, true};
    };
    stopAt(23);
    run();
    Events expected{"wait 270", "1@0"};
    expected.insert(expected.end(), 11, "idle");
    expected.insert(expected.end(), {"wait 270", "idle"});
    EXPECT_EQ(behindTheFirst(11), expected) << "a delivery starts the count anew";
}

TEST_F(WatcherChanges, AnEndForNothingIsFollowedByWhatIsLeftOfThePauseAndCountsForNone) {
    onWait = [&](int wait, std::int64_t milliseconds) {
        return wait == 1 ? Waited{100, true} : wait == 2 ? Waited{40, true} : Waited{milliseconds};
    };
    stopAt(16);
    run();
    EXPECT_EQ(behindTheFirst(11), (Events{"wait 270", "idle", "rest 1", "wait 169", "idle", "rest 1", "wait 128",
                                          "idle", "wait 290", "idle", "wait 310", "idle"}));
}

TEST_F(WatcherChanges, EndsForNothingLieAMillisecondApartAlsoAcrossTheEndOfAPause) {
    onWait = [&](int wait, std::int64_t milliseconds) {
        return wait == 1 ? Waited{milliseconds, true} : Waited{milliseconds};
    };
    stopAt(15);
    run();
    EXPECT_EQ(behindTheFirst(11),
              (Events{"wait 270", "idle", "idle", "rest 1", "wait 289", "idle", "wait 310", "idle"}))
        << "the pass that the change brought, and the one behind the pause";
}

TEST_F(WatcherChanges, APassTakesTheChangesBeforeItLooks) {
    std::string before;
    const ReadHook read([&](std::size_t) { before = hooks.calls.back(); });
    record.onIdle = [&](int call) {
        if (call == 11) {
            before = "";
        } else if (call == 12) {
            record.stop();
        }
        return NO_ERROR;
    };
    run();
    EXPECT_EQ(before, "take") << "the last call before the look behind the pause";
}

TEST_F(WatcherChanges, FilesAreWatchedBeforeReadersArePositioned) {
    const WatchedTablePtr second = filled("second", {1, 2, 3, 4, 5, 6, 7});
    const WatcherPtr both = watch({table.get(), second.get()});
    std::vector<std::string> before;
    {
        const ReadHook read([&](std::size_t) {
            if (before.empty()) {
                before = hooks.calls;
            }
        });
        ASSERT_EQ(record.runInRealTime(both.get(), {1, 5}), NO_ERROR);
    }
    EXPECT_EQ(before, (std::vector<std::string>{"openQueue", "openWaker", "watch", "watch"}));
}

TEST_F(WatcherChanges, AStopEndsThePauseAndNothingIsLookedAtAgain) {
    onWait = [&](int, std::int64_t) {
        messageWatcher_destroy(watcher.release());
        return Waited{5, false, true};
    };
    stopAt(20);
    run();
    EXPECT_EQ(behindTheFirst(11), Events{"wait 270"});
}

TEST_F(WatcherChanges, EachWatchEndsItsWaitingWithNothingLeftOpen) {
    const std::ptrdiff_t descriptors = openDescriptors();
    for (const int call : {1, 12}) {
        record.clear();
        stopAt(call);
        run();
        EXPECT_EQ(openDescriptors(), descriptors);
    }
    EXPECT_EQ(record.runInRealTime(watcher.get(), {}), INDEX_OUT_OF_BOUNDS_ERROR);
    EXPECT_EQ(openDescriptors(), descriptors);
}

// With the system's own waits.
class WatcherRealChanges : public WatcherChanges {
  protected:
    void SetUp() override {
        WatcherChanges::SetUp();
        hooks.replaceWaits(nullptr);
    }
    // Stores a message whenever the watch has come to a pause, and stops behind the last one. A pause that no change
    // ends makes the test fail.
    void storeInPauses(std::vector<MessageTable*> writers) {
        quiet = 0;
        record.onIdle = [this, writers, stored = std::size_t{0}](int) mutable {
            quiet += 1;
            if (quiet == 11 && stored < writers.size()) {  // behind the look: this ends the wait that follows
                EXPECT_EQ(storeMessage(writers[stored], static_cast<std::int32_t>(stored + 1)), NO_ERROR);
                stored += 1;
            } else if (quiet > 11) {
                record.stop();
            }
            return NO_ERROR;
        };
        record.onMessage = [this, count = writers.size()](const Received&) {
            quiet = 0;
            if (record.received.size() == count) {
                record.stop();
            }
            return NO_ERROR;
        };
    }
    int earlyEnds() const { return hooks.count("wait: changed"); }

    int quiet = 0;  // passes in a row that found nothing
};

TEST_F(WatcherRealChanges, WhatIsStoredBetweenTheLookAndTheWaitEndsIt) {
    storeInPauses({writer.get(), writer.get(), writer.get(), writer.get()});
    run();
    EXPECT_EQ(record.deliveries(), (Events{"1@0", "2@0", "3@0", "4@0"}));
    EXPECT_EQ(earlyEnds(), 4);
    EXPECT_EQ(hooks.count("wait"), 0) << "no pause has lasted its time";
}

TEST_F(WatcherRealChanges, AChangeOfAnyOf300TablesEndsAPause) {
    constexpr int TABLES = 300;
    std::vector<WatchedTablePtr> kept;
    std::vector<MessageTable*> tables;
    std::vector<MessageTable*> writers;
    for (int i = 0; i < TABLES; ++i) {
        kept.push_back(open("table" + std::to_string(i), OpenMode::create));
        writers.push_back(kept.back().get());
        kept.push_back(open("table" + std::to_string(i), OpenMode::read));
        tables.push_back(kept.back().get());
    }
    watcher = watch(tables);
    const std::vector<MessageTable*> some{writers[299], writers[0], writers[150]};
    storeInPauses(some);
    run(std::vector<std::int32_t>(TABLES, 1));
    EXPECT_EQ(record.deliveries(), (Events{"1@299", "2@0", "3@150"}));
    EXPECT_EQ(earlyEnds(), 3);
}

TEST_F(WatcherRealChanges, AFileWithoutANameAndOneThatTookItsPlaceAreNotMistakenForEachOther) {
    const std::string name = directory.file("orders");
    ASSERT_TRUE(std::filesystem::exists(name));
    std::filesystem::rename(name, name + ".old");
    const WatchedTablePtr another = open("orders", OpenMode::create);
    EXPECT_EQ(storeMessage(another.get(), 9), NO_ERROR);
    std::filesystem::remove(name + ".old");
    storeInPauses({writer.get(), writer.get()});
    run();
    EXPECT_EQ(record.deliveries(), (Events{"1@0", "2@0"}));
    EXPECT_EQ(earlyEnds(), 2);
}

TEST_F(WatcherRealChanges, ATableThatIsDroppedAndFilledAgainEndsPausesToo) {
    ASSERT_EQ(storeMessage(writer.get(), 5), NO_ERROR);
    bool isDropped = false;
    record.onIdle = [&](int) {
        quiet += 1;
        if (quiet == 11 && !isDropped) {
            isDropped = true;
            EXPECT_EQ(mt_drop(writer.get()), NO_ERROR);
        } else if (quiet == 12) {  // brought by the drop
            EXPECT_EQ(storeMessage(writer.get(), 6), NO_ERROR);
        } else if (quiet > 14) {
            record.stop();
        }
        return NO_ERROR;
    };
    record.onMessage = [&](const Received& received) {
        if (received.metadata.uniformId == 6) {
            record.stop();
        }
        return NO_ERROR;
    };
    run();
    EXPECT_EQ(record.deliveries(), (Events{"5@0", "6@0"}));
    EXPECT_GE(earlyEnds(), 2);
    EXPECT_LE(hooks.count("wait"), earlyEnds() - 1) << "only the time between two ends has lasted";
}

TEST_F(WatcherRealChanges, WithoutReportsPausesAreWhatTheyWereAndOneNoteSaysSo) {
    const WatchedTablePtr second = filled("second", {});
    const WatcherPtr both = watch({table.get(), second.get()});
    for (const std::string call : {"openQueue", "watch"}) {
        hooks.fail("openQueue", call == "openQueue" ? EMFILE : 0);
        hooks.fail("watch", ENOSPC);
        LogCapture log;
        record.clear();
        record.onIdle = [&](int calls) {
            if (calls == 11) {
                EXPECT_EQ(storeMessage(writer.get(), 1), NO_ERROR);
            }
            return NO_ERROR;
        };
        record.onMessage = [&](const Received&) {
            record.stop();
            return NO_ERROR;
        };
        const std::int64_t before = changePlatform().now();
        ASSERT_EQ(record.runInRealTime(both.get(), {1, 1}), NO_ERROR);
        EXPECT_GE(changePlatform().now() - before, 270000000) << call;
        EXPECT_EQ(log.notes().size(), 1U) << call;
        EXPECT_EQ(log.notes().at(0).find("Tabulo/C NOTE: messageWatcher_startWatching(): Changes of "), 0U) << call;
        EXPECT_EQ(log.warnings().size(), 2U) << "its start and its end";
        EXPECT_EQ(earlyEnds(), 0);
        ASSERT_EQ(mt_drop(writer.get()), NO_ERROR);
    }
}

TEST_F(WatcherRealChanges, WhateverCallIsRefusedEveryMessageIsDelivered) {
    const std::ptrdiff_t descriptors = openDescriptors();
    std::int32_t last = 0;
    for (const std::string& call : CHANGE_CALLS) {
        for (const int n : {1, 2}) {
            const LogCapture log;
            record.clear();
            hooks.fail(
                call, EIO,
                static_cast<int>(std::count_if(hooks.calls.begin(), hooks.calls.end(),
                                               [&](const std::string& made) { return made.starts_with(call); })) +
                    n);
            record.onIdle = [&](int calls) {
                if (calls == 11) {
                    EXPECT_EQ(storeMessage(writer.get(), ++last), NO_ERROR);
                }
                return NO_ERROR;
            };
            record.onMessage = [&](const Received& received) {
                if (received.metadata.uniformId == last) {
                    record.stop();
                }
                return NO_ERROR;
            };
            run({last + 1});
            EXPECT_EQ(record.deliveries(), Events{std::to_string(last) + "@0"}) << call << " " << n;
            EXPECT_EQ(openDescriptors(), descriptors) << call << " " << n;
            EXPECT_LE(log.notes().size(), 1U) << call << " " << n;
            hooks.fail(call, 0);
        }
    }
}

TEST_F(WatcherRealChanges, AStopFromAnotherThreadEndsAPause) {
    std::atomic<bool> isIdle = false;
    record.onIdle = [&](int call) {
        isIdle = call == 11;
        return NO_ERROR;
    };
    MessageWatcher* running = watcher.release();  // from here on it is the stop's
    std::thread other([&] {
        while (!isIdle) {
            std::this_thread::yield();
        }
        messageWatcher_destroy(running);
    });
    EXPECT_EQ(record.runInRealTime(running, {1}), NO_ERROR);
    other.join();
    EXPECT_EQ(record.events, Events(11, "idle"));
    EXPECT_EQ(hooks.count("wait"), 0) << "it lasted its time";
}

}  // namespace
}  // namespace tabulo::internal::test
