#include "benchmarks/quiet_turn.h"

#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <fstream>

#include "benchmarks/fail.h"
#include "benchmarks/measure.h"

namespace tabulo::internal::bench {

namespace {

constexpr int MOST_TRIES = 3;
constexpr double MOST_FOREIGN = 5;  // percent

// Seconds since some time ago.
struct ProcessorTime {
    double all = 0;       // of all processors, idle or not
    double programs = 0;  // in user mode, or taken by the host
    double own = 0;       // of this process and its children that have ended, in user mode
};

double seconds(const struct timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
}

ProcessorTime processorTime() {
    enum Column { USER, NICE, SYSTEM, IDLE, WAITING, INTERRUPTS, SOFT_INTERRUPTS, STOLEN, COLUMNS };
    std::ifstream file("/proc/stat");
    std::string name;
    std::array<double, COLUMNS> ticks{};
    file >> name;
    for (double& column : ticks) {
        file >> column;
    }
    if (!file || name != "cpu") {
        fail("/proc/stat does not tell the processors' times");
    }
    const auto perSecond = static_cast<double>(::sysconf(_SC_CLK_TCK));
    ProcessorTime time;
    for (const double column : ticks) {
        time.all += column / perSecond;
    }
    time.programs = (ticks[USER] + ticks[NICE] + ticks[STOLEN]) / perSecond;
    for (const auto who : {RUSAGE_SELF, RUSAGE_CHILDREN}) {
        struct rusage usage {};
        ::getrusage(who, &usage);
        time.own += seconds(usage.ru_utime);
    }
    return time;
}

double foreignShare(const ProcessorTime& before, const ProcessorTime& after) {
    const double all = after.all - before.all;
    const double foreign = after.programs - before.programs - (after.own - before.own);
    return all <= 0 ? 0 : 100 * std::max(0.0, foreign) / all;
}

}  // namespace

void quietTurn_run(const char* group, const std::string& subject, const std::function<void()>& turn) {
    for (int tries = 1;; ++tries) {
        const std::int64_t mark = results_mark();
        const ProcessorTime before = processorTime();
        turn();
        const double share = foreignShare(before, processorTime());
        if (share <= MOST_FOREIGN || tries == MOST_TRIES) {
            result_add("foreign", std::string(group) + " " + subject, "share", "%", share);
            return;
        }
        results_takeBack(mark);
        std::printf("others took %.1f %% of the machine: once more\n", share);
    }
}

}  // namespace tabulo::internal::bench
