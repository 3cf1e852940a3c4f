#include "tests/damage/damage_guard.h"

#include <sys/resource.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <csignal>
#include <cstddef>
#include <cstring>
#include <fstream>

// What a sanitizer's runtime offers; null without one.
extern "C" {
__attribute__((weak)) int __sanitizer_install_malloc_and_free_hooks(void (*allocated)(const volatile void*,
                                                                                      std::size_t),
                                                                    void (*freed)(const volatile void*));
__attribute__((weak)) void __sanitizer_set_death_callback(void (*callback)());
}

namespace tabulo::internal::test {

namespace {

constexpr int SECONDS = 10;
constexpr int SECONDS_UNDER_SANITIZER = 40;
constexpr std::uint64_t MEMORY = 64 * 1024 * 1024;
constexpr std::size_t LARGEST_ALLOCATION = 16 * 1024 * 1024;
constexpr std::array<int, 5> CRASHES{SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT};

// Read by signal handlers.
std::array<char, 512> damageName{};
std::atomic<std::size_t> largestAllocation = 0;

void say(const char* text) {
    // What cannot be written cannot be helped.
    static_cast<void>(!::write(STDERR_FILENO, text, std::strlen(text)));
}

void sayDamage() {
    if (damageName[0] != '\0') {
        say("while looking at ");
        say(damageName.data());
        say("\n");
    }
}

void onTimeLimit(int) {
    say("the time limit is reached ");
    sayDamage();
    ::_exit(1);
}

void onCrash(int signal) {
    say("a crash ");
    sayDamage();
    std::signal(signal, SIG_DFL);
    std::raise(signal);
}

void onAllocation(const volatile void*, std::size_t size) {
    if (size > largestAllocation.load(std::memory_order_relaxed)) {
        largestAllocation.store(size, std::memory_order_relaxed);
    }
}

void onFree(const volatile void*) {
}

void setTimeLimit(int seconds) {
    itimerval limit{};
    limit.it_value.tv_sec = seconds;
    ::setitimer(ITIMER_PROF, &limit, nullptr);
}

std::uint64_t addressSpaceInUse() {
    std::uint64_t pages = 0;
    std::ifstream("/proc/self/statm") >> pages;
    return pages * static_cast<std::uint64_t>(::sysconf(_SC_PAGESIZE));
}

// Sets the limit of the address space and returns the one before.
std::uint64_t setAddressSpace(std::uint64_t bytes) {
    rlimit limit{};
    ::getrlimit(RLIMIT_AS, &limit);
    const std::uint64_t previous = limit.rlim_cur;
    limit.rlim_cur = std::min<rlim_t>(bytes, limit.rlim_max);
    ::setrlimit(RLIMIT_AS, &limit);
    return previous;
}

void installSanitizerHooks() {
    static bool installed = false;
    if (!installed) {
        installed = true;
        __sanitizer_install_malloc_and_free_hooks(onAllocation, onFree);
        __sanitizer_set_death_callback(sayDamage);
    }
}

}  // namespace

bool underSanitizer() {
    return __sanitizer_install_malloc_and_free_hooks != nullptr && __sanitizer_set_death_callback != nullptr;
}

DamageGuard::DamageGuard() {
    damageName[0] = '\0';
    largestAllocation = 0;
    if (underSanitizer()) {
        // An address space with shadow memory in it cannot be limited: the sanitizer tells the sizes instead.
        installSanitizerHooks();
    } else {
        previousLimit_ = setAddressSpace(addressSpaceInUse() + MEMORY);
        for (const int signal : CRASHES) {
            std::signal(signal, onCrash);
        }
    }
    std::signal(SIGPROF, onTimeLimit);
}

DamageGuard::~DamageGuard() {
    setTimeLimit(0);
    std::signal(SIGPROF, SIG_DFL);
    if (!underSanitizer()) {
        for (const int signal : CRASHES) {
            std::signal(signal, SIG_DFL);
        }
        setAddressSpace(previousLimit_);
    }
    damageName[0] = '\0';
}

void DamageGuard::begin(const std::string& damage) {
    const std::size_t length = std::min(damage.size(), damageName.size() - 1);
    std::memcpy(damageName.data(), damage.data(), length);
    damageName[length] = '\0';
    largestAllocation = 0;
    setTimeLimit(underSanitizer() ? SECONDS_UNDER_SANITIZER : SECONDS);
}

std::string DamageGuard::memory() const {
    const std::size_t largest = largestAllocation;
    return largest <= LARGEST_ALLOCATION ? "" : "the library asked for " + std::to_string(largest) + " bytes at once";
}

}  // namespace tabulo::internal::test
