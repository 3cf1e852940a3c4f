#include "api/file_bytes.h"

#include <algorithm>

namespace tabulo::api {

namespace {

constexpr std::size_t STRETCH = std::size_t{256} * 1024;
// A value so close behind the stretch is taken as a step forward, one further away as a look aside.
constexpr std::int64_t NEAR = 4096;

}  // namespace

FileBytes::FileBytes(const Call& call, internal::TableFile* file) : call_(call), file_(file), buffer_(STRETCH) {
}

void FileBytes::load(std::int64_t offset) {
    std::int64_t count = 0;
    start_ = offset;
    length_ = 0;
    const internal::ErrorCode code = internal::tableFileReadAt(file_, offset, buffer_.data(), STRETCH, &count);
    if (code != internal::NO_ERROR) {
        call_.fail(code, offset);
    }
    length_ = static_cast<std::size_t>(count);
}

bool FileBytes::copy(std::int64_t offset, void* target, std::size_t length) {
    if (offset < 0) {
        return false;
    }
    const auto end = offset + static_cast<std::int64_t>(length);
    const auto stretchEnd = start_ + static_cast<std::int64_t>(length_);
    if (offset < start_ || end > stretchEnd) {
        const bool isNext = offset >= start_ && offset < stretchEnd + NEAR;
        if (!isNext) {
            std::uint64_t value = 0;
            std::int64_t count = 0;
            const internal::ErrorCode code =
                internal::tableFileReadAt(file_, offset, &value, static_cast<std::int64_t>(length), &count);
            if (code != internal::NO_ERROR) {
                call_.fail(code, offset);
            }
            if (count < static_cast<std::int64_t>(length)) {
                return false;
            }
            std::memcpy(target, &value, length);
            return true;
        }
        load(offset);
        if (length_ < length) {
            return false;
        }
    }
    std::memcpy(target, buffer_.data() + (offset - start_), length);
    return true;
}

std::span<const std::uint8_t> FileBytes::from(std::int64_t offset, std::int64_t end, std::size_t wanted) {
    const auto needed = std::min(static_cast<std::int64_t>(wanted), end - offset);
    if (offset < start_ || offset + needed > start_ + static_cast<std::int64_t>(length_)) {
        load(offset);
    }
    const auto skipped = static_cast<std::size_t>(offset - start_);
    const auto there = std::min(static_cast<std::int64_t>(length_ - skipped), end - offset);
    return {buffer_.data() + skipped, static_cast<std::size_t>(std::max<std::int64_t>(there, 0))};
}

}  // namespace tabulo::api
