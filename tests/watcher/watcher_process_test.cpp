// A watch over tables that another process writes, also when that process is killed and started again.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <memory>
#include <optional>
#include <random>
#include <system_error>

#include "messagetable/message_lookup.h"
#include "tests/support/child_process.h"
#include "tests/watcher/watched_tables.h"

namespace tabulo::internal::test {
namespace {

#if defined(__SANITIZE_ADDRESS__)
constexpr std::int32_t MESSAGES = 20000;
#else
constexpr std::int32_t MESSAGES = 200000;
#endif
constexpr std::int32_t LEAD = 1000;    // the writer waits when it is further than this before the follower
constexpr std::int32_t BEYOND = 4000;  // messages that are written behind the last one that is watched for
constexpr int KILLS = 10;
constexpr std::size_t TABLES = 3;
constexpr std::array<const char*, TABLES> NAMES{"one", "two", "three"};
constexpr WatchedShape SHAPE{100, 0, 0};
constexpr std::chrono::seconds LONGEST{60};

// The wire message of a message: its id decides length and content; now and then one is larger than a reader's buffer.
std::string wireOf(std::int32_t id) {
    const auto mixed = static_cast<std::uint32_t>(id) * 2654435761U;
    const std::size_t length = mixed % 4001 == 0 ? 40000 : 4 + (mixed >> 8) % 200;
    std::string wire(length, static_cast<char>('a' + id % 26));
    std::memcpy(wire.data(), &id, sizeof id);
    return wire;
}

// The last message that the writer may write, in memory that both processes share.
class WriteLimit {
  public:
    WriteLimit() {
        memory_ = ::mmap(nullptr, sizeof(Value), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
        if (memory_ == MAP_FAILED) {
            throw std::system_error(errno, std::generic_category(), "mmap");
        }
        new (memory_) Value(0);
    }
    ~WriteLimit() { ::munmap(memory_, sizeof(Value)); }
    WriteLimit(const WriteLimit&) = delete;
    WriteLimit& operator=(const WriteLimit&) = delete;

    void set(std::int32_t last) { static_cast<Value*>(memory_)->store(last); }
    void await(std::int32_t id) const {
        while (static_cast<Value*>(memory_)->load() < id) {
            ::usleep(50);
        }
    }

  private:
    using Value = std::atomic<std::int32_t>;
    static_assert(Value::is_always_lock_free);
    void* memory_;
};

// Writes the messages behind those that are there, in random bursts over the tables of the current directory. For a
// child: 0 when all are written.
int writeBursts(const WriteLimit& limit, std::uint64_t seed) {
    std::mt19937_64 random(seed);
    std::array<WatchedTablePtr, TABLES> tables;
    std::int32_t last = 0;
    for (std::size_t i = 0; i < TABLES; ++i) {
        std::int32_t id = 0;
        tables[i] = makeWatched("./", NAMES[i], SHAPE);
        if (mt_open(tables[i].get(), OpenMode::write) != NO_ERROR ||
            mt_getLastUniformMessageId(tables[i].get(), &id) != NO_ERROR) {
            return 1;
        }
        last = std::max(last, id);
    }
    while (last < MESSAGES + BEYOND) {
        const auto burst = static_cast<std::int32_t>(random() % 600);
        const std::int32_t end = std::min(last + burst, MESSAGES + BEYOND);
        while (last < end) {
            last += 1;
            limit.await(last);
            if (storeMessage(tables[random() % TABLES].get(), last, wireOf(last)) != NO_ERROR) {
                return 2;
            }
        }
        ::usleep(static_cast<useconds_t>(random() % 1500));
    }
    for (const WatchedTablePtr& table : tables) {
        if (mt_close(table.get()) != NO_ERROR) {
            return 3;
        }
    }
    return 0;
}

// Leaves half a frame behind a killed writer, as a kill in the middle of a write does. Nothing where the table's end is
// not that of a frame or a block.
void leaveHalfAFrame(const char* name, std::uint64_t random) {
    const WatchedTablePtr table = makeWatched("./", name, SHAPE);
    if (mt_open(table.get(), OpenMode::read) != NO_ERROR || mt_refresh(table.get()) != NO_ERROR) {
        return;
    }
    const auto size = static_cast<std::int64_t>(std::filesystem::file_size(name));
    const std::int64_t block = mt_openBlockStart(table.get());
    const BlockSummary& open = table->view.reader->summary;
    const bool atFrame = open.messageCount > 0 && open.messageCount < SHAPE.messagesPerBlock &&
                         block + 8 + static_cast<std::int64_t>(open.frameBytes) == size;
    if (!atFrame && block != size) {
        return;
    }
    constexpr std::uint32_t frameLength = 300;
    Bytes bytes(block == size ? 8 : 0, 0);
    Bytes frame(frameLength, 'h');
    const std::uint32_t wireLength = frameLength - 55;
    std::fill_n(frame.begin(), 51, std::uint8_t{0});
    std::memcpy(frame.data(), &frameLength, sizeof frameLength);
    std::memcpy(frame.data() + 43, &wireLength, sizeof wireLength);
    frame.resize(1 + random % (frameLength - 1));
    bytes.insert(bytes.end(), frame.begin(), frame.end());
    appendFile(name, bytes);
}

// What follows the writer; runs in a process of its own and says what is wrong on standard error.
struct Follower {
    WriteLimit limit;
    int kills = 0;  // still to be done
    std::mt19937_64 random;
    std::optional<ChildProcess> writer;
    std::int32_t last = 0;
    std::int32_t nextKill = 0;
    bool stopped = false;
    std::chrono::steady_clock::time_point deadline = std::chrono::steady_clock::now() + LONGEST;
    std::string problem;

