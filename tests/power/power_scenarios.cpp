#include "tests/power/power_scenarios.h"

#include <gtest/gtest.h>

#include <cstdlib>

#include "storage/table_file.h"
#include "tests/support/log_capture.h"
#include "tests/support/test_run.h"

namespace tabulo::internal::test {

namespace {

constexpr int MOST_FAILURES = 3;
constexpr const char* FAMILY = "power loss";
// The environment variable that picks one scenario of a run.
constexpr const char* ONE_SCENARIO = "TABULO_TEST_SCENARIO";

}  // namespace

bool commitsEveryFlush(const Policy& policy) {
    return policy.on && policy.intervalSeconds == 0 && policy.count == 0;
}

std::string describe(const Policy& policy) {
    if (!policy.on) {
        return "sync off";
    }
    return commitsEveryFlush(policy) ? "sync every flush"
                                     : "sync after " + std::to_string(policy.intervalSeconds) + " s or " +
                                           std::to_string(policy.count) + " messages";
}

const char* nameOf(Tearing tearing) {
    return tearing == Tearing::page ? "pages" : (tearing == Tearing::sector ? "sectors" : "bytes");
}

std::string textOf(ErrorCode code) {
    return code == NO_ERROR ? "no error" : getErrorMessage(code);
}

std::string setRandomPolicy(const std::vector<Policy>& policies, Random& random) {
    const auto last = static_cast<std::int64_t>(policies.size()) - 1;
    const Policy& policy = policies[static_cast<std::size_t>(pick(random, 0, last))];
    tableFileSetSyncPolicy(policy.on, policy.intervalSeconds, policy.count);
    return describe(policy);
}

void runPowerScenarios(std::int64_t count, const PowerScenario& scenario) {
    const std::uint32_t seed = testSeed();
    const char* only = std::getenv(ONE_SCENARIO);
    const std::int64_t first = only == nullptr ? 0 : std::atoll(only);
    const std::int64_t end = only == nullptr ? count : first + 1;
    LogCapture log;
    Tally tally;
    int failures = 0;
    for (std::int64_t number = first; number < end && failures < MOST_FAILURES; ++number) {
        std::seed_seq mixed{seed, static_cast<std::uint32_t>(number)};
        Random random(mixed);
        std::string trace;
        tally["scenarios"] += 1;
        try {
            scenario(random, tally, &trace);
        } catch (const BrokenPromise& broken) {
            ++failures;
            ADD_FAILURE() << broken.what() << "\nto repeat it alone: " << TEST_SEED_VARIABLE << "=" << seed << " "
                          << ONE_SCENARIO << "=" << number << "\n"
                          << trace;
        }
        tableFileSetSyncPolicy(false, 0, 0);
        log.clear();
    }
    for (const auto& [what, found] : tally) {
        reportFigure(FAMILY, what, found);
    }
    reportFigure(FAMILY, "losses of synced messages and other broken promises", failures);
}

}  // namespace tabulo::internal::test
