#include "core/log.h"

#include <array>
#include <cstdio>

#include "core/platform.h"
#include "core/warning_gatherer.h"

namespace tabulo::internal {

namespace {

void builtInChannel_release(LogChannel*) {
}

TABULO_PRINTF(2, 0) void builtInChannel_write(LogChannel*, const char* format, std::va_list arguments) {
    std::vfprintf(stderr, format, arguments);
    std::fflush(stderr);
}

void silentChannel_write(LogChannel*, const char*, std::va_list) {
}

void builtInFacility_release(LogFacility*) {
}

LogChannel builtInChannel{builtInChannel_release, builtInChannel_write};
LogChannel silentChannel{builtInChannel_release, silentChannel_write};
LogFacility builtInFacility{builtInFacility_release, &builtInChannel, &builtInChannel, &builtInChannel,
                            &builtInChannel};

LogFacility* installedFacility = &builtInFacility;

// The name stays filled once the open was tried, so that it is tried only once per process.
std::array<char, 64> logFileName{};
std::FILE* logStream = nullptr;
bool debugStreamSet = false;  // logStream, which may be null, has come from outside

std::FILE* logFile_stream() {
    if (!debugStreamSet && logFileName[0] == '\0') {
        std::snprintf(logFileName.data(), logFileName.size(), "tabulo-%lu.log", platform_processId());
        std::fprintf(stderr, "Tabulo/C DEBUG: initing log file %s...\n", logFileName.data());
        std::fflush(stderr);
        logStream = platform_openLog(logFileName.data());
        if (logStream == nullptr) {
            logStream = stderr;
        }
    }
    return logStream;
}

TABULO_PRINTF(1, 0) void logFile_vwrite(const char* format, std::va_list arguments) {
    std::FILE* stream = logFile_stream();
    if (stream == nullptr) {
        return;
    }
    std::vfprintf(stream, format, arguments);
    std::fflush(stream);
}

enum class Level { note, warning };

// The channel is looked up for every single write: a channel's write may replace the facility it belongs to.
TABULO_PRINTF(2, 0) void facility_vwrite(Level level, const char* format, std::va_list arguments) {
    WarningGatherer* gatherer = level == Level::warning ? WarningGatherer::current() : nullptr;
    if (gatherer != nullptr) {
        std::va_list again;
        va_copy(again, arguments);
        gatherer->add(format, again);
        va_end(again);
    }
    LogFacility* facility = installedFacility;
    if (facility == nullptr) {
        return;
    }
    LogChannel* channel = level == Level::note ? facility->info : facility->warning;
    if (channel != nullptr) {
        channel->write(channel, format, arguments);
    }
}

TABULO_PRINTF(2, 3) void facility_write(Level level, const char* format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    facility_vwrite(level, format, arguments);
    va_end(arguments);
}

}  // namespace

void log_write(const char* format, ...) noexcept {
    std::va_list arguments;
    va_start(arguments, format);
    logFile_vwrite(format, arguments);
    va_end(arguments);
}

void log_debug(const char* function, const char* format, ...) noexcept {
    log_write("Tabulo/C DEBUG: %s(): ", function);
    std::va_list arguments;
    va_start(arguments, format);
    logFile_vwrite(format, arguments);
    va_end(arguments);
}

void log_note(const char* function, const char* format, ...) noexcept {
    facility_write(Level::note, "Tabulo/C NOTE: %s(): ", function);
    std::va_list arguments;
    va_start(arguments, format);
    facility_vwrite(Level::note, format, arguments);
    va_end(arguments);
}

void log_warning(const char* function, const char* format, ...) noexcept {
    facility_write(Level::warning, "Tabulo/C WARNING: %s(): ", function);
    std::va_list arguments;
    va_start(arguments, format);
    facility_vwrite(Level::warning, format, arguments);
    va_end(arguments);
}

void log_noteWrite(const char* format, ...) noexcept {
    std::va_list arguments;
    va_start(arguments, format);
    facility_vwrite(Level::note, format, arguments);
    va_end(arguments);
}

void log_warningWrite(const char* format, ...) noexcept {
    std::va_list arguments;
    va_start(arguments, format);
    facility_vwrite(Level::warning, format, arguments);
    va_end(arguments);
}

void log_setFacility(LogFacility* facility) noexcept {
    LogFacility* previous = installedFacility;
    installedFacility = nullptr;
    if (previous != nullptr) {
        previous->release(previous);
    }
    installedFacility = facility;
}

void log_silenceBuiltInNotes() noexcept {
    builtInFacility.info = &silentChannel;
}

void log_setDebugStream(std::FILE* stream) noexcept {
    std::FILE* previous = logStream;
    logStream = stream;
    debugStreamSet = true;
    if (previous != nullptr && previous != stderr && previous != stream) {
        (void)std::fclose(previous);  // every line was flushed
    }
}

void log_perror(const char* what) noexcept {
    if (!debugStreamSet) {
        std::perror(what);
    }
}

}  // namespace tabulo::internal
