// What the core needs from the operating system: process id, opening the log file, the open-file limit.
//
// One source per platform implements these; nothing else in core/ includes a system header.
#pragma once

#include <cstdint>
#include <cstdio>

namespace tabulo::internal {

// Number of this process, as the log file's name carries it.
unsigned long platform_processId() noexcept;

// Opens a text file for appending, relative to the current directory, and creates it when it is missing. Children that
// are started with exec do not inherit it. Null when the system refuses.
std::FILE* platform_openLog(const char* path) noexcept;

// Makes sure that at least `count` files can be open at once, as far as the system allows. Never lowers a limit.
void platform_raiseOpenFileLimit(std::uint64_t count) noexcept;

// A write beyond the process's file-size limit ends the process by default. When nobody chose another disposition, this
// turns it into an ordinary write error, which the table file reports.
void platform_ignoreFileSizeSignal() noexcept;

}  // namespace tabulo::internal
