#include "tests/power/message_history.h"

#include <algorithm>

#include "tests/messagetable/table_image.h"

namespace tabulo::internal::test {

namespace {

constexpr std::size_t LENGTH_WORD = 8;

}  // namespace

MessageHistory::MessageHistory(const TableShape& shape)
    : messagesPerBlock_(static_cast<std::size_t>(shape.messagesPerBlock)), lives_(1) {
    const TableMap map = mapOf(shape, {});
    headerSize_ = map.headerSize;
    footerSize_ = map.footerSize;
}

void MessageHistory::beginLife() {
    lives_.emplace_back();
}

void MessageHistory::forgetOlderLives() {
    lives_.erase(lives_.begin(), lives_.end() - 1);
}

void MessageHistory::replaceLife(const std::vector<Message>& messages) {
    lives_.assign(1, {});
    for (const Message& message : messages) {
        add(message);
    }
}

void MessageHistory::add(const Message& message) {
    lives_.back().push_back(placed(lives_.back(), message));
}

KeptMessage MessageHistory::placed(const Life& life, const Message& message) const {
    KeptMessage kept{message, frameOf(message), life.empty() ? headerSize_ : life.back().end()};
    if (life.size() % messagesPerBlock_ == 0) {
        kept.start += LENGTH_WORD + (life.empty() ? 0 : footerSize_);
    }
    return kept;
}

std::vector<const Life*> MessageHistory::lives() const {
    std::vector<const Life*> found;
    for (auto life = lives_.rbegin(); life != lives_.rend(); ++life) {
        found.push_back(&*life);
    }
    return found;
}

std::size_t MessageHistory::footerStart(const Life& life, std::size_t block) const {
    return life.at((block + 1) * messagesPerBlock_ - 1).end();
}

bool holds(const Bytes& file, std::size_t offset, const Bytes& bytes) {
    return offset + bytes.size() <= file.size() &&
           std::equal(bytes.begin(), bytes.end(), file.begin() + static_cast<std::ptrdiff_t>(offset));
}

std::size_t wholeMessages(const Life& life, const Bytes& file) {
    std::size_t count = 0;
    while (count < life.size() && holds(file, life[count].start, life[count].frame)) {
        ++count;
    }
    return count;
}

}  // namespace tabulo::internal::test
