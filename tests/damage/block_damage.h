// Tables of several blocks with pages, lengths, frames and footers overwritten at random.
#pragma once

#include <cstddef>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "tests/damage/table_regions.h"

namespace tabulo::internal::test {

// Bytes that were overwritten.
struct Hit {
    std::size_t start = 0;
    std::size_t end = 0;
};

struct HitTable {
    Bytes file;
    std::vector<Hit> hits;
    std::string name;

    // Any byte from start to end was overwritten.
    bool isHit(std::size_t start, std::size_t end) const;
};

// Makes one damaged file after another out of a table's.
class BlockDamage {
  public:
    BlockDamage(Bytes image, const TableMap& map, std::vector<TableRegion> regions, std::uint32_t seed);

    // The next file; at least one byte differs.
    HitTable next();

  private:
    std::size_t below(std::size_t count) { return random_() % count; }
    Hit place();
    Hit page();
    Hit word();
    Hit frames();
    Hit footer();
    Hit records();
    Hit between(std::size_t start, std::size_t end);
    std::string overwrite(Bytes* file, const Hit& hit);

    const Bytes image_;
    const TableMap map_;
    const std::vector<TableRegion> regions_;
    std::mt19937 random_;
    int count_ = 0;
};

}  // namespace tabulo::internal::test
