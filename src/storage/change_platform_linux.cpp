#include <poll.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>

#include "storage/change_platform.h"
#include "storage/file_platform_posix.h"
#include "storage/network_platform.h"

namespace tabulo::internal {

namespace {

constexpr std::int64_t SECOND = 1000000000;
constexpr std::int64_t LONGEST_WAIT = 86400 * SECOND;  // what is left of a longer one is waited for anew
constexpr std::size_t MOST_REPORTS = 1024;             // that are read at once

SystemError linux_openQueue(int* queue) {
    const int opened = ::inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    if (opened < 0) {
        return errno;
    }
    *queue = opened;
    return 0;
}

SystemError linux_watch(int queue, int descriptor, int* watch) {
    if (networkPlatform_isShared(descriptor)) {
        return EOPNOTSUPP;
    }
    // The file's own path may lead to another file by now; this one cannot, where it is what it seems to be.
    std::array<char, 64> name;
    (void)std::snprintf(name.data(), name.size(), "/proc/self/fd/%d", descriptor);  // it fits
    bool isSame = false;
    const SystemError error = posix_isAt(descriptor, name.data(), &isSame);
    if (error.failed() || !isSame) {
        return error.failed() ? error : ENOENT;
    }
    const int added = ::inotify_add_watch(queue, name.data(), IN_MODIFY);
    if (added < 0) {
        return errno;
    }
    *watch = added;
    return 0;
}

SystemError linux_unwatch(int queue, int watch) {
    return ::inotify_rm_watch(queue, watch) == 0 ? 0 : errno;
}

SystemError linux_take(int queue, std::span<int> watches, std::size_t* count) {
    *count = 0;
    alignas(inotify_event) std::array<char, MOST_REPORTS * sizeof(inotify_event)> bytes;
    const std::size_t room = std::min(bytes.size(), watches.size() * sizeof(inotify_event));
    const ssize_t length = ::read(queue, bytes.data(), room);
    if (length < 0) {
        return errno == EAGAIN ? 0 : errno;
    }
    const auto end = static_cast<std::size_t>(length);
    for (std::size_t at = 0; at + sizeof(inotify_event) <= end;) {
        inotify_event event{};
        std::memcpy(&event, bytes.data() + at, sizeof event);
        watches[(*count)++] = (event.mask & IN_Q_OVERFLOW) != 0 ? UNKNOWN_WATCH : event.wd;
        at += sizeof event + event.len;  // a file's report has no name behind it
    }
    return 0;
}

SystemError linux_openWaker(int* waker) {
    const int opened = ::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
    if (opened < 0) {
        return errno;
    }
    *waker = opened;
    return 0;
}

SystemError linux_wake(int waker) {
    return ::eventfd_write(waker, 1) == 0 || errno == EAGAIN ? 0 : errno;
}

SystemError linux_calm(int waker) {
    eventfd_t count = 0;
    return ::eventfd_read(waker, &count) == 0 || errno == EAGAIN ? 0 : errno;
}

SystemError linux_wait(int queue, int waker, std::int64_t nanoseconds, bool* isChanged, bool* isWoken) {
    std::array<pollfd, 2> looks{pollfd{waker, POLLIN, 0}, pollfd{queue, POLLIN, 0}};
    const std::int64_t length = nanoseconds < LONGEST_WAIT ? nanoseconds : LONGEST_WAIT;
    const timespec time{static_cast<std::time_t>(length / SECOND), static_cast<long>(length % SECOND)};
    if (::ppoll(looks.data(), looks.size(), &time, nullptr) < 0) {
        return errno;
    }
    for (const pollfd& look : looks) {
        if ((look.revents & ~POLLIN) != 0) {
            return EBADF;  // somebody else has closed it
        }
    }
    *isWoken = looks[0].revents != 0;
    *isChanged = looks[1].revents != 0;
    return 0;
}

std::int64_t linux_now() {
    timespec time{};
    (void)::clock_gettime(CLOCK_MONOTONIC, &time);  // there is always one
    return time.tv_sec * SECOND + time.tv_nsec;
}

constexpr ChangePlatform systemPlatform{linux_openQueue, linux_watch, linux_unwatch, linux_take,  linux_openWaker,
                                        linux_wake,      linux_calm,  linux_wait,    posix_close, linux_now};

}  // namespace

const ChangePlatform& changePlatform_system() noexcept {
    return systemPlatform;
}

}  // namespace tabulo::internal
