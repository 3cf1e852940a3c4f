#include "tests/damage/block_damage.h"

#include <algorithm>
#include <utility>

namespace tabulo::internal::test {

namespace {

constexpr std::size_t PAGE = 4096;
constexpr std::size_t SMALL_PIECES[] = {64, 256, 512};  // what stands for a page in a table of a page or two
constexpr std::size_t WORD = 8;
constexpr std::size_t RECORDS = 88;  // of the header, at its end
constexpr std::size_t MOST_HITS = 3;

}  // namespace

bool HitTable::isHit(std::size_t start, std::size_t end) const {
    return std::any_of(hits.begin(), hits.end(), [=](const Hit& hit) { return hit.start < end && start < hit.end; });
}

BlockDamage::BlockDamage(Bytes image, const TableMap& map, std::vector<TableRegion> regions, std::uint32_t seed)
    : image_(std::move(image)), map_(map), regions_(std::move(regions)), random_(seed) {
}

HitTable BlockDamage::next() {
    HitTable damage;
    do {
        damage = {image_, {}, "image " + std::to_string(count_ + 1) + ":"};
        // One hit alone tells most; several find what only comes together, as a block without its word and its header.
        const std::size_t hits = below(2) == 0 ? 1 : 1 + below(MOST_HITS);
        for (std::size_t i = 0; i < hits; ++i) {
            const Hit hit = place();
            damage.name += overwrite(&damage.file, hit);
            damage.hits.push_back(hit);
        }
    } while (damage.file == image_);
    count_ += 1;
    return damage;
}

Hit BlockDamage::place() {
    switch (below(9)) {
        case 0:
        case 1:
        case 2:
            return page();
        case 3:
        case 4:
            return word();
        case 5:
            return frames();
        case 6:
            return footer();
        case 7:
            return records();
        default: {
            const TableRegion& region = regions_[below(regions_.size())];
            return {region.start, region.end};
        }
    }
}

// Some pages of the file, or pieces that stand for them.
Hit BlockDamage::page() {
    const std::size_t size = image_.size() < 3 * PAGE ? SMALL_PIECES[below(std::size(SMALL_PIECES))] : PAGE;
    const std::size_t first = below((image_.size() + size - 1) / size);
    const std::size_t start = std::max(first * size, below(8) == 0 ? 0 : map_.headerSize);
    const std::size_t end = std::min((first + 1 + (below(3) == 0 ? below(3) : 0)) * size, image_.size());
    return end <= start ? Hit{map_.headerSize, image_.size()} : Hit{start, end};
}

// A block's length, in front of it or behind it, or a part of it.
Hit BlockDamage::word() {
    const std::size_t block = below(map_.blockStarts.size());
    std::size_t start = map_.blockStarts[block];
    if (below(3) == 0 && start > map_.headerSize) {
        start -= WORD;
    }
    return below(4) == 0 ? between(start, start + WORD) : Hit{start, start + WORD};
}

// A frame or the next ones too, or one of its two lengths, or the beginning of a block with the block's length.
Hit BlockDamage::frames() {
    const std::size_t first = below(map_.frames.size());
    const std::size_t last = std::min(first + (below(2) == 0 ? below(3) : 0), map_.frames.size() - 1);
    const std::size_t start = map_.frames[first].start;
    const std::size_t end = map_.frames[last].end;
    switch (below(5)) {
        case 0:
            return {start, start + 4};
        case 1:
            return {end - 4, end};
        case 2:
            return between(start, end);
        case 3: {
            const std::size_t block =
                *std::prev(std::upper_bound(map_.blockStarts.begin(), map_.blockStarts.end(), start));
            return {block, end};
        }
        default:
            return {start, end};
    }
}

Hit BlockDamage::footer() {
    const std::size_t block = below(map_.blockStarts.size());
    const bool closed = map_.blockStarts[block] < map_.openBlockStart;
    const bool last = block + 1 == map_.blockStarts.size();
    const std::size_t end = last ? map_.openBlockStart : map_.blockStarts[block + 1];
    if (!closed) {
        return word();
    }
    const std::size_t start = end - map_.footerSize;
    return below(2) == 0 ? Hit{start, end} : between(start, end);
}

// The header's records, or what they say of the end of the last block and of the data.
Hit BlockDamage::records() {
    switch (below(3)) {
        case 0:
            return {map_.storedLastBlockEnd(), map_.storedLastBlockEnd() + WORD};
        case 1:
            return {map_.storedDataEnd(), map_.storedDataEnd() + WORD};
        default:
            return {map_.tail(), map_.tail() + RECORDS};
    }
}

Hit BlockDamage::between(std::size_t start, std::size_t end) {
    const std::size_t first = start + below(end - start);
    return {first, first + 1 + below(end - first)};
}

std::string BlockDamage::overwrite(Bytes* file, const Hit& hit) {
    constexpr const char* WORDS[] = {" zeroed", " zeroed", " set", " made random"};
    const std::size_t kind = below(std::size(WORDS));
    for (std::size_t i = hit.start; i < hit.end; ++i) {
        const std::uint8_t bytes[] = {0, 0, 0xff, static_cast<std::uint8_t>(random_())};
        (*file)[i] = bytes[kind];
    }
    return std::string(WORDS[kind]) + " bytes " + std::to_string(hit.start) + " to " + std::to_string(hit.end - 1) +
           ",";
}

}  // namespace tabulo::internal::test
