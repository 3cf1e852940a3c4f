// What stands behind a MessageView.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "messagetable/message.h"
#include "tabulo/message.h"
#include "tabulo/table_info.h"

namespace tabulo::api {

// What all messages of one table share.
struct TableState {
    Layout layout;
    internal::MessageTableLayout numbers;
    std::string name;
    std::size_t index = 0;        // in a Follower
    std::int32_t footerSize = 0;  // 0 for a message that stands in no table
};

// Tells how many blocks stand in front of the one at a file offset.
struct BlockCounter {
    std::int64_t (*blocksBefore)(void* owner, std::int64_t block) = nullptr;
    std::shared_ptr<void> owner;
};

struct MessageState {
    std::shared_ptr<const TableState> table;
    const internal::DecodedMessage* message = nullptr;  // of whoever shows it: to copy it takes as long as to decode it
    const std::byte* frame = nullptr;                   // message->frameLength bytes
    Position position;
    std::int32_t indexInBlock = 0;
    mutable std::int64_t blockOrdinal = -1;  // -1: the counter tells, once
    BlockCounter counter;
};

struct MessageCopyState {
    std::vector<std::byte> frame;
    internal::DecodedMessage decoded;
    MessageState message;
};

// Where the message behind this one stands, or will stand. Called here only: for the view's next().
Position messageState_next(const MessageState& state) noexcept;

// Turns messages into the form in which the library stores them, with buffers that are used again.
class MessageEncoder {
  public:
    // Checks the message against the layout and takes it. Throws wrongParameter, stringFieldsCountMismatch,
    // numericFieldsCountMismatch, streamExtension.
    void take(const Message& message, const internal::MessageTableLayout& layout);
    // The message that was taken last, valid until the next one is.
    internal::MessageView view() const noexcept { return internal::message_view(message_, layout_); }
    // Why storing that message has failed with this code: a stream that cannot grow says streamExtension, also where
    // it had no memory.
    internal::ErrorCode causeOf(internal::ErrorCode code) const noexcept;

  private:
    void putText(const Text& text, internal::StringField* field);

    internal::MessageTableLayout layout_;
    internal::DecodedMessage message_;
    std::vector<char> texts_;
    std::size_t used_ = 0;
};

}  // namespace tabulo::api
