#include "tool/console.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>

namespace tabulo::tool {

namespace {

constexpr std::size_t LARGEST_GATHERED = std::size_t{64} * 1024;
constexpr std::chrono::seconds QUIET_TIME(1);
constexpr std::chrono::milliseconds REDRAW_TIME(200);

std::atomic<int> interrupted = 0;  // the signal
static_assert(std::atomic<int>::is_always_lock_free, "a signal handler sets it");

void onInterrupt(int signal) {
    if (interrupted != 0) {
        _exit(interruptedStatus);  // asked twice: whatever it is waiting for
    }
    interrupted = signal;
}

// Writes all of it. The system's error number, or 0.
int writeAll(int descriptor, std::string_view text) {
    while (!text.empty()) {
        const ssize_t count = ::write(descriptor, text.data(), text.size());
        if (count < 0 && errno != EINTR) {
            return errno;
        }
        text.remove_prefix(count < 0 ? 0 : static_cast<std::size_t>(count));
    }
    return 0;
}

// A pipe of the usual 64 KiB makes writer and reader wait for each other at every turn. Where it cannot be made larger
// (it is none, or the system's limit is reached), it stays as it is.
void widenPipe(int descriptor) {
#ifdef F_SETPIPE_SZ
    constexpr int ROOM = 1024 * 1024;
    (void)::fcntl(descriptor, F_SETPIPE_SZ, ROOM);
#else
    (void)descriptor;
#endif
}

std::string bytesText(double bytes) {
    constexpr const char* UNITS[] = {"B", "KiB", "MiB", "GiB", "TiB"};
    std::size_t unit = 0;
    while (bytes >= 1024 && unit + 1 < std::size(UNITS)) {
        bytes /= 1024;
        ++unit;
    }
    return fmt::format("{:.{}f} {}", bytes, unit == 0 ? 0 : 1, UNITS[unit]);
}

}  // namespace

Console::Console()
    : outIsTerminal_(::isatty(STDOUT_FILENO) != 0),
      errIsTerminal_(::isatty(STDERR_FILENO) != 0),
      progressBegun_(std::chrono::steady_clock::now()) {
    widenPipe(STDOUT_FILENO);
    struct sigaction action {};
    action.sa_handler = onInterrupt;
    ::sigaction(SIGINT, &action, nullptr);
    ::sigaction(SIGTERM, &action, nullptr);
    action.sa_handler = SIG_IGN;
    ::sigaction(SIGPIPE, &action, nullptr);
    ::sigaction(SIGXFSZ, &action, nullptr);  // a limit on the size of files is told by the call that meets it
}

Console::Console(std::function<void(std::string_view)> hear, std::function<void()> check)
    : hear_(std::move(hear)), check_(std::move(check)), progressBegun_(std::chrono::steady_clock::now()) {
}

Console::~Console() {
    clearProgress();
    (void)writeAll(STDOUT_FILENO, gathered_);  // the command's end has flushed; this is after a failure
}

bool Console::hasColour() const noexcept {
    const char* refused = std::getenv("NO_COLOR");
    const bool isRefused = refused != nullptr && *refused != '\0';
    return colour_ == ColourChoice::always || (colour_ == ColourChoice::automatic && outIsTerminal_ && !isRefused);
}

int Console::width() const noexcept {
    if (!outIsTerminal_) {
        return 0;
    }
    struct winsize size {};
    return ::ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 ? size.ws_col : 0;
}

void Console::write(std::string_view text) {
    gathered_ += text;
    if (gathered_.size() >= LARGEST_GATHERED) {
        flush();
    }
}

void Console::flush() {
    if (gathered_.empty()) {
        return;
    }
    if (outIsTerminal_) {
        clearProgress();
    }
    const int error = writeAll(STDOUT_FILENO, gathered_);
    gathered_.clear();
    if (error == EPIPE) {
        throw ClosedPipe();
    }
    if (error != 0) {
        throw Failure(fmt::format("standard output cannot be written: {}", std::strerror(error)));
    }
}

void Console::checkReader() {
    struct pollfd out {
        STDOUT_FILENO, 0, 0
    };
    if (::poll(&out, 1, 0) > 0 && (out.revents & (POLLERR | POLLNVAL)) != 0) {
        throw ClosedPipe();
    }
}

void Console::say(std::string_view line) {
    if (hear_) {
        hear_(line);
        return;
    }
    clearProgress();
    (void)writeAll(STDERR_FILENO, fmt::format("tabulo: {}\n", line));  // there is nobody else to tell
}

void Console::warn(std::string_view line) {
    status_ = Status::incomplete;
    say(line);
}

void Console::checkInterrupt() {
    if (interrupted != 0) {
        throw Interrupted();
    }
}

bool Console::isInterrupted() noexcept {
    return interrupted != 0;
}

bool Console::takeInterrupt() {
    if (interrupted == SIGTERM) {
        throw Interrupted();
    }
    const bool isTaken = interrupted != 0;
    interrupted = 0;
    return isTaken;
}

Work Console::watched(std::string what) {
    progressBegun_ = std::chrono::steady_clock::now();
    progressDrawn_ = progressBegun_;
    Work work;
    work.progress = [this, what = std::move(what)](const Progress& progress) {
        checkInterrupt();
        if (check_) {
            check_();
        }
        if (errIsTerminal_) {
            showProgress(what, progress);
        }
    };
    return work;
}

void Console::showProgress(const std::string& what, const Progress& progress) {
    const auto now = std::chrono::steady_clock::now();
    if (now - progressBegun_ < QUIET_TIME || now - progressDrawn_ < REDRAW_TIME) {
        return;
    }
    progressDrawn_ = now;
    const double seconds = std::chrono::duration<double>(now - progressBegun_).count();
    const double rate = static_cast<double>(progress.done) / seconds;
    const double left = rate > 0 ? static_cast<double>(progress.total - progress.done) / rate : 0;
    progressShown_ = true;
    (void)writeAll(STDERR_FILENO, fmt::format("\r{}: {} of {}, {}/s, {:.0f} s left\x1b[K", what,
                                              bytesText(static_cast<double>(progress.done)),
                                              bytesText(static_cast<double>(progress.total)), bytesText(rate), left));
}

void Console::clearProgress() {
    if (progressShown_) {
        progressShown_ = false;
        (void)writeAll(STDERR_FILENO, "\r\x1b[K");
    }
}

}  // namespace tabulo::tool
