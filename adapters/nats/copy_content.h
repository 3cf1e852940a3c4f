// What of a stream a copy holds, found by its bytes.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

#include "adapters/nats/log_stream.h"

namespace tabulo::shipping {

// The layout record of the content that the file of a table has, which its first message tells; the newest one when it
// has none, or a content that the stream has not got. None when the stream has no layout. Throws ForeignRecord.
std::optional<Stored> layoutOfCopy(LogStream& stream, const std::string& table, const std::filesystem::path& file);
// Whether a rewind, which has this sequence, was followed before: the file holds the first message behind it.
bool isRewindApplied(LogStream& stream, const Record& rewind, std::uint64_t sequence,
                     const std::filesystem::path& file);
// Whether a copy, which has ended at this offset, is shorter now, or gone, or cannot be read. 0: it is not known where.
bool endsBefore(const std::filesystem::path& file, std::int64_t end);

}  // namespace tabulo::shipping
