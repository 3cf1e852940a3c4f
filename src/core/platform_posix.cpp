#include <sys/resource.h>
#include <unistd.h>

#include <csignal>

#include "core/platform.h"

namespace tabulo::internal {

unsigned long platform_processId() noexcept {
    return static_cast<unsigned long>(::getpid());
}

void platform_raiseOpenFileLimit(std::uint64_t count) noexcept {
    rlimit limit{};
    if (::getrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur == RLIM_INFINITY || limit.rlim_cur >= count) {
        return;
    }
    rlimit raised = limit;
    raised.rlim_cur = count;
    if (raised.rlim_max != RLIM_INFINITY && raised.rlim_max < count) {
        raised.rlim_max = count;
        if (::setrlimit(RLIMIT_NOFILE, &raised) == 0) {
            return;
        }
        // Only a privileged process may raise the hard limit: take what there is.
        raised.rlim_cur = limit.rlim_max;
        raised.rlim_max = limit.rlim_max;
    }
    (void)::setrlimit(RLIMIT_NOFILE, &raised);  // what cannot be had is done without
}

void platform_ignoreFileSizeSignal() noexcept {
    struct sigaction action {};
    if (::sigaction(SIGXFSZ, nullptr, &action) != 0 || (action.sa_flags & SA_SIGINFO) != 0 ||
        action.sa_handler != SIG_DFL) {
        return;
    }
    action.sa_handler = SIG_IGN;
    (void)::sigaction(SIGXFSZ, &action, nullptr);  // it fails for no signal that exists
}

}  // namespace tabulo::internal
