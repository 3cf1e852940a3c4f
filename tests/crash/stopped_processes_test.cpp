// A writer, readers, iterators and watchers in processes of their own, stopped and continued at random.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <memory>
#include <optional>
#include <random>
#include <vector>

#include "tests/crash/live_tables.h"
#include "tests/support/child_process.h"
#include "tests/support/log_capture.h"
#include "tests/support/test_run.h"

namespace tabulo::internal::test {
namespace {

using namespace std::chrono_literals;

#if defined(__SANITIZE_ADDRESS__)
constexpr std::int32_t MESSAGES = 1500;
#else
constexpr std::int32_t MESSAGES = 5000;
#endif

enum class ProcessState { running, stopped, ended };

// Leaves the process's end to be waited for by its owner.
ProcessState stateOf(const ChildProcess& child, int options) {
    siginfo_t info{};
    if (::waitid(P_PID, static_cast<id_t>(child.id()), &info, WEXITED | WSTOPPED | WNOWAIT | options) != 0) {
        return ProcessState::ended;
    }
    if (info.si_pid == 0) {
        return ProcessState::running;
    }
    return info.si_code == CLD_STOPPED ? ProcessState::stopped : ProcessState::ended;
}

class StoppedProcesses : public ::testing::Test {
  protected:
    // The watchers write many lines into the log file: it may be made where it is removed.
    void SetUp() override {
        before = std::filesystem::current_path();
        std::filesystem::current_path(directory.path());
    }
    void TearDown() override { std::filesystem::current_path(before); }

    template <typename Body>
    void start(Body body) {
        const std::size_t number = children.size();
        children.push_back(std::make_unique<ChildProcess>([body, number] { return body(number); }));
    }
    const ChildProcess& writer() const { return *children.front(); }
    bool isGoingOn() const {
        for (const auto& child : children) {
            if (stateOf(*child, WNOHANG) != ProcessState::ended) {
                return !(*state)->problem.isThere();
            }
        }
        return false;
    }
    // Only called while the writer cannot let the tables go.
    void expectSecondWriterRefused(const LiveTraffic& traffic, const char* when) {
        const std::size_t i = random() % LIVE_TABLES;
        const OpenMode mode = random() % 2 == 0 ? OpenMode::write : OpenMode::create;
        const MessageTablePtr second = createTable(traffic.root(), traffic.shape(i));
        EXPECT_EQ(mt_open(second.get(), mode), FILE_OPEN_ERROR) << "beside a writer that is " << when;
        refusals += 1;
    }
    void tryBesideRunningWriter(const LiveTraffic& traffic) {
        (*state)->keepOpen.store(true);
        if ((*state)->holding.load() && !(*state)->releasing.load()) {
            expectSecondWriterRefused(traffic, "running or stopped");
        }
        (*state)->keepOpen.store(false);
    }
    void tryBesideStoppedWriter(const LiveTraffic& traffic) {
        if ((*state)->holding.load() && !(*state)->releasing.load()) {
            expectSecondWriterRefused(traffic, "stopped");
        }
    }
    // Every follower still gets answers while the writer stands still.
    void expectFollowersGoOn() {
        for (std::size_t i = 1; i < children.size(); ++i) {
            const std::int64_t then = (*state)->answers.at(i).load();
            const auto deadline = std::chrono::steady_clock::now() + 20s;
            while ((*state)->answers.at(i).load() == then && !(*state)->problem.isThere() &&
                   stateOf(*children[i], WNOHANG) != ProcessState::ended) {
                ASSERT_LT(std::chrono::steady_clock::now(), deadline)
                    << "follower " << i << " stands still with the writer";
                ::usleep(100);
            }
        }
        waits += 1;
    }
    // The writer stops itself in the midst of its work, too.
    void lookAfterWriter(const LiveTraffic& traffic) {
        if (stateOf(writer(), WNOHANG) != ProcessState::stopped) {
            return;
        }
        if (random() % 8 == 0) {
            tryBesideStoppedWriter(traffic);
        }
        if (random() % 16 == 0) {
            ASSERT_NO_FATAL_FAILURE(expectFollowersGoOn());
        }
        ::usleep(static_cast<useconds_t>(random() % 2000));
        ::kill(writer().id(), SIGCONT);
        ownStops += 1;
    }
    // One process, or two at once, for up to some milliseconds.
    void stopSome(const LiveTraffic& traffic) {
        std::vector<const ChildProcess*> stopped;
        for (std::uint64_t count = 1 + random() % 2; count > 0; --count) {
            const ChildProcess& child = *children[random() % children.size()];
            if (stateOf(child, WNOHANG) != ProcessState::running) {
                continue;
            }
            ::kill(child.id(), SIGSTOP);
            if (stateOf(child, 0) == ProcessState::stopped) {
                stopped.push_back(&child);
                stops += 1;
            }
        }
        if (!stopped.empty() && stopped.front() == &writer() && random() % 4 == 0) {
            tryBesideStoppedWriter(traffic);
        }
        ::usleep(static_cast<useconds_t>(random() % 4000));
        for (const ChildProcess* child : stopped) {
            ::kill(child->id(), SIGCONT);
        }
    }

