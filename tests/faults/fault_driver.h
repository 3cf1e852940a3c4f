// Repeats a scenario under every fault of the platform seam that it can meet.
#pragma once

#include <cstdint>

#include "tests/faults/fault_scenario.h"

namespace tabulo::internal::test {

// For every kind of call and every n until the scenario ends without its n-th such call: the call fails once, or from
// then on, with each of ENOSPC, EIO and EMFILE, is interrupted, or transfers only a part; and from every n-th of all
// calls on, everything fails. Each such run is compared with an undisturbed one; what is wrong fails the test with the
// fault's name. The result is the number of faults that were met.
std::int64_t runUnderEveryFault(const FaultScenario& scenario);

}  // namespace tabulo::internal::test
