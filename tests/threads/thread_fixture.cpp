#include "tests/threads/thread_fixture.h"

#include <array>
#include <cstdio>
#include <cstring>
#include <latch>
#include <thread>

#include "storage/table_file.h"

namespace tabulo::internal::test {

namespace {

// Physical syncs, and their lines, come from all threads.
constexpr std::int32_t FLUSHES_PER_SYNC = 100;

}  // namespace

void require(bool condition, const std::string& sentence) {
    if (!condition) {
        throw ThreadFailure(sentence);
    }
}

void requireCode(ErrorCode actual, ErrorCode expected, const std::string& operation) {
    require(actual == expected, operation + " gives " + std::to_string(actual) + " (" + getErrorMessage(actual) +
                                    ") instead of " + std::to_string(expected));
}

MessageTablePtr openOwn(const std::string& root, OpenMode mode, const TableShape& shape) {
    MessageTablePtr table(mt_create(makeConfig(root, shape)));
    require(table != nullptr, "a table cannot be created");
    requireCode(mt_open(table.get(), mode), NO_ERROR,
                "opening " + shape.name + " in mode " + std::to_string(openMode_number(mode)));
    return table;
}

ThreadsTest::ThreadsTest() {
    const auto release = [](LogChannel*) {};
    info_.release = release;
    info_.write = write;
    info_.lines = &notes;
    warning_.release = release;
    warning_.write = write;
    warning_.lines = &warnings;
    facility_ = {[](LogFacility*) {}, &info_, &info_, &warning_, &warning_};
    log_setFacility(&facility_);
    log_debug("initLibrary", "initializing log file\n");
    tableFileSetSyncPolicy(true, 0, FLUSHES_PER_SYNC);
}

ThreadsTest::~ThreadsTest() {
    tableFileSetSyncPolicy(false, 0, 0);
    log_setFacility(nullptr);
}

void ThreadsTest::write(LogChannel* channel, const char* format, std::va_list arguments) {
    std::array<char, 1024> text{};
    std::vsnprintf(text.data(), text.size(), format, arguments);
    if (std::strchr(text.data(), '\n') != nullptr) {
        static_cast<Channel*>(channel)->lines->fetch_add(1, std::memory_order_relaxed);
    }
}

void ThreadsTest::runTogether(const std::vector<std::function<void()>>& bodies) {
    std::vector<std::string> failures(bodies.size());
    std::latch start(static_cast<std::ptrdiff_t>(bodies.size()));
    std::vector<std::thread> threads;
    for (std::size_t i = 0; i < bodies.size(); ++i) {
        threads.emplace_back([&start, &bodies, &failures, i] {
            start.arrive_and_wait();
            try {
                bodies[i]();
            } catch (const std::exception& failure) {
                failures[i] = failure.what();
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    for (std::size_t i = 0; i < failures.size(); ++i) {
        EXPECT_EQ(failures[i], "") << "thread " << i;
    }
}

}  // namespace tabulo::internal::test
