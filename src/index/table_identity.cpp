#include "index/table_identity.h"

#include <algorithm>
#include <cstring>
#include <span>
#include <vector>

#include "index/index_page.h"
#include "messagetable/block_summary.h"
#include "messagetable/frame.h"
#include "messagetable/table_header.h"

namespace tabulo::internal {

namespace {

constexpr std::uint64_t TABLE_SEED = 0x7AB1'E5;
constexpr std::uint64_t FOOTER_SEED = 0xF007'E5;

// The bytes there, at most `length`; none when the system refuses.
std::vector<std::uint8_t> readBytes(TableFile* file, std::int64_t offset, std::int64_t length) {
    std::vector<std::uint8_t> bytes(static_cast<std::size_t>(length));
    std::int64_t count = 0;
    if (tableFileReadAt(file, offset, bytes.data(), length, &count) != NO_ERROR) {
        count = 0;
    }
    bytes.resize(static_cast<std::size_t>(count));
    return bytes;
}

}  // namespace

std::optional<std::uint64_t> tableIdentity_read(TableFile* file, std::int64_t headerEnd) {
    const std::int64_t frame = headerEnd + BLOCK_LENGTH_SIZE;
    const std::vector<std::uint8_t> bytes = readBytes(file, 0, frame + IDENTITY_FRAME_BYTES);
    const auto available = static_cast<std::int64_t>(bytes.size()) - frame;
    if (available < FRAME_FIXED_SIZE) {
        return std::nullopt;
    }
    std::uint32_t length = 0;
    std::memcpy(&length, bytes.data() + frame, sizeof(length));
    const std::span<const std::uint8_t> all(bytes);
    const std::uint64_t header =
        indexChecksum(all.first(static_cast<std::size_t>(headerEnd - HEADER_TAIL_SIZE)), TABLE_SEED);
    const auto used = static_cast<std::size_t>(std::min<std::int64_t>(length, available));
    return indexChecksum(all.subspan(static_cast<std::size_t>(frame), used), header);
}

std::optional<std::uint64_t> footerChecksum_read(TableFile* file, std::int64_t end, std::int32_t footerSize) {
    if (end < footerSize) {
        return std::nullopt;
    }
    const std::vector<std::uint8_t> bytes = readBytes(file, end - footerSize, footerSize);
    if (bytes.size() != static_cast<std::size_t>(footerSize)) {
        return std::nullopt;
    }
    return indexChecksum(bytes, FOOTER_SEED);
}

}  // namespace tabulo::internal
