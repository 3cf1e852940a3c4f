// The time from the return of a write to the delivery of the message by a watcher in another process, for steady rates
// and for bursts, and how much of it the watcher's pauses make.
//
//   watcher_delay_benchmark [<part of a scenario's name> [<file for results>]]
//
// Works in a directory of its own, which is removed: the watcher's DEBUG lines take 250 bytes for each message.
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "benchmarks/fail.h"
#include "benchmarks/measure.h"
#include "benchmarks/stores/tabulo_store.h"
#include "core/log.h"
#include "watcher/message_watcher.h"

namespace {

using namespace tabulo::internal;

constexpr std::size_t TABLES = 2;
constexpr std::size_t WIRE_LENGTH = 200;
constexpr std::size_t MOST_MESSAGES = 400000;
constexpr std::size_t MOST_PAUSES = 10000;
constexpr std::int64_t SECOND = 1000000000;
constexpr std::int64_t SHORTEST_SLEEP = 200000;  // shorter waits are spent looking at the clock

struct Scenario {
    const char* name;
    int bursts;
    int messagesInBurst;
    std::int64_t interval;  // from the start of a burst to that of the next
};

constexpr Scenario SCENARIOS[] = {
    {"steady 10/s", 60, 1, SECOND / 10},
    {"steady 100/s", 500, 1, SECOND / 100},
    {"steady 1,000/s", 4000, 1, SECOND / 1000},
    {"steady 10,000/s", 30000, 1, SECOND / 10000},
    {"steady 100,000/s", 300000, 1, SECOND / 100000},
    {"10 messages every 50 ms", 100, 10, SECOND / 20},
    {"1,000 messages every 1 s", 6, 1000, SECOND},
    {"10,000 messages every 3 s", 3, 10000, 3 * SECOND},
};

struct Interval {
    std::int64_t start;
    std::int64_t end;
};

// What the two processes share: times in nanoseconds of one clock, by uniform id.
struct Times {
    std::array<std::int64_t, MOST_MESSAGES + 1> returned;
    std::array<std::atomic<std::int64_t>, MOST_MESSAGES + 1> delivered;
    std::array<Interval, MOST_PAUSES> pauses;
    std::size_t pauseCount;
};

std::int64_t now() {
    timespec time{};
    ::clock_gettime(CLOCK_MONOTONIC, &time);
    return time.tv_sec * SECOND + time.tv_nsec;
}

void waitUntil(std::int64_t due) {
    const std::int64_t rest = due - now();
    if (rest > SHORTEST_SLEEP) {
        const std::int64_t wake = due - SHORTEST_SLEEP;
        const timespec time{wake / SECOND, wake % SECOND};
        while (::clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &time, nullptr) == EINTR) {
        }
    }
    while (now() < due) {
    }
}

bench::TablePtr openTable(std::size_t number, OpenMode mode) {
    KSVTboTableConfig* config = tableConfig_create(("table" + std::to_string(number)).c_str(), 1);
    (void)tableConfig_setPath(config, 0, "./");
    bench::TablePtr table(mt_create(config));
    if (mt_open(table.get(), mode) != NO_ERROR) {
        bench::fail("a table cannot be opened");
    }
    return table;
}

Times* times = nullptr;

void recordPause(std::int64_t milliseconds) {
    const std::int64_t start = now();
    std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
    if (times->pauseCount < MOST_PAUSES) {
        times->pauses[times->pauseCount++] = {start, now()};
    }
}

ErrorCode recordDelivery(void* last, const MessageView& message, std::int32_t, std::int32_t* stop) {
    const std::int32_t id = message.metadata.uniformId;
    times->delivered[static_cast<std::size_t>(id)].store(now());
    *stop = id == *static_cast<const std::int32_t*>(last) ? 1 : 0;
    return NO_ERROR;
}

// The watching process.
int watch(std::int32_t last) {
    std::array<bench::TablePtr, TABLES> tables;
    std::array<MessageTable*, TABLES> handles{};
    for (std::size_t i = 0; i < TABLES; ++i) {
        tables[i] = openTable(i, OpenMode::read);
        handles[i] = tables[i].get();
    }
    MessageWatcher* watcher = messageWatcher_create(handles.data(), TABLES);
    watcher->pause = recordPause;
    const std::array<std::int32_t, TABLES> from{1, 1};
    const WatchListener listener{&last, recordDelivery, [](void*, std::int32_t*) { return NO_ERROR; }};
    const ErrorCode code = messageWatcher_startWatching(watcher, TABLES, from.data(), listener);
    messageWatcher_destroy(watcher);
    return code;
}

