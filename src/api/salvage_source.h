// One file that messages are salvaged from: the table, or what a recovery has cut out of it. It gives its whole
// messages and its gaps one after the other, so that several files can be merged by the places where these stood in the
// table.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <filesystem>
#include <memory>
#include <optional>

#include "api/block_hunt.h"
#include "api/frame_hunt.h"
#include "api/message_state.h"
#include "api/raw_table.h"
#include "api/work_meter.h"
#include "messagetable/block_cursor.h"
#include "messagetable/frame_cursor.h"

namespace tabulo::api {

// What stands next in a file. Offsets are those of the table.
struct SalvageItem {
    bool isGap = false;
    std::int64_t begin = 0;
    std::int64_t end = 0;
    MessageState message;  // not of a gap; its frame is valid until the source moves on
    // Of a gap: of the messages around it in this file.
    std::optional<std::int32_t> idBefore;
    std::optional<std::int32_t> idBehind;
};

class SalvageSource {
  public:
    // Without a base the file is the table itself; else `base` is the table's offset of the cut file's first byte. All
    // arguments by reference must outlive the source. Throws what opening throws.
    SalvageSource(const Call& call, std::filesystem::path path, std::optional<std::int64_t> base,
                  std::int64_t headerEnd, std::shared_ptr<const TableState> state, const WorkMeter& meter);

    // Moves to the next item; false behind the last one. Throws the codes of reading, and WorkStopped.
    bool next();
    const SalvageItem& item() const { return item_; }
    const std::filesystem::path& path() const { return path_; }
    bool isCutFile() const { return isCutFile_; }
    std::int32_t footerSize() const { return table_.footerSize(); }
    std::int64_t size() const { return table_.size(); }
    // How much of the file has been given.
    std::int64_t done() const { return item_.end - base_; }

    // True when whole frames fill [begin, end) of the table here, too, and `known`, which stand beside it elsewhere,
    // stand here as well: this file then has what another one has lost.
    bool hasInstead(const SalvageItem& gap, SalvageSource& other);
    // True when both files have the same bytes at the place of a gap.
    bool hasSame(const SalvageItem& gap, SalvageSource& other);

  private:
    // Bytes that frames stand in.
    struct Segment {
        std::int64_t begin = 0;
        std::int64_t end = 0;
        bool endIsKnown = false;  // a frame ends there, not some damage
        bool isGap = false;
        bool isWholeBlock = false;            // all frames of one block, and nothing else
        bool isSearched = false;              // all of it is whole
        std::optional<std::int64_t> block{};  // its start, where known
        std::int64_t firstIndex = -1;         // of the first frame in the block
        std::int64_t blockNumber = -1;        // in the table
    };

    void begin();
    void beginCutFile(std::int64_t size);
    void step();
    void stepDamaged(std::int64_t start, bool isOpen);
    void add(Segment segment);
    void search(std::size_t index);
    void numberFrames(std::vector<Segment>* found, const std::vector<FrameRun>& runs, const Segment& segment) const;
    void takeMessage(const internal::DecodedMessage& message);
    void takeGap();
    std::optional<std::int32_t> idBehind();
    bool sameBytes(std::int64_t begin, std::int64_t end, SalvageSource& other);

    std::filesystem::path path_;
    Call call_;  // what fails here is about this file
    bool isCutFile_;
    std::int64_t base_;
    std::shared_ptr<const TableState> state_;
    RawTable table_;
    FrameHunt frames_;
    BlockHunt blocks_;
    std::deque<Segment> segments_;
    std::optional<internal::FrameCursor> cursor_;  // in the first segment
    std::int64_t nextIndex_ = -1;
    std::int64_t position_ = 0;      // where the next block begins, in this file
    std::int64_t blockNumber_ = -1;  // of that block in the table, -1 when not known
    bool ended_ = false;             // no more blocks
    bool begun_ = false;
    std::int64_t lastBegin_ = -1;  // the last message given, in this file
    std::int64_t lastEnd_ = -1;
    std::optional<std::int32_t> lastId_;
    SalvageItem item_;
    internal::DecodedMessage decoded_;  // that the item shows
};

}  // namespace tabulo::api
