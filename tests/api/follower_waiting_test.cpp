// How a Follower waits: for changes where the system reports them, else a little.
#include <atomic>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <thread>

#include "tabulo/log.h"
#include "tests/api/follower_test.h"
#include "tests/faults/resources.h"
#include "tests/support/change_hooks.h"
#include "tests/support/child_process.h"

namespace tabulo::test {

namespace {

using Events = std::vector<std::string>;
using internal::test::CHANGE_CALLS;
using internal::test::ChangeHooks;
using internal::test::openDescriptors;
using std::chrono::milliseconds;

class ApiFollowerWaiting : public FollowerTest {
  protected:
    void SetUp() override {
        setLogHandler([this](LogLevel, std::string_view line) {
            if (line.find("reported") != std::string_view::npos) {
                lines.emplace_back(line);
            }
        });
    }
    void TearDown() override { setLogHandler(nullptr); }
    // Happens in the next wait.
    void inWait(const std::function<void()>& action) {
        hooks.beforeWait = [this, action](std::int64_t) {
            const std::function<void()> kept = action;  // the next line ends this function
            hooks.beforeWait = nullptr;
            kept();
        };
    }
    // Waits in vain: whatever was added or left out before is known then.
    void settle() {
        for (int i = 0; i < 2; ++i) {
            EXPECT_EQ(shown(follower, follower.next(milliseconds(2))), "timed out");
        }
        hooks.calls.clear();
    }

