// The messages that a statement asks of one file, as they are stored or in the order of a key.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "adapters/sqlite/message_stream.h"

namespace tabulo::sqlite {

class FileStream {
  public:
    FileStream(Connection& connection, Source source, Order order, bool isBackward);
    ~FileStream();
    FileStream(const FileStream&) = delete;
    FileStream& operator=(const FileStream&) = delete;

    // The errors of MessageStream::next.
    const MessageView* next();
    const MessageView* current() const noexcept { return current_; }
    // What the message at hand is merged by.
    std::int64_t key() const noexcept { return keyOf(*current_); }
    const Source& source() const noexcept { return source_; }

  private:
    // A message by its place, where blocks overlap after all.
    struct Place {
        std::int64_t key;
        Position position;
    };

    void checkTime(const MessageView& message) const;
    std::int64_t keyOf(const MessageView& message) const noexcept;
    bool isBefore(std::int64_t a, std::int64_t b) const noexcept { return isBackward_ ? b < a : a < b; }
    const MessageView* read();
    const MessageView* nextOfBlock();
    const MessageView* nextOfPlaces();
    void count() noexcept;

    Connection& connection_;
    Source source_;
    const Order order_;
    const bool isBackward_;
    const bool isStored_;          // given as it is stored
    const bool isOrdered_;         // else: whether the blocks have the order still, that the plan has found
    std::optional<Position> end_;  // messages from there on are not given
    bool isNothing_ = false;
    std::optional<Messages> messages_;
    const MessageView* current_ = nullptr;
    WorkCounts counted_;

    std::vector<MessageCopy> block_;  // what is selected of one block, in order
    std::size_t taken_ = 0;
    std::optional<MessageView> view_;
    const MessageView* ahead_ = nullptr;  // the first one of the next block
    std::optional<std::int64_t> lastKey_;

    bool arePlacesSorted_ = false;
    std::vector<Place> places_;
    std::optional<Messages> placed_;
};

}  // namespace tabulo::sqlite
