// What a message table was given, kept outside of it: the messages of each of its lives with the places of their
// frames.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "tests/messagetable/message_table_fixture.h"
#include "tests/support/bytes.h"

namespace tabulo::internal::test {

// A message that was handed to the table, and where its frame stands when it is the life's next one.
struct KeptMessage {
    Message message;
    Bytes frame;
    std::size_t start = 0;

    std::size_t end() const { return start + frame.size(); }
};

// The table from its creation, or a drop, to the next drop.
using Life = std::vector<KeptMessage>;

class MessageHistory {
  public:
    explicit MessageHistory(const TableShape& shape);

    // A life that ends is kept, for it can come back until the new one is committed.
    void beginLife();
    // The lives before this one cannot come back any more.
    void forgetOlderLives();
    void replaceLife(const std::vector<Message>& messages);
    void add(const Message& message);
    // The message as the next one of the life.
    KeptMessage placed(const Life& life, const Message& message) const;

    const Life& life() const { return lives_.back(); }
    // The present life first, then older ones.
    std::vector<const Life*> lives() const;
    std::size_t headerSize() const { return headerSize_; }
    // The place of a closed block's footer in a life.
    std::size_t footerStart(const Life& life, std::size_t block) const;
    std::size_t footerSize() const { return footerSize_; }
    std::size_t messagesPerBlock() const { return messagesPerBlock_; }

  private:
    std::size_t messagesPerBlock_;
    std::size_t headerSize_;
    std::size_t footerSize_;
    std::vector<Life> lives_;
};

// True when the file holds these bytes at this offset.
bool holds(const Bytes& file, std::size_t offset, const Bytes& bytes);
// How many messages of a life, from its first on, stand whole in a file.
std::size_t wholeMessages(const Life& life, const Bytes& file);

}  // namespace tabulo::internal::test
