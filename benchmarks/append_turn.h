// One store's turn at appending.
#pragma once

#include <cstdint>
#include <string>

#include "benchmarks/store.h"

namespace tabulo::internal::bench {

// Appends the first `messages` orders to a new store in a process of its own, which kills itself without closing the
// store; then opens the store again, in another process, and closes it cleanly. Adds the figures to the results under
// `group`: rate, latencies, memory, the time of opening after the kill, and the bytes on disk after the close.
//
// Orders are made in batches outside the timed part. Every other batch is timed as a whole, for the rate; the batches
// between them one message at a time, for the latencies, each of which includes one look at the clock.
void appendTurn_run(const Store& store, const char* group, const std::string& directory, std::int32_t messages);

}  // namespace tabulo::internal::bench
