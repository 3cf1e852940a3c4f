// Finds the whole frames of a stretch of a file in which not all are whole.
//
// A frame stands where leading and trailing length agree with each other and with the fields between them. Behind a
// frame that is not whole, the next one is found
//   - by what tells where the damaged one ends: two of its two lengths and its fields that agree, or one of them when a
//     whole frame, or the stretch's known end, follows there;
//   - else byte by byte. What is found so may be a message that another one quotes in a text. It is not taken when it
//     lies in a text of the damaged frame that begins where whole frames end, as its fields and its leading length
//     tell; nor when the trailing length in front of whole frames, or of the stretch's known end, reaches back over it.
// So a quoted frame is mistaken for a message only when both ends of the one that quotes it are destroyed.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "api/raw_table.h"
#include "api/work_meter.h"

namespace tabulo::api {

// Frames that stand one behind the other, or bytes in which none does.
struct FrameRun {
    std::int64_t begin = 0;
    std::int64_t end = 0;
    std::int64_t frames = 0;  // of bytes in which none is whole: how many stood there, -1 where nothing tells
    bool whole = false;
};

class FrameHunt {
  public:
    // All must outlive it.
    FrameHunt(RawTable& table, const WorkMeter& meter) : table_(table), bytes_(table.bytes), meter_(meter) {}

    // Its length when a whole frame stands at `offset`, not reaching over `end`; else 0.
    std::int64_t frameAt(std::int64_t offset, std::int64_t end);
    // Steps over whole frames, `most` of them at most; where they end.
    std::int64_t follow(std::int64_t begin, std::int64_t end, std::int64_t most, std::int64_t* count);
    // The runs that [begin, end) is made of: whole ones and others in turn. `endIsKnown`: the last frame ends there.
    std::vector<FrameRun> search(std::int64_t begin, std::int64_t end, bool endIsKnown);

  private:
    bool isLength(std::uint32_t length, std::int64_t room) const;
    std::optional<std::int64_t> fieldsEnd(std::int64_t start, std::int64_t end);
    std::int64_t damagedFrameEnd(std::int64_t start, std::int64_t end, bool endIsKnown);
    std::int64_t textAround(std::int64_t start, std::int64_t end, std::int64_t place, std::int64_t placeEnd);
    std::int64_t nextFrame(std::int64_t from, std::int64_t end);
    std::int64_t nextRun(std::int64_t damaged, std::int64_t end);
    void dropQuoted(std::vector<FrameRun>* runs, bool endIsKnown);

    RawTable& table_;
    FileBytes& bytes_;
    const WorkMeter& meter_;
};

}  // namespace tabulo::api
