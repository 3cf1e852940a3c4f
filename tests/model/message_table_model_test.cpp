// Random operations on message tables: after each of them the library answers what a plain list of the messages
// answers.
#include <gtest/gtest.h>

#include <deque>
#include <filesystem>
#include <string>

#include "tests/model/model_run.h"
#include "tests/support/debug_log.h"
#include "tests/support/log_capture.h"
#include "tests/support/test_run.h"

namespace tabulo::internal::test {
namespace {

constexpr int TABLES = 32;
constexpr int OPERATIONS_PER_TABLE = 200;
constexpr std::size_t REMEMBERED_OPERATIONS = 12;

TEST(MessageTableModel, EveryOperationLeavesTheTableAsAPlainListOfItsMessagesSays) {
    LogCapture log;
    const DebugLog debugLog;
    Random random(testSeed());
    const std::int64_t count = std::int64_t{TABLES} * testEffort();
    std::int64_t number = 0;
    for (std::int64_t k = 0; k < count; ++k) {
        const TemporaryDirectory directory;
        ModelRun run(&random, directory.root());
        std::deque<std::string> last;
        for (int i = 0; i < OPERATIONS_PER_TABLE; ++i) {
            number += 1;
            const std::size_t operation = run.choose();
            last.push_back(std::to_string(run.model().size()) + " messages: " + ModelRun::name(operation));
            if (last.size() > REMEMBERED_OPERATIONS) {
                last.pop_front();
            }
            SCOPED_TRACE("operation " + std::to_string(number) + " (" + std::to_string(i) + " of table " +
                         std::to_string(k) + "); the last ones were " + ::testing::PrintToString(last));
            run.perform(operation);
            ASSERT_FALSE(HasFailure()) << "the run ends with operation " << number;
        }
        log.clear();
    }
    reportFigure("model", "operations", number);
    std::filesystem::remove(debugLog.path());
}

}  // namespace
}  // namespace tabulo::internal::test
