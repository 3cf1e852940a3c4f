// The time from the return of a write to the delivery of the message by a watcher in another process, for steady rates,
// for bursts, for messages behind a long silence and for many tables, and how much of it the watcher spent in pauses;
// and what a watch costs that has nothing to do.
//
//   watcher_delay_benchmark [<part of a scenario's name> [<file for results>]]
//
// Works in a directory of its own, which is removed: the watcher's DEBUG lines take 250 bytes for each message.
#include <sys/mman.h>
#include <sys/resource.h>
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
#include <vector>

#include "benchmarks/fail.h"
#include "benchmarks/measure.h"
#include "benchmarks/stores/tabulo_store.h"
#include "core/log.h"
#include "core/platform.h"
#include "storage/change_platform.h"
#include "watcher/message_watcher.h"

namespace {

using namespace tabulo::internal;

constexpr std::size_t MOST_TABLES = 1000;  // of a scenario
constexpr std::size_t WIRE_LENGTH = 200;
constexpr std::size_t MOST_MESSAGES = 400000;
constexpr std::size_t MOST_PAUSES = 400000;
constexpr std::int64_t SECOND = 1000000000;
constexpr std::int64_t SHORTEST_SLEEP = 200000;  // shorter waits are spent looking at the clock
constexpr std::int32_t PASSES_IN_AN_HOUR = 600;  // without messages; the pauses are 12 s then
constexpr std::size_t IDLE_TABLES = 32;
constexpr int IDLE_SECONDS = 10;

struct Scenario {
    const char* name;
    int bursts;
    int messagesInBurst;
    std::int64_t interval;  // from the start of a burst to that of the next
    std::size_t tables = 2;
    bool afterAnHour = false;  // each message comes to a watcher that pauses as after an hour without any
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
    {"after an hour of silence", 60, 1, SECOND / 10, 2, true},
    {"1,000 tables, 10/s", 60, 1, SECOND / 10, 1000},
    {"1,000 tables, 100/s", 500, 1, SECOND / 100, 1000},
    {"1,000 tables, 1,000/s", 4000, 1, SECOND / 1000, 1000},
};

constexpr const char* IDLE = "idle, 32 tables";

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

ChangePlatform recording;

SystemError recordWait(int queue, int waker, std::int64_t nanoseconds, bool* isChanged, bool* isWoken) {
    const std::int64_t start = now();
    const SystemError error = changePlatform_system().wait(queue, waker, nanoseconds, isChanged, isWoken);
    if (times->pauseCount < MOST_PAUSES) {
        times->pauses[times->pauseCount++] = {start, now()};
    }
    return error;
}

struct Watching {
    std::int32_t last = 0;  // the message that ends it
    bool afterAnHour = false;
    MessageWatcher* watcher = nullptr;
};

ErrorCode recordDelivery(void* owner, const MessageView& message, std::int32_t, std::int32_t* stop) {
    const std::int32_t id = message.metadata.uniformId;
    times->delivered[static_cast<std::size_t>(id)].store(now());
    *stop = id == static_cast<const Watching*>(owner)->last ? 1 : 0;
    return NO_ERROR;
}

ErrorCode passIdly(void* owner, std::int32_t*) {
    const auto* watching = static_cast<const Watching*>(owner);
    if (watching->afterAnHour && watching->watcher->idlePasses < PASSES_IN_AN_HOUR) {
        watching->watcher->idlePasses = PASSES_IN_AN_HOUR;
    }
    return NO_ERROR;
}

// The watching process.
int watch(std::size_t count, Watching watching) {
    std::vector<bench::TablePtr> tables;
    std::vector<MessageTable*> handles;
    for (std::size_t i = 0; i < count; ++i) {
        tables.push_back(openTable(i, OpenMode::read));
        handles.push_back(tables.back().get());
    }
    recording = changePlatform_system();
    recording.wait = recordWait;
    changePlatform_install(&recording);
    watching.watcher = messageWatcher_create(handles.data(), static_cast<std::int32_t>(count));
    const std::vector<std::int32_t> from(count, 1);
    const WatchListener listener{&watching, recordDelivery, passIdly};
    const ErrorCode code =
        messageWatcher_startWatching(watching.watcher, static_cast<std::int32_t>(count), from.data(), listener);
    messageWatcher_destroy(watching.watcher);
    return code;
}

class Writer {
  public:
    explicit Writer(std::size_t count) {
        for (std::size_t i = 0; i < count; ++i) {
            tables_.push_back(openTable(i, OpenMode::create));
        }
    }
    void write(std::int32_t id) {
        const std::array<StringField, 4> strings{
            {{nullptr, 0}, {nullptr, 0}, {wire_.data(), static_cast<std::int32_t>(wire_.size())}, {nullptr, 0}}};
        MessageMetadata metadata;
        metadata.uniformId = id;
        MessageTable* table = tables_[static_cast<std::size_t>(id) * STEP % tables_.size()].get();
        if (mt_writeMessage(table, {metadata, strings, {}}) != NO_ERROR) {
            bench::fail("a message cannot be written");
        }
        times->returned[static_cast<std::size_t>(id)] = now();
    }

