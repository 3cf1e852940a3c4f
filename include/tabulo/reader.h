// Reading a message table, also beside a writer in this or another process.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <iterator>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tabulo/message.h"
#include "tabulo/query.h"
#include "tabulo/table_info.h"

namespace tabulo {

namespace api {
struct ReaderState;
struct MessagesState;
struct BlocksState;
}  // namespace api

// Why a range gives nothing more.
enum class Ending {
    none,     // it has not ended
    data,     // the end of the data, or the place given with Query::before; the beginning, when backward
    stopped,  // it was asked to stop
    // The table was emptied under it; what it had still to give is gone. That is seen by a file that has become
    // shorter: one that was filled again beyond the place before the range was asked again cannot be told from the old
    // one, and messages of the new content, or damage, may follow.
    dropped,
};

// Steps through one of the ranges below, which lends each value until the next one is asked for.
template <typename Range, typename Value>
class RangeIterator {
  public:
    using iterator_concept = std::input_iterator_tag;
    using value_type = Value;
    using difference_type = std::ptrdiff_t;

    explicit RangeIterator(Range* range = nullptr) noexcept : range_(range) {}
    const Value& operator*() const noexcept { return *range_->current(); }
    const Value* operator->() const noexcept { return range_->current(); }
    RangeIterator& operator++() {
        range_->next();
        return *this;
    }
    void operator++(int) { range_->next(); }
    friend bool operator==(const RangeIterator& iterator, std::default_sentinel_t) noexcept {
        return iterator.range_ == nullptr || iterator.range_->current() == nullptr;
    }

  private:
    Range* range_;
};

// The messages that a query selects: an input range that borrows each message until the next one is asked for. Forward,
// it can be asked again behind the end of the data, and goes on with what has been stored since.
//
// Damage is told by an Error once everything in front of it has been given; asking again gives the same Error.
class Messages {
  public:
    using Iterator = RangeIterator<Messages, MessageView>;

    explicit Messages(std::unique_ptr<api::MessagesState> state) noexcept;  // made by a Reader
    Messages(Messages&&) noexcept;
    Messages& operator=(Messages&&) noexcept;
    ~Messages();

    // The next message, or null at an ending. The errors of reading.
    const MessageView* next();
    // The message that next has given; null before the first one and at an ending.
    const MessageView* current() const noexcept;
    // Begins with the message at hand, or with the next one when there is none.
    Iterator begin();
    std::default_sentinel_t end() const noexcept { return {}; }

    Ending ending() const noexcept;
    // Blocks that were read and blocks whose messages were skipped unread, so far; messages that were looked at. Of the
    // skipped ones the footer was read, or in an earlier query of this reader, which keeps its ranges; or nothing, when
    // the side index has spared them.
    std::int64_t blocksRead() const noexcept;
    std::int64_t blocksSkipped() const noexcept;
    std::int64_t messagesRead() const noexcept;

  private:
    std::unique_ptr<api::MessagesState> state_;
};

// The smallest and the largest of some values.
template <typename T>
struct ValueRange {
    T first{};
    T last{};

    bool operator==(const ValueRange& other) const noexcept = default;
};

// What is recorded about a block. That of an open block, which records nothing yet, is told from its messages.
struct BlockRecord {
    std::int64_t ordinal = 0;       // number of the block, from 0 on
    std::int64_t firstMessage = 0;  // ordinal of its first message
    std::int64_t offset = 0;        // in the file
    std::int64_t length = 0;        // with its length word, and its footer when it is closed
    bool closed = false;
    std::int32_t messageCount = 0;  // never 0
    ValueRange<std::int32_t> seqNums{};
    ValueRange<std::int32_t> uniformIds{};
    ValueRange<std::int64_t> times{};
    std::array<std::optional<ValueRange<std::int32_t>>, messageClassCount> ids{};  // by class number
    std::vector<std::optional<ValueRange<Number>>> numbers{};  // in the layout's order; none without a value
    // For each text with a filter (Layout::summarisedTexts): how many of its filterBits bits are set.
    std::vector<std::int32_t> filterBitsSet{};
    static constexpr std::int32_t filterBits = 10000;
};

// The blocks of a table in the order of the file, each read by its footer: an input range like Messages.
class Blocks {
  public:
    using Iterator = RangeIterator<Blocks, BlockRecord>;

    explicit Blocks(std::unique_ptr<api::BlocksState> state) noexcept;  // made by a Reader
    Blocks(Blocks&&) noexcept;
    Blocks& operator=(Blocks&&) noexcept;
    ~Blocks();

    const BlockRecord* next();
    const BlockRecord* current() const noexcept;
    Iterator begin();
    std::default_sentinel_t end() const noexcept { return {}; }
    Ending ending() const noexcept;

  private:
    std::unique_ptr<api::BlocksState> state_;
};

// A message table that is open for reading. Nothing is written, no lock is taken; every answer is of the moment at
// which it is given. One thread at a time uses a Reader and what it has made; what it has made may outlive it.
class Reader {
  public:
    // With the layout that the file has.
    explicit Reader(const std::filesystem::path& path);
    // With a layout that the file must have: stringFieldsCountMismatch, numericFieldsCountMismatch,
    // stringFieldsNamesMismatch, numericFieldsNamesMismatch, configMismatch.
    Reader(const std::filesystem::path& path, const Layout& layout);
    Reader(Reader&&) noexcept;
    Reader& operator=(Reader&&) noexcept;
    ~Reader();

    const std::filesystem::path& path() const;
    const std::string& table() const;
    const Layout& layout() const;

    // The highest connection message id of a class, and the uniform id of the last message, of which 0 counts as none.
    std::optional<std::int32_t> lastId(MessageClass messageClass);
    std::optional<std::int32_t> lastUniformId();
    // As in TableInfo; none also when its time is below `since`.
    std::optional<SequencePoint> lastGood(std::int64_t since = std::numeric_limits<std::int64_t>::min());
    std::optional<SequencePoint> firstPending(std::int64_t since = std::numeric_limits<std::int64_t>::min());
    std::optional<SequencePoint> lastPending(std::int64_t since = std::numeric_limits<std::int64_t>::min());

    // Where the first message stands, and where the next one will stand: the place behind the last whole message. Like
    // the look-ups above, end() gives consistency when bytes stand there that no crash can have left.
    Position begin() const;
    Position end();
    // The first message, in the order of the file, whose uniform id is at or above this one; end() when there is none.
    Position positionOfUniformId(std::int32_t uniformId);
    // The message with this number, from 0 on; none when there are fewer. indexOutOfBounds for a negative number.
    std::optional<Position> positionOf(std::int64_t ordinal);

    // Whether queries and look-ups use the table's side index, if there is one (tabulo/index.h); they do at first. What
    // they give does not change, but for the counts of Messages.
    void useIndex(bool use) noexcept;
    // Covers the closed blocks by the side index now, as Indexer::complete, and again before a query that finds 16
    // more. The errors of an Indexer, which this Reader is from then on.
    void keepIndex(const Work& work = {});

    // The errors of the query's conditions; see Query.
    Messages messages(const Query& query = {}, Work work = {});
    Blocks blocks(Work work = {});
    // From a block on that has been given before, which is read again: it may have been open then. vseek when no block
    // begins there any more.
    Blocks blocksFrom(const BlockRecord& block, Work work = {});

  private:
    std::shared_ptr<api::ReaderState> state_;
};

}  // namespace tabulo
