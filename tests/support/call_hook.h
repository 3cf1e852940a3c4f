// Something that happens in front of what a reader asks the system, as if another process were that fast.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <utility>

#include "storage/file_platform.h"

namespace tabulo::internal::test {

// While it lives, calls a function in front of every read and every question for a size, with the number of that call
// from 0 on. One at a time, over the platform that is installed.
class CallHook {
  public:
    explicit CallHook(std::function<void(int)> action) {
        inFront = std::move(action);
        calls = 0;
        record = filePlatform();
        record.readAt = readAt;
        record.size = size;
        under = filePlatform_install(&record);
    }
    ~CallHook() {
        filePlatform_install(under);
        inFront = nullptr;
    }
    CallHook(const CallHook&) = delete;
    CallHook& operator=(const CallHook&) = delete;

    static int count() { return calls; }

  private:
    static SystemError readAt(int descriptor, void* buffer, std::size_t length, std::int64_t offset,
                              std::size_t* transferred) {
        inFront(calls++);
        return under->readAt(descriptor, buffer, length, offset, transferred);
    }
    static SystemError size(int descriptor, std::int64_t* size) {
        inFront(calls++);
        return under->size(descriptor, size);
    }

    static inline FilePlatform record{};
    static inline const FilePlatform* under = nullptr;
    static inline std::function<void(int)> inFront;
    static inline int calls = 0;
};

}  // namespace tabulo::internal::test
