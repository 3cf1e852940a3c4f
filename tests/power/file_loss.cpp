#include "tests/power/file_loss.h"

#include <algorithm>
#include <map>
#include <utility>

namespace tabulo::internal::test {

namespace {

// One content of a page. A cut that frees the page begins a new life of it.
struct PageVersion {
    std::size_t cuts = 0;  // before this content
    std::size_t life = 0;
    Bytes bytes;
};

struct Length {
    std::size_t cuts = 0;
    std::size_t bytes = 0;
};

// All that a file has been since its last sync.
struct Versions {
    std::size_t cuts = 0;
    std::vector<Length> lengths;
    std::map<std::size_t, std::vector<PageVersion>> pages;  // those that were changed
};

Bytes pageOf(const Bytes& file, std::size_t page) {
    Bytes bytes(PAGE_SIZE, 0);
    const std::size_t start = page * PAGE_SIZE;
    if (start < file.size()) {
        std::copy_n(file.begin() + static_cast<std::ptrdiff_t>(start), std::min(PAGE_SIZE, file.size() - start),
                    bytes.begin());
    }
    return bytes;
}

const Bytes& pickVersion(Random& random, const std::vector<const Bytes*>& versions, std::int64_t oldOnes) {
    const auto last = static_cast<std::int64_t>(versions.size()) - 1;
    return *versions[static_cast<std::size_t>(pick(random, 1, 100) > oldOnes ? last : pick(random, 0, last))];
}

Bytes mixed(Random& random, const Bytes& first, const Bytes& second, Tearing tearing) {
    Bytes page = first;
    if (tearing == Tearing::byte) {
        const std::int64_t at = pick(random, 0, static_cast<std::int64_t>(PAGE_SIZE));
        std::copy(second.begin() + at, second.end(), page.begin() + at);
    } else if (tearing == Tearing::sector) {
        for (std::size_t start = 0; start < PAGE_SIZE; start += SECTOR_SIZE) {
            if (oneIn(random, 2)) {
                std::copy_n(second.begin() + static_cast<std::ptrdiff_t>(start), SECTOR_SIZE,
                            page.begin() + static_cast<std::ptrdiff_t>(start));
            }
        }
    }
    return page;
}

// A tear between two contents is worth most where they differ: it falls on one of those bytes, or just beside them.
Bytes tornWhereTheyDiffer(Random& random, const Bytes& first, const Bytes& second) {
    const auto front = std::mismatch(first.begin(), first.end(), second.begin());
    if (front.first == first.end()) {
        return first;
    }
    const auto back = std::mismatch(first.rbegin(), first.rend(), second.rbegin());
    const std::int64_t at = pick(random, front.first - first.begin(), first.rend() - back.first);
    Bytes page = first;
    std::copy(second.begin() + at, second.end(), page.begin() + at);
    return page;
}

// One of the lengths, or one that the disk may hold between two of them.
std::size_t pickLength(Random& random, const std::vector<std::size_t>& lengths, Tearing tearing) {
    const auto last = static_cast<std::int64_t>(lengths.size()) - 1;
    const std::int64_t chosen = oneIn(random, 2) ? last : pick(random, 0, last);
    const std::size_t length = lengths[static_cast<std::size_t>(chosen)];
    if (chosen == 0 || !oneIn(random, 4)) {
        return length;
    }
    const std::size_t from = lengths[static_cast<std::size_t>(pick(random, 0, chosen - 1))];
    const std::size_t unit = tearing == Tearing::page ? PAGE_SIZE : (tearing == Tearing::sector ? SECTOR_SIZE : 1);
    const auto between = static_cast<std::size_t>(
        pick(random, static_cast<std::int64_t>(from), static_cast<std::int64_t>(std::max(from, length))));
    const std::size_t rounded = between / unit * unit;
    return rounded < from ? from : rounded;
}

Versions replay(const Bytes& committed, const std::vector<FileChange>& pending) {
    Versions found;
    Bytes file = committed;
    found.lengths.push_back({0, file.size()});
    for (const FileChange& change : pending) {
        const std::size_t end = change.cut ? std::max(file.size(), change.offset) : change.end();
        found.cuts += change.cut ? 1U : 0U;
        applyChange(&file, change);
        for (std::size_t page = change.offset / PAGE_SIZE; page * PAGE_SIZE < end; ++page) {
            std::vector<PageVersion>& versions = found.pages[page];
            if (versions.empty()) {
                versions.push_back({0, 0, pageOf(committed, page)});
            }
            const bool freed = change.cut && page * PAGE_SIZE >= change.offset;
            versions.push_back({found.cuts, versions.back().life + (freed ? 1U : 0U), pageOf(file, page)});
        }
        found.lengths.push_back({found.cuts, file.size()});
    }
    return found;
}

// The contents of a page that go with a number of cuts on the disk.
std::vector<const Bytes*> possibleContents(const std::vector<PageVersion>& versions, std::size_t cuts) {
    std::size_t life = 0;
    for (const PageVersion& version : versions) {
        life = version.cuts <= cuts ? version.life : life;
    }
    std::vector<const Bytes*> contents;
    for (const PageVersion& version : versions) {
        if (version.life == life) {
            contents.push_back(&version.bytes);
        }
    }
    return contents;
}

Bytes contentAfterLoss(Random& random, const std::vector<const Bytes*>& contents, std::int64_t oldOnes,
                       Tearing tearing) {
    const Bytes& content = pickVersion(random, contents, oldOnes);
    if (tearing == Tearing::page || !oneIn(random, 3)) {
        return content;
    }
    const Bytes& other = pickVersion(random, contents, 100);
    return tearing == Tearing::byte && oneIn(random, 2) ? tornWhereTheyDiffer(random, content, other)
                                                        : mixed(random, content, other, tearing);
}

}  // namespace

std::int64_t pick(Random& random, std::int64_t low, std::int64_t high) {
    return std::uniform_int_distribution<std::int64_t>(low, high)(random);
}

bool oneIn(Random& random, std::int64_t times) {
    return pick(random, 1, times) == 1;
}

void applyChange(Bytes* file, const FileChange& change) {
    if (change.cut) {
        file->resize(change.offset, 0);
        return;
    }
    if (file->size() < change.end()) {
        file->resize(change.end(), 0);
    }
    std::copy(change.bytes.begin(), change.bytes.end(), file->begin() + static_cast<std::ptrdiff_t>(change.offset));
}

Bytes fileAfterPowerLoss(const Bytes& committed, const std::vector<FileChange>& pending, Random& random,
                         Tearing tearing) {
    const Versions versions = replay(committed, pending);
    const auto allCuts = static_cast<std::int64_t>(versions.cuts);
    const auto cuts = static_cast<std::size_t>(oneIn(random, 2) ? allCuts : pick(random, 0, allCuts));
    std::vector<std::size_t> lengths;
    for (const Length& length : versions.lengths) {
        if (length.cuts == cuts) {
            lengths.push_back(length.bytes);
        }
    }
    // How many of a hundred pages are old ones: a single one makes other trouble than most of them.
    static constexpr std::int64_t shares[] = {2, 10, 50, 90};
    const std::int64_t oldOnes = shares[pick(random, 0, 3)];
    Bytes kept = committed;
    kept.resize(pickLength(random, lengths, tearing), 0);
    for (const auto& [page, pageVersions] : versions.pages) {
        const Bytes content = contentAfterLoss(random, possibleContents(pageVersions, cuts), oldOnes, tearing);
        const std::size_t start = page * PAGE_SIZE;
        if (start < kept.size()) {
            std::copy_n(content.begin(), std::min(PAGE_SIZE, kept.size() - start),
                        kept.begin() + static_cast<std::ptrdiff_t>(start));
        }
    }
    return kept;
}

}  // namespace tabulo::internal::test
