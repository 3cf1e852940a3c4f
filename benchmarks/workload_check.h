// Checks that the comparison compares what it says.
#pragma once

namespace tabulo::internal::bench {

// Ends the process unless wire messages carry the BodyLength and CheckSum that they should, and the raw limit writes
// exactly the bytes of a table's frame.
void workload_check();

}  // namespace tabulo::internal::bench
