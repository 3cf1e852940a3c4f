// Message tables on a disk that loses its power at a random moment.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "tests/power/message_power_run.h"
#include "tests/support/test_run.h"

namespace tabulo::internal::test {

namespace {

constexpr std::int64_t SCENARIOS = 300;  // of each test

// Where the header's tail begins without configured names.
constexpr std::int64_t SHORTEST_TAIL_START = 52;
constexpr std::int64_t TAIL_SIZE = 88;
constexpr std::int64_t NAME_OVERHEAD = 5;

TableShape randomShape(Random& random) {
    TableShape shape;
    shape.messagesPerBlock = oneIn(random, 4) ? 9 : 4;
    const std::int64_t kind = pick(random, 1, 4);
    if (kind == 2) {
        shape.stringNames = {"Symbol"};
        shape.numericNames = {"Price"};
    } else if (kind >= 3) {
        // A name long enough to lay the header's tail across the border of a sector or of a page.
        const std::int64_t border = static_cast<std::int64_t>(kind == 3 ? SECTOR_SIZE : PAGE_SIZE);
        const std::int64_t inTail = oneIn(random, 2) ? 24 : pick(random, 1, TAIL_SIZE - 1);
        const std::int64_t length = border - inTail - SHORTEST_TAIL_START - NAME_OVERHEAD;
        shape.stringNames = {std::string(static_cast<std::size_t>(length), 'n')};
    }
    return shape;
}

void runScenarios(const std::vector<Policy>& policies, std::int64_t count) {
    runPowerScenarios(count, [&](Random& random, Tally& tally, std::string* trace) {
        MessagePowerRun(randomShape(random), policies, random, tally, trace).run();
    });
}

TEST(MessagePower, WithACommitForEveryFlushNoAcknowledgedMessageIsLost) {
    runScenarios({{true, 0, 0}}, SCENARIOS * testEffort());
}

TEST(MessagePower, WithACommitNowAndThenNoCommittedMessageIsLost) {
    runScenarios({{true, 0, 1}, {true, 0, 3}, {true, 0, 8}, {true, 2, 0}, {true, 3, 10}}, SCENARIOS * testEffort());
}

TEST(MessagePower, WithoutCommitsATableIsWholeShorterOrRefused) {
    runScenarios({{false, 0, 0}}, SCENARIOS * testEffort());
}

TEST(MessagePower, ProcessesOfDifferentPoliciesLoseNoCommittedMessage) {
    runScenarios({{false, 0, 0}, {true, 0, 0}, {true, 0, 4}}, SCENARIOS * testEffort());
}

}  // namespace

}  // namespace tabulo::internal::test
