#include "tests/support/change_hooks.h"

#include <algorithm>

namespace tabulo::internal::test {

namespace {

ChangeHooks* installed = nullptr;

constexpr std::int64_t MILLISECOND = 1000000;

}  // namespace

struct ChangeHooks::Calls {
    template <typename Call>
    static SystemError pass(const char* name, Call call) {
        const int error = installed->begin(name);
        return error != 0 ? SystemError(error) : call(changePlatform_system());
    }
    static SystemError openQueue(int* queue) {
        return pass("openQueue", [&](const ChangePlatform& system) { return system.openQueue(queue); });
    }
    static SystemError watch(int queue, int descriptor, int* watch) {
        if (installed->beforeWatch) {
            installed->beforeWatch();
        }
        return pass("watch", [&](const ChangePlatform& system) { return system.watch(queue, descriptor, watch); });
    }
    static SystemError unwatch(int queue, int watch) {
        return pass("unwatch", [&](const ChangePlatform& system) { return system.unwatch(queue, watch); });
    }
    static SystemError take(int queue, std::span<int> watches, std::size_t* count) {
        return pass("take", [&](const ChangePlatform& system) {
            const SystemError error = system.take(queue, watches, count);
            if (installed->isLost) {
                const auto taken = watches.first(*count);
                *count = static_cast<std::size_t>(std::remove_if(taken.begin(), taken.end(), installed->isLost) -
                                                  taken.begin());
            }
            return error;
        });
    }
    static SystemError openWaker(int* waker) {
        return pass("openWaker", [&](const ChangePlatform& system) { return system.openWaker(waker); });
    }
    // Other threads come here: nothing is kept of it.
    static SystemError wake(int waker) {
        const auto found = installed->failures_.find("wake");
        return found != installed->failures_.end() ? SystemError(found->second.error)
                                                   : changePlatform_system().wake(waker);
    }
    static SystemError calm(int waker) {
        return pass("calm", [&](const ChangePlatform& system) { return system.calm(waker); });
    }
    static SystemError wait(int queue, int waker, std::int64_t nanoseconds, bool* isChanged, bool* isWoken) {
        return pass("wait", [&](const ChangePlatform& system) {
            SystemError error;
            if (installed->wait_) {
                const Waited waited = installed->wait_((nanoseconds + MILLISECOND - 1) / MILLISECOND, queue >= 0);
                installed->now_ += waited.after * MILLISECOND;
                *isChanged = waited.isChanged;
                *isWoken = waited.isWoken;
            } else {
                if (installed->beforeWait) {
                    installed->beforeWait(nanoseconds / MILLISECOND);
                }
                error = system.wait(queue, waker, nanoseconds, isChanged, isWoken);
            }
            installed->calls.back() += *isWoken ? ": woken" : *isChanged ? ": changed" : "";
            return error;
        });
    }
    // A failed close still closes.
    static SystemError close(int descriptor) {
        const SystemError closed = changePlatform_system().close(descriptor);
        const int error = installed->begin("close");
        return error != 0 ? SystemError(error) : closed;
    }
    static std::int64_t now() { return installed->wait_ ? installed->now_ : changePlatform_system().now(); }
};

ChangeHooks::ChangeHooks() {
    record_ = {Calls::openQueue, Calls::watch, Calls::unwatch, Calls::take,  Calls::openWaker,
               Calls::wake,      Calls::calm,  Calls::wait,    Calls::close, Calls::now};
    installed = this;
    changePlatform_install(&record_);
}

ChangeHooks::~ChangeHooks() {
    changePlatform_install(nullptr);
    installed = nullptr;
}

void ChangeHooks::replaceWaits(std::function<Waited(std::int64_t, bool)> wait) {
    wait_ = std::move(wait);
}

int ChangeHooks::count(const std::string& call) const {
    return static_cast<int>(std::count(calls.begin(), calls.end(), call));
}

int ChangeHooks::begin(const std::string& call) {
    calls.push_back(call);
    const int n = ++counts_[call];
    const auto found = failures_.find(call);
    if (found == failures_.end()) {
        return 0;
    }
    const Failure& failure = found->second;
    return n == failure.n || (n > failure.n && !failure.once) ? failure.error : 0;
}

}  // namespace tabulo::internal::test
