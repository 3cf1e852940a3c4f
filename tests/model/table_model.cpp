#include "tests/model/table_model.h"

#include <limits>

#include "tests/support/message_fields.h"

namespace tabulo::internal::test {

namespace {

constexpr std::int64_t BLOCK_WORD = 8;
// Stored form of one filter of 10000 bits.
constexpr std::int64_t FILTER = 1256;

constexpr std::array<std::pair<std::int32_t, std::int32_t>, 5> classRanges = {{
    {0x1FFFFFFF, 0x3FFFFFFE},                                // app, from the counterparty
    {0, 0x1FFFFFFE},                                         // app, to it
    {0x4FFFFFFF, 0x5FFFFFFE},                                // admin, from it
    {0x3FFFFFFF, 0x4FFFFFFE},                                // admin, to it
    {0x5FFFFFFF, std::numeric_limits<std::int32_t>::max()},  // resent
}};
constexpr int APP_TO_COUNTERPARTY = 1;
constexpr int RESENT_MESSAGE = 4;

}  // namespace

int plainClassOf(std::int32_t connMsgId) {
    for (std::size_t i = 0; i < classRanges.size(); ++i) {
        if (connMsgId >= classRanges[i].first && connMsgId <= classRanges[i].second) {
            return static_cast<int>(i);
        }
    }
    return -1;
}

std::pair<std::int32_t, std::int32_t> plainClassRange(int messageClass) {
    return classRanges.at(static_cast<std::size_t>(messageClass));
}

void PlainIndexes::add(const MessageMetadata& metadata) {
    const int messageClass = plainClassOf(metadata.connMsgId);
    if (messageClass >= 0) {
        std::int32_t& highest = highestIds[static_cast<std::size_t>(messageClass)];
        highest = highest < metadata.connMsgId ? metadata.connMsgId : highest;
    }
    lastUniform = metadata.uniformId;
    const bool sent = messageClass == APP_TO_COUNTERPARTY;
    if (sent && metadata.seqNum > 0 && metadata.prevSeqNum != 0 && metadata.isPossDupFlag == 0) {
        firstPending = {metadata.prevSeqNum, metadata.timestamp};
    }
    if (sent && metadata.seqNum < 0 && metadata.isOutOfSequence == 0) {
        lastPending = {metadata.seqNum, metadata.timestamp};
    }
    if (messageClass != RESENT_MESSAGE && metadata.seqNum > 0 && metadata.isOutOfSequence == 0) {
        lastGood = {metadata.seqNum, metadata.timestamp};
    }
}

Bytes plainFrame(const Message& message) {
    return frameBytes(message.metadata, message.numbers, message.strings);
}

TableModel::TableModel(const MessageTableLayout& layout) : layout_(layout) {
}

void TableModel::append(const Message& message) {
    const std::size_t count = messages_.size();
    starts_.push_back(endBehind(count) + (count % perBlock() == 0 ? BLOCK_WORD : 0));
    lengths_.push_back(static_cast<std::int64_t>(plainFrame(message).size()));
    messages_.push_back(message);
    indexes_.add(message.metadata);
}

void TableModel::cutTo(std::size_t count) {
    messages_.resize(count);
    starts_.resize(count);
    lengths_.resize(count);
    indexes_ = {};
    for (const Message& message : messages_) {
        indexes_.add(message.metadata);
    }
    generation_ += 1;
}

// The generic header, the type record, the layout, the names "S4" ... and "N0" ..., and the 88 bytes of the tail.
std::int64_t TableModel::headerSize() const {
    std::int64_t size = 19 + 17 + 16 + 88;
    const auto nameSize = [](int number) { return 4 + (number < 10 ? 2 : 3) + 1; };
    for (int i = 4; i < layout_.stringFieldCount; ++i) {
        size += nameSize(i);
    }
    for (int i = 0; i < layout_.numericFieldCount; ++i) {
        size += nameSize(i);
    }
    return size;
}

// Two records of ranges, the filters, the static indexes and the length word.
std::int64_t TableModel::footerSize() const {
    return 2 * (36 + 9 * std::int64_t{layout_.numericFieldCount}) + layout_.summarisedStringFieldCount * FILTER + 60 +
           BLOCK_WORD;
}

std::int64_t TableModel::fileSize() const {
    return endBehind(messages_.size());
}

std::int64_t TableModel::openBlockStart() const {
    return endBehind(messages_.size() / perBlock() * perBlock());
}

bool TableModel::isInFullBlock(std::size_t index) const {
    return index < messages_.size() / perBlock() * perBlock();
}

std::size_t TableModel::wholeIn(std::int64_t fileSize) const {
    std::size_t count = 0;
    while (count < messages_.size() && frameEnd(count) <= fileSize) {
        count += 1;
    }
    return count;
}

std::int64_t TableModel::endBehind(std::size_t count) const {
    if (count == 0) {
        return headerSize();
    }
    return frameEnd(count - 1) + (count % perBlock() == 0 ? footerSize() : 0);
}

}  // namespace tabulo::internal::test