    void startWriter() {
        const std::uint64_t seed = random();
        writer.emplace([this, seed] { return writeBursts(limit, seed); });
    }
    void planKill() {
        const std::int32_t part = (MESSAGES - last) / (kills + 1);
        nextKill = last + static_cast<std::int32_t>(random() % static_cast<std::uint64_t>(part)) + part / 2 + 1;
    }
    void fail(std::int32_t* stop, const std::string& text) {
        problem = problem.empty() ? text : problem;
        *stop = 1;
        stopped = true;
    }
    void restartWriter(std::int32_t* stop) {
        // It may write on, and is killed at a random moment meanwhile.
        limit.set(last + 2 * LEAD);
        ::usleep(static_cast<useconds_t>(random() % 4000));
        const int result = writer->kill();
        if (result != 256 + SIGKILL) {
            fail(stop, "the writer ended by itself with " + std::to_string(result));
        }
        kills -= 1;
        leaveHalfAFrame(NAMES[random() % TABLES], random());
        limit.set(last + LEAD);
        startWriter();
        planKill();
    }
    // What every call of the watch begins with. False when it must not come.
    bool goesOn(std::int32_t* stop) {
        if (stopped) {
            problem = "the listener is called behind a stop";
            return false;
        }
        if (std::chrono::steady_clock::now() > deadline) {
            fail(stop, "message " + std::to_string(last + 1) + " does not come");
        }
        return true;
    }
    ErrorCode take(std::int32_t* stop, const MessageView& message) {
        if (!goesOn(stop)) {
            return NO_ERROR;
        }
        const std::int32_t id = message.metadata.uniformId;
        if (id != last + 1) {
            fail(stop, "message " + std::to_string(id) + " comes behind " + std::to_string(last));
        } else if (stringField_bytes(message_wire(message)) != wireOf(last + 1)) {
            fail(stop, "message " + std::to_string(last + 1) + " has another content");
        }
        last = id;
        limit.set(last + LEAD);
        if (last == MESSAGES) {
            limit.set(MESSAGES + BEYOND);
            stopped = true;
            *stop = 1;
        } else if (kills > 0 && last >= nextKill) {
            restartWriter(stop);
        }
        return NO_ERROR;
    }
    WatchListener listener() {
        return {this,
                [](void* owner, const MessageView& message, std::int32_t, std::int32_t* stop) {
                    return static_cast<Follower*>(owner)->take(stop, message);
                },
                [](void* owner, std::int32_t* stop) {
                    static_cast<Follower*>(owner)->goesOn(stop);
                    return NO_ERROR;
                }};
    }
};

// The first message is there before the watch starts: before its first delivery a watch cannot tell what is missing.
bool makeTables() {
    for (std::size_t i = 0; i < TABLES; ++i) {
        const WatchedTablePtr table = makeWatched("./", NAMES[i], SHAPE);
        if (mt_open(table.get(), OpenMode::create) != NO_ERROR ||
            (i == 1 && storeMessage(table.get(), 1, wireOf(1)) != NO_ERROR) || mt_close(table.get()) != NO_ERROR) {
            return false;
        }
    }
    return true;
}

int follow(int kills) {
    Follower follower;
    const std::uint64_t seed = std::random_device{}();
    std::cerr << "seed " << seed << "\n";
    follower.random.seed(seed);
    follower.kills = kills;
    if (!makeTables()) {
        std::cerr << "PROBLEM: the tables cannot be made\n";
        return 1;
    }
    std::array<WatchedTablePtr, TABLES> tables;
    std::array<MessageTable*, TABLES> handles{};
    for (std::size_t i = 0; i < TABLES; ++i) {
        tables[i] = makeWatched("./", NAMES[i], SHAPE);
        if (mt_open(tables[i].get(), OpenMode::read) != NO_ERROR) {
            std::cerr << "PROBLEM: a table cannot be opened\n";
            return 1;
        }
        handles[i] = tables[i].get();
    }
    const WatcherPtr watcher(messageWatcher_create(handles.data(), TABLES));
    follower.limit.set(LEAD);
    follower.startWriter();
    follower.planKill();
    const std::array<std::int32_t, TABLES> from{1, 1, 1};
    const ErrorCode code = messageWatcher_startWatching(watcher.get(), TABLES, from.data(), follower.listener());
    const int written = follower.problem.empty() ? follower.writer->wait() : 0;
    if (code != NO_ERROR) {
        follower.problem = "the watch ends with " + std::string(getErrorMessage(code));
    } else if (written != 0) {
        follower.problem = "the writer ends with " + std::to_string(written);
    } else if (follower.problem.empty() && (follower.last != MESSAGES || follower.kills != 0)) {
        follower.problem = "the watch stopped behind " + std::to_string(follower.last) + " with " +
                           std::to_string(follower.kills) + " kills to come";
    }
    if (!follower.problem.empty()) {
        std::cerr << "PROBLEM: " << follower.problem << " (seed " << seed << ")\n";
        return 1;
    }
    return 0;
}

const FreshProcess steadyWriter("watcher follows a writer", [] { return follow(0); });
const FreshProcess killedWriter("watcher follows a killed writer", [] { return follow(KILLS); });

// The DEBUG log grows with every message: the process works in a directory that is removed.
void runThere(const FreshProcess& process) {
    const TemporaryDirectory directory;
    const ProgramResult result = process.run(directory.path());
    const std::size_t problem = result.errors.find("PROBLEM");
    EXPECT_EQ(result.status, 0) << (problem == std::string::npos ? result.errors : result.errors.substr(problem));
}

TEST(WatcherProcesses, EveryMessageOfAnotherProcessIsDeliveredOnceAndInOrderAndNothingBehindAStop) {
    runThere(steadyWriter);
}

TEST(WatcherProcesses, TheSameWithTheWriterKilledAndStartedAgainTenTimes) {
    runThere(killedWriter);
}

}  // namespace
}  // namespace tabulo::internal::test
