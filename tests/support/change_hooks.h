// A platform of changes of the tests: it passes every call on to the operating system, keeps its name, and makes chosen
// calls fail or answer something else.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "storage/change_platform.h"

namespace tabulo::internal::test {

// Installs itself for its life; one at a time. One thread waits; others may wake it.
class ChangeHooks {
  public:
    ChangeHooks();
    ~ChangeHooks();
    ChangeHooks(const ChangeHooks&) = delete;
    ChangeHooks& operator=(const ChangeHooks&) = delete;

    // In place of the system's wait. Times are in milliseconds and stand still but for what a wait adds to them.
    struct Waited {
        std::int64_t after = 0;  // at most what is waited for
        bool isChanged = false;
        bool isWoken = false;
    };
    // `forChanges` is false while only a wake may end the wait.
    void replaceWaits(std::function<Waited(std::int64_t milliseconds, bool forChanges)> wait);

    // What happens before each of the system's waits, with what is waited for.
    std::function<void(std::int64_t milliseconds)> beforeWait;

    // What happens before each watch of a file.
    std::function<void()> beforeWatch;

    // Says of a watch whether its reports are lost.
    std::function<bool(int watch)> isLost;

    // Every call of this name fails, from its n-th on, with this error number; with `once` only that one.
    void fail(const std::string& call, int error, int n = 1, bool once = false) { failures_[call] = {n, error, once}; }

    // The names of the calls, but for `now` and `wake`, in their order. A wait that has ended early is "wait: changed"
    // or "wait: woken".
    std::vector<std::string> calls;
    int count(const std::string& call) const;

  private:
    struct Calls;
    struct Failure {
        int n = 0;
        int error = 0;
        bool once = false;
    };

    // The error that this call is to fail with, or 0.
    int begin(const std::string& call);

    ChangePlatform record_{};
    std::map<std::string, Failure> failures_;
    std::map<std::string, int> counts_;
    std::function<Waited(std::int64_t, bool)> wait_;
    std::int64_t now_ = 0;  // nanoseconds
};

// The names of the calls that a record has, for tests that try them all.
inline const std::vector<std::string> CHANGE_CALLS = {"openQueue", "watch", "unwatch", "take", "openWaker",
                                                      "wake",      "calm",  "wait",    "close"};

}  // namespace tabulo::internal::test
