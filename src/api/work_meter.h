// Watches long work for its caller: tells how far it has come, and ends it when it is asked to stop.
#pragma once

#include <cstdint>

#include "tabulo/table_info.h"

namespace tabulo::api {

// Thrown when the work was asked to stop; the operation catches it and tells that it was not completed.
struct WorkStopped {};

class WorkMeter {
  public:
    // `work` must outlive it.
    explicit WorkMeter(const Work& work) : work_(work) {}

    void addTotal(std::int64_t bytes) { progress_.total += bytes; }

    // The work has come to `done`, between two blocks. Throws WorkStopped, and what the callback throws.
    void tell(std::int64_t done);
    // All of the work is done.
    void tellAll() { tell(progress_.total); }
    // Another message was looked at. Tells every 1000 messages.
    void addMessage(std::int64_t done);
    // Throws WorkStopped: for what takes long and has no progress to tell.
    void checkStop() const;

  private:
    const Work& work_;
    Progress progress_;
    std::int64_t untold_ = 0;  // messages
};

}  // namespace tabulo::api
