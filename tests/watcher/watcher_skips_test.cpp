// Which files a pass reads, and that order and delivery do not rest on what the system reports.
#include <algorithm>

#include "tests/watcher/read_hook.h"
#include "tests/watcher/watcher_changes.h"

namespace tabulo::internal::test {
namespace {

// Two more tables, and what is read of all three.
class WatcherSkips : public WatcherChanges {
  protected:
    void SetUp() override {
        WatcherChanges::SetUp();
        for (const char* name : {"second", "third"}) {
            writers.push_back(open(name, OpenMode::create));
            tables.push_back(open(name, OpenMode::read));
        }
        watcher = watch({table.get(), tables[0].get(), tables[1].get()});
    }
    std::vector<WatchedTablePtr> writers;
    std::vector<WatchedTablePtr> tables;
};

TEST_F(WatcherSkips, UntilThePauseEndsOnlyFilesThatHaveChangedAreRead) {
    onWait = [&](int wait, std::int64_t milliseconds) {
        if (wait > 1) {
            return Waited{milliseconds};
        }
        EXPECT_EQ(storeMessage(writers[0].get(), 1), NO_ERROR);
        return Waited{5, true};
    };
    stopAt(23);
    {
        const ReadHook read([this](std::size_t bytes) { record.events.push_back(bytes == 0 ? "end" : "bytes"); });
        run({1, 1, 1});
    }
    const auto first = std::find(record.events.begin(), record.events.end(), "wait 270");
    Events expected{"wait 270", "bytes", "1@1", "end"};
    expected.insert(expected.end(), 11, "idle");
    expected.insert(expected.end(), {"wait 270", "end", "end", "end", "idle"});
    EXPECT_EQ(Events(first, record.events.end()), expected);
}

TEST_F(WatcherSkips, APassBehindAGapReadsEveryFileSoThatALostReportChangesNoOrder) {
    std::vector<int> watches;
    hooks.isLost = [&](int reported) { return reported == watches.at(1); };
    record.onIdle = [&](int call) {
        if (call == 1) {
            for (const auto& reader : watcher->readers) {
                watches.push_back(reader->watch);
            }
            EXPECT_EQ(storeMessage(writer.get(), 1), NO_ERROR);
        } else {
            record.stop();
        }
        return NO_ERROR;
    };
    record.onMessage = [&](const Received& received) {
        if (received.metadata.uniformId == 1) {
            EXPECT_EQ(storeMessage(writers[0].get(), 2), NO_ERROR);
            EXPECT_EQ(storeMessage(writer.get(), 3), NO_ERROR);
        }
        return NO_ERROR;
    };
    run({1, 1, 1});
    EXPECT_EQ(record.deliveries(), (Events{"1@0", "2@1", "3@0"}));
}

TEST_F(WatcherSkips, AMessageWhoseReportIsLostComesWhenThePauseIsOver) {
    hooks.isLost = [](int) { return true; };
    onWait = [&](int wait, std::int64_t milliseconds) {
        if (wait == 1) {
            EXPECT_EQ(storeMessage(writers[1].get(), 1), NO_ERROR);
            return Waited{100, true};
        }
        return Waited{milliseconds};
    };
    stopAt(13);
    run({1, 1, 1});
    EXPECT_EQ(behindTheFirst(11), (Events{"wait 270", "idle", "rest 1", "wait 169", "1@2", "idle"}));
}

TEST_F(WatcherSkips, ATableThatItsReceiverDestroysEndsTheWatchAtOnce) {
    record.onIdle = [&](int call) {
        if (call == 3) {
            tables[1].reset();
        }
        return NO_ERROR;
    };
    EXPECT_EQ(record.runInRealTime(watcher.get(), {1, 1, 1}), MASTER_INACTIVE_ERROR);
    EXPECT_EQ(record.events, (Events(4, "idle"))) << "the last one is behind the error";
}

}  // namespace
}  // namespace tabulo::internal::test
