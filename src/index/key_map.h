// A sorted map from a key of 32 bits to the messages that have it, each told by its number among the messages of the
// run's blocks.
//
// Leaf page:
//   offset  width  field (machine byte order)
//        0      8  checksum (index_page.h)
//        8      4  first key
//       12      2  offset behind the last entry
//       14      2  0
//       16    var  entries: numbers in groups of seven bits, lowest first, the eighth bit set while more follow
//                    2 x (key - key of the entry before, or the first key) + 1 if it has several messages
//                    with several: how many, at most KEY_CHUNK
//                    number of the first message; for each further one the distance from the one before
// Entries ascend by key, and those of one key by message; a key with many messages has several.
//
// Page of a level above: 8 checksum, 4 number of entries, 4 zero, then the first key of each page below (4 bytes each).
#pragma once

#include <array>
#include <cstdint>
#include <string_view>
#include <vector>

#include "index/index_page.h"
#include "index/index_pages.h"
#include "index/index_run.h"

namespace tabulo::internal {

inline constexpr std::size_t KEY_CHUNK = 64;
inline constexpr std::size_t LONGEST_NUMBER = 5;  // bytes of 33 bits
inline constexpr std::uint32_t KEYS_PER_PAGE = (INDEX_PAGE_SIZE - 16) / sizeof(std::uint32_t);

// The key of an id: in the order of the ids.
inline std::uint32_t keyOf(std::int32_t id) noexcept {
    return static_cast<std::uint32_t>(id) ^ 0x8000'0000U;
}
// The key of a text, which is compared up to its first NUL: a hash, so that different texts may share one.
std::uint32_t keyOf(std::string_view text) noexcept;

// Keys from `first` to `last`, both included.
struct KeyRange {
    std::uint32_t first = 0;
    std::uint32_t last = 0;

    bool operator==(const KeyRange&) const = default;
};

// Makes a map.
class KeyMapWriter {
  public:
    explicit KeyMapWriter(RunWriter* run) : run_(run) {}

    // Keys ascend, and the messages of a key.
    void add(std::uint32_t key, std::uint32_t message);
    IndexPart finish();

  private:
    using Entry = std::array<std::uint8_t, LONGEST_NUMBER*(KEY_CHUNK + 2)>;

    std::size_t encodeEntry(std::uint32_t keyBefore, Entry* entry) const noexcept;
    void putEntry();
    void putPage();

    RunWriter* run_;
    IndexPage page_;
    std::size_t used_ = 0;       // of the page; 0 before its first entry
    std::uint32_t lastKey_ = 0;  // of the page
    std::uint32_t key_ = 0;      // of what is gathered
    std::array<std::uint32_t, KEY_CHUNK> gathered_{};
    std::size_t gatheredCount_ = 0;
    std::vector<std::uint32_t> firstKeys_;  // of the pages of the level at hand
    IndexPart part_;
};

// Goes over the entries of a map in their order.
class KeyMapCursor {
  public:
    // Begins with the first entry whose key is at or above this one. The pages must outlive it.
    KeyMapCursor(IndexPages* pages, const IndexRun& run, std::uint32_t part, std::uint32_t key = 0) noexcept;

    // To the next message; false at the end of the map, and when a page is not sound (isSound tells).
    bool next() noexcept;
    bool isSound() const noexcept { return sound_; }
    std::uint32_t key() const noexcept { return key_; }
    std::uint32_t message() const noexcept { return message_; }

  private:
    bool findLeaf(std::uint32_t key) noexcept;
    bool openLeaf() noexcept;
    std::uint64_t number() noexcept;

    IndexPages* pages_;
    IndexRun run_;
    IndexPart part_;
    std::uint32_t leaf_ = 0;  // the next one to be opened
    IndexPage page_;          // a copy: the kept pages come and go
    std::size_t at_ = 0;
    std::size_t end_ = 0;
    std::uint32_t left_ = 0;  // messages of the entry at hand
    std::uint32_t key_ = 0;
    std::uint32_t message_ = 0;
    std::uint32_t from_ = 0;  // keys below are passed
    bool sound_ = true;
};

}  // namespace tabulo::internal
