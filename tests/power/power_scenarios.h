// Many scenarios of power losses from one seed, each of which can be repeated alone.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

#include "core/error_codes.h"
#include "tests/power/file_loss.h"

namespace tabulo::internal::test {

// The process-wide sync policy, as tableFileSetSyncPolicy takes it.
struct Policy {
    bool on = false;
    std::int32_t intervalSeconds = 0;
    std::int32_t count = 0;
};
bool commitsEveryFlush(const Policy& policy);
std::string describe(const Policy& policy);
const char* nameOf(Tearing tearing);
// The text of a code, also of NO_ERROR.
std::string textOf(ErrorCode code);
// Sets one of the policies and tells which.
std::string setRandomPolicy(const std::vector<Policy>& policies, Random& random);

// What is counted over all scenarios, by name.
using Tally = std::map<std::string, std::int64_t>;

// A broken promise of the library, in a sentence.
struct BrokenPromise : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// One scenario; it keeps what it has done so far in the text.
using PowerScenario = std::function<void(Random& random, Tally& tally, std::string* trace)>;

// Runs scenarios 0 to count - 1, or the one that the environment's TABULO_TEST_SCENARIO names; fails the test for each
// BrokenPromise, up to three, and reports the tally as figures. The sync policy is off afterwards.
void runPowerScenarios(std::int64_t count, const PowerScenario& scenario);

}  // namespace tabulo::internal::test
