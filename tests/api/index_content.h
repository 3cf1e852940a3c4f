// What a table's side index may hold in place of what belongs there.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "tests/api/random_stored.h"
#include "tests/support/bytes.h"

namespace tabulo::test {

using internal::test::Bytes;

enum class IndexContent {
    absent,
    whole,        // as its builder left it
    older,        // as it was some time before
    foreign,      // another table's
    cut,          // at a random place
    overwritten,  // some of its bytes
    pages,        // some of its pages, with random bytes
    slots,        // one of the two, or both
    swapped,      // two of its pages stand in each other's place
    mixed,        // some pages as they were some time before, or as in another table's index
    noise,        // random bytes throughout
};
constexpr int indexContentCount = 11;
std::string indexContentName(IndexContent content);

// The contents that an index had in the order of its building, and that of another table with the same layout.
struct IndexImages {
    std::vector<Bytes> generations;
    Bytes foreign;
};

// None for an index that is not there. `images` has at least one generation.
std::optional<Bytes> indexBytes(Random& random, IndexContent content, const IndexImages& images);
// Puts this content beside a table: under the old one's name, or in the old file itself.
void placeIndex(Random& random, const std::filesystem::path& table, const std::optional<Bytes>& content);

}  // namespace tabulo::test
