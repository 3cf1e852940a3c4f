// A run of a side index: what it knows of a stretch of closed blocks. Its first page says where its parts stand:
//
//   offset  width  field (machine byte order)
//        0      8  checksum (index_page.h)
//        8      4  number of parts, P
//       12      4  0
//       16    8 P  parts: first page, counted from the run's first one, and number of leaf pages (4 bytes each)
//
// Part 0 is the blocks (block_map.h), part 1 the uniform ids, part 2 the connection message ids, and from part 3 on the
// texts of a message but for the last two (key_map.h). The pages of the levels above its leaves follow a part's leaves.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "index/index_page.h"
#include "index/index_pages.h"
#include "storage/file_stream.h"
#include "storage/table_config.h"

namespace tabulo::internal {

enum IndexPartNumber : std::uint32_t {
    BLOCK_PART = 0,
    UNIFORM_ID_PART = 1,
    CONN_MSG_ID_PART = 2,
    FIRST_TEXT_PART = 3,
};

struct IndexPart {
    std::uint32_t firstPage = 0;
    std::uint32_t leaves = 0;
};

// The texts that an index covers: the wire message and the other fields, which end a message, are not among them.
inline std::int32_t indexRun_textCount(const MessageTableLayout& layout) noexcept {
    constexpr std::int32_t BARE_TEXTS = 2;
    return layout.stringFieldCount - BARE_TEXTS;
}
inline std::uint32_t indexRun_partCount(const MessageTableLayout& layout) noexcept {
    return FIRST_TEXT_PART + static_cast<std::uint32_t>(indexRun_textCount(layout));
}

// Where a part stands, which may have no leaves; none when the page does not tell, or the part reaches behind the run.
std::optional<IndexPart> indexRun_part(IndexPages* pages, const IndexRun& run, std::uint32_t number) noexcept;

// Where the levels above the leaves of a part stand, and how many pages each has, lowest first: each page of a level
// has an entry for up to `fanOut` pages of the level below, and the highest one is a single page.
struct IndexLevel {
    std::uint32_t firstPage = 0;
    std::uint32_t pages = 0;
};
inline constexpr std::size_t MOST_INDEX_LEVELS = 32;
struct IndexLevels {
    std::array<IndexLevel, MOST_INDEX_LEVELS> levels{};  // [0] are the leaves
    std::size_t count = 0;
};
IndexLevels indexRun_levels(const IndexPart& part, std::uint32_t fanOut) noexcept;

// Writes the pages of a run one behind the other, from a page of the file on. Page 0 is written last.
class RunWriter {
  public:
    // The slot tells the seeds; file and slot are borrowed. Throws std::bad_alloc.
    RunWriter(FileStream* file, const IndexSlot& slot, std::uint32_t firstPage, std::uint32_t firstBlock,
              std::uint32_t blocks);

    // Seals a page and appends it; its number in the run.
    std::uint32_t append(IndexPage* page) noexcept;
    // Writes what is gathered, and page 0. The result is the first refusal of the system.
    SystemError finish(const std::vector<IndexPart>& parts) noexcept;
    const IndexRun& run() const noexcept { return run_; }

  private:
    void writeOut() noexcept;

    FileStream* file_;
    const IndexSlot& slot_;
    IndexRun run_;
    std::vector<IndexPage> gathered_;
    SystemError error_{};
};

}  // namespace tabulo::internal
