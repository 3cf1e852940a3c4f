#include "tests/api/stored_table.h"

#include <algorithm>
#include <bit>
#include <sstream>

#include "tests/api/api_test.h"

namespace tabulo::test {
namespace {

Text borrow(const StoredText& text) {
    return text.has_value() ? Text(*text) : Text();
}

StoredText own(const Text& text) {
    return text.has_value() ? StoredText(std::string(*text)) : StoredText();
}

bool same(const Text& text, const StoredText& stored) {
    return text == borrow(stored);
}

// Bit by bit: a NaN is the same as itself.
bool same(const Number& left, const Number& right) {
    if (left.index() != right.index()) {
        return false;
    }
    if (const auto* number = std::get_if<double>(&left)) {
        return std::bit_cast<std::uint64_t>(*number) == std::bit_cast<std::uint64_t>(std::get<double>(right));
    }
    return left == right;
}

// What of the content differs, or nothing.
const char* differingField(const MessageView& view, const StoredMessage& stored) {
    if (view.uniformId() != stored.uniformId) return "uniformId";
    if (view.seqNum() != stored.seqNum) return "seqNum";
    if (view.prevSeqNum() != stored.prevSeqNum) return "prevSeqNum";
    if (view.id() != stored.id) return "id";
    if (view.time() != stored.time) return "time";
    if (view.type() != stored.type) return "type";
    if (view.possDup() != stored.possDup) return "possDup";
    if (view.outOfSequence() != stored.outOfSequence) return "outOfSequence";
    if (view.messageClass() != classOf(stored.id)) return "messageClass";
    if (!same(view.text0(), stored.text0)) return "text0";
    if (!same(view.text1(), stored.text1)) return "text1";
    if (!same(view.wire(), stored.wire)) return "wire";
    if (!same(view.nonMetadata(), stored.nonMetadata)) return "nonMetadata";
    for (std::size_t i = 0; i < view.textCount(); ++i) {
        if (!same(view.text(i), i < stored.texts.size() ? stored.texts[i] : StoredText())) return "a text";
    }
    for (std::size_t i = 0; i < view.numberCount(); ++i) {
        if (!same(view.number(i), i < stored.numbers.size() ? stored.numbers[i] : Number())) return "a number";
    }
    return nullptr;
}

std::string shown(const Position& position) {
    return "{" + std::to_string(position.block) + ", " + std::to_string(position.offset) + "}";
}

}  // namespace

Message StoredMessage::borrowed() const {
    Message message{.uniformId = uniformId,
                    .seqNum = seqNum,
                    .prevSeqNum = prevSeqNum,
                    .id = id,
                    .time = time,
                    .type = type,
                    .possDup = possDup,
                    .outOfSequence = outOfSequence,
                    .text0 = borrow(text0),
                    .text1 = borrow(text1)};
    for (const StoredText& text : texts) {
        message.texts.push_back(borrow(text));
    }
    message.numbers = numbers;
    message.wire = borrow(wire);
    message.nonMetadata = borrow(nonMetadata);
    return message;
}

StoredMessage simpleMessage(std::int32_t n) {
    const SimpleMessage simple(n);
    const Message& message = simple.message;
    StoredMessage stored{.uniformId = message.uniformId,
                         .seqNum = message.seqNum,
                         .prevSeqNum = message.prevSeqNum,
                         .id = message.id,
                         .time = message.time,
                         .type = std::string(message.type),
                         .possDup = message.possDup,
                         .outOfSequence = message.outOfSequence,
                         .text0 = own(message.text0),
                         .text1 = own(message.text1),
                         .numbers = message.numbers,
                         .wire = own(message.wire),
                         .nonMetadata = own(message.nonMetadata)};
    for (const Text& text : message.texts) {
        stored.texts.push_back(own(text));
    }
    return stored;
}

std::vector<StoredMessage> simpleMessages(std::int32_t count) {
    std::vector<StoredMessage> messages;
    for (std::int32_t n = 1; n <= count; ++n) {
        messages.push_back(simpleMessage(n));
    }
    return messages;
}

StoredTable::StoredTable(const std::filesystem::path& path, const Layout& layout,
                         const std::vector<StoredMessage>& stored)
    : writer(Writer::create(path, layout)), places{writer.end()} {
    appendAll(stored);
}

void StoredTable::append(const StoredMessage& message) {
    writer.append(message.borrowed());
    messages.push_back(message);
    places.push_back(writer.end());
}

void StoredTable::appendAll(const std::vector<StoredMessage>& more) {
    for (const StoredMessage& message : more) {
        append(message);
    }
}

void StoredTable::drop() {
    writer.drop();
    messages.clear();
    places.assign(1, writer.end());
}

std::string viewFault(const MessageView& view, const StoredTable& table, std::size_t index) {
    std::ostringstream fault;
    const StoredMessage& stored = table.messages.at(index);
    std::vector<std::byte> frame;
    encode(stored.borrowed(), table.writer.layout(), frame);
    if (const char* field = differingField(view, stored); field != nullptr) {
        fault << field << " is not as it was stored; ";
    }
    if (!std::ranges::equal(view.frame(), frame)) {
        fault << "the frame is not as it was stored; ";
    }
    if (view.position() != table.place(index)) {
        fault << "it stands at " << shown(table.place(index)) << ", not at " << shown(view.position()) << "; ";
    }
    if (view.next() != table.place(index + 1)) {
        fault << "the next one stands at " << shown(table.place(index + 1)) << ", not at " << shown(view.next())
              << "; ";
    }
    if (view.ordinal() != static_cast<std::int64_t>(index)) {
        fault << "its number is said to be " << view.ordinal() << "; ";
    }
    if (view.table() != table.writer.table() || view.tableIndex() != 0 || view.layout() != table.writer.layout()) {
        fault << "the table is not its own; ";
    }
    return fault.str().empty() ? "" : "message " + std::to_string(index) + ": " + fault.str();
}

namespace {

std::string stepFault(Messages& messages, const StoredTable& table, const std::vector<std::size_t>& expected) {
    for (std::size_t i = 0; i < expected.size(); ++i) {
        const std::string place = "step " + std::to_string(i) + " of " + std::to_string(expected.size()) + ": ";
        const MessageView* message = messages.next();
        if (message == nullptr) {
            return place + "nothing comes in place of message " + std::to_string(expected[i]) + "; the ending is " +
                   std::to_string(static_cast<int>(messages.ending()));
        }
        if (messages.current() != message || messages.ending() != Ending::none) {
            return place + "what is current, or the ending, does not agree with what next has given";
        }
        if (const std::string fault = viewFault(*message, table, expected[i]); !fault.empty()) {
            return place + fault;
        }
    }
    if (const MessageView* message = messages.next(); message != nullptr) {
        return "behind the last of " + std::to_string(expected.size()) + " comes the one at " +
               shown(message->position());
    }
    if (messages.current() != nullptr || messages.ending() != Ending::data) {
        return "the ending is " + std::to_string(static_cast<int>(messages.ending())) + " or something is current";
    }
    return "";
}

}  // namespace

std::string walkFault(Messages& messages, const StoredTable& table, const std::vector<std::size_t>& expected) {
    try {
        return stepFault(messages, table, expected);
    } catch (const Error& error) {
        return std::string("the walk ends in an error: ") + error.what();
    }
}

std::vector<std::size_t> numbersOf(std::size_t first, std::size_t last, bool backward) {
    std::vector<std::size_t> numbers;
    for (std::size_t i = first; i < last; ++i) {
        numbers.push_back(i);
    }
    if (backward) {
        std::ranges::reverse(numbers);
    }
    return numbers;
}

std::vector<std::int32_t> idsOf(Messages messages) {
    std::vector<std::int32_t> ids;
    for (const MessageView& message : messages) {
        ids.push_back(message.uniformId());
    }
    return ids;
}

std::vector<std::int32_t> idsUpTo(std::int32_t count) {
    std::vector<std::int32_t> ids;
    for (std::int32_t n = 1; n <= count; ++n) {
        ids.push_back(n);
    }
    return ids;
}

}  // namespace tabulo::test
