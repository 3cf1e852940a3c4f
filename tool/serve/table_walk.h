// The selected messages of one table from a place on, in windows of blocks: a walk that is ended in the middle knows
// from where it goes on.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "tabulo/reader.h"
#include "tool/serve/block_spans.h"
#include "tool/serve/question.h"

namespace tabulo::tool::serve {

class TableWalk {
  public:
    // Both are borrowed. Forward from `begin` (none: the table's beginning) to where the table ends now; backward
    // from `begin` (none: that end) to its beginning.
    TableWalk(AskedTable& table, const Question& question, bool backward, std::optional<Position> begin);

    // The message at hand, null at the end; the first call of advance() gives the first one. It throws TimeIsUp, and
    // Refusal for damage when nothing stands in front of it.
    const MessageView* message() const noexcept { return message_; }
    void advance();
    // Where another walk goes on: forward, the place of the message at hand or where the next one will be looked for;
    // backward, the place behind it.
    Position boundary() const noexcept { return boundary_; }
    // Where the table ended when the walk began.
    Position end() const noexcept { return end_; }
    const AskedTable& table() const noexcept { return table_; }
    bool isDone() const noexcept { return isDone_; }
    // What is wrong where the walk has ended; empty for nothing.
    const std::string& damage() const noexcept { return damage_; }

    std::int64_t read() const noexcept { return read_ + (messages_ ? messages_->messagesRead() : 0); }
    std::int64_t blocksRead() const noexcept { return blocksRead_ + (messages_ ? messages_->blocksRead() : 0); }
    std::int64_t blocksSkipped() const noexcept {
        return blocksSkipped_ + (messages_ ? messages_->blocksSkipped() : 0);
    }

  private:
    bool openWindow();
    void closeWindow();

    AskedTable& table_;
    const Question& question_;
    bool backward_;
    std::vector<BlockSpan> spans_;
    Position first_{};
    Position end_{};
    Position boundary_{};
    Position windowEnd_{};
    std::optional<Messages> messages_;
    const MessageView* message_ = nullptr;
    bool isDone_ = false;
    std::string damage_;
    std::int64_t read_ = 0;
    std::int64_t blocksRead_ = 0;
    std::int64_t blocksSkipped_ = 0;
};

// The message that begins a block.
Position firstOf(const BlockSpan& block) noexcept;

}  // namespace tabulo::tool::serve
