#include "index/index_pages.h"

#include <algorithm>
#include <utility>

#include "storage/file_platform.h"

namespace tabulo::internal {

namespace {

// Repeated for as long as it is interrupted, and without keeping the error.
template <typename Call>
bool succeeds(Call call) noexcept {
    SystemError error = call();
    while (filePlatform_isInterrupted(error)) {
        error = call();
    }
    return !error.failed();
}

}  // namespace

SideFile::~SideFile() {
    if (descriptor_ >= 0) {
        (void)filePlatform().close(descriptor_);  // nothing was written
    }
}

SideFile::SideFile(SideFile&& other) noexcept : descriptor_(std::exchange(other.descriptor_, -1)) {
}

bool SideFile::open(const char* path) noexcept {
    return succeeds([&] { return filePlatform().open(path, FileAccess::read, &descriptor_); });
}

bool SideFile::isAt(const char* path) const noexcept {
    bool same = false;
    return succeeds([&] { return filePlatform().isAt(descriptor_, path, &same); }) && same;
}

bool SideFile::readAt(std::uint64_t offset, void* buffer, std::size_t length) const noexcept {
    auto* at = static_cast<std::uint8_t*>(buffer);
    for (std::size_t done = 0; done < length;) {
        std::size_t count = 0;
        const auto place = static_cast<std::int64_t>(offset + done);
        if (!succeeds([&] { return filePlatform().readAt(descriptor_, at + done, length - done, place, &count); }) ||
            count == 0) {
            return false;
        }
        done += count;
    }
    return true;
}

IndexPages::IndexPages(SideFile file, IndexSlot slot)
    : file_(std::move(file)), slot_(std::move(slot)), pages_(PAGES_KEPT) {
}

const IndexPage* IndexPages::page(const IndexRun& run, std::uint32_t number) noexcept {
    const std::uint64_t wanted = std::uint64_t{run.firstPage} + number;
    if (number >= run.pages || wanted < INDEX_SLOTS) {
        return nullptr;
    }
    const auto kept = std::find(numbers_.begin(), numbers_.end(), wanted);
    if (kept != numbers_.end()) {
        return &pages_[static_cast<std::size_t>(kept - numbers_.begin())];
    }
    IndexPage& page = pages_[next_];
    numbers_[next_] = 0;
    if (!file_.readAt(wanted * INDEX_PAGE_SIZE, page.bytes.data(), page.bytes.size()) ||
        !indexPage_isSound(page, indexRun_pageSeed(slot_, run, number))) {
        return nullptr;
    }
    pagesRead_ += 1;
    numbers_[next_] = wanted;
    next_ = (next_ + 1) % PAGES_KEPT;
    return &page;
}

}  // namespace tabulo::internal
