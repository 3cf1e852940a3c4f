// A watch whose waits are recorded in place of taking time.
#pragma once

#include <functional>
#include <vector>

#include "tests/support/change_hooks.h"
#include "tests/watcher/watched_tables.h"

namespace tabulo::internal::test {

// Waits are events, and take no time: "wait 270" for a change or a stop, "rest 1" for a stop alone.
class WatcherChanges : public WatcherTest {
  protected:
    using Waited = ChangeHooks::Waited;

    void SetUp() override {
        hooks.replaceWaits([this](std::int64_t milliseconds, bool forChanges) {
            record.events.push_back((forChanges ? "wait " : "rest ") + std::to_string(milliseconds));
            waits += forChanges ? 1 : 0;
            return forChanges && onWait ? onWait(waits, milliseconds) : Waited{milliseconds};
        });
        writer = open("orders", OpenMode::create);
        table = open("orders", OpenMode::read);
        watcher = watch({table.get()});
    }
    // Stops at the given call without a message.
    void stopAt(int call) {
        record.onIdle = [this, call](int calls) {
            if (calls == call) {
                record.stop();
            }
            return NO_ERROR;
        };
    }
    void run(const std::vector<std::int32_t>& from = {1}) {
        ASSERT_EQ(record.runInRealTime(watcher.get(), from), NO_ERROR);
    }
    // The events behind the first passes, which do not pause.
    Events behindTheFirst(int idles) const {
        for (int i = 0; i < idles; ++i) {
            EXPECT_EQ(record.events.at(static_cast<std::size_t>(i)), "idle") << i;
        }
        return {record.events.begin() + idles, record.events.end()};
    }

    ChangeHooks hooks;
    WatchedTablePtr writer;
    WatchedTablePtr table;
    WatcherPtr watcher;
    int waits = 0;
    std::function<Waited(int wait, std::int64_t milliseconds)> onWait;  // without it a wait lasts its time
};

}  // namespace tabulo::internal::test
