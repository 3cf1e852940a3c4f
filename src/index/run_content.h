// What a run of a side index is made of, while its blocks are read: kept in memory, then written as a run.
#pragma once

#include <cstdint>
#include <vector>

#include "core/error_codes.h"
#include "index/block_map.h"
#include "index/index_run.h"
#include "index/key_map.h"
#include "messagetable/block_cursor.h"

namespace tabulo::internal {

class RunContent {
  public:
    explicit RunContent(const MessageTableLayout& layout);

    // Adds the closed block at the cursor, whose footer its reader has just read: reads its frames. CONSISTENCY_ERROR
    // when they do not fill the block; the codes of reading. Throws std::bad_alloc. Nothing is added then.
    ErrorCode add(BlockReader* reader, TableFile* file, const Block& block);
    void clear() noexcept;

    std::uint32_t blocks() const noexcept { return static_cast<std::uint32_t>(blocks_.size()); }
    std::uint64_t messages() const noexcept;

    // Writes what was added as a run of that many blocks. Throws std::bad_alloc.
    std::vector<IndexPart> write(RunWriter* run);

  private:
    ErrorCode readFrames(BlockReader* reader, TableFile* file, const Block& block, IndexedBlock* added);
    void dropUnadded() noexcept;
    void addMessage(const DecodedMessage& message, std::uint32_t number);

    MessageTableLayout layout_;
    std::vector<IndexedBlock> blocks_;
    // For each part but the blocks: the key in the upper half, the number in the run in the lower one.
    std::vector<std::vector<std::uint64_t>> parts_;
    std::vector<std::uint64_t> sorted_;  // while a part is sorted
};

}  // namespace tabulo::internal
