#include "sessioninfo/type_record.h"

#include <string_view>

#include "storage/type_name.h"

namespace tabulo::internal {

namespace {

constexpr std::string_view TYPE_NAME = "SessionInfoTable";

}  // namespace

ErrorCode siX_writeTypeRecord(std::int32_t fieldCount, const std::int32_t* tags, KSVByteStream* stream) noexcept {
    typeName_write(TYPE_NAME, stream);
    byteStream_put(stream, fieldCount);
    for (std::int32_t i = 0; i < fieldCount; ++i) {
        byteStream_put(stream, tags[i]);
    }
    return byteStream_error(stream);
}

ErrorCode siX_readTypeRecord(SessionInfoTags* stored, KSVByteStream* stream) noexcept {
    const ErrorCode code = typeName_read(stream, TYPE_NAME);
    if (code != NO_ERROR) {
        return code;
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
