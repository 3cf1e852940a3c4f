#include "adapters/nats/receiver_lag.h"

namespace tabulo::shipping {

void ReceiverLag::begin(std::uint64_t pending) {
    const std::scoped_lock lock(mutex_);
    report_.messages = static_cast<std::int64_t>(pending);
}

void ReceiverLag::took(std::size_t size, std::uint64_t pending) {
    const std::scoped_lock lock(mutex_);
    records_ += 1;
    bytes_ += static_cast<std::int64_t>(size);
    report_.messages = static_cast<std::int64_t>(pending);
    if (pending == 0) {
        upToDate_ = Clock::now();
    }
}

std::string ReceiverLag::text() {
    const std::scoped_lock lock(mutex_);
    // Those that are to come are taken to be like those that came.
    report_.bytes = records_ == 0 ? 0 : report_.messages * (bytes_ / records_);
    report_.seconds = report_.messages == 0 ? 0 : std::chrono::duration<double>(Clock::now() - upToDate_).count();
    return lagText(report_);
}

}  // namespace tabulo::shipping
