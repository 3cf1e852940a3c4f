#include "adapters/sqlite/message_stream.h"

#include <algorithm>
#include <utility>

#include "adapters/sqlite/file_stream.h"

namespace tabulo::sqlite {

MessageStream::MessageStream(Connection& connection, std::vector<Source> sources, Order order, bool isBackward)
    : connection_(connection), order_(order), isBackward_(isBackward) {
    for (Source& source : sources) {
        files_.push_back(std::make_unique<FileStream>(connection, std::move(source), order, isBackward));
    }
}

MessageStream::~MessageStream() = default;

// A tie goes to the file that comes first; backward, to the one that comes last.
bool MessageStream::isBehind(std::size_t a, std::size_t b) const noexcept {
    const std::int64_t keyA = files_[a]->key();
    const std::int64_t keyB = files_[b]->key();
    const bool isLater = keyA != keyB && order_ != Order::rowids ? keyA > keyB : a > b;
    return isLater != isBackward_;
}

void MessageStream::begin() {
    for (std::size_t i = 0; i < files_.size(); ++i) {
        if (files_[i]->next() != nullptr) {
            heads_.push_back(i);
        }
    }
    std::make_heap(heads_.begin(), heads_.end(), [this](std::size_t a, std::size_t b) { return isBehind(a, b); });
}

// The file on top has just gone on: puts it where it belongs. Mostly it stays.
void MessageStream::sink() {
    for (std::size_t at = 0;;) {
        std::size_t child = 2 * at + 1;
        if (child + 1 < heads_.size() && isBehind(heads_[child], heads_[child + 1])) {
            ++child;
        }
        if (child >= heads_.size() || !isBehind(heads_[at], heads_[child])) {
            return;
        }
        std::swap(heads_[at], heads_[child]);
        at = child;
    }
}

const MessageView* MessageStream::next() {
    if (!hasBegun_) {
        hasBegun_ = true;
        begin();
    } else if (!heads_.empty()) {
        if (files_[given_]->next() == nullptr) {
            heads_.front() = heads_.back();
            heads_.pop_back();
        }
        if (heads_.size() > 1) {
            sink();
        }
    }
    if (heads_.empty()) {
        return nullptr;
    }
    given_ = heads_.front();
    return files_[given_]->current();
}

const Source& MessageStream::source() const noexcept {
    return files_[given_]->source();
}

}  // namespace tabulo::sqlite
