#include "storage/type_name.h"

#include <array>
#include <cstring>

namespace tabulo::internal {

namespace {

constexpr std::size_t LONGEST_NAME = 32;

}  // namespace

void typeName_write(std::string_view name, KSVByteStream* stream) noexcept {
    byteStream_put(stream, static_cast<std::uint32_t>(name.size() + 1));
    byteStream_putBytes(stream, name.data(), static_cast<std::int32_t>(name.size()));
    byteStream_put(stream, '\0');
}

ErrorCode typeName_read(KSVByteStream* stream, std::string_view name) noexcept {
    std::uint32_t length = 0;
    if (byteStream_get(stream, &length).failed()) {
        return byteStream_error(stream);
    }
    if (length != name.size() + 1 || length > LONGEST_NAME) {
        return TABLE_TYPE_ERROR;
    }
    std::array<char, LONGEST_NAME> stored{};
    if (byteStream_getBytes(stream, stored.data(), static_cast<std::int32_t>(length)).failed()) {
        return byteStream_error(stream);
    }
    const bool same = std::memcmp(stored.data(), name.data(), name.size()) == 0 && stored[name.size()] == '\0';
    return same ? NO_ERROR : TABLE_TYPE_ERROR;
}

}  // namespace tabulo::internal
