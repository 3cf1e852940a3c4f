#include <filesystem>
#include <fstream>
#include <functional>
#include <optional>
#include <thread>
#include <utility>

#include "storage/file_platform.h"
#include "tabulo/reader.h"
#include "tests/api/follower_test.h"

namespace tabulo::test {

namespace {

using Events = std::vector<std::string>;
using ApiFollowerChanges = FollowerTest;

TEST_F(ApiFollowerChanges, TellsThatATableWasDroppedAndGoesOnWithIt) {
    Writer orders = make("orders");
    append(orders, {1, 2, 3, 4});
    follower.add(path("orders"));
    EXPECT_EQ(all(follower).size(), 4U);
    orders.drop();
    EXPECT_EQ(next(follower), "dropped orders");
    EXPECT_EQ(follower.position(0), orders.end());
    append(orders, {5, 6});
    EXPECT_EQ(all(follower), (Events{"orders 5", "orders 6"}));
}

TEST_F(ApiFollowerChanges, GivesWhatWasStoredBeforeAFileWasReplaced) {
    Writer orders = make("orders");
    Writer trades = make("trades");
    append(orders, {1});
    append(trades, {7});
    follower.add(path("orders"));
    follower.add(path("trades"));
    EXPECT_EQ(all(follower), (Events{"orders 1", "trades 7"}));
    append(orders, {2, 3});
    orders.close();
    std::filesystem::rename(path("orders"), path("orders.old"));
    Writer fresh = make("orders");
    append(fresh, {4});
    EXPECT_EQ(all(follower), (Events{"orders 2", "orders 3", "replaced orders", "orders 4"}));
    append(fresh, {5, 6, 8, 9});
    EXPECT_EQ(all(follower), (Events{"orders 5", "orders 6", "orders 8", "orders 9"}));
}

// Something that happens once, in front of the question whether a file is still the one at its path.
class ReplacementHook {
  public:
    explicit ReplacementHook(std::function<void()> action) {
        inFront = std::move(action);
        record = internal::filePlatform();
        record.isAt = [](int descriptor, const char* path, bool* same) {
            if (const auto once = std::exchange(inFront, nullptr)) {
                once();
            }
            return under->isAt(descriptor, path, same);
        };
        under = internal::filePlatform_install(&record);
    }
    ~ReplacementHook() { internal::filePlatform_install(under); }
    ReplacementHook(const ReplacementHook&) = delete;
    ReplacementHook& operator=(const ReplacementHook&) = delete;

  private:
    static inline internal::FilePlatform record{};
    static inline const internal::FilePlatform* under = nullptr;
    static inline std::function<void()> inFront;
};

TEST_F(ApiFollowerChanges, GivesWhatWasStoredBetweenTheLastLookAndTheReplacement) {
    Writer orders = make("orders");
    append(orders, {1});
    follower.add(path("orders"));
    EXPECT_EQ(next(follower), "orders 1");
    std::optional<Writer> fresh;
    const ReplacementHook hook([&] {
        append(orders, {2});
        orders.close();
        std::filesystem::rename(path("orders"), path("orders.old"));
        fresh.emplace(make("orders"));
        append(*fresh, {4});
    });
    EXPECT_EQ(next(follower), "orders 2");
    EXPECT_EQ(next(follower), "replaced orders");
    EXPECT_EQ(next(follower), "orders 4");
}

TEST_F(ApiFollowerChanges, TellsThatTheNewFileHasAnotherLayout) {
    Writer orders = make("orders");
    append(orders, {1});
    follower.add(path("orders"));
    EXPECT_EQ(all(follower).size(), 1U);
    orders.close();
    std::filesystem::remove(path("orders"));
    layout.texts.push_back("Account");
    Writer fresh = make("orders");
    append(fresh, {2});
    EXPECT_EQ(next(follower), "replaced orders");
    EXPECT_EQ(next(follower), "layout changed orders");
    EXPECT_EQ(follower.layout(0), layout);
    EXPECT_EQ(next(follower), "orders 2");
}

TEST_F(ApiFollowerChanges, StaysWithAFileThatIsNowhereAnyMore) {
    Writer orders = make("orders");
    follower.add(path("orders"));
    std::filesystem::rename(path("orders"), path("elsewhere"));
    append(orders, {1});
    EXPECT_EQ(all(follower), (Events{"orders 1"}));
}

TEST_F(ApiFollowerChanges, WaitsForTheHeaderOfANewFile) {
    Writer orders = make("orders");
    append(orders, {1});
    orders.close();
    follower.add(path("orders"));
    EXPECT_EQ(all(follower).size(), 1U);
    Writer fresh = make("fresh");
    append(fresh, {2});
    fresh.close();
    const Bytes content = readFile(path("fresh").string());
    std::filesystem::remove(path("orders"));
    std::ofstream file(path("orders"), std::ios::binary);
    file.write(reinterpret_cast<const char*>(content.data()), 40).flush();
    EXPECT_EQ(shown(follower, follower.next(std::chrono::milliseconds(10))), "timed out");
    file.write(reinterpret_cast<const char*>(content.data()) + 40, static_cast<std::streamsize>(content.size()) - 40)
        .flush();
    EXPECT_EQ(next(follower), "replaced orders");
    EXPECT_EQ(next(follower), "orders 2");
}

TEST_F(ApiFollowerChanges, FailsForAFileThatNeverBecomesATable) {
    Writer orders = make("orders");
    Writer trades = make("trades");
    follower.add(path("orders"));
    follower.add(path("trades"));
    std::filesystem::remove(path("orders"));
    std::ofstream(path("orders")) << "nothing";
    EXPECT_TABULO_ERROR(fileSize, (void)follower.next(patience));
    append(trades, {1});
    EXPECT_EQ(next(follower), "trades 1") << "the other table goes on";
}

TEST_F(ApiFollowerChanges, TellsDamageOnceBehindWhatStandsBeforeItAndFollowsTheOthers) {
    Writer orders = make("orders");
    Writer trades = make("trades");
    append(orders, {1, 2, 3, 4, 5, 6, 7, 8, 9, 10});
    append(trades, {11});
    follower.add(path("orders"));
    follower.add(path("trades"));
    EXPECT_EQ(next(follower), "orders 1");
    EXPECT_EQ(next(follower), "orders 2");
    EXPECT_EQ(next(follower), "orders 3");
    const std::int64_t damaged = Reader(path("orders")).positionOf(6)->block;
    std::fstream file(path("orders"), std::ios::binary | std::ios::in | std::ios::out);
    file.seekp(damaged).write("\1\2\3\4\5\6\7\7", 8).flush();
    const Error error = errorOf([&] {
        for (int i = 0; i < 4; ++i) {
            EXPECT_EQ(shown(follower, follower.next(now)), "orders " + std::to_string(4 + i));
        }
    });
    EXPECT_EQ(error.code(), Code::headerCorrupted) << error.what();
    EXPECT_EQ(error.path(), path("orders"));
    EXPECT_EQ(all(follower), (Events{"trades 11"}));
}

}  // namespace

}  // namespace tabulo::test
