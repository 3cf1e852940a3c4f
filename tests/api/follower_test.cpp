#include "tests/api/follower_test.h"

#include <array>
#include <mutex>
#include <thread>

#include "tabulo/session_info.h"

namespace tabulo::test {

void FollowerTest::append(Writer& writer, const std::vector<std::int32_t>& uniformIds) {
    for (const std::int32_t id : uniformIds) {
        writer.append(SimpleMessage(id).message);
    }
}

std::string FollowerTest::shown(const Follower& follower, const FollowEvent& event) {
    const auto table = [&] { return " " + follower.path(event.table).filename().string(); };
    switch (event.kind) {
        case FollowEventKind::message:
            return std::string(event.message->table()) + " " + std::to_string(event.message->uniformId());
        case FollowEventKind::dropped:
            return "dropped" + table();
        case FollowEventKind::replaced:
            return "replaced" + table();
        case FollowEventKind::layoutChanged:
            return "layout changed" + table();
        case FollowEventKind::timedOut:
            return "timed out";
        default:
            return "stopped";
    }
}

std::vector<std::string> FollowerTest::all(Follower& follower) {
    std::vector<std::string> events;
    for (;;) {
        events.push_back(shown(follower, follower.next(now)));
        if (events.back() == "timed out" || events.back() == "stopped") {
            events.pop_back();
            return events;
        }
    }
}

namespace {

using Events = std::vector<std::string>;
using ApiFollower = FollowerTest;

TEST_F(ApiFollower, GivesTheMessagesOfSeveralTablesInTheOrderOfTheirIds) {
    Writer orders = make("orders");
    Writer trades = make("trades");
    append(orders, {1, 2, 5, 6, 7, 8});
    append(trades, {3, 4, 9});
    EXPECT_EQ(follower.add(path("orders")), 0U);
    EXPECT_EQ(follower.add(path("trades")), 1U);
    EXPECT_EQ(all(follower), (Events{"orders 1", "orders 2", "trades 3", "trades 4", "orders 5", "orders 6", "orders 7",
                                     "orders 8", "trades 9"}));
}

TEST_F(ApiFollower, GivesOfEqualIdsTheTablesFirstThatWasAddedFirst) {
    Writer orders = make("orders");
    Writer trades = make("trades");
    append(orders, {4, 4});
    append(trades, {4});
    follower.add(path("trades"));
    follower.add(path("orders"));
    EXPECT_EQ(all(follower), (Events{"trades 4", "orders 4", "orders 4"}));
}

TEST_F(ApiFollower, NeverChangesTheOrderInsideATable) {
    Writer orders = make("orders");
    Writer trades = make("trades");
    append(orders, {9, 1, 8});
    append(trades, {5, 10});
    follower.add(path("orders"));
    follower.add(path("trades"));
    EXPECT_EQ(all(follower), (Events{"trades 5", "orders 9", "orders 1", "orders 8", "trades 10"}));
}

TEST_F(ApiFollower, SaysOfEachMessageWhereItStandsAndInWhichTable) {
    Writer trades = make("trades");
    Writer orders = make("orders");
    append(orders, {1, 2, 3, 4, 5});
    follower.add(path("trades"));
    follower.add(path("orders"));
    std::int64_t ordinal = 0;
    for (std::int32_t id = 1; id <= 5; ++id, ++ordinal) {
        const FollowEvent event = follower.next(now);
        ASSERT_EQ(event.kind, FollowEventKind::message);
        EXPECT_EQ(event.table, 1U);
        EXPECT_EQ(event.message->tableIndex(), 1U);
        EXPECT_EQ(event.message->table(), "orders");
        EXPECT_EQ(event.message->ordinal(), ordinal);
        EXPECT_EQ(follower.position(1), event.message->next());
    }
    EXPECT_EQ(follower.next(now).kind, FollowEventKind::timedOut);
    EXPECT_EQ(follower.position(1), orders.end());
}

TEST_F(ApiFollower, BeginsWhereItIsAskedTo) {
    Writer orders = make("orders");
    append(orders, {1, 2, 3, 4, 5});
    Follower other;
    other.add(path("orders"));
    Position behindTwo;
    for (int i = 0; i < 2; ++i) {
        behindTwo = other.next(now).message->next();
    }
    const auto from = [&](const FollowFrom& start) {
        Follower one;
        one.add(path("orders"), start);
        append(orders, {6});
        Events events = all(one);
        return events.empty() ? std::string("nothing") : events.front() + " of " + std::to_string(events.size());
    };
    EXPECT_EQ(from(FollowFrom::end()), "orders 6 of 1");
    EXPECT_EQ(from(FollowFrom::position(behindTwo)), "orders 3 of 5");
    EXPECT_EQ(from(FollowFrom::uniformId(4)), "orders 4 of 5");
    EXPECT_EQ(from(FollowFrom::uniformId(7)), "orders 6 of 1");
    EXPECT_EQ(from(FollowFrom::beginning()), "orders 1 of 10");
}

TEST_F(ApiFollower, GoesOnFromThePositionsOfAnother) {
    Writer orders = make("orders");
    append(orders, {1, 2, 3, 4, 5, 6, 7});
    follower.add(path("orders"));
    for (std::int32_t given = 1; given <= 7; ++given) {
        EXPECT_EQ(next(follower), "orders " + std::to_string(given));
        Follower other;
        other.add(path("orders"), FollowFrom::position(follower.position(0)));
        EXPECT_EQ(all(other).size(), static_cast<std::size_t>(7 - given)) << "behind " << given;
    }
}

TEST_F(ApiFollower, WaitsForWhatIsStoredLater) {
    Writer orders = make("orders");
    follower.add(path("orders"));
    EXPECT_EQ(shown(follower, follower.next(now)), "timed out");
    EXPECT_EQ(shown(follower, follower.next(std::chrono::milliseconds(-5))), "timed out");
    EXPECT_EQ(shown(follower, follower.next(std::chrono::milliseconds::min())), "timed out");
    std::thread writer([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        append(orders, {7});
    });
    const FollowEvent event = follower.next();
    writer.join();
    EXPECT_EQ(shown(follower, event), "orders 7");
    EXPECT_EQ(shown(follower, follower.next(std::chrono::milliseconds(5))), "timed out");
}

TEST_F(ApiFollower, IsStoppedFromAnotherThreadAndStaysSo) {
    const Writer orders = make("orders");
    follower.add(path("orders"));
    std::thread stopper([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        follower.stop();
    });
    const FollowEvent event = follower.next(std::chrono::milliseconds::max());
    stopper.join();
    EXPECT_EQ(event.kind, FollowEventKind::stopped);
    follower.stop();
    EXPECT_EQ(follower.next().kind, FollowEventKind::stopped);
}

TEST_F(ApiFollower, TakesTablesThatAnotherThreadAddsWhileItWaits) {
    Writer orders = make("orders");
    append(orders, {3});
    std::size_t index = 99;
    std::thread adder([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        index = follower.add(path("orders"));
    });
    const std::string event = next(follower);
    adder.join();
    EXPECT_EQ(event, "orders 3");
    EXPECT_EQ(index, 0U);
}

TEST_F(ApiFollower, LeavesOutATableThatWasRemoved) {
    Writer orders = make("orders");
    Writer trades = make("trades");
    append(orders, {1, 3});
    append(trades, {2, 4});
    follower.add(path("orders"));
    follower.add(path("trades"));
    const FollowEvent first = follower.next(now);
    follower.remove(0);
    EXPECT_EQ(first.message->uniformId(), 1) << "the message that was lent is valid until the next call";
    EXPECT_EQ(all(follower), (Events{"trades 2", "trades 4"}));
    EXPECT_EQ(follower.tableCount(), 2U);
    EXPECT_EQ(follower.path(0), path("orders"));
    EXPECT_EQ(follower.layout(0), layout);
    EXPECT_EQ(follower.add(path("orders"), FollowFrom::position(follower.position(0))), 2U);
    EXPECT_EQ(all(follower), (Events{"orders 3"}));
}

TEST_F(ApiFollower, RefusesWhatItCannotFollow) {
    const Writer orders = make("orders");
    const std::array<std::int32_t, 1> tags = {1};
    SessionInfo::create(path("session"), tags);
    EXPECT_TABULO_ERROR(fileOpen, follower.add(path("missing")));
    EXPECT_TABULO_ERROR(tableType, follower.add(path("session")));
    EXPECT_TABULO_ERROR(wrongParameter, follower.add(""));
    EXPECT_TABULO_ERROR(vseek, follower.add(path("orders"), FollowFrom::position({3, 4})));
    EXPECT_EQ(follower.tableCount(), 0U);
    EXPECT_TABULO_ERROR(indexOutOfBounds, (void)follower.path(0));
    EXPECT_TABULO_ERROR(indexOutOfBounds, (void)follower.layout(0));
    EXPECT_TABULO_ERROR(indexOutOfBounds, (void)follower.position(0));
    EXPECT_TABULO_ERROR(indexOutOfBounds, follower.remove(0));
    Follower moved = std::move(follower);
    EXPECT_TABULO_ERROR(tableClosed, (void)follower.next(now));  // NOLINT(bugprone-use-after-move)
    EXPECT_TABULO_ERROR(tableClosed, (void)follower.add(path("orders")));
    EXPECT_EQ(moved.add(path("orders")), 0U);
}

// Ids are taken and messages stored under one lock, as an engine does: whatever table an id goes to, none may come
// early.
TEST_F(ApiFollower, KeepsTheOrderOfIdsWhileSeveralTablesAreWritten) {
    constexpr std::int32_t LAST = 3000;
    std::vector<Writer> writers;
    for (const char* name : {"a", "b", "c"}) {
        writers.push_back(make(name));
        follower.add(path(name));
    }
    std::mutex lock;
    std::int32_t lastId = 0;
    std::vector<std::thread> threads;
    for (Writer& writer : writers) {
        threads.emplace_back([&] {
            for (bool isMore = true; isMore;) {
                const std::lock_guard guard(lock);
                isMore = lastId < LAST;
                if (isMore) {
                    append(writer, {++lastId * 2});  // no id follows the one before it
                }
            }
        });
    }
    std::int32_t expected = 2;
    for (; expected <= 2 * LAST; expected += 2) {
        const FollowEvent event = follower.next(patience);
        if (event.kind != FollowEventKind::message || event.message->uniformId() != expected) {
            ADD_FAILURE() << shown(follower, event) << " was given instead of " << expected;
            break;
        }
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(expected, 2 * LAST + 2);
}

}  // namespace

}  // namespace tabulo::test
