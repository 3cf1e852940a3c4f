// Lines that come in pieces.
#include "core/warning_gatherer.h"

#include <gtest/gtest.h>

#include <cwchar>
#include <string>
#include <vector>

#include "core/log.h"
#include "tests/support/allocation_failure.h"

namespace tabulo::internal::test {
namespace {

class GatheredWarnings : public ::testing::Test {
  protected:
    void SetUp() override { log_setFacility(nullptr); }

    std::vector<std::string> lines;
    const WarningGatherer gatherer{
        [](void* owner, std::string_view line) { static_cast<GatheredWarnings*>(owner)->lines.emplace_back(line); },
        this};
};

TEST_F(GatheredWarnings, AreWholeLinesWhateverPiecesTheyComeIn) {
    log_warningWrite("one ");
    log_warningWrite("line\nand ");
    EXPECT_EQ(lines, std::vector<std::string>{"one line"});
    log_warningWrite("%s %d\n", "number", 2);
    EXPECT_EQ(lines, (std::vector<std::string>{"one line", "and number 2"}));
}

TEST_F(GatheredWarnings, LoseNothingButAPieceThatCannotBeWritten) {
    log_warningWrite("begun, ");
    log_warningWrite("%lc", static_cast<std::wint_t>(0xDC80));  // no character of any encoding
    log_warningWrite("ended\n");
    EXPECT_EQ(lines, std::vector<std::string>{"begun, ended"});
}

TEST_F(GatheredWarnings, LoseWhatStandsInFrontOfAPieceThatThereIsNoMemoryFor) {
    const std::string longPiece(1000, 'x');
    log_warningWrite("begun, ");
    {
        const AllocationFailure failure(1);
        log_warningWrite("%s\n", longPiece.c_str());
    }
    log_warningWrite("another line\n");
    EXPECT_EQ(lines, std::vector<std::string>{"another line"});
}

}  // namespace
}  // namespace tabulo::internal::test
