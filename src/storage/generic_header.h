// The generic header: the first 19 bytes of every table file, in the writing machine's byte order.
//
//   offset  width  field
//        0     10  signature     "KestrovaDb", no terminator
//       10      1  byteOrder     1 little-endian, 2 big-endian; the other order is refused
//       11      2  versionMajor  5
//       13      2  versionMinor  800; 800 to 899 are accepted
//       15      4  headerSize    whole header, generic and table-specific parts; 36 to 8096; the records start there
#pragma once

#include <array>
#include <cstdint>

#include "core/byte_stream.h"
#include "core/error_codes.h"

namespace tabulo::internal {

inline constexpr std::int32_t GENERIC_HEADER_SIZE = 19;
inline constexpr std::int32_t MIN_HEADER_SIZE = 36;
inline constexpr std::int32_t MAX_HEADER_SIZE = 8096;

struct TableGenericHeader {
    std::array<char, 10> signature{};
    std::uint8_t byteOrder = 0;
    std::uint16_t versionMajor = 0;
    std::uint16_t versionMinor = 0;
    std::int32_t headerSize = 0;
};

// Fills in the signature, this machine's byte order, version 5.800 and the size.
void tsgh_init(TableGenericHeader* header, std::int32_t headerSize) noexcept;
// Appends the 19 bytes; the result is the stream's error.
ErrorCode tsgh_write(const TableGenericHeader* header, KSVByteStream* stream) noexcept;
// Takes the 19 bytes from the stream. STREAM_NOT_ENOUGH_DATA_ERROR when fewer are unread, nothing consumed.
ErrorCode tsgh_read(TableGenericHeader* header, KSVByteStream* stream) noexcept;
// The header size that a file stores, from the stream that holds its beginning; 0 when the 19 bytes are not there.
std::int32_t tsgh_storedHeaderSize(const KSVByteStream* stream) noexcept;
// SIGNATURE_ERROR, BYTE_ORDER_ERROR, VERSION_ERROR (with a WARNING) or HEADER_CORRUPTED_ERROR, in this order.
ErrorCode tsgh_verify(const TableGenericHeader* header) noexcept;

}  // namespace tabulo::internal
