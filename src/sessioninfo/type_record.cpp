#include "sessioninfo/type_record.h"

#include <array>
#include <cstring>

namespace tabulo::internal {

namespace {

constexpr char TYPE_NAME[] = "SessionInfoTable";
constexpr std::int32_t TYPE_NAME_LENGTH = sizeof(TYPE_NAME);
static_assert(TYPE_NAME_LENGTH == 17);

}  // namespace

ErrorCode siX_writeTypeRecord(std::int32_t fieldCount, const std::int32_t* tags, KSVByteStream* stream) noexcept {
    byteStream_put(stream, TYPE_NAME_LENGTH);
    byteStream_putBytes(stream, TYPE_NAME, TYPE_NAME_LENGTH);
    byteStream_put(stream, fieldCount);
    for (std::int32_t i = 0; i < fieldCount; ++i) {
        byteStream_put(stream, tags[i]);
    }
    return byteStream_error(stream);
}

ErrorCode siX_readTypeRecord(SessionInfoTags* stored, KSVByteStream* stream) noexcept {
    std::int32_t nameLength = 0;
    if (byteStream_get(stream, &nameLength).failed()) {
        return byteStream_error(stream);
    }
    if (nameLength != TYPE_NAME_LENGTH) {
        return TABLE_TYPE_ERROR;
    }
    std::array<char, TYPE_NAME_LENGTH> name{};
    if (byteStream_getBytes(stream, name.data(), TYPE_NAME_LENGTH).failed()) {
        return byteStream_error(stream);
    }
    if (std::memcmp(name.data(), TYPE_NAME, TYPE_NAME_LENGTH) != 0) {
        return TABLE_TYPE_ERROR;
    }
    SessionInfoTags read;
    read.tags.fill(0);
    if (byteStream_get(stream, &read.count).failed()) {
        return byteStream_error(stream);
    }
    if (read.count < 1 || read.count > MAX_SESSION_INFO_TAGS) {
        return HEADER_CORRUPTED_ERROR;
    }
    for (std::int32_t i = 0; i < read.count; ++i) {
        byteStream_get(stream, &read.tags[static_cast<std::size_t>(i)]);
    }
    if (byteStream_error(stream) == NO_ERROR) {
        *stored = read;
    }
    return byteStream_error(stream);
}

}  // namespace tabulo::internal
