#include "index/index_run.h"

namespace tabulo::internal {

namespace {

constexpr std::size_t PART_COUNT_OFFSET = 8;
constexpr std::size_t PARTS_OFFSET = 16;
constexpr std::size_t PART_SIZE = 8;
constexpr std::size_t GATHERED_PAGES = 64;

IndexPage writeParts(const std::vector<IndexPart>& parts) {
    IndexPage page;
    page.put(PART_COUNT_OFFSET, static_cast<std::uint32_t>(parts.size()));
    std::size_t at = PARTS_OFFSET;
    for (const IndexPart& part : parts) {
        page.put(at, part.firstPage);
        page.put(at + sizeof(part.firstPage), part.leaves);
        at += PART_SIZE;
    }
    return page;
}

}  // namespace

std::optional<IndexPart> indexRun_part(IndexPages* pages, const IndexRun& run, std::uint32_t number) noexcept {
    const IndexPage* page = pages->page(run, 0);
    if (page == nullptr || number >= page->get<std::uint32_t>(PART_COUNT_OFFSET)) {
        return std::nullopt;
    }
    const std::size_t at = PARTS_OFFSET + number * PART_SIZE;
    const IndexPart part{page->get<std::uint32_t>(at), page->get<std::uint32_t>(at + sizeof(part.firstPage))};
    const bool isInside = part.leaves == 0 || (part.firstPage > 0 && part.firstPage < run.pages &&
                                               part.leaves <= run.pages - part.firstPage);
    return isInside ? std::optional(part) : std::nullopt;
}

IndexLevels indexRun_levels(const IndexPart& part, std::uint32_t fanOut) noexcept {
    IndexLevels found;
    IndexLevel level{part.firstPage, part.leaves};
    found.levels[found.count++] = level;
    while (level.pages > 1) {
        level = {level.firstPage + level.pages, (level.pages - 1) / fanOut + 1};
        found.levels[found.count++] = level;
    }
    return found;
}

RunWriter::RunWriter(FileStream* file, const IndexSlot& slot, std::uint32_t firstPage, std::uint32_t firstBlock,
                     std::uint32_t blocks)
    : file_(file), slot_(slot), run_{firstPage, 1, firstBlock, blocks} {
    gathered_.reserve(GATHERED_PAGES);
    error_ = fileStream_seek(file, static_cast<std::int64_t>((firstPage + std::uint64_t{1}) * INDEX_PAGE_SIZE));
}

void RunWriter::writeOut() noexcept {
    if (!error_.failed()) {
        error_ = fileStream_write(file_, gathered_.data(), gathered_.size() * sizeof(IndexPage));
    }
    gathered_.clear();
}

std::uint32_t RunWriter::append(IndexPage* page) noexcept {
    const std::uint32_t number = run_.pages++;
    indexPage_seal(page, indexRun_pageSeed(slot_, run_, number));
    gathered_.push_back(*page);
    if (gathered_.size() == GATHERED_PAGES) {
        writeOut();
    }
    return number;
}

SystemError RunWriter::finish(const std::vector<IndexPart>& parts) noexcept {
    writeOut();
    IndexPage first = writeParts(parts);
    indexPage_seal(&first, indexRun_pageSeed(slot_, run_, 0));
    if (!error_.failed()) {
        error_ = fileStream_seek(file_, static_cast<std::int64_t>(std::uint64_t{run_.firstPage} * INDEX_PAGE_SIZE));
    }
    if (!error_.failed()) {
        error_ = fileStream_write(file_, first.bytes.data(), first.bytes.size());
    }
    return error_.failed() ? error_ : fileStream_flush(file_);
}

}  // namespace tabulo::internal
