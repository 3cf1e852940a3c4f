// Clocks, memory, processes and results: what the benchmark programs share.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "benchmarks/store.h"

namespace tabulo::internal::bench {

// Nanoseconds of the monotonic clock.
std::int64_t now();

// Options of a benchmark program: --results FILE, --directory DIRECTORY, --messages N, --turns N, --stores a,b
struct Options {
    std::string results;
    std::string directory = "/tmp/tabulo-benchmarks";
    std::int32_t messages = 0;  // 0: the program's own
    std::int32_t turns = 0;
    std::vector<const Store*> stores;  // all when none was named
};
// Reads the options and goes to a directory of the program's own inside the one given, which results_finish removes.
Options options_read(int argc, char** argv, const char* program);
void options_finish(const Options& options);

// Where results go from then on.
void results_open(const std::string& path);
// Prints one figure and adds it to the results, a JSON object a line:
// {"group": "append", "subject": "raw", "metric": "rate", "unit": "messages/s", "value": 1}
void result_add(const char* group, const std::string& subject, const std::string& metric, const char* unit,
                double value);
// Where the results end now, and taking back what was added since.
std::int64_t results_mark();
void results_takeBack(std::int64_t mark);
// The same as result_add without printing.
void result_write(const char* group, const std::string& subject, const std::string& metric, const char* unit,
                  double value);

// Runs something in a process of its own, so that its memory and its caches are its own. Ends the program when that
// process fails, or, with `killed`, when it does anything but kill itself with SIGKILL.
void child_run(const std::function<void()>& work, bool killed = false);

// Bytes of memory that the process has to itself: neither mapped files nor what it shares. The most that the process
// has had of its memory (files included) since memory_resetPeak.
std::int64_t memory_own();
std::int64_t memory_peak();
std::int64_t memory_resident();
void memory_resetPeak();

// Bytes that the files of a directory take, holes not counted.
std::int64_t directory_bytes(const std::string& directory);
// An empty directory.
void directory_make(const std::string& directory);

// The value that a part of the values does not exceed; the values are reordered.
double percentile(std::vector<std::uint32_t>* values, double part);
double median(std::vector<double> values);

}  // namespace tabulo::internal::bench