  private:
    static constexpr std::size_t STEP = 389;  // from table to table

    std::vector<bench::TablePtr> tables_;
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
    std::vector<std::int64_t> firsts;  // of those that begin a burst
    std::int64_t total = 0;
    std::int64_t paused = 0;
    for (std::int32_t id = 2; id <= last; ++id) {
        const std::int64_t returned = times->returned[static_cast<std::size_t>(id)];
        const std::int64_t delivered = times->delivered[static_cast<std::size_t>(id)].load();
        // A watcher can be faster than the writer's own look at the clock.
        delays.push_back(std::max<std::int64_t>(0, delivered - returned));
        if ((id - 2) % scenario.messagesInBurst == 0) {
            firsts.push_back(delays.back());
        }
        total += delays.back();
        paused += pausedDuring(returned, delivered);
    }
    std::sort(delays.begin(), delays.end());
    std::sort(firsts.begin(), firsts.end());
    const auto of = [](const std::vector<std::int64_t>& sorted, double part) {
        return static_cast<double>(sorted[static_cast<std::size_t>(part * static_cast<double>(sorted.size() - 1))]) /
               1e6;
    };
    const auto milliseconds = [&](double part) { return of(delays, part); };
    std::printf("%-26s %10.0f %12.3f %12.3f %12.3f %12.3f %9.1f %%\n", scenario.name, (last - 1) / seconds,
                of(firsts, 0.5), milliseconds(0.5), milliseconds(0.99), milliseconds(1),
                total == 0 ? 0 : 100 * static_cast<double>(paused) / static_cast<double>(total));
    std::fflush(stdout);
    const auto add = [&](const char* metric, const char* unit, double value) {
        bench::result_write("delay", scenario.name, metric, unit, value);
    };
    add("rate", "messages/s", (last - 1) / seconds);
    add("first", "ms", of(firsts, 0.5));
    add("median", "ms", milliseconds(0.5));
    add("99 %", "ms", milliseconds(0.99));
    add("longest", "ms", milliseconds(1));
    add("in pauses", "%", total == 0 ? 0 : 100 * static_cast<double>(paused) / static_cast<double>(total));
}

// Starts a watching process, which has delivered the first message when this returns.
pid_t startWatch(Writer* writer, const Scenario& scenario, std::int32_t last) {
    times->pauseCount = 0;
    for (auto& delivered : times->delivered) {
        delivered.store(0);
    }
    writer->write(1);
    const pid_t watching = ::fork();
    if (watching == 0) {
        ::_exit(watch(scenario.tables, {last, scenario.afterAnHour, nullptr}));
    }
    while (times->delivered[1].load() == 0) {
        ::usleep(1000);
    }
    return watching;
}

// Waits for its end; the seconds of a processor that it took.
double endWatch(pid_t watching) {
    int status = 0;
    rusage usage{};
    if (::wait4(watching, &status, 0, &usage) != watching || status != 0) {
        bench::fail("the watching process failed");
    }
    const auto seconds = [](const timeval& time) {
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
    };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

void run(const Scenario& scenario) {
    const std::int32_t last = 1 + scenario.bursts * scenario.messagesInBurst;
    Writer writer(scenario.tables);
    const pid_t watching = startWatch(&writer, scenario, last);
    std::int32_t id = 1;
    const std::int64_t start = now();
    for (int burst = 0; burst < scenario.bursts; ++burst) {
        waitUntil(start + burst * scenario.interval);
        for (int i = 0; i < scenario.messagesInBurst; ++i) {
            writer.write(++id);
        }
    }
    const double seconds = static_cast<double>(std::max(now() - start, scenario.bursts * scenario.interval)) / 1e9;
    (void)endWatch(watching);
    report(scenario, last, seconds);
}

// The share of a core that a watch takes in which nothing comes: what a longer one takes more than a short one.
void measureIdle() {
    std::array<double, 2> seconds{};
    for (const std::size_t turn : {0U, 1U}) {
        Writer writer(IDLE_TABLES);
        const pid_t watching = startWatch(&writer, {IDLE, 1, 1, 0, IDLE_TABLES}, 2);
        ::sleep(static_cast<unsigned>(1 + IDLE_SECONDS * turn));
        writer.write(2);
        seconds[turn] = endWatch(watching);
    }
    const double share = 100 * (seconds[1] - seconds[0]) / IDLE_SECONDS;
    std::printf("%-26s %10.4f %% of a core\n", IDLE, share);
    bench::result_write("watch", "idle", "share", "% of a core", share);
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
    platform_raiseOpenFileLimit(2 * MOST_TABLES + 100);
    std::printf("%-26s %10s %12s %12s %12s %12s %11s\n", "", "messages/s", "first ms", "median ms", "99 % ms",
                "longest ms", "in pauses");
    for (const Scenario& scenario : SCENARIOS) {
        if (argc < 2 || std::strstr(scenario.name, argv[1]) != nullptr) {
            run(scenario);
        }
    }
    if (argc < 2 || std::strstr(IDLE, argv[1]) != nullptr) {
        measureIdle();
    }
    std::filesystem::current_path("/");
    std::filesystem::remove_all(directory);
    return 0;
}
