// The diagnostic log.
//
// DEBUG lines trace the library's operations and go to a file of this process, "tabulo-<process id>.log" in the current
// directory, opened at the first DEBUG line and flushed after every write, unless log_setDebugStream says otherwise.
// NOTE and WARNING lines go to a facility: at first a built-in one that prints them to standard error, later the one
// that the host installs.
//
// A line is a prefix that names the writing operation and a message; the message's format carries its own line end.
// Traced operations log "+ name" on entry and "- name" on exit. Texts that come from outside (names, paths) are passed
// as arguments, never as formats. Nothing here reports a failure, and nothing is guarded by a lock: install the
// facility before tables are used.
#pragma once

#include <cstdarg>
#include <cstdio>

#include "core/compiler.h"

namespace tabulo::internal {

// One destination of a facility. `release` frees the channel (the facility's own release calls it where needed);
// `write` takes a printf format and its arguments.
struct LogChannel {
    void (*release)(LogChannel* channel);
    void (*write)(LogChannel* channel, const char* format, std::va_list arguments);
};

// A log facility supplied from outside. The library owns it from log_setFacility on and frees it with `release`, which
// frees the facility and everything in it. The library writes to `info` (NOTE) and `warning` (WARNING) only.
struct LogFacility {
    void (*release)(LogFacility* facility);
    LogChannel* debug;
    LogChannel* info;
    LogChannel* warning;
    LogChannel* error;
};

// DEBUG line to the log file: "Tabulo/C DEBUG: <function>(): " and the message.
void log_debug(const char* function, const char* format, ...) noexcept TABULO_PRINTF(2, 3);
// NOTE line to the facility's info channel: "Tabulo/C NOTE: <function>(): " and the message.
void log_note(const char* function, const char* format, ...) noexcept TABULO_PRINTF(2, 3);
// WARNING line to the facility's warning channel: "Tabulo/C WARNING: <function>(): " and the message.
void log_warning(const char* function, const char* format, ...) noexcept TABULO_PRINTF(2, 3);

// The message alone, to the log file and to the warning channel: they continue a line piece by piece.
void log_write(const char* format, ...) noexcept TABULO_PRINTF(1, 2);
void log_warningWrite(const char* format, ...) noexcept TABULO_PRINTF(1, 2);
// The same to the info channel. No caller of ours: our NOTE lines come in one piece.
void log_noteWrite(const char* format, ...) noexcept TABULO_PRINTF(1, 2);

// Installs a facility, or none (null): NOTE and WARNING lines are then dropped. The previous facility is released once;
// it is out of reach before its release runs, so a release that logs is safe.
void log_setFacility(LogFacility* facility) noexcept;

// Makes the built-in facility drop NOTE lines and keep WARNING lines: what a Java process sees before its host has
// installed a facility. Other facilities are not affected.
void log_silenceBuiltInNotes() noexcept;

// Sends DEBUG lines to a stream, or drops them (null), in place of the process's own log file. The stream is the
// library's from here on, and is closed when another call replaces it. From the first call on the library prints
// nothing to standard error by itself; only a facility may.
void log_setDebugStream(std::FILE* stream) noexcept;

// Prints the system's text for errno behind `what` to standard error, until log_setDebugStream has been called.
void log_perror(const char* what) noexcept;

}  // namespace tabulo::internal
