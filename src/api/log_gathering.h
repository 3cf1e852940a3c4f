// Where the library's notes and warnings go in a program that uses the public API.
#pragma once

namespace tabulo::api {

// Ends the log file and the lines on standard error, once; every call of the API begins with it.
void log_becomeQuiet() noexcept;

}  // namespace tabulo::api
