#include "benchmarks/measure.h"

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "core/log.h"

namespace tabulo::internal::bench {

namespace {

namespace fs = std::filesystem;

std::FILE* results = nullptr;

std::int64_t statusValue(const char* name) {
    std::ifstream status("/proc/self/status");
    std::string word;
    while (status >> word) {
        if (word == name) {
            std::int64_t kilobytes = 0;
            status >> kilobytes;
            return kilobytes * 1024;
        }
    }
    fail(std::string("/proc/self/status has no ") + name);
}

std::vector<const Store*> storesNamed(const std::string& names) {
    std::vector<const Store*> found;
    std::istringstream list(names);
    for (std::string name; std::getline(list, name, ',');) {
        found.push_back(store_find(name));
        if (found.back() == nullptr) {
            fail("there is no store named " + name);
        }
    }
    return found;
}

}  // namespace

std::int64_t now() {
    timespec time{};
    ::clock_gettime(CLOCK_MONOTONIC, &time);
    return time.tv_sec * std::int64_t{1'000'000'000} + time.tv_nsec;
}

Options options_read(int argc, char** argv, const char* program) {
    Options options;
    for (int i = 1; i + 1 < argc; i += 2) {
        const std::string name = argv[i];
        const std::string value = argv[i + 1];
        if (name == "--results") {
            options.results = fs::absolute(value);
        } else if (name == "--directory") {
            options.directory = fs::absolute(value);
        } else if (name == "--messages") {
            options.messages = std::atoi(value.c_str());
        } else if (name == "--turns") {
            options.turns = std::atoi(value.c_str());
        } else if (name == "--stores") {
            options.stores = storesNamed(value);
        } else {
            fail("unknown option " + name);
        }
    }
    if (argc % 2 == 0) {
        fail(std::string("an option has no value; usage: ") + program +
             " [--results file] [--directory directory] [--messages n] [--turns n] [--stores name,name]");
    }
    if (options.stores.empty()) {
        for (const Store& store : stores()) {
            options.stores.push_back(&store);
        }
    }
    if (!options.results.empty()) {
        results_open(options.results);
    }
    options.directory += std::string("/") + program;
    directory_make(options.directory);
    fs::current_path(options.directory);  // the library's log files go there
    log_setFacility(nullptr);
    return options;
}

void results_open(const std::string& path) {
    results = std::fopen(path.c_str(), "w");
    if (results == nullptr) {
        fail("the results cannot be written to " + path);
    }
}

void options_finish(const Options& options) {
    fs::current_path("/");
    fs::remove_all(options.directory);
    if (results != nullptr && std::fclose(results) != 0) {
        fail("the results cannot be written");
    }
}

void result_add(const char* group, const std::string& subject, const std::string& metric, const char* unit,
                double value) {
    result_write(group, subject, metric, unit, value);
    std::printf("%-12s %-24s %-28s %14.3f %s\n", group, subject.c_str(), metric.c_str(), value, unit);
    std::fflush(stdout);
}

void result_write(const char* group, const std::string& subject, const std::string& metric, const char* unit,
                  double value) {
    if (results != nullptr) {
        std::fprintf(
            results,
            "{\"group\": \"%s\", \"subject\": \"%s\", \"metric\": \"%s\", \"unit\": \"%s\", \"value\": %.6g}\n", group,
            subject.c_str(), metric.c_str(), unit, value);
        std::fflush(results);
    }
}

std::int64_t results_mark() {
    return results == nullptr ? 0 : ::lseek(::fileno(results), 0, SEEK_CUR);
}

void results_takeBack(std::int64_t mark) {
    // Children write to the same file: what they have added has moved its place for this process, too.
    if (results != nullptr &&
        (::ftruncate(::fileno(results), mark) != 0 || ::lseek(::fileno(results), mark, SEEK_SET) < 0)) {
        fail("results cannot be taken back");
    }
}

void child_run(const std::function<void()>& work, bool killed) {
    const pid_t child = ::fork();
    if (child == 0) {
        work();
        std::fflush(nullptr);
        ::_exit(0);
    }
    int status = 0;
    if (child < 0 || ::waitpid(child, &status, 0) != child) {
        fail("no process can be started");
    }
    const bool asExpected = killed ? WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL : status == 0;
    if (!asExpected) {
        fail("a measuring process failed");
    }
}

std::int64_t memory_own() {
    return statusValue("RssAnon:");
}

std::int64_t memory_resident() {
    return statusValue("VmRSS:");
}

std::int64_t memory_peak() {
    return statusValue("VmHWM:");
}

void memory_resetPeak() {
    std::ofstream("/proc/self/clear_refs") << "5";
}

std::int64_t directory_bytes(const std::string& directory) {
    std::int64_t bytes = 0;
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(directory)) {
        struct stat status {};
        if (entry.is_regular_file() && ::stat(entry.path().c_str(), &status) == 0) {
            bytes += std::min<std::int64_t>(status.st_size, std::int64_t{status.st_blocks} * 512);
        }
    }
    return bytes;
}

void directory_make(const std::string& directory) {
    fs::remove_all(directory);
    fs::create_directories(directory);
}

double percentile(std::vector<std::uint32_t>* values, double part) {
    const auto place = static_cast<std::ptrdiff_t>(part * static_cast<double>(values->size() - 1));
    std::nth_element(values->begin(), values->begin() + place, values->end());
    return (*values)[static_cast<std::size_t>(place)];
}

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    const std::size_t middle = values.size() / 2;
    return values.size() % 2 == 1 ? values[middle] : (values[middle - 1] + values[middle]) / 2;
}

}  // namespace tabulo::internal::bench
