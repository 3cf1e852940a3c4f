// The pages of an open side index, read one by one and checked, the last ones kept.
//
// Nothing here is an error: a file that is missing, ends before, cannot be read or holds something else gives no page.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "index/index_page.h"
#include "index/index_slot.h"

namespace tabulo::internal {

// A file that is open for reading, with positional reads alone. Its refusals are nobody's concern: they are not kept.
class SideFile {
  public:
    SideFile() noexcept = default;
    ~SideFile();
    SideFile(SideFile&& other) noexcept;
    SideFile& operator=(SideFile&&) = delete;

    bool open(const char* path) noexcept;
    // True when the path leads to this file.
    bool isAt(const char* path) const noexcept;
    // True when all bytes are there.
    bool readAt(std::uint64_t offset, void* buffer, std::size_t length) const noexcept;

  private:
    int descriptor_ = -1;
};

// The content of an index as it was at one moment: what is appended to it later is not seen.
class IndexPages {
  public:
    // Takes an open file whose slot this is. Throws std::bad_alloc.
    IndexPages(SideFile file, IndexSlot slot);

    const IndexSlot& slot() const noexcept { return slot_; }
    const SideFile& file() const noexcept { return file_; }
    // A page of a run; null when it is not sound. Valid until PAGES_KEPT others have been asked for.
    const IndexPage* page(const IndexRun& run, std::uint32_t number) noexcept;
    // How many pages were read from the file.
    std::int64_t pagesRead() const noexcept { return pagesRead_; }

    static constexpr std::size_t PAGES_KEPT = 16;

  private:
    SideFile file_;
    IndexSlot slot_;
    std::vector<IndexPage> pages_;
    std::array<std::uint64_t, PAGES_KEPT> numbers_{};  // of each kept page in the file; 0 for none
    std::size_t next_ = 0;                             // the one to be given up next
    std::int64_t pagesRead_ = 0;
};

}  // namespace tabulo::internal
