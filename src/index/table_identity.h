// What tells a table's file from every other one, and its content from an earlier one: the header up to its tail and
// the beginning of the first frame. A table that was dropped and filled again differs in its first frame, one that was
// recovered, or dropped and filled with the same beginning, in the footer of the last block that an index covers.
#pragma once

#include <cstdint>
#include <optional>

#include "storage/table_file.h"

namespace tabulo::internal {

// No more of the first frame is looked at than this.
inline constexpr std::int64_t IDENTITY_FRAME_BYTES = 1024;

// A checksum of the file's header, which ends at `headerEnd`, up to its tail, and of the first frame's first bytes.
// None when the file ends before, or cannot be read. One call to the system. Throws std::bad_alloc.
std::optional<std::uint64_t> tableIdentity_read(TableFile* file, std::int64_t headerEnd);
// A checksum of the footer that ends at `end`, with the same conditions.
std::optional<std::uint64_t> footerChecksum_read(TableFile* file, std::int64_t end, std::int32_t footerSize);

}  // namespace tabulo::internal
