// Our store with what its users may ask of it: any range, threads, settings that differ, names of any length.
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <limits>
#include <thread>

#include "tests/adapters/quickfix/store_test.h"

namespace tabulo {
namespace quickfix {
namespace test {

namespace {

class StoreInUse : public ::testing::Test {
  protected:
    StoreInUse()
        : factory(settingsWith(folder.path())),
          logs(factory),
          store(factory.create(session())),
          log(logs.create(session())) {}
    ~StoreInUse() override {
        logs.destroy(log);
        factory.destroy(store);
    }

    Texts get(int first, int last) {
        Texts found;
        store->get(first, last, found);
        return found;
    }

    const Folder folder;
    TabuloStoreFactory factory;
    TabuloLogFactory logs;
    FIX::MessageStore* store;
    FIX::Log* log;
};

TEST_F(StoreInUse, RangesMayBeginBelowEveryNumberAndEndAboveEveryOther) {
    constexpr int MOST = std::numeric_limits<int>::max();
    constexpr int LEAST = std::numeric_limits<int>::min();
    for (int number = 1; number <= 3; ++number) {
        store->set(number, order(number));
    }
    const Texts all = {order(1), order(2), order(3)};
    EXPECT_EQ(get(0, 3), all);
    EXPECT_EQ(get(-1, 3), all);
    EXPECT_EQ(get(1, MOST), all);
    EXPECT_EQ(get(LEAST, MOST), all);
    EXPECT_EQ(get(3, MOST), Texts({order(3)}));
    EXPECT_EQ(get(MOST, MOST), Texts());
    EXPECT_EQ(get(LEAST, LEAST), Texts());
    EXPECT_EQ(get(MOST, LEAST), Texts());
    store->set(MOST, order(MOST));
    EXPECT_EQ(get(MOST, MOST), Texts({order(MOST)}));
}

// The settings of a session, and of another one that asks for another TabuloSync.
FIX::SessionSettings twoSyncs(const std::string& folder, const std::string& first, const std::string& second) {
    const std::string lines = "[SESSION]\nBeginString=FIX.4.4\nSenderCompID=CLIENT\nTargetCompID=";
    std::istringstream text("[DEFAULT]\nConnectionType=initiator\nTabuloStorePath=" + folder + "\n" + lines +
                            "A\nTabuloSync=" + first + "\n" + lines + "B\nTabuloSync=" + second + "\n");
    return FIX::SessionSettings(text);
}

// What is wrong with a session that asks for this, beside one that asks for something else; empty for nothing.
std::string troubleWith(const std::string& folder, const std::string& sync) {
    const std::string other = sync == "always" ? "off" : "always";
    TabuloStoreFactory both(twoSyncs(folder, sync, other));
    FIX::MessageStore* const first = both.create(FIX::SessionID("FIX.4.4", "CLIENT", "A"));
    for (int number = 1; number <= 10; ++number) {
        first->set(number, order(number));
        first->incrNextSenderMsgSeqNum();
    }
    std::string trouble = "a session that asks for " + other + " is opened beside it";
    try {
        both.create(FIX::SessionID("FIX.4.4", "CLIENT", "B"));
    } catch (const FIX::ConfigError& error) {
        const bool saysWhy = std::string(error.what()).find("TabuloSync") != std::string::npos;
        trouble = saysWhy ? "" : "the other is refused with: " + std::string(error.what());
    }
    first->set(11, order(11));
    Texts found;
    first->get(1, 20, found);
    trouble += found.size() == 11 ? "" : "; it has " + std::to_string(found.size()) + " of 11 messages";
    both.destroy(first);
    return trouble;
}

// The setting is of the process: each is tried in one of its own.
TEST(Sync, EachStoresAndASessionThatAsksForAnotherInTheSameProcessIsRefused) {
    if (::testing::UnitTest::GetInstance()->test_to_run_count() > 1) {
        GTEST_SKIP() << "another test of this process has chosen TabuloSync: run this one alone, as ctest does";
    }
    for (const char* sync : {"always", "every 3", "every 1s", "off"}) {
        const Folder own;
        const pid_t child = ::fork();
        if (child == 0) {
            const std::string trouble = troubleWith(own.path(), sync);
            std::fprintf(stderr, "%s%s", trouble.c_str(), trouble.empty() ? "" : "\n");
            ::_exit(trouble.empty() ? 0 : 1);
        }
        int status = 0;
        ASSERT_EQ(::waitpid(child, &status, 0), child);
        EXPECT_EQ(status, 0) << sync;
        EXPECT_EQ(storedIn(own.file("FIX.4.4-CLIENT-A")).size(), 11U) << sync;
    }
}

TEST(SessionFile, ASessionWhoseNameIsTooLongForAFileSaysSo) {
    const std::string name(300, 'N');
    const Folder own;
    std::istringstream text("[DEFAULT]\nConnectionType=initiator\nTabuloStorePath=" + own.path() +
                            "\n[SESSION]\nBeginString=FIX.4.4\nSenderCompID=" + name + "\nTargetCompID=B\n");
    TabuloStoreFactory one{FIX::SessionSettings(text)};
    try {
        one.create(FIX::SessionID("FIX.4.4", name, "B"));
        ADD_FAILURE() << "a file of 300 letters was made";
    } catch (const std::exception& error) {
        EXPECT_NE(std::string(error.what()).find("name too long"), std::string::npos) << error.what();
    }
}

TEST_F(StoreInUse, TheStoreAndTheLogOfASessionAreUsedByThreadsAtTheSameTime) {
    constexpr int COUNT = 2000;
    std::thread receiving([this] {
        for (int number = 1; number <= COUNT; ++number) {
            log->onIncoming(order(number, "IN"));
        }
    });
    std::thread asking([this] {
        for (int turn = 0; turn < 200; ++turn) {
            EXPECT_LE(get(1, 10).size(), 10U);
        }
    });
    for (int number = 1; number <= COUNT; ++number) {
        const std::string text = order(number, "OUT");
        EXPECT_TRUE(store->set(number, text));
        log->onOutgoing(text);
        store->incrNextSenderMsgSeqNum();
    }
    receiving.join();
    asking.join();
    EXPECT_EQ(get(1, COUNT).size(), static_cast<std::size_t>(COUNT));
    const std::vector<int> ids = uniformIdsIn(folder.file("FIX.4.4-CLIENT-EXCHANGE"));
    EXPECT_EQ(ids.size(), static_cast<std::size_t>(2 * COUNT));
    EXPECT_TRUE(std::is_sorted(ids.begin(), ids.end()));
}

}  // namespace

}  // namespace test
}  // namespace quickfix
}  // namespace tabulo
