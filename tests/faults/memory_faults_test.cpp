// Memory faults by count: every public operation with its n-th allocation failing, for every n.
#include <gtest/gtest.h>

#include "core/log.h"
#include "tests/faults/memory_case.h"
#include "tests/support/test_run.h"

namespace tabulo::internal::test {
namespace {

std::vector<MemoryCase> allCases() {
    std::vector<MemoryCase> all;
    for (auto cases :
         {streamAndFileCases, sessionCases, tableCases, readingCases, queryCases, apiReadingCases, apiWritingCases}) {
        const std::vector<MemoryCase> some = cases();
        all.insert(all.end(), some.begin(), some.end());
    }
    return all;
}

std::string nameOf(const ::testing::TestParamInfo<MemoryCase>& info) {
    return info.param.name;
}

class MemoryFaults : public ::testing::TestWithParam<MemoryCase> {
  protected:
    void SetUp() override { log_setFacility(nullptr); }
};

TEST_P(MemoryFaults, OfEveryAllocationAreSurvived) {
    reportFigure("memory", "allocation points", runWithoutMemory(GetParam()));
}

INSTANTIATE_TEST_SUITE_P(Operations, MemoryFaults, ::testing::ValuesIn(allCases()), nameOf);

}  // namespace
}  // namespace tabulo::internal::test
