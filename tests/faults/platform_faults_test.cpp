// Faults by count: every scenario under every fault of the platform seam that it can meet.
#include <gtest/gtest.h>

#include "core/log.h"
#include "tests/faults/fault_driver.h"
#include "tests/support/test_run.h"

namespace tabulo::internal::test {
namespace {

std::vector<FaultScenario> allScenarios() {
    std::vector<FaultScenario> all;
    for (auto scenarios : {lifecycleScenarios, recoveryScenarios, readingScenarios, watchScenarios, sessionScenarios,
                           apiReadingScenarios, apiWritingScenarios, apiFollowingScenarios, apiDamageScenarios}) {
        const std::vector<FaultScenario> some = scenarios();
        all.insert(all.end(), some.begin(), some.end());
    }
    return all;
}

std::string nameOf(const ::testing::TestParamInfo<FaultScenario>& info) {
    return info.param.name;
}

class PlatformFaults : public ::testing::TestWithParam<FaultScenario> {
  protected:
    void SetUp() override { log_setFacility(nullptr); }  // warnings by the thousand
};

TEST_P(PlatformFaults, OfEveryKindAndNumberAreSurvived) {
    const std::int64_t met = runUnderEveryFault(GetParam());
    EXPECT_GT(met, 0) << "no fault was met";
    reportFigure("faults", "fault points covered", met);
}

INSTANTIATE_TEST_SUITE_P(Scenarios, PlatformFaults, ::testing::ValuesIn(allScenarios()), nameOf);

}  // namespace
}  // namespace tabulo::internal::test
