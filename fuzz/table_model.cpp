#include "fuzz/table_model.h"

#include <algorithm>
#include <array>

#include "fuzz/conditions_input.h"
#include "fuzz/harness.h"
#include "messagetable/message_lookup.h"
#include "query/match.h"
#include "query/message_read.h"
#include "tests/support/current_message.h"
#include "watcher/message_watcher.h"

namespace tabulo::internal::fuzz {

namespace {

constexpr std::size_t MOST_MESSAGES = 1000;  // more than any input can write

std::vector<std::uint8_t> frameOf(const Message& message) {
    const ByteStreamPtr stream(byteStream_create(0));
    requireSuccess(mfr_encodeMessage(MessageFields(message).view(), stream.get()), "encoding a message");
    return {byteStream_buffer(stream.get()), byteStream_buffer(stream.get()) + byteStream_writeMark(stream.get())};
}

bool matches(const QueryConditions& conditions, const Message& message) {
    return query_messageMatches(conditions, MessageFields(message).view());
}

struct Delivered {
    std::vector<Message> list;
    bool ended = false;
    int idlePasses = 0;

    MessageListener listener() {
        return {this,
                [](void* owner, const MessageView& message, Visit*) {
                    static_cast<Delivered*>(owner)->list.push_back(ownedMessage(message));
                    return NO_ERROR;
                },
                [](void* owner, ErrorCode code) {
                    static_cast<Delivered*>(owner)->ended = true;
                    return code;
                }};
    }
    WatchListener watchListener() {
        return {this,
                [](void* owner, const MessageView& message, std::int32_t, std::int32_t*) {
                    auto* delivered = static_cast<Delivered*>(owner);
                    require(delivered->list.size() <= MOST_MESSAGES, "a watcher delivers without an end");
                    delivered->list.push_back(ownedMessage(message));
                    return NO_ERROR;
                },
                // Two passes without a message, so that what an idle pass leaves behind is seen too.
                [](void* owner, std::int32_t* stop) {
                    *stop = ++static_cast<Delivered*>(owner)->idlePasses == 2 ? 1 : 0;
                    return NO_ERROR;
                }};
    }
};

}  // namespace

TableModel::TableModel(std::string name, const MessageTableLayout& layout, test::MemoryPlatform* platform)
    : name_(std::move(name)), layout_(layout), platform_(platform) {
}

MessageTable* TableModel::chosen(Input* input) const {
    const bool reader = input->flag();
    return reader && reader_ != nullptr ? reader_.get() : writer_.get();
}

void TableModel::settleUnsure(const Messages& found) {
    if (unsure_ && found.list.size() == stored_.size() + 1 && found.list.back() == *unsure_) {
        acknowledge(*unsure_);
    }
    unsure_.reset();
}

void TableModel::checkContent(MessageTable* table) {
    Messages found = readAll(table, false, MOST_MESSAGES);
    requireSuccess(found.code, "reading a whole table");
    settleUnsure(found);
    require(found.list == stored_, "a table holds something else than was acknowledged");
}

void TableModel::openWriter(bool anew) {
    if (writer_ != nullptr) {
        const MessageTablePtr second = createTable(layout_, name_);
        const ErrorCode code = mt_open(second.get(), anew ? OpenMode::create : OpenMode::write);
        require(code == FILE_OPEN_ERROR, "a second writer is let in");
        return;
    }
    if (anew) {
        iterator_.reset();
        reader_.reset();
        stored_.clear();
        unsure_.reset();
    }
    writer_ = createTable(layout_, name_);
    requireSuccess(mt_open(writer_.get(), anew ? OpenMode::create : OpenMode::write), "opening for writing");
    checkContent(writer_.get());
}

void TableModel::openReader() {
    if (reader_ != nullptr || unsure_) {
        return;
    }
    reader_ = createTable(layout_, name_);
    const ErrorCode code = mt_open(reader_.get(), OpenMode::read);
    if (!platform_->has(path())) {
        require(code == FILE_OPEN_ERROR, "a table that is not there is opened");
        reader_.reset();
        return;
    }
    requireSuccess(code, "opening for reading");
}

void TableModel::closeReader() {
    iterator_.reset();
    reader_.reset();
}

void TableModel::closeWriter() {
    if (writer_ == nullptr) {
        return;
    }
    iterator_.reset();
    requireSuccess(mt_close(writer_.get()), "closing");
    writer_.reset();
}

void TableModel::crash() {
    if (iterator_ != nullptr && iterator_->table == writer_.get()) {
        iterator_.reset();
    }
    writer_.reset();
}

void TableModel::tear(Input* input) {
    const Message message = messageFrom(input, layout_);
    if (!platform_->has(path())) {
        return;
    }
    crash();
    std::vector<std::uint8_t> tail;
    const bool halfFrame = input->flag();
    if (halfFrame) {
        tail = frameOf(message);
        if (stored_.size() % static_cast<std::size_t>(layout_.messagesPerBlock) == 0) {
            tail.insert(tail.begin(), BLOCK_LENGTH_SIZE, std::uint8_t{0});
        }
        tail.resize(std::min<std::size_t>(tail.size() - 1, input->byte()));
    } else {
        const auto any = input->take(input->byte() % 32);
        tail.assign(any.begin(), any.end());
    }
    test::Bytes bytes = platform_->bytes(path());
    bytes.insert(bytes.end(), tail.begin(), tail.end());
    platform_->put(path(), bytes);
    if (halfFrame && iterator_ != nullptr) {
        // The reader's iterator reads the half frame, which the next message replaces.
        for (std::size_t left = stored_.size() + 1 - delivered_; left > 0; --left) {
            stepIterator();
        }
    }
    openWriter(false);
}

void TableModel::drop() {
    if (writer_ == nullptr) {
        return;
    }
    requireSuccess(mt_drop(writer_.get()), "dropping");
    if (iterator_ != nullptr && iterator_->table == writer_.get()) {
        bool end = false;
        requireSuccess(mtIterator_next(iterator_.get(), &end), "an iterator over a dropped table");
        require(end, "an iterator goes on in a dropped table");
    }
    // A reader tells a table that was filled again from the old one by its size only.
    closeReader();
    stored_.clear();
    checkContent(writer_.get());
}

void TableModel::write(Input* input) {
    const Message message = messageFrom(input, layout_);
    if (writer_ != nullptr) {
        requireSuccess(writeMessage(writer_.get(), message), "writing");
        acknowledge(message);
    }
    if (reader_ != nullptr) {
        require(writeMessage(reader_.get(), message) == READ_ONLY_ERROR, "a reader writes");
    }
}

void TableModel::writeRaw(Input* input) {
    std::vector<std::uint8_t> bytes;
    if (input->flag()) {
        bytes = frameOf(messageFrom(input, layout_));
    } else {
        const auto any = input->take(input->byte());
        bytes.assign(any.begin(), any.end());
    }
    if (writer_ == nullptr || bytes.empty()) {
        return;
    }
    const auto length = static_cast<std::int32_t>(bytes.size());
    KSVByteStream stream;
    byteStream_init(&stream, bytes.data(), length);
    byteStream_resetWrite(&stream, length);
    DecodedMessage decoded;
    const ErrorCode expected = mfr_decodeMessage(layout_, &stream, &decoded);
    require(mt_writeRawMessage(writer_.get(), bytes.data(), length) == expected, "a raw message gives another code");
    if (expected == NO_ERROR) {
        acknowledge(ownedMessage(message_view(decoded, layout_)));
    }
}

void TableModel::writeWithFault(Input* input, int n, const std::function<void()>& arm,
                                const std::function<void()>& disarm) {
    const Message message = messageFrom(input, layout_);
    if (writer_ == nullptr) {
        return;
    }
    arm();
    const ErrorCode code = writeMessage(writer_.get(), message);
    disarm();
    if (code == NO_ERROR) {
        acknowledge(message);
        return;
    }
    require(code == FILE_WRITE_ERROR || code == FILE_FLUSH_ERROR, "a failed write gives another code");
    // A frame, or a block's length word, that fails is cut back; only a tail that cannot be saved leaves the message.
    if (n > 2) {
        unsure_ = message;
    }
    require(writeMessage(writer_.get(), message) != NO_ERROR, "a table whose file failed goes on");
    closeReader();
    closeWriter();
    openWriter(false);
}

void TableModel::lookUp(Input* input) {
    const std::int32_t classBase = connMsgClassFirstId(static_cast<MessageClass>(input->below(MESSAGE_CLASS_COUNT)));
    MessageTable* table = chosen(input);
    if (table == nullptr || unsure_) {
        return;
    }
    std::int32_t highest = -1;
    std::int32_t good = 0;
    for (const Message& message : stored_) {
        const MessageMetadata& metadata = message.metadata;
        if (classifyConnMsgId(metadata.connMsgId) == classifyConnMsgId(classBase)) {
            highest = std::max(highest, metadata.connMsgId);
        }
        if (metadata.seqNum > 0 && metadata.isOutOfSequence == 0 && metadata.connMsgId <= 1610612734) {
            good = metadata.seqNum;
        }
    }
    std::int32_t number = 0;
    requireSuccess(mt_getLastMessageId(table, classBase, &number), "a lookup of the last id");
    require(number == (highest < 0 ? classBase : highest), "the last id is wrong");
    requireSuccess(mt_getLastUniformMessageId(table, &number), "a lookup of the last uniform id");
    require(number == (stored_.empty() ? 0 : stored_.back().metadata.uniformId), "the last uniform id is wrong");
    std::int64_t timestamp = 0;
    requireSuccess(mt_getLastGoodMsgSeqNum(table, INT64_MIN, &number, &timestamp), "a lookup of the last good one");
    require(number == good, "the last good sequence number is wrong");
}

void TableModel::readWhole(Input* input) {
    MessageTable* table = chosen(input);
    if (table == nullptr || unsure_) {
        return;
    }
    std::vector<Message> reversed(stored_.rbegin(), stored_.rend());
    for (const auto read : {readAll, readByWalk}) {
        require(read(table, false, MOST_MESSAGES).list == stored_, "reading forward gives something else");
        require(read(table, true, MOST_MESSAGES).list == reversed, "reading backward gives something else");
    }
}

void TableModel::query(Input* input) {
    MessageTable* table = chosen(input);
    Input taken(input->take(input->byte()));
    QueryConditionsPtr conditions = conditionsFrom(&taken, layout_);
    if (table == nullptr || unsure_ || conditions_leaveOutClosedBlocks(*conditions)) {
        return;
    }
    std::vector<Message> expected;
    for (const Message& message : stored_) {
        if (matches(*conditions, message) != conditions->inverted) {
            expected.push_back(message);
        }
    }
    if (conditions->iterateBackward) {
        std::reverse(expected.begin(), expected.end());
    }
    const Messages found = readByIterator(table, std::move(conditions), MOST_MESSAGES);
    requireSuccess(found.code, "a query");
    require(found.list == expected, "a query gives something else");
}

void TableModel::readMessages(Input* input) {
    MessageTable* table = chosen(input);
    const bool backward = input->flag();
    const std::int32_t count = input->below(4);
    std::vector<std::int32_t> ids;
    for (std::int32_t i = 0; i < count; ++i) {
        const std::size_t which = input->byte();
        ids.push_back(which < stored_.size() ? stored_[which].metadata.connMsgId : input->smallOrAny());
    }
    if (table == nullptr || unsure_) {
        return;
    }
    std::vector<Message> expected;
    for (const Message& message : stored_) {
        const std::int32_t id = message.metadata.connMsgId;
        if (id >= 0 && std::find(ids.begin(), ids.end(), id) != ids.end()) {
            expected.push_back(message);
        }
    }
    if (backward) {
        std::reverse(expected.begin(), expected.end());
    }
    Delivered delivered;
    const MessageListener listener = delivered.listener();
    requireSuccess(mt_readMessages(table, ids.data(), count, &listener, backward), "reading by ids");
    require(delivered.list == expected && delivered.ended, "reading by ids gives something else");
}

void TableModel::watch(Input* input) {
    MessageTable* table = chosen(input);
    const std::int32_t start = input->smallOrAny();
    if (table == nullptr || unsure_) {
        return;
    }
    const std::int32_t effective = start == -1 ? 1 : start;
    std::vector<Message> expected;
    bool reached = false;
    for (const Message& message : stored_) {
        reached = reached || message.metadata.uniformId >= effective;
        if (reached && message.metadata.uniformId >= effective) {
            expected.push_back(message);
        }
    }
    Delivered delivered;
    MessageWatcher* watcher = messageWatcher_create(&table, 1);
    require(watcher != nullptr, "a watcher is not created");
    requireSuccess(messageWatcher_startWatching(watcher, 1, &start, delivered.watchListener()), "watching");
    messageWatcher_destroy(watcher);
    require(delivered.list == expected, "a watcher delivers something else");
}

void TableModel::openIterator(Input* input) {
    MessageTable* table = chosen(input);
    if (table == nullptr || unsure_) {
        return;
    }
    iterator_.reset(mtIterator_open(table, conditions_create()));
    require(iterator_ != nullptr, "an iterator is not opened");
    delivered_ = 0;
}

void TableModel::stepIterator() {
    if (iterator_ == nullptr || unsure_) {
        return;
    }
    bool end = false;
    requireSuccess(mtIterator_next(iterator_.get(), &end), "a step of an iterator");
    require(end == (delivered_ == stored_.size()), "an iterator ends too early or too late");
    if (!end) {
        require(ownedMessage(test::currentMessage(iterator_.get())) == stored_[delivered_],
                "an iterator skips or repeats a message");
        delivered_ += 1;
    }
}

void TableModel::finish() {
    closeReader();
    crash();
    if (platform_->has(path())) {
        openWriter(false);
        closeWriter();
    }
}

}  // namespace tabulo::internal::fuzz
