// Reading forward the messages that an index lists, without those in between.
#pragma once

#include <cstdint>
#include <span>

#include "core/error_codes.h"
#include "index/side_index.h"
#include "messagetable/block_reader.h"
#include "messagetable/message_visitor.h"

namespace tabulo::internal {

// How far such a reading has come.
struct ListedRead {
    bool isOver = false;           // the visitor stopped it, or failed, or the table's file is gone
    std::int64_t nextBlock = 0;    // else a walk from this block on shows the rest: the first that is not covered, or
    std::uint32_t shownThere = 0;  // one that is not as the index has it, of which so many messages were shown
};

// Shows a visitor the listed messages, by their numbers in the table, ascending, as a walk over their blocks would
// (table_walk.h), which asks about each block and skips it when the visitor says so. The codes of such a walk.
ErrorCode listedRead_forward(BlockReader* reader, SideIndex* index, std::span<const std::uint32_t> messages,
                             const MessageVisitor& visitor, ListedRead* result) noexcept;

}  // namespace tabulo::internal
