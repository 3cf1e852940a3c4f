// What happens to a file while it is read.
#pragma once

#include <functional>
#include <utility>

#include "storage/file_platform.h"

namespace tabulo::internal::test {

// For its life an action comes before each read of a file, with the read's number from 1 on. One at a time.
class ReadAction {
  public:
    explicit ReadAction(std::function<void(int)> action) {
        action_ = std::move(action);
        reads_ = 0;
        platform_ = filePlatform_system();
        platform_.readAt = [](int descriptor, void* buffer, std::size_t length, std::int64_t offset,
                              std::size_t* transferred) {
            reads_ += 1;
            action_(reads_);
            return filePlatform_system().readAt(descriptor, buffer, length, offset, transferred);
        };
        before_ = filePlatform_install(&platform_);
    }
    ~ReadAction() { filePlatform_install(before_); }
    ReadAction(const ReadAction&) = delete;
    ReadAction& operator=(const ReadAction&) = delete;

    int reads() const { return reads_; }

  private:
    static inline std::function<void(int)> action_;
    static inline int reads_ = 0;
    FilePlatform platform_{};
    const FilePlatform* before_ = nullptr;
};

}  // namespace tabulo::internal::test
