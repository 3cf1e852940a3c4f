// What the library says beside its results.
//
// A program that uses this API gets no log file, and nothing on standard error, unless it asks here. The warnings of a
// call that fails are in its Error in any case.
#pragma once

#include <filesystem>
#include <functional>
#include <optional>
#include <string_view>

namespace tabulo {

enum class LogLevel { note, warning };

// Takes one line without its line end. It is called on the thread that says it, and by one thread at a time; what it
// throws is dropped.
using LogHandler = std::function<void(LogLevel level, std::string_view line)>;

// Installs a handler for the notes and warnings of the whole process, or none.
void setLogHandler(LogHandler handler);

// Appends a trace of the library's operations to a file, which is made when it is missing, or to none: some lines for
// each table that is opened, closed or read, none for a stored message. For the whole process. fileOpen when the system
// refuses the file; the trace then goes where it went before.
void setDebugLog(const std::optional<std::filesystem::path>& file);

}  // namespace tabulo
