// Appending frames that are encoded already, a hundred with each call.
#pragma once

#include <cstdint>
#include <string>

namespace tabulo::internal::bench {

// Appends the first `messages` orders to a new table, in a process of its own, and adds the rate to the results, as
// that of "tabulo-frames" in the group "append". The frames are encoded outside the timed part.
void appendFrames_run(const std::string& directory, std::int32_t messages);

}  // namespace tabulo::internal::bench
