#include "fuzz/harness.h"

#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "core/log.h"

namespace tabulo::internal::fuzz {

namespace {

void channel_release(LogChannel*) {
}

// Formats the line, so that a wrong argument is seen, and drops it.
TABULO_PRINTF(2, 0) void channel_write(LogChannel*, const char* format, std::va_list arguments) {
    std::array<char, 4096> line;
    std::vsnprintf(line.data(), line.size(), format, arguments);
}

void facility_release(LogFacility*) {
}

LogChannel channel{channel_release, channel_write};
LogFacility facility{facility_release, &channel, &channel, &channel, &channel};

// The library opens its log file at the first line and keeps it: hundreds of lines for each of millions of runs.
void sendLogFileNowhere() {
    const std::string name = "tabulo-" + std::to_string(::getpid()) + ".log";
    const bool linked = ::symlink("/dev/null", name.c_str()) == 0;
    log_debug("sendLogFileNowhere", "nothing is kept\n");
    if (linked) {
        ::unlink(name.c_str());
    }
}

}  // namespace

void require(bool condition, const char* sentence) {
    if (!condition) {
        std::fprintf(stderr, "broken: %s\n", sentence);
        std::abort();
    }
}

void requireSuccess(ErrorCode code, const char* what) {
    if (code != NO_ERROR) {
        std::fprintf(stderr, "broken: %s gives %d, %s\n", what, code, getErrorMessage(code));
        std::abort();
    }
}

}  // namespace tabulo::internal::fuzz

extern "C" int LLVMFuzzerInitialize(int*, char***);
extern "C" int LLVMFuzzerInitialize(int*, char***) {
    tabulo::internal::fuzz::sendLogFileNowhere();
    tabulo::internal::log_setFacility(&tabulo::internal::fuzz::facility);
    return 0;
}
