// Reads values anywhere in a file, most of them close to each other, through one buffered stretch of it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <vector>

#include "api/call.h"
#include "storage/table_file.h"

namespace tabulo::api {

class FileBytes {
  public:
    // Both must outlive it.
    FileBytes(const Call& call, internal::TableFile* file);

    // Sets *value to what stands at `offset`. False, with *value unchanged, when it would reach over the file's ends.
    // Throws fileRead.
    template <typename T>
    bool get(std::int64_t offset, T* value) {
        return copy(offset, value, sizeof(T));
    }
    // The bytes from `offset` on: at least `wanted`, where the file has them before `end`, and at most a few hundred
    // KiB. Valid until the next call of any operation. Throws fileRead.
    std::span<const std::uint8_t> from(std::int64_t offset, std::int64_t end, std::size_t wanted);

  private:
    bool copy(std::int64_t offset, void* target, std::size_t length);
    void load(std::int64_t offset);

    const Call& call_;
    internal::TableFile* file_;
    std::int64_t start_ = 0;  // of the buffered stretch
    std::size_t length_ = 0;
    std::vector<std::uint8_t> buffer_;
};

}  // namespace tabulo::api
