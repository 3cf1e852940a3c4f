#include "adapters/sqlite/file_stream.h"

#include <algorithm>
#include <utility>

#include "adapters/sqlite/time_range.h"

namespace tabulo::sqlite {

namespace {

TableFile::Key keyOfOrder(Order order) {
    return order == Order::uniformIds ? TableFile::Key::uniformId : TableFile::Key::time;
}

}  // namespace

FileStream::FileStream(Connection& connection, Source source, Order order, bool isBackward)
    : connection_(connection),
      source_(std::move(source)),
      order_(order),
      isBackward_(isBackward),
      isStored_(order == Order::stored || order == Order::rowids),
      isOrdered_(!isStored_ && source_.file->isOrdered(keyOfOrder(order))),
      end_(source_.file->end()) {
    Reader& reader = source_.file->reader();
    if (source_.ordinals.last < INT64_MAX - 1) {
        const std::optional<Position> behind = reader.positionOf(std::max<std::int64_t>(source_.ordinals.last, -1) + 1);
        if (behind.has_value() && (!end_.has_value() || *behind < *end_)) {
            end_ = behind;
        }
    }
    if (source_.ordinals.first > 0) {
        const std::optional<Position> first = reader.positionOf(source_.ordinals.first);
        isNothing_ = !first.has_value() || (end_.has_value() && !(*first < *end_));
        if (!isNothing_) {
            source_.query.from(*first);
        }
    }
    if (isBackward_) {
        source_.query.backward();
    }
    if (!isNothing_) {
        messages_.emplace(reader.messages(source_.query, connection_.work()));
    }
}

FileStream::~FileStream() {
    count();
}

void FileStream::count() noexcept {
    if (!messages_.has_value()) {
        return;
    }
    const WorkCounts now{messages_->blocksRead(), messages_->blocksSkipped(), messages_->messagesRead()};
    connection_.counts.blocksRead += now.blocksRead - counted_.blocksRead;
    connection_.counts.blocksSkipped += now.blocksSkipped - counted_.blocksSkipped;
    connection_.counts.messagesRead += now.messagesRead - counted_.messagesRead;
    counted_ = now;
}

std::int64_t FileStream::keyOf(const MessageView& message) const noexcept {
    return order_ == Order::times || order_ == Order::isoTimes ? message.time() : message.uniformId();
}

// A time that is shown as a number, stored since the plan was made, has no place in the order of texts.
void FileStream::checkTime(const MessageView& message) const {
    const IsoTimes iso = source_.unit.has_value() ? isoTimes(*source_.unit) : IsoTimes{1, 0};
    if (message.time() < iso.first || message.time() > iso.last) {
        throw Error({.code = Code::consistency,
                     .path = source_.file->path(),
                     .offset = message.position().offset,
                     .detail = "a time that is no date has been stored meanwhile; run the statement again"});
    }
}

// The next message in the order of the file.
const MessageView* FileStream::read() {
    if (isNothing_) {
        return nullptr;
    }
    try {
        for (;;) {
            const MessageView* message = messages_->next();
            if (message == nullptr) {
                if (messages_->ending() == Ending::dropped) {
                    throw Error({.code = Code::tableClosed,
                                 .path = source_.file->path(),
                                 .detail = "the table was emptied while the statement read it; run it again"});
                }
                isNothing_ = true;
                return nullptr;
            }
            if (!end_.has_value() || message->position() < *end_) {
                if (order_ == Order::isoTimes) {
                    checkTime(*message);
                }
                return message;
            }
            if (!isBackward_) {
                isNothing_ = true;
                return nullptr;
            }
        }
    } catch (const Error& error) {
        if (!isBackward_ && end_.has_value() && error.offset().has_value() && *error.offset() >= end_->offset) {
            isNothing_ = true;  // damage that has come since the statement began
            return nullptr;
        }
        throw;
    }
}

const MessageView* FileStream::next() {
    current_ = isStored_ ? read() : isOrdered_ ? nextOfBlock() : nextOfPlaces();
    if (current_ == nullptr) {
        count();
    }
    return current_;
}

// Blocks follow one another in the order of the key; inside one any order may be.
const MessageView* FileStream::nextOfBlock() {
    if (taken_ == block_.size()) {
        block_.clear();
        taken_ = 0;
        const MessageView* message = ahead_ != nullptr ? ahead_ : read();
        ahead_ = nullptr;
        const std::int64_t block = message == nullptr ? 0 : message->position().block;
        for (; message != nullptr; message = read()) {
            if (message->position().block != block) {
                ahead_ = message;
                break;
            }
            block_.emplace_back(*message);
        }
        std::stable_sort(block_.begin(), block_.end(), [this](const MessageCopy& a, const MessageCopy& b) {
            return isBefore(keyOf(a.view()), keyOf(b.view()));
        });
        if (block_.empty()) {
            return nullptr;
        }
    }
    view_ = block_[taken_].view();
    taken_ += 1;
    if (lastKey_.has_value() && isBefore(keyOf(*view_), *lastKey_)) {
        throw Error({.code = Code::consistency,
                     .path = source_.file->path(),
                     .offset = view_->position().offset,
                     .detail = "a message is out of the order that the blocks' footers tell"});
    }
    lastKey_ = keyOf(*view_);
    return &*view_;
}

// Blocks that overlap have been stored since the plan was made: their messages are put in order by their places.
const MessageView* FileStream::nextOfPlaces() {
    if (!arePlacesSorted_) {
        arePlacesSorted_ = true;
        for (const MessageView* message = read(); message != nullptr; message = read()) {
            places_.push_back({keyOf(*message), message->position()});
        }
        std::stable_sort(places_.begin(), places_.end(),
                         [this](const Place& a, const Place& b) { return isBefore(a.key, b.key); });
    }
    if (taken_ == places_.size()) {
        return nullptr;
    }
    Query query;
    query.from(places_[taken_].position);
    taken_ += 1;
    connection_.checkInterrupt();
    placed_.emplace(source_.file->reader().messages(query));
    return placed_->next();
}

}  // namespace tabulo::sqlite
