// What a disk may hold of a file after the power failed.
//
//   - Everything that the last sync committed.
//   - Cuts since then in their order, none of them skipped: the last ones may be missing.
//   - Of each page any of the contents that it had since, or two of them mixed (Tearing). Pages know no order among
//   each
//     other. A page that a cut has freed comes back only together with the length of before the cut.
//   - A length that the file had between the same two cuts, or one between two such. A page below it that never reached
//     the disk is zero.
#pragma once

#include <cstddef>
#include <cstdint>
#include <random>
#include <vector>

#include "tests/support/bytes.h"

namespace tabulo::internal::test {

using Random = std::mt19937;
// A number from `low` to `high`.
std::int64_t pick(Random& random, std::int64_t low, std::int64_t high);
// True once in `times`.
bool oneIn(Random& random, std::int64_t times);

// The smallest piece that the disk writes as a whole.
enum class Tearing { page, sector, byte };
inline constexpr std::size_t PAGE_SIZE = 4096;
inline constexpr std::size_t SECTOR_SIZE = 512;

// A write, or a cut to a length.
struct FileChange {
    bool cut = false;
    std::size_t offset = 0;  // the length of a cut
    Bytes bytes;

    std::size_t end() const { return offset + bytes.size(); }
};
void applyChange(Bytes* file, const FileChange& change);

// `committed` is the file at its last sync, `pending` what came after it.
Bytes fileAfterPowerLoss(const Bytes& committed, const std::vector<FileChange>& pending, Random& random,
                         Tearing tearing);

}  // namespace tabulo::internal::test
