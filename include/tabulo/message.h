// Messages: what is given to a Writer and what readers give back.
#pragma once

#include <compare>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string_view>
#include <variant>
#include <vector>

namespace tabulo {

struct Layout;
namespace api {
struct MessageState;
struct MessageCopyState;
}  // namespace api

// The kind of a message, told by the range that its connection message id lies in. The numbers are those of the file
// format and do not follow the order of the ranges.
enum class MessageClass : std::int32_t {
    appFrom = 0,    // 536870911 to 1073741822: application message from the counterparty
    appTo = 1,      // 0 to 536870910: application message to the counterparty
    adminFrom = 2,  // 1342177279 to 1610612734: administrative message from the counterparty
    adminTo = 3,    // 1073741823 to 1342177278: administrative message to the counterparty
    resent = 4,     // 1610612735 to 2147483647: resent message
};
inline constexpr std::size_t messageClassCount = 5;

// The class of a connection message id; none for a negative one.
std::optional<MessageClass> classOf(std::int32_t id) noexcept;
// The first and the last id of a class.
std::int32_t firstId(MessageClass messageClass) noexcept;
std::int32_t lastId(MessageClass messageClass) noexcept;
// "APP_FROM", "APP_TO", "ADMIN_FROM", "ADMIN_TO", "RESENT"; the second is the reverse, none for any other text.
std::string_view className(MessageClass messageClass) noexcept;
std::optional<MessageClass> classNamed(std::string_view name) noexcept;

// A text of a message, borrowed. None is an absent one, which is not the empty text.
using Text = std::optional<std::string_view>;
// A number of a message: absent, a double, or a 64-bit integer.
using Number = std::variant<std::monostate, double, std::int64_t>;

// A message to append. Texts are borrowed until the append returns, and are stored as they are with a terminating zero
// byte, as every binding stores them; they may hold any bytes. A Message can be used again and again.
struct Message {
    std::int32_t uniformId = 0;   // number in the sequence that all tables of an engine share
    std::int32_t seqNum = 0;      // FIX MsgSeqNum; negative for a message that waits to be sent, 0 for none
    std::int32_t prevSeqNum = 0;  // the negative number under which a message that is sent now had waited; 0 for none
    std::int32_t id = 0;          // connection message id, which tells the class
    std::int64_t time = 0;        // in a unit of the application's choice, which the table does not know
    std::string_view type{};      // FIX MsgType: at most five characters
    bool possDup = false;
    bool outOfSequence = false;
    Text text0{};  // two texts for the application's own use
    Text text1{};
    std::vector<Text> texts{};      // in the order of Layout::texts; those left out at the end are absent
    std::vector<Number> numbers{};  // in the order of Layout::numbers, likewise
    Text wire{};                    // the message as it goes over the wire
    Text nonMetadata{};             // fields of the application that are no FIX metadata
};

// A place in a table's file, from which a reader can go on. Places of one file are ordered by the offset.
struct Position {
    std::int64_t block = 0;   // file offset at which the message's block begins
    std::int64_t offset = 0;  // file offset of the message's frame

    bool operator==(const Position& other) const noexcept = default;
    std::strong_ordering operator<=>(const Position& other) const noexcept { return offset <=> other.offset; }
};

// A stored message, borrowed from whoever reads it: it shows the next one, or nothing, once that has gone on. Texts
// come without the zero byte that ends them in the file.
class MessageView {
  public:
    // Made by the library.
    explicit MessageView(const api::MessageState* state) noexcept : state_(state) {}

    std::int32_t uniformId() const noexcept;
    std::int32_t seqNum() const noexcept;
    std::int32_t prevSeqNum() const noexcept;
    std::int32_t id() const noexcept;
    std::optional<MessageClass> messageClass() const noexcept;
    std::int64_t time() const noexcept;
    std::string_view type() const noexcept;
    bool possDup() const noexcept;
    bool outOfSequence() const noexcept;

    Text text0() const noexcept;
    Text text1() const noexcept;
    // The configured fields, as many as the layout has. By index: indexOutOfBounds. By name: wrongParameter when the
    // layout has no such field, or two of that name.
    std::size_t textCount() const noexcept;
    std::size_t numberCount() const noexcept;
    Text text(std::size_t index) const;
    Text text(std::string_view name) const;
    Number number(std::size_t index) const;
    Number number(std::string_view name) const;
    Text wire() const noexcept;
    Text nonMetadata() const noexcept;

    // The stored bytes, as Writer::appendFrames takes them.
    std::span<const std::byte> frame() const noexcept;
    const Layout& layout() const noexcept;

    // The table's name, and its number in a Follower (0 elsewhere).
    std::string_view table() const noexcept;
    std::size_t tableIndex() const noexcept;
    // Where the message stands, and where the one behind it stands or will stand.
    Position position() const noexcept;
    Position next() const noexcept;
    // The message's number in its table, from 0 on. A walk that did not begin at the table's beginning counts the
    // blocks before it, once, when it is first asked.
    std::int64_t ordinal() const;

    // For the library.
    const api::MessageState& state() const noexcept { return *state_; }

  private:
    const api::MessageState* state_;
};

// A message that owns its bytes, for who keeps more than one at a time.
class MessageCopy {
  public:
    explicit MessageCopy(const MessageView& message);
    // A message from its frame: noData when it is cut or something stands behind it, consistency when it is damaged.
    // Its positions are 0, its table has no name.
    MessageCopy(std::span<const std::byte> frame, const Layout& layout);
    MessageCopy(MessageCopy&&) noexcept;
    MessageCopy& operator=(MessageCopy&&) noexcept;
    ~MessageCopy();

    // Valid as long as the copy. tableClosed for a copy that was moved from.
    MessageView view() const;

  private:
    std::unique_ptr<api::MessageCopyState> state_;
};

// Appends the frame of a message to `frames`, for Writer::appendFrames. The errors of Writer::append for a message that
// does not fit the layout; `frames` is then unchanged.
void encode(const Message& message, const Layout& layout, std::vector<std::byte>& frames);

}  // namespace tabulo
