// Checks one block against its messages.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "api/block_hunt.h"
#include "api/frame_hunt.h"
#include "api/raw_table.h"
#include "api/verify_chain.h"
#include "api/work_meter.h"
#include "messagetable/block_cursor.h"
#include "messagetable/frame_cursor.h"
#include "tabulo/damage.h"

namespace tabulo::api {

class BlockVerify {
  public:
    // All must outlive it. `chain` is what stands in front of the block, and is brought behind it. `beingWritten`: what
    // a writer leaves behind only when it stops is not told.
    BlockVerify(RawTable& table, WorkMeter& meter, VerifyChain& chain, bool beingWritten)
        : table_(table),
          meter_(meter),
          chain_(chain),
          beingWritten_(beingWritten),
          frames_(table, meter),
          blocks_(table, frames_, meter) {}

    // Reads and checks the block at `start`. Throws the codes of reading, vseek when the table was dropped,
    // WorkStopped, and what the callback of the progress throws.
    void run(std::int64_t start);

    std::vector<Finding> findings;  // in the order of the file
    std::int64_t next = 0;          // where the next block begins, or all that there is ends
    bool isEnd = false;
    bool isBlock = true;  // anything of a block stands there
    bool isGone = false;  // what looks damaged may also be another table that was written in the place of this one

  private:
    void checkClosed(const internal::Block& block);
    void checkOpen(const internal::Block& block);
    void checkDamaged(const internal::Block& block);
    void checkUnclosedFooter(const internal::Block& block);
    void checkRest(std::int64_t begin, std::int64_t end);
    void checkFrames(std::int64_t begin, std::int64_t end, bool endIsKnown);
    void addFrames(std::int64_t* begin, std::int64_t end, bool endIsKnown);
    void addMessage(const internal::DecodedMessage& message, std::int64_t offset, std::int64_t end);
    void addGap(const FrameRun& gap, std::int64_t end, bool endIsKnown);
    void checkCount(std::int64_t framesEnd);
    // Reads the block's footer again and compares it with the messages.
    void checkFooter(std::int64_t end);
    void compareRanges(std::int64_t footer);
    void compareFilters(std::int64_t footer);
    void compareIndexes(std::int64_t offset);
    void tellUnsoundFooter(std::int64_t end, std::uint64_t length);
    Finding& add(FindingKind kind, std::int64_t offset, std::string text, bool damage = true);
    void settle();

    RawTable& table_;
    WorkMeter& meter_;
    VerifyChain& chain_;
    const bool beingWritten_;
    FrameHunt frames_;
    BlockHunt blocks_;
    std::int64_t start_ = 0;
    std::int64_t whole_ = 0;  // messages of this block
    bool lost_ = false;       // messages of this block
    std::int64_t falls_ = 0;  // of the uniform id
    std::int64_t firstFall_ = 0;
};

}  // namespace tabulo::api
