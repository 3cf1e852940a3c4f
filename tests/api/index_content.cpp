#include "tests/api/index_content.h"

#include <algorithm>
#include <array>

#include "index/index_slot.h"
#include "tabulo/index.h"

namespace tabulo::test {
namespace {

using internal::INDEX_PAGE_SIZE;
using internal::INDEX_SLOTS;

std::size_t below(Random& random, std::size_t count) {
    return count == 0 ? 0 : static_cast<std::size_t>(random.bits()) % count;
}

std::size_t pagesOf(const Bytes& bytes) {
    return bytes.size() / INDEX_PAGE_SIZE;
}

void fillRandomly(Random& random, Bytes& bytes, std::size_t begin, std::size_t end) {
    for (std::size_t i = begin; i < std::min(end, bytes.size()); ++i) {
        bytes[i] = static_cast<std::uint8_t>(random.bits());
    }
}

void overwriteBytes(Random& random, Bytes& bytes) {
    for (std::int32_t n = random.between(1, 40); n > 0; --n) {
        bytes[below(random, bytes.size())] = static_cast<std::uint8_t>(random.bits());
    }
}

void overwritePages(Random& random, Bytes& bytes, std::size_t first, std::size_t count) {
    for (std::int32_t n = random.between(1, 3); n > 0; --n) {
        const std::size_t page = first + below(random, count);
        if (random.percent(30)) {
            std::fill_n(bytes.begin() + static_cast<std::ptrdiff_t>(page * INDEX_PAGE_SIZE), INDEX_PAGE_SIZE,
                        static_cast<std::uint8_t>(random.percent(50) ? 0 : 0xff));
        } else {
            const std::size_t begin = page * INDEX_PAGE_SIZE + below(random, INDEX_PAGE_SIZE);
            fillRandomly(random, bytes, random.percent(50) ? page * INDEX_PAGE_SIZE : begin,
                         (page + 1) * INDEX_PAGE_SIZE);
        }
    }
}

void copyPage(const Bytes& from, std::size_t page, Bytes& to, std::size_t place) {
    std::copy_n(from.begin() + static_cast<std::ptrdiff_t>(page * INDEX_PAGE_SIZE), INDEX_PAGE_SIZE,
                to.begin() + static_cast<std::ptrdiff_t>(place * INDEX_PAGE_SIZE));
}

void swapPages(Random& random, Bytes& bytes) {
    const std::size_t one = below(random, pagesOf(bytes));
    const std::size_t other = below(random, pagesOf(bytes));
    const Bytes before = bytes;
    copyPage(before, one, bytes, other);
    copyPage(before, other, bytes, one);
}

void mixPages(Random& random, Bytes& bytes, const IndexImages& images) {
    const Bytes& other = random.percent(60) ? random.of(images.generations) : images.foreign;
    const std::size_t shared = std::min(pagesOf(bytes), pagesOf(other));
    for (std::int32_t n = random.between(1, 4); n > 0 && shared > 0; --n) {
        const std::size_t page = below(random, shared);
        copyPage(other, page, bytes, page);
    }
}

}  // namespace

std::string indexContentName(IndexContent content) {
    constexpr std::array<const char*, indexContentCount> names = {
        "absent",           "whole",        "an older one",
        "another table's",  "cut",          "overwritten here and there",
        "with other pages", "without slot", "of swapped pages",
        "mixed of several", "noise"};
    return std::string("the index is ") + names[static_cast<std::size_t>(content)];
}

std::optional<Bytes> indexBytes(Random& random, IndexContent content, const IndexImages& images) {
    Bytes bytes = images.generations.back();
    switch (content) {
        case IndexContent::absent:
            return std::nullopt;
        case IndexContent::whole:
            break;
        case IndexContent::older:
            return random.of(images.generations);
        case IndexContent::foreign:
            return images.foreign;
        case IndexContent::cut:
            bytes.resize(random.percent(50) ? below(random, pagesOf(bytes)) * INDEX_PAGE_SIZE
                                            : below(random, bytes.size()));
            break;
        case IndexContent::overwritten:
            overwriteBytes(random, bytes);
            break;
        case IndexContent::pages:
            overwritePages(random, bytes, 0, pagesOf(bytes));
            break;
        case IndexContent::slots:
            overwritePages(random, bytes, 0, INDEX_SLOTS);
            break;
        case IndexContent::swapped:
            swapPages(random, bytes);
            break;
        case IndexContent::mixed:
            mixPages(random, bytes, images);
            break;
        case IndexContent::noise:
            fillRandomly(random, bytes, 0, bytes.size());
            break;
    }
    return bytes;
}

void placeIndex(Random& random, const std::filesystem::path& table, const std::optional<Bytes>& content) {
    const std::filesystem::path index = indexPath(table);
    if (!content.has_value()) {
        std::filesystem::remove(index);
    } else if (random.percent(50)) {
        internal::test::writeFile(index.string(), *content);
    } else {
        const std::string made = index.string() + ".made";
        internal::test::writeFile(made, *content);
        std::filesystem::rename(made, index);
    }
}

}  // namespace tabulo::test
