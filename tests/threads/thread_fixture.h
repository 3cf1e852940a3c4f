// Threads that use the library side by side, each with tables of its own objects, as a host does: the log file is open,
// the log facility and the sync policy are set before they start. Built with ThreadSanitizer these tests find what the
// threads share and should not; nothing here orders their accesses to the library.
#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include "core/log.h"
#include "tests/messagetable/message_table_fixture.h"
#include "tests/support/temporary_directory.h"

namespace tabulo::internal::test {

// Thrown by a thread's body, with a sentence; nothing is compared by the framework's macros there.
class ThreadFailure : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

void require(bool condition, const std::string& sentence);
void requireCode(ErrorCode actual, ErrorCode expected, const std::string& operation);

// An open table; throws where that is refused.
MessageTablePtr openOwn(const std::string& root, OpenMode mode, const TableShape& shape);

class ThreadsTest : public ::testing::Test {
  protected:
    ThreadsTest();
    ~ThreadsTest() override;

    // Runs the bodies at the same time, each in a thread of its own, and fails for each that throws.
    static void runTogether(const std::vector<std::function<void()>>& bodies);

    TemporaryDirectory directory;
    // Lines that the facility got. It has no lock of its own, which would hide races of the library.
    std::atomic<std::int64_t> notes{0};
    std::atomic<std::int64_t> warnings{0};

  private:
    struct Channel : LogChannel {
        std::atomic<std::int64_t>* lines = nullptr;
    };

    static void write(LogChannel* channel, const char* format, std::va_list arguments)
        __attribute__((format(printf, 2, 0)));

    Channel info_;
    Channel warning_;
    LogFacility facility_{};
};

}  // namespace tabulo::internal::test
