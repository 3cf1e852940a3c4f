// Where the library's notes and warnings go in a program that uses the public API.
#pragma once

#include <string_view>

namespace tabulo::api {

class Call;

// Ends the log file and the lines on standard error, once; every call of the API begins with it.
void log_becomeQuiet() noexcept;

// The innermost call under way in this thread, which gathers its warnings; null for none.
Call* log_gatherer() noexcept;
void log_setGatherer(Call* call) noexcept;

}  // namespace tabulo::api
