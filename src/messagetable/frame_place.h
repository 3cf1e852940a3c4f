// Where a frame stands in a table's file, or where the next one will.
#pragma once

#include <cstdint>

#include "messagetable/block_summary.h"

namespace tabulo::internal {

struct FramePlace {
    std::int64_t block = 0;  // file offset of the block's length word
    std::int64_t frame = 0;  // file offset of the frame
};

// The place of the first frame of the block that begins there.
inline FramePlace framePlace_first(std::int64_t block) noexcept {
    return {block, block + BLOCK_LENGTH_SIZE};
}

// The place behind the first `count` messages of a block, whose frames end at `framesEnd`: behind a full block's last
// message it is in the next block.
inline FramePlace framePlace_behind(std::int64_t block, std::int64_t framesEnd, std::int32_t count,
                                    const MessageTableLayout& layout, std::int32_t footerSize) noexcept {
    if (count >= layout.messagesPerBlock) {
        return framePlace_first(framesEnd + footerSize);
    }
    return count == 0 ? framePlace_first(block) : FramePlace{block, framesEnd};
}

}  // namespace tabulo::internal
