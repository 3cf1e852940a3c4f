// Who holds the lock of a table that is open for writing: its process and the children it forked, for as long as one of
// them lives, and never a program that one of them started.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <optional>
#include <random>
#include <vector>

#include "tests/crash/crash_traffic.h"
#include "tests/crash/shared_page.h"
#include "tests/support/child_process.h"
#include "tests/support/log_capture.h"
#include "tests/support/test_run.h"

namespace tabulo::internal::test {
namespace {

#if defined(__SANITIZE_ADDRESS__)
constexpr int FAMILIES = 20;
#else
constexpr int FAMILIES = 60;
#endif
constexpr std::int32_t STORED = 6;
constexpr std::size_t MOST_RELATIVES = 4;
constexpr int END_MILLISECONDS = 20000;
constexpr unsigned LONGEST_SECONDS = 100;

// What a process that has the tables open leaves behind: a child or a grandchild that goes on as its copy, or one that
// becomes another program.
enum class Relative { child, grandchild, program, programOfChild };

struct Family {
    std::array<std::atomic<pid_t>, MOST_RELATIVES> ids{};
};

// Forks and lets the copy go on with `body`, which does not return.
template <typename Body>
pid_t startCopy(Body body) {
    const pid_t id = ::fork();
    if (id == 0) {
        body();
        ::_exit(1);
    }
    return id;
}

void waitForEver() {
    for (;;) {
        ::pause();
    }
}

// Becomes another program; the pipe's other end learns of it, since the exec closes this one.
void becomeProgram() {
    ::execlp("sleep", "sleep", "600", static_cast<char*>(nullptr));
}

// Starts a relative and tells its id; returns when it is what it is going to be.
bool startRelative(Relative kind, std::atomic<pid_t>* id) {
    int ends[2] = {-1, -1};
    if (::pipe2(ends, O_CLOEXEC) != 0) {
        return false;
    }
    const bool program = kind == Relative::program || kind == Relative::programOfChild;
    const auto live = [&] {
        id->store(::getpid());
        ::alarm(LONGEST_SECONDS);  // also as another program: nothing outlives a test that was ended
        if (program) {
            becomeProgram();
        }
        ::close(ends[1]);
        waitForEver();
    };
    const bool direct = kind == Relative::child || kind == Relative::program;
    const pid_t first = startCopy([&] {
        if (direct) {
            live();
        }
        ::_exit(startCopy(live) > 0 ? 0 : 1);
    });
    ::close(ends[1]);
    char byte = 0;
    const bool started = first > 0 && ::read(ends[0], &byte, 1) == 0;
    ::close(ends[0]);
    return started && (direct || ::waitpid(first, nullptr, 0) == first);
}

// Ends a process that need not be a child of this one, and waits until it is gone.
void endProcess(pid_t id) {
    const auto handle = static_cast<int>(::syscall(SYS_pidfd_open, id, 0));
    ASSERT_GE(handle, 0) << "process " << id << " is gone already";
    EXPECT_EQ(::kill(id, SIGKILL), 0);
    pollfd ended{handle, POLLIN, 0};
    EXPECT_EQ(::poll(&ended, 1, END_MILLISECONDS), 1) << "process " << id << " does not end";
    ::close(handle);
}

class LockLifetime : public MessageTableTest {
  protected:
    // Orphans become this process's children, so that their ends can be waited for.
    void SetUp() override { ASSERT_EQ(::prctl(PR_SET_CHILD_SUBREAPER, 1), 0); }
    void TearDown() override { ::prctl(PR_SET_CHILD_SUBREAPER, 0); }

    // The holder: opens both tables, stores messages and starts its relatives.
    int hold(const std::vector<Relative>& kinds, const ProcessSignal& ready) {
        const MessageTablePtr held = createTable(directory.root(), shape);
        const SessionTablePtr session = createSession(directory.root());
        if (mt_open(held.get(), OpenMode::create) != NO_ERROR ||
            writeSimpleMessages(held.get(), 1, STORED, shape) != NO_ERROR ||
            si_init(session.get(), OpenMode::write) != NO_ERROR || storeSession(session.get(), 1) != NO_ERROR) {
            return 1;
        }
        for (std::size_t i = 0; i < kinds.size(); ++i) {
            if (!startRelative(kinds[i], &family->ids.at(i))) {
                return 2;
            }
        }
        ready.raise();
        waitForEver();
        return 0;
    }
    // Whether both tables may be opened for writing, as `held` says, and for reading in any case.
    void expectHeld(bool held, const std::string& when) {
        const MessageTablePtr writer = createTable(directory.root(), shape);
        const SessionTablePtr session = createSession(directory.root());
        EXPECT_EQ(mt_open(writer.get(), OpenMode::write), held ? FILE_OPEN_ERROR : NO_ERROR) << when;
        EXPECT_EQ(si_init(session.get(), OpenMode::write), held ? FILE_OPEN_ERROR : NO_ERROR) << when;
        if (held) {
            EXPECT_EQ(mt_open(writer.get(), OpenMode::create), FILE_OPEN_ERROR) << when;
        }
        EXPECT_EQ(messagesIn(directory.root(), shape), simpleMessages(1, STORED, shape)) << when;
        looks += 1;
    }

    SharedPage<Family> family;
    LogCapture log;
    std::int64_t looks = 0;
};

TEST_F(LockLifetime, EndsWithTheLastOfTheHolderAndTheCopiesOfItAndStartedProgramsNeverHoldIt) {
    std::mt19937 random(testSeed());
    const int families = FAMILIES * testEffort();
    for (int round = 0; round < families && !HasFailure(); ++round) {
        SCOPED_TRACE("family " + std::to_string(round));
        std::vector<Relative> kinds(random() % (MOST_RELATIVES + 1));
        std::generate(kinds.begin(), kinds.end(), [&] { return static_cast<Relative>(random() % 4); });
        const ProcessSignal ready;
        ChildProcess holder([&] { return hold(kinds, ready); });
        ASSERT_TRUE(ready.await()) << "the holder ended with " << holder.wait();
        expectHeld(true, "while the holder lives");
        // The order in which they end; the holder is the last number.
        std::vector<std::size_t> order(kinds.size() + 1);
        std::generate(order.begin(), order.end(), [n = std::size_t{0}]() mutable { return n++; });
        std::shuffle(order.begin(), order.end(), random);
        auto holders = 1 + std::count_if(kinds.begin(), kinds.end(), [](Relative kind) {
                           return kind == Relative::child || kind == Relative::grandchild;
                       });
        for (const std::size_t who : order) {
            const bool isHolder = who == kinds.size();
            const pid_t id = isHolder ? holder.id() : family->ids.at(who).load();
            if (random() % 2 == 0) {
                EXPECT_EQ(::kill(id, SIGSTOP), 0);
                expectHeld(holders > 0, "with process " + std::to_string(id) + " stopped");
            }
            isHolder ? static_cast<void>(holder.kill()) : endProcess(id);
            holders -= isHolder || kinds[who] == Relative::child || kinds[who] == Relative::grandchild ? 1 : 0;
            expectHeld(holders > 0, "with " + std::to_string(holders) + " holders left, behind the end of " +
                                        (isHolder ? "the holder" : "relative " + std::to_string(who)));
        }
        while (::waitpid(-1, nullptr, WNOHANG) > 0) {
        }
    }
    reportFigure("processes", "looks at locks of processes that end", looks);
}

}  // namespace
}  // namespace tabulo::internal::test
