// Something that happens behind a read from a file, as if another process were that fast.
#pragma once

#include <functional>
#include <utility>

#include "storage/file_platform.h"

namespace tabulo::internal::test {

// While it lives, calls a function behind every read with the number of bytes that it brought. One at a time.
class ReadHook {
  public:
    explicit ReadHook(std::function<void(std::size_t)> action) {
        then = std::move(action);
        platform = filePlatform_system();
        platform.readAt = readAt;
        filePlatform_install(&platform);
    }
    ~ReadHook() {
        filePlatform_install(nullptr);
        then = nullptr;
    }
    ReadHook(const ReadHook&) = delete;
    ReadHook& operator=(const ReadHook&) = delete;

  private:
    static SystemError readAt(int descriptor, void* buffer, std::size_t length, std::int64_t offset,
                              std::size_t* transferred) {
        const SystemError result = filePlatform_system().readAt(descriptor, buffer, length, offset, transferred);
        then(*transferred);
        return result;
    }

    static inline FilePlatform platform{};
    static inline std::function<void(std::size_t)> then;
};

}  // namespace tabulo::internal::test
