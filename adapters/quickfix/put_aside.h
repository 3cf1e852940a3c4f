// Tables that were put aside at a reset: the files "<table>.20261123-091500.250", named after when their content was
// begun, with "-1" and so on behind it where two were begun in the same millisecond.
#pragma once

#include <cstdint>
#include <filesystem>

namespace tabulo::quickfix {

// Renames a closed table, and its side index with it; `begun`: nanoseconds since 1970. No file is overwritten.
// std::filesystem::filesystem_error.
void putTableAside(const std::filesystem::path& table, std::int64_t begun);

// Removes the oldest of them until so many are left. The same errors.
void removeOldest(const std::filesystem::path& table, int kept);

}  // namespace tabulo::quickfix
