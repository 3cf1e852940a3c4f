// A message table as the list of its messages: what every operation must answer, told from that list alone, without the
// library's encoding, classes, indexes or blocks.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

#include "tests/query/query_fixture.h"
#include "tests/support/bytes.h"

namespace tabulo::internal::test {

// The class of a connection message id by the table of ranges, -1 for a negative id.
int plainClassOf(std::int32_t connMsgId);
// First and last id of a class.
std::pair<std::int32_t, std::int32_t> plainClassRange(int messageClass);

// A sequence number and its time.
struct PlainSeqNum {
    std::int32_t seqNum = 0;
    std::int64_t timestamp = 0;
};

// What the lookups answer from.
struct PlainIndexes {
    std::array<std::int32_t, 5> highestIds = {-1, -1, -1, -1, -1};
    std::int32_t lastUniform = 0;
    PlainSeqNum firstPending;
    PlainSeqNum lastPending;
    PlainSeqNum lastGood;

    void add(const MessageMetadata& metadata);
};

// The frame of a message, little-endian.
Bytes plainFrame(const Message& message);

class TableModel {
  public:
    explicit TableModel(const MessageTableLayout& layout);

    const std::vector<Message>& messages() const { return messages_; }
    std::size_t size() const { return messages_.size(); }
    const MessageTableLayout& layout() const { return layout_; }
    const PlainIndexes& indexes() const { return indexes_; }

    void append(const Message& message);
    // Forgets all but the first `count` messages. The generation counts these events, and those of rewind().
    void cutTo(std::size_t count);
    // Something behind the messages has come and gone.
    void rewind() { generation_ += 1; }
    int generation() const { return generation_; }

    // Places in the file that holds these messages and nothing else.
    std::int64_t headerSize() const;
    std::int64_t footerSize() const;
    std::int64_t fileSize() const;
    std::int64_t openBlockStart() const;
    std::int64_t frameStart(std::size_t index) const { return starts_[index]; }
    std::int64_t frameEnd(std::size_t index) const { return starts_[index] + lengths_[index]; }
    // True for a message whose block is full.
    bool isInFullBlock(std::size_t index) const;
    // How many messages are whole in a file cut to this size.
    std::size_t wholeIn(std::int64_t fileSize) const;

  private:
    std::int64_t endBehind(std::size_t count) const;
    std::size_t perBlock() const { return static_cast<std::size_t>(layout_.messagesPerBlock); }

    MessageTableLayout layout_;
    std::vector<Message> messages_;
    std::vector<std::int64_t> starts_;
    std::vector<std::int64_t> lengths_;
    PlainIndexes indexes_;
    int generation_ = 0;
};

}  // namespace tabulo::internal::test
