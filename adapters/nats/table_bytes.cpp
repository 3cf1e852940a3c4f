#include "adapters/nats/table_bytes.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <utility>

namespace tabulo::shipping {

TableBytes::TableBytes(const std::filesystem::path& path) noexcept
    : descriptor_(::open(path.c_str(), O_RDONLY | O_CLOEXEC)) {
}

TableBytes::TableBytes(TableBytes&& other) noexcept : descriptor_(std::exchange(other.descriptor_, -1)) {
}

TableBytes& TableBytes::operator=(TableBytes&& other) noexcept {
    std::swap(descriptor_, other.descriptor_);
    return *this;
}

TableBytes::~TableBytes() {
    if (isOpen()) {
        ::close(descriptor_);
    }
}

bool TableBytes::holds(std::int64_t offset, std::span<const std::byte> bytes) const noexcept {
    std::array<std::byte, 16384> buffer;
    while (!bytes.empty()) {
        const ssize_t count =
            ::pread(descriptor_, buffer.data(), std::min(buffer.size(), bytes.size()), static_cast<off_t>(offset));
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count <= 0 || std::memcmp(buffer.data(), bytes.data(), static_cast<std::size_t>(count)) != 0) {
            return false;
        }
        bytes = bytes.subspan(static_cast<std::size_t>(count));
        offset += count;
    }
    return isOpen();
}

}  // namespace tabulo::shipping