    ChangeHooks hooks;
    std::vector<std::string> lines;
};

TEST_F(ApiFollowerWaiting, AMessageThatIsStoredWhenTheWatchingBeginsIsSeenWithoutAWait) {
    Writer orders = make("orders");
    follower.add(path("orders"));
    hooks.beforeWatch = [&] { append(orders, {1}); };
    int waits = 0;
    hooks.beforeWait = [&](std::int64_t) { waits += 1; };
    EXPECT_EQ(next(follower), "orders 1");
    EXPECT_EQ(waits, 0);
    EXPECT_EQ(hooks.count("watch"), 1);
}

TEST_F(ApiFollowerWaiting, AMessageEndsAWaitThatWouldLastLonger) {
    Writer orders = make("orders");
    follower.add(path("orders"));
    settle();
    std::vector<std::int64_t> lengths;
    hooks.beforeWait = [&](std::int64_t length) {
        lengths.push_back(length);
        append(orders, {1});
    };
    EXPECT_EQ(next(follower), "orders 1");
    EXPECT_EQ(hooks.count("wait: changed"), 1);
    ASSERT_EQ(lengths.size(), 1U);
    EXPECT_GT(lengths[0], 1) << "milliseconds";
    EXPECT_EQ(lines, Events{});
}

TEST_F(ApiFollowerWaiting, WhatIsStoredWhileATableIsAddedIsGiven) {
    Writer orders = make("orders");
    follower.add(path("orders"), FollowFrom::end());
    append(orders, {1});
    EXPECT_EQ(next(follower), "orders 1");
    Writer trades = make("trades");
    follower.add(path("trades"), FollowFrom::end());
    append(trades, {2});
    EXPECT_EQ(next(follower), "trades 2");
}

TEST_F(ApiFollowerWaiting, OnlyLookingWatchesNothing) {
    Writer orders = make("orders");
    append(orders, {1});
    const std::ptrdiff_t descriptors = openDescriptors();
    follower.add(path("orders"));
    EXPECT_EQ(all(follower), Events{"orders 1"});
    EXPECT_EQ(openDescriptors(), descriptors + 1) << "the table's file";
    EXPECT_EQ(hooks.calls, Events{});
}

TEST_F(ApiFollowerWaiting, ShortWaitsDoNotLookAgainWhileNothingChanges) {
    Writer orders = make("orders");
    follower.add(path("orders"));
    settle();
    int withoutLook = 0;
    for (int i = 0; i < 100 && withoutLook == 0; ++i) {  // now and then it is time for a look
        hooks.calls.clear();
        EXPECT_EQ(shown(follower, follower.next(milliseconds(1))), "timed out");
        withoutLook += hooks.count("take") == 0 ? 1 : 0;
    }
    EXPECT_EQ(withoutLook, 1);
    EXPECT_EQ(shown(follower, follower.next(now)), "timed out");
    EXPECT_GT(hooks.count("take"), 0) << "no time at all is a look";
    append(orders, {1});
    EXPECT_EQ(next(follower), "orders 1");
}

TEST_F(ApiFollowerWaiting, ATableThatWasDroppedIsWatchedStill) {
    Writer orders = make("orders");
    append(orders, {1});
    follower.add(path("orders"));
    EXPECT_EQ(next(follower), "orders 1");
    settle();
    inWait([&] { orders.drop(); });
    EXPECT_EQ(next(follower), "dropped orders");
    inWait([&] { append(orders, {2}); });
    EXPECT_EQ(next(follower), "orders 2");
    EXPECT_EQ(hooks.count("wait: changed"), 2);
}

TEST_F(ApiFollowerWaiting, AFileThatTookTheOthersPlaceIsWatchedInItsPlace) {
    Writer orders = make("orders");
    append(orders, {1});
    follower.add(path("orders"));
    EXPECT_EQ(next(follower), "orders 1");
    settle();
    std::filesystem::rename(path("orders"), path("orders.old"));
    Writer fresh = make("orders");
    EXPECT_EQ(next(follower), "replaced orders") << "which no report tells";
    inWait([&] { append(fresh, {2}); });
    EXPECT_EQ(next(follower), "orders 2");
    settle();
    inWait([&] { append(orders, {7}); });
    EXPECT_EQ(shown(follower, follower.next(milliseconds(2))), "timed out");
    EXPECT_EQ(hooks.count("wait: changed"), 0) << "the old file is watched still";
}

// What is to come in the place of a file is not watched yet.
TEST_F(ApiFollowerWaiting, ATableThatIsAwayIsLookedForWithoutLongWaits) {
    Writer orders = make("orders");
    append(orders, {1});
    follower.add(path("orders"));
    EXPECT_EQ(next(follower), "orders 1");
    settle();
    std::filesystem::rename(path("orders"), path("orders.old"));
    std::ofstream(path("orders")).close();  // a writer has begun to make it
    std::int64_t longest = 0;
    int waits = 0;
    hooks.beforeWait = [&](std::int64_t time) {
        longest = std::max(longest, time);
        waits += 1;
    };
    EXPECT_EQ(shown(follower, follower.next(milliseconds(600))), "timed out");  // the next look at all is due within
    waits = 0;
    longest = 0;
    EXPECT_EQ(shown(follower, follower.next(milliseconds(50))), "timed out");
    hooks.beforeWait = nullptr;
    EXPECT_GT(waits, 0);
    EXPECT_LE(longest, 1) << "ms";
}

TEST_F(ApiFollowerWaiting, ATableThatWasRemovedEndsNoWaits) {
    Writer orders = make("orders");
    Writer trades = make("trades");
    follower.add(path("orders"));
    follower.add(path("trades"));
    settle();
    follower.remove(0);
    EXPECT_EQ(shown(follower, follower.next(milliseconds(2))), "timed out");
    EXPECT_EQ(hooks.count("unwatch"), 1);
    settle();
    inWait([&] { append(orders, {1}); });
    EXPECT_EQ(shown(follower, follower.next(milliseconds(2))), "timed out");
    EXPECT_EQ(hooks.count("wait: changed"), 0);
}

TEST_F(ApiFollowerWaiting, AStopAndATableOfAnotherThreadEndALongWait) {
    Writer orders = make("orders");
    follower.add(path("orders"));
    Writer trades = make("trades");
    append(trades, {5});
    settle();
    for (const std::string expected : {"trades 5", "stopped"}) {
        std::atomic<bool> isWaiting = false;
        hooks.beforeWait = [&](std::int64_t) { isWaiting = true; };
        std::thread other([&] {
            while (!isWaiting) {
                std::this_thread::yield();
            }
            if (expected == "stopped") {
                follower.stop();
            } else {
                follower.add(path("trades"));
            }
        });
        EXPECT_EQ(next(follower), expected);
        other.join();
        EXPECT_GE(hooks.count("wait: woken"), 1);
        hooks.calls.clear();
    }
}

TEST_F(ApiFollowerWaiting, WithoutReportsItLooksAgainAndAgainAndOneNoteSaysSo) {
    for (const std::string call : {"openQueue", "watch"}) {
        hooks.fail("openQueue", call == "openQueue" ? EMFILE : 0);
        hooks.fail("watch", ENOSPC);
        lines.clear();
        Follower refused;
        Writer orders = make("orders " + call);
        Writer trades = make("trades " + call);
        refused.add(path("orders " + call));
        refused.add(path("trades " + call));
        std::atomic<bool> isOver = false;
        std::thread writer([&] {
            std::this_thread::sleep_for(milliseconds(20));
            append(trades, {3});
            isOver = true;
        });
        EXPECT_EQ(next(refused), "trades " + call + " 3");
        writer.join();
        EXPECT_EQ(hooks.count("wait: changed"), 0);
        ASSERT_EQ(lines.size(), 1U) << call;
        EXPECT_EQ(lines[0].find("Tabulo/C NOTE: Follower::next(): Changes of "), 0U) << lines[0];
    }
}

TEST_F(ApiFollowerWaiting, WhateverCallIsRefusedEveryMessageIsGivenAndNothingStaysOpen) {
    for (const std::string& call : CHANGE_CALLS) {
        Writer orders = make("orders " + call);
        const std::ptrdiff_t descriptors = openDescriptors();
        {
            Follower refused;
            refused.add(path("orders " + call));
            hooks.fail(call, EIO);
            for (const std::int32_t id : {1, 2, 3}) {
                std::thread writer([&] { append(orders, {id}); });
                EXPECT_EQ(next(refused), "orders " + call + " " + std::to_string(id));
                writer.join();
                EXPECT_EQ(shown(refused, refused.next(milliseconds(2))), "timed out") << call;
            }
            refused.stop();
            EXPECT_EQ(next(refused), "stopped") << call;
        }
        EXPECT_EQ(openDescriptors(), descriptors) << call;
        hooks.fail(call, 0);
    }
}

TEST_F(ApiFollowerWaiting, AChildProcessThatFollowsOnTakesNothingFromItsParent) {
    Writer orders = make("orders");
    follower.add(path("orders"));
    EXPECT_EQ(shown(follower, follower.next(milliseconds(1))), "timed out");
    append(orders, {1});
    const int result = internal::test::runInChild([&] {
        const bool isGiven = next(follower) == "orders 1";
        return isGiven && shown(follower, follower.next(milliseconds(3))) == "timed out" ? 0 : 1;
    });
    EXPECT_EQ(result, 0);
    EXPECT_EQ(next(follower), "orders 1");
}

}  // namespace

}  // namespace tabulo::test
