#include "tests/crash/signal_points.h"

#include <signal.h>
#include <unistd.h>

#include <cstddef>
#include <random>

#include "storage/file_platform.h"

namespace tabulo::internal::test {

namespace {

constexpr std::int64_t PAGE = 4096;

FilePlatform platform;
std::mt19937_64 numbers;
int callsLeft = 0;  // until the kill; 0 when none is planned
int stopsEvery = 0;

void signalMyself(int signal) {
    ::kill(::getpid(), signal);
    // A signal to oneself is there before the call returns; this is for the one that ends the process.
    while (signal == SIGKILL) {
        ::pause();
    }
}

// True when the call at hand is the last one.
bool isLast() {
    return callsLeft > 0 && --callsLeft == 0;
}

template <typename Call>
SystemError around(Call call) {
    if (isLast()) {
        if (numbers() % 2 == 0) {
            (void)call();  // nobody is left to hear of it
        }
        signalMyself(SIGKILL);
    }
    const bool stops = stopsEvery > 0 && numbers() % static_cast<unsigned>(stopsEvery) == 0;
    const bool before = numbers() % 2 == 0;
    if (stops && before) {
        signalMyself(SIGSTOP);
    }
    const SystemError result = call();
    if (stops && !before) {
        signalMyself(SIGSTOP);
    }
    return result;
}

SystemError open(const char* path, FileAccess access, int* descriptor) {
    return around([&] { return filePlatform_system().open(path, access, descriptor); });
}

SystemError lock(int descriptor) {
    return around([&] { return filePlatform_system().lock(descriptor); });
}

SystemError unlock(int descriptor) {
    return around([&] { return filePlatform_system().unlock(descriptor); });
}

SystemError writeAt(int descriptor, const void* buffer, std::size_t length, std::int64_t offset,
                    std::size_t* transferred) {
    const std::int64_t firstPageEnd = (offset / PAGE + 1) * PAGE;
    const std::int64_t end = offset + static_cast<std::int64_t>(length);
    if (callsLeft == 1 && firstPageEnd < end && numbers() % 4 != 0) {
        const std::int64_t pageEnds = (end - 1 - firstPageEnd) / PAGE + 1;
        const auto chosen = static_cast<std::int64_t>(numbers() % static_cast<std::uint64_t>(pageEnds));
        const std::int64_t part = firstPageEnd + chosen * PAGE - offset;
        (void)filePlatform_system().writeAt(descriptor, buffer, static_cast<std::size_t>(part), offset, transferred);
        signalMyself(SIGKILL);
    }
    return around([&] { return filePlatform_system().writeAt(descriptor, buffer, length, offset, transferred); });
}

SystemError truncate(int descriptor, std::int64_t length) {
    return around([&] { return filePlatform_system().truncate(descriptor, length); });
}

SystemError close(int descriptor) {
    return around([&] { return filePlatform_system().close(descriptor); });
}

SystemError rename(const char* from, const char* to) {
    return around([&] { return filePlatform_system().rename(from, to); });
}

void install(std::uint64_t random) {
    numbers.seed(random);
    platform = filePlatform_system();
    platform.open = open;
    platform.lock = lock;
    platform.unlock = unlock;
    platform.writeAt = writeAt;
    platform.truncate = truncate;
    platform.close = close;
    platform.rename = rename;
    filePlatform_install(&platform);
}

}  // namespace

void killAtCall(int call, std::uint64_t random) {
    install(random);
    callsLeft = call;
}

void stopAtCalls(int every, std::uint64_t random) {
    install(random);
    stopsEvery = every;
}

}  // namespace tabulo::internal::test
