// How the command ends, and what ends it early.
#pragma once

#include <stdexcept>

namespace tabulo::tool {

// The exit statuses, which scripts rely on. An interrupt ends with 130; a reader that has gone, with done.
enum class Status {
    done = 0,
    failed = 1,
    wrongUse = 2,
    incomplete = 3,  // done, but something is damaged, missing or was left out, which standard error names
};
inline constexpr int interruptedStatus = 130;

// Wrong use: told with the verb's line of help. Ends with Status::wrongUse.
struct UsageError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// What cannot be done, and why. Ends with Status::failed; so does a tabulo::Error.
struct Failure : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// Standard output is read by nobody any more. Ends with Status::done, in silence.
struct ClosedPipe {};

// The user has asked to end (Ctrl-C). Thrown by Console::checkInterrupt.
struct Interrupted {};

}  // namespace tabulo::tool
