// How far each table has been printed, kept in a file between runs.
//
// A place is that of the last message that was printed or passed over, with a checksum of its frame: whether the table
// is still the one that was read shows when the message stands there no more.
#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <optional>
#include <string>

#include "tabulo/message.h"

namespace tabulo::tool {

struct TailPlace {
    Position position;
    std::uint64_t checksum = 0;

    bool operator==(const TailPlace& other) const noexcept = default;
};

// The place of a message.
TailPlace placeOf(const MessageView& message) noexcept;

// By the table's whole path; no place for a table of which nothing has been seen.
using TailPlaces = std::map<std::string, std::optional<TailPlace>>;

// None when there is no such file. Failure for one that cannot be read or is no such state.
std::optional<TailPlaces> readTailState(const std::filesystem::path& path);
// The file is there as a whole at any time. Failure for what the system refuses.
void writeTailState(const std::filesystem::path& path, const TailPlaces& places);

}  // namespace tabulo::tool