    void run(std::uint32_t seed) {
        random.seed(seed);
        const std::string root = directory.root() + std::to_string(seed) + "/";
        std::filesystem::create_directory(root);
        const LiveTraffic traffic(root, seed, MESSAGES);
        LiveState* shared = state.emplace().operator->();
        children.clear();
        ASSERT_EQ(makeLiveTables(traffic, shared), 0) << (*state)->problem.sentence();
        const ProcessSignal go;
        start([&](std::size_t) { return go.await() ? writeLive(traffic, shared, seed) : 1; });
        for (std::size_t table = 0; table < LIVE_TABLES; ++table) {
            start([&, table](std::size_t n) { return readLive(traffic, shared, table, n); });
            start([&, table](std::size_t n) { return iterateLive(traffic, shared, table, LiveFilter::none, n); });
            start([&, table](std::size_t n) { return iterateLive(traffic, shared, table, LiveFilter::symbol, n); });
            start([&, table](std::size_t n) {
                return iterateLiveBackward(traffic, shared, table, LiveFilter::quantities, n);
            });
        }
        start([&](std::size_t n) { return iterateLiveBackward(traffic, shared, 0, LiveFilter::none, n); });
        start([&](std::size_t n) { return iterateLive(traffic, shared, 1, LiveFilter::sequence, n); });
        start([&](std::size_t n) { return watchLive(traffic, shared, 1, n); });
        start([&](std::size_t n) { return watchLive(traffic, shared, PRESENT_BEFORE / 2, n); });
        const auto followers = static_cast<std::int32_t>(children.size()) - 1;
        while ((*state)->ready.load() < followers && isGoingOn()) {
            ::usleep(100);
        }
        go.raise();
        while (isGoingOn() && !HasFatalFailure()) {
            lookAfterWriter(traffic);
            stopSome(traffic);
            if (random() % 3 == 0) {
                tryBesideRunningWriter(traffic);
            }
        }
        for (std::size_t i = 0; i < children.size(); ++i) {
            EXPECT_EQ((*state)->problem.isThere() || HasFatalFailure() ? children[i]->kill() * 0 : children[i]->wait(),
                      0);
            answers += (*state)->answers.at(i).load();
        }
        EXPECT_FALSE((*state)->problem.isThere()) << (*state)->problem.sentence();
        std::filesystem::remove_all(root);
    }

    const TemporaryDirectory directory;
    std::filesystem::path before;
    LogCapture log;
    std::optional<SharedPage<LiveState>> state;
    std::mt19937_64 random;
    std::vector<std::unique_ptr<ChildProcess>> children;
    std::int64_t stops = 0;
    std::int64_t ownStops = 0;
    std::int64_t refusals = 0;
    std::int64_t waits = 0;
    std::int64_t answers = 0;
};

TEST_F(StoppedProcesses, SkipNothingRepeatNothingAndGetNoStaleAnswer) {
    const std::uint32_t seed = testSeed();
    for (int round = 0; round < testEffort() && !HasFailure(); ++round) {
        SCOPED_TRACE("seed " + std::to_string(seed) + ", round " + std::to_string(round));
        run(seed + static_cast<std::uint32_t>(round));
    }
    EXPECT_GT(stops, 20) << "the processes were hardly stopped";
    EXPECT_GT(ownStops, 10) << "the writer hardly stopped inside a write";
    EXPECT_GT(refusals, 4) << "hardly a second writer came";
    std::cout << waits << " times everybody was seen to go on beside a stopped writer\n";
    reportFigure("processes", "stops of processes", stops + ownStops);
    reportFigure("processes", "checked answers beside a writer", answers);
    reportFigure("processes", "refused second writers", refusals);
}

}  // namespace
}  // namespace tabulo::internal::test
