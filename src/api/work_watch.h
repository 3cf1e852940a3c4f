// Watches long work for who asked for it: tells how far it has come, and hears whether it is to end.
#pragma once

#include <algorithm>
#include <cstdint>
#include <exception>
#include <utility>

#include "tabulo/table_info.h"

namespace tabulo::api {

class WorkWatch {
  public:
    // Messages after which work inside a block is looked at.
    static constexpr std::int64_t messagesBetween = 1000;

    explicit WorkWatch(Work work) : work_(std::move(work)) {}
    // Work over a stretch of so many bytes.
    void begin(std::int64_t total) noexcept { progress_.total = total; }

    // Tells how many bytes and messages are done. False when the work is to end: it was asked to stop, or the callback
    // has thrown, which rethrow() passes on. Does not throw, for it is called from inside the library.
    bool goOn(std::int64_t done, std::int64_t messages) noexcept {
        progress_.done = std::max(progress_.done, std::min(done, progress_.total));
        progress_.messages = messages;
        try {
            if (work_.progress) {
                work_.progress(progress_);
            }
        } catch (...) {
            thrown_ = std::current_exception();
        }
        return thrown_ == nullptr && !work_.stop.stop_requested();
    }
    bool isStopped() const noexcept { return work_.stop.stop_requested(); }
    // Throws what the callback has thrown, once.
    void rethrow() {
        if (thrown_ != nullptr) {
            std::rethrow_exception(std::exchange(thrown_, nullptr));
        }
    }

  private:
    Work work_;
    Progress progress_;
    std::exception_ptr thrown_;
};

}  // namespace tabulo::api
