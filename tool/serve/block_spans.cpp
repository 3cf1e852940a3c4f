#include "tool/serve/block_spans.h"

#include "tabulo/error.h"

namespace tabulo::tool::serve {

std::vector<BlockSpan> BlockSpans::all(const Work& work) {
    const std::lock_guard lock(mutex_);
    if (!reader_.has_value()) {
        reader_.emplace(path_);
    }
    try {
        extend(work);
    } catch (const Error& error) {
        if (error.code() != Code::vseek) {
            return spans_;  // damage: what stands in front of it is known
        }
        spans_.clear();  // the table was emptied
        last_.reset();
        reader_.emplace(path_);
        extend(work);
    }
    return spans_;
}

void BlockSpans::extend(const Work& work) {
    Blocks blocks = last_.has_value() ? reader_->blocksFrom(*last_, work) : reader_->blocks(work);
    while (const BlockRecord* block = blocks.next()) {
        if (static_cast<std::size_t>(block->ordinal) < spans_.size()) {
            spans_.pop_back();  // the one that was open
        }
        spans_.push_back(
            {block->times.first, block->times.last, block->firstMessage, block->offset, block->messageCount});
        last_ = *block;
    }
}

}  // namespace tabulo::tool::serve
