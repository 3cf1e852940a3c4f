#include "storage/generic_header.h"

#include <bit>
#include <cstring>

#include "core/log.h"

namespace tabulo::internal {

namespace {

constexpr std::array<char, 10> SIGNATURE = {'K', 'e', 's', 't', 'r', 'o', 'v', 'a', 'D', 'b'};
constexpr std::uint8_t THIS_BYTE_ORDER = std::endian::native == std::endian::little ? 1 : 2;
constexpr std::uint16_t VERSION_MAJOR = 5;
constexpr std::uint16_t VERSION_MINOR = 800;
constexpr int MINOR_VERSIONS_PER_FORMAT = 100;

static_assert(SIGNATURE.size() + sizeof(TableGenericHeader::byteOrder) + sizeof(TableGenericHeader::versionMajor) +
                  sizeof(TableGenericHeader::versionMinor) + sizeof(TableGenericHeader::headerSize) ==
              GENERIC_HEADER_SIZE);

}  // namespace

void tsgh_init(TableGenericHeader* header, std::int32_t headerSize) noexcept {
    *header = {SIGNATURE, THIS_BYTE_ORDER, VERSION_MAJOR, VERSION_MINOR, headerSize};
}

ErrorCode tsgh_write(const TableGenericHeader* header, KSVByteStream* stream) noexcept {
    byteStream_putBytes(stream, header->signature.data(), static_cast<std::int32_t>(header->signature.size()));
    byteStream_put(stream, header->byteOrder);
    byteStream_put(stream, header->versionMajor);
    byteStream_put(stream, header->versionMinor);
    byteStream_put(stream, header->headerSize);
    return byteStream_error(stream);
}

ErrorCode tsgh_read(TableGenericHeader* header, KSVByteStream* stream) noexcept {
    if (byteStream_unread(stream) < GENERIC_HEADER_SIZE) {
        return STREAM_NOT_ENOUGH_DATA_ERROR;
    }
    byteStream_getBytes(stream, header->signature.data(), static_cast<std::int32_t>(header->signature.size()));
    byteStream_get(stream, &header->byteOrder);
    byteStream_get(stream, &header->versionMajor);
    byteStream_get(stream, &header->versionMinor);
    byteStream_get(stream, &header->headerSize);
    return NO_ERROR;
}

std::int32_t tsgh_storedHeaderSize(const KSVByteStream* stream) noexcept {
    std::int32_t headerSize = 0;
    if (byteStream_writeMark(stream) >= GENERIC_HEADER_SIZE) {
        constexpr std::size_t width = sizeof(headerSize);
        std::memcpy(&headerSize, byteStream_buffer(stream) + GENERIC_HEADER_SIZE - width, width);
    }
    return headerSize;
}

ErrorCode tsgh_verify(const TableGenericHeader* header) noexcept {
    if (header->signature != SIGNATURE) {
        return SIGNATURE_ERROR;
    }
    if (header->byteOrder != THIS_BYTE_ORDER) {
        return BYTE_ORDER_ERROR;
    }
    if (header->versionMajor != VERSION_MAJOR ||
        header->versionMinor / MINOR_VERSIONS_PER_FORMAT != VERSION_MINOR / MINOR_VERSIONS_PER_FORMAT) {
        log_warning("tsgh_verify", "Expected table version: %d.%d, actual table version: %d.%d\n", VERSION_MAJOR,
                    VERSION_MINOR, header->versionMajor, header->versionMinor);
        return VERSION_ERROR;
    }
    if (header->headerSize < MIN_HEADER_SIZE || header->headerSize > MAX_HEADER_SIZE) {
        return HEADER_CORRUPTED_ERROR;
    }
    return NO_ERROR;
}

}  // namespace tabulo::internal
