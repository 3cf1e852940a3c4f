#include "api/work_meter.h"

#include <algorithm>

namespace tabulo::api {

namespace {

constexpr std::int64_t MESSAGES_BETWEEN = 1000;

}  // namespace

void WorkMeter::checkStop() const {
    if (work_.stop.stop_requested()) {
        throw WorkStopped();
    }
}

void WorkMeter::tell(std::int64_t done) {
    checkStop();
    untold_ = 0;
    progress_.done = std::clamp(done, progress_.done, std::max(progress_.total, progress_.done));
    if (work_.progress) {
        work_.progress(progress_);
        checkStop();
    }
}

void WorkMeter::addMessage(std::int64_t done) {
    progress_.messages += 1;
    untold_ += 1;
    if (untold_ >= MESSAGES_BETWEEN) {
        tell(done);
    }
}

}  // namespace tabulo::api
