// Finds where blocks begin and end when a length word, or a footer, does not tell.
#pragma once

#include <cstdint>
#include <optional>

#include "api/frame_hunt.h"
#include "api/raw_table.h"

namespace tabulo::api {

// A block that its footer tells, by the length that it ends with: it leads back to a length word that says the same,
// and the footer parses, or a frame stands behind the word, or a block begins behind the footer; or the footer parses,
// and the length leads back to a frame behind a word, or to where the block is known to begin. A footer without filters
// that leads to such a frame also has a frame in front of it, or a block behind it.
struct FooterPlace {
    std::int64_t blockStart = 0;
    std::int64_t end = 0;  // behind the footer
};

// What a damaged block takes.
struct BlockExtent {
    std::int64_t framesEnd = 0;  // how far its frames reach at most
    std::int64_t next = 0;       // where the next block begins; the end of what was looked at when none was found
    bool isKnown = false;        // these are the block's own ends; else other damaged blocks may stand in between
};

class BlockHunt {
  public:
    // Both must outlive it.
    BlockHunt(RawTable& table, FrameHunt& frames, const WorkMeter& meter)
        : table_(table), frames_(frames), meter_(meter) {}

    // The first footer that ends in [from + its size, end]. The block begins at `start`, which is known, or behind it;
    // without a `start`, which is the case of bytes that were cut out of a table, anywhere from `floor` on, also in
    // front of the bytes that are there.
    std::optional<FooterPlace> footer(std::int64_t from, std::int64_t end, std::optional<std::int64_t> start,
                                      std::int64_t floor);
    // The extent of the block at `start`, whose word and footer do not agree and of which `count` whole frames up to
    // framesEnd were found.
    BlockExtent extent(std::int64_t start, std::int64_t framesEnd, std::int64_t count, std::int64_t end);
    // True when a block begins at `offset`, or what was looked at ends there.
    bool beginsAt(std::int64_t offset, std::int64_t end);

  private:
    bool isFooter(std::int64_t blockStart, std::int64_t footerEnd, std::int64_t end, bool startIsKnown);
    // True when a whole frame ends at `offset`.
    bool endsFrame(std::int64_t offset);
    std::int64_t smallestBlock() const;

    RawTable& table_;
    FrameHunt& frames_;
    const WorkMeter& meter_;
};

}  // namespace tabulo::api
