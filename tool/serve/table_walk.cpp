#include "tool/serve/table_walk.h"

#include <fmt/format.h>

#include <algorithm>

#include "tabulo/error.h"
#include "tool/serve/request_words.h"

namespace tabulo::tool::serve {

namespace {

constexpr std::int64_t LENGTH_WORD = 8;  // in front of a block's messages
constexpr std::ptrdiff_t WINDOW = 256;   // blocks

}  // namespace

Position firstOf(const BlockSpan& block) noexcept {
    return {block.offset, block.offset + LENGTH_WORD};
}

TableWalk::TableWalk(AskedTable& table, const Question& question, bool backward, std::optional<Position> begin)
    : table_(table), question_(question), backward_(backward) {
    first_ = table.reader.begin();
    try {
        end_ = table.reader.end();
    } catch (const Error& error) {  // damage stands where the data ends: it is met, or not, on the way
        damage_ = error.what();
        end_ = {};
    }
    spans_ = table.sight->spans->all(question.work());
    if (end_ == Position{}) {
        end_ = spans_.empty() ? first_ : firstOf(spans_.back());
    }
    if (begin.has_value() && (*begin < first_ || (*begin > end_ && damage_.empty()))) {
        throw Refusal(400,
                      fmt::format("no message of {} can stand at {}: the table was emptied since, or the cursor is "
                                  "of another one",
                                  table.sight->id, placeText(*begin)));
    }
    boundary_ = begin.value_or(backward ? end_ : first_);
    isDone_ = backward ? boundary_ <= first_ : boundary_ >= end_;
}

bool TableWalk::openWindow() {
    question_.check();
    isDone_ = backward_ ? boundary_ <= first_ : boundary_ >= end_;
    if (isDone_) {
        return false;
    }
    const auto next = std::upper_bound(spans_.begin(), spans_.end(), boundary_.offset,
                                       [](std::int64_t offset, const BlockSpan& span) { return offset < span.offset; });
    Query query = table_.selection.query;
    if (backward_) {
        const bool isFirst = next - spans_.begin() <= WINDOW;
        windowEnd_ = isFirst ? first_ : std::max(first_, firstOf(*(next - WINDOW)));
        query.backward().from(windowEnd_).before(boundary_);
    } else {
        const bool isLast = spans_.end() - next <= WINDOW;
        windowEnd_ = isLast ? end_ : std::min(end_, firstOf(*(next + WINDOW)));
        query.from(boundary_).before(windowEnd_);
    }
    messages_.emplace(table_.reader.messages(query, question_.work()));
    return true;
}

void TableWalk::closeWindow() {
    read_ += messages_->messagesRead();
    blocksRead_ += messages_->blocksRead();
    blocksSkipped_ += messages_->blocksSkipped();
    messages_.reset();
}

void TableWalk::advance() {
    if (message_ != nullptr) {
        boundary_ = backward_ ? message_->position() : message_->next();
        message_ = nullptr;
    }
    try {
        while (messages_.has_value() || openWindow()) {
            while (const MessageView* message = messages_->next()) {
                if (!table_.selection.matches || table_.selection.matches(*message)) {
                    message_ = message;
                    boundary_ = backward_ ? message->next() : message->position();
                    return;
                }
            }
            const bool isDropped = messages_->ending() == Ending::dropped;
            closeWindow();
            boundary_ = windowEnd_;
            if (isDropped) {
                damage_ = "the table was emptied while it was read";
                break;
            }
        }
    } catch (const Error& error) {
        damage_ = error.what();
        messages_.reset();
    }
    isDone_ = true;
}

}  // namespace tabulo::tool::serve