class Writer {
  public:
    Writer() {
        for (std::size_t i = 0; i < TABLES; ++i) {
            tables_[i] = openTable(i, OpenMode::create);
        }
    }
    void write(std::int32_t id) {
        const std::array<StringField, 4> strings{
            {{nullptr, 0}, {nullptr, 0}, {wire_.data(), static_cast<std::int32_t>(wire_.size())}, {nullptr, 0}}};
        MessageMetadata metadata;
        metadata.uniformId = id;
        MessageTable* table = tables_[static_cast<std::size_t>(id) % TABLES].get();
        if (mt_writeMessage(table, {metadata, strings, {}}) != NO_ERROR) {
            bench::fail("a message cannot be written");
        }
        times->returned[static_cast<std::size_t>(id)] = now();
    }

  private:
    std::array<bench::TablePtr, TABLES> tables_;
    std::string wire_ = std::string(WIRE_LENGTH, 'w');
};

// The part of a message's delay that the watcher spent in a pause.
std::int64_t pausedDuring(std::int64_t start, std::int64_t end) {
    const Interval* first = times->pauses.data();
    const Interval* last = first + times->pauseCount;
    const Interval* pause =
        std::lower_bound(first, last, start, [](const Interval& interval, std::int64_t t) { return interval.end < t; });
    std::int64_t paused = 0;
    for (; pause != last && pause->start < end; ++pause) {
        paused += std::max<std::int64_t>(0, std::min(pause->end, end) - std::max(pause->start, start));
    }
    return paused;
}

void report(const Scenario& scenario, std::int32_t last, double seconds) {
    std::vector<std::int64_t> delays;
    std::int64_t total = 0;
    std::int64_t paused = 0;
    for (std::int32_t id = 2; id <= last; ++id) {
        const std::int64_t returned = times->returned[static_cast<std::size_t>(id)];
        const std::int64_t delivered = times->delivered[static_cast<std::size_t>(id)].load();
        // A watcher can be faster than the writer's own look at the clock.
        delays.push_back(std::max<std::int64_t>(0, delivered - returned));
        total += delays.back();
        paused += pausedDuring(returned, delivered);
    }
    std::sort(delays.begin(), delays.end());
    const auto milliseconds = [&](double part) {
        return static_cast<double>(delays[static_cast<std::size_t>(part * static_cast<double>(delays.size() - 1))]) /
               1e6;
    };
    std::printf("%-26s %10.0f %12.3f %12.3f %12.3f %9.1f %%\n", scenario.name, (last - 1) / seconds, milliseconds(0.5),
                milliseconds(0.99), milliseconds(1),
                total == 0 ? 0 : 100 * static_cast<double>(paused) / static_cast<double>(total));
    std::fflush(stdout);
    const auto add = [&](const char* metric, const char* unit, double value) {
        bench::result_write("delay", scenario.name, metric, unit, value);
    };
    add("rate", "messages/s", (last - 1) / seconds);
    add("median", "ms", milliseconds(0.5));
    add("99 %", "ms", milliseconds(0.99));
    add("longest", "ms", milliseconds(1));
    add("in pauses", "%", total == 0 ? 0 : 100 * static_cast<double>(paused) / static_cast<double>(total));
}

void run(const Scenario& scenario) {
    const std::int32_t last = 1 + scenario.bursts * scenario.messagesInBurst;
    times->pauseCount = 0;
    for (auto& delivered : times->delivered) {
        delivered.store(0);
    }
    Writer writer;
    writer.write(1);
    const pid_t watching = ::fork();
    if (watching == 0) {
        ::_exit(watch(last));
    }
    while (times->delivered[1].load() == 0) {
        ::usleep(1000);
    }
    std::int32_t id = 1;
    const std::int64_t start = now();
    for (int burst = 0; burst < scenario.bursts; ++burst) {
        waitUntil(start + burst * scenario.interval);
        for (int i = 0; i < scenario.messagesInBurst; ++i) {
            writer.write(++id);
        }
    }
    const double seconds = static_cast<double>(std::max(now() - start, scenario.bursts * scenario.interval)) / 1e9;
    int status = 0;
    if (::waitpid(watching, &status, 0) != watching || status != 0) {
        bench::fail("the watching process failed");
    }
    report(scenario, last, seconds);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc > 2) {
        bench::results_open(std::filesystem::absolute(argv[2]));
    }
    char directory[] = "/tmp/watcher-delay-XXXXXX";
    void* memory = ::mmap(nullptr, sizeof(Times), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (::mkdtemp(directory) == nullptr || ::chdir(directory) != 0 || memory == MAP_FAILED) {
        bench::fail("no directory or no memory to work in");
    }
    times = new (memory) Times;
    log_setFacility(nullptr);
    std::printf("%-26s %10s %12s %12s %12s %11s\n", "", "messages/s", "median ms", "99 % ms", "longest ms",
                "in pauses");
    for (const Scenario& scenario : SCENARIOS) {
        if (argc < 2 || std::strstr(scenario.name, argv[1]) != nullptr) {
            run(scenario);
        }
    }
    std::filesystem::current_path("/");
    std::filesystem::remove_all(directory);
    return 0;
}
