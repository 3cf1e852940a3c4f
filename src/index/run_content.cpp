#include "index/run_content.h"

#include <algorithm>
#include <array>
#include <utility>

#include "messagetable/frame_cursor.h"
#include "messagetable/message_class.h"

namespace tabulo::internal {

namespace {

constexpr unsigned KEY_SHIFT = 32;

std::uint64_t entryOf(std::uint32_t key, std::uint32_t message) {
    return std::uint64_t{key} << KEY_SHIFT | message;
}

bool isBelow(std::uint64_t left, std::uint64_t right) {
    return left >> KEY_SHIFT < right >> KEY_SHIFT;
}

// By key; entries of one key keep their order. Digit by digit: keys of texts have no order that comparing could use.
void sortByKey(std::vector<std::uint64_t>* entries, std::vector<std::uint64_t>* spare) {
    constexpr unsigned DIGIT_BITS = 11;
    constexpr std::size_t DIGITS = std::size_t{1} << DIGIT_BITS;
    if (std::is_sorted(entries->begin(), entries->end(), isBelow)) {
        return;
    }
    spare->resize(entries->size());
    for (unsigned shift = KEY_SHIFT; shift < 64; shift += DIGIT_BITS) {
        std::array<std::size_t, DIGITS> places{};
        for (const std::uint64_t entry : *entries) {
            places[(entry >> shift) % DIGITS] += 1;
        }
        std::size_t before = 0;
        for (std::size_t& place : places) {
            before += std::exchange(place, before);
        }
        for (const std::uint64_t entry : *entries) {
            (*spare)[places[(entry >> shift) % DIGITS]++] = entry;
        }
        entries->swap(*spare);
    }
}

}  // namespace

RunContent::RunContent(const MessageTableLayout& layout) : layout_(layout), parts_(indexRun_partCount(layout) - 1) {
}

void RunContent::clear() noexcept {
    blocks_.clear();
    for (std::vector<std::uint64_t>& part : parts_) {
        part.clear();
    }
}

std::uint64_t RunContent::messages() const noexcept {
    return blocks_.size() * static_cast<std::uint64_t>(layout_.messagesPerBlock);
}

void RunContent::addMessage(const DecodedMessage& message, std::uint32_t number) {
    const MessageMetadata& metadata = message.metadata;
    parts_[UNIFORM_ID_PART - 1].push_back(entryOf(keyOf(metadata.uniformId), number));
    parts_[CONN_MSG_ID_PART - 1].push_back(entryOf(keyOf(metadata.connMsgId), number));
    const auto texts = static_cast<std::size_t>(indexRun_textCount(layout_));
    for (std::size_t i = 0; i < texts; ++i) {
        const StringField& text = message.stringFields[i];
        if (text.length > 0) {
            parts_[FIRST_TEXT_PART - 1 + i].push_back(entryOf(keyOf(stringField_bytes(text)), number));
        }
    }
}

// A block that could not be added, for damage or want of memory, has left entries: the last ones of each part.
void RunContent::dropUnadded() noexcept {
    for (std::vector<std::uint64_t>& part : parts_) {
        while (!part.empty() && static_cast<std::uint32_t>(part.back()) >= messages()) {
            part.pop_back();
        }
    }
}

ErrorCode RunContent::readFrames(BlockReader* reader, TableFile* file, const Block& block, IndexedBlock* added) {
    FrameCursor frames = frameCursor_forward(reader, file, block_framesStart(block), block.framesEnd, BLOCK_PIECE_SIZE);
    const std::int32_t step = blockMap_markStep(layout_);
    const bool hasMarks = added->length <= std::int64_t{UINT32_MAX};
    const auto first = static_cast<std::uint32_t>(messages());
    std::int32_t lastUniformId = INT32_MIN;
    DecodedMessage message;
    for (std::int32_t i = 0; i < layout_.messagesPerBlock; ++i) {
        if (hasMarks && i % step == 0) {
            added->frameOffsets[static_cast<std::size_t>(i / step)] =
                static_cast<std::uint32_t>(frames.position - block.start);
        }
        const ErrorCode code = frameCursor_next(&frames, &message);
        if (code != NO_ERROR) {
            return code == NO_DATA_ERROR ? CONSISTENCY_ERROR : code;
        }
        added->uniformIdsAscend = added->uniformIdsAscend && message.metadata.uniformId >= lastUniformId;
        lastUniformId = message.metadata.uniformId;
        const MessageClass messageClass = classifyConnMsgId(message.metadata.connMsgId);
        if (messageClass != NO_MESSAGE_CLASS) {
            added->classCounts[static_cast<std::size_t>(messageClass)] += 1;
        }
        addMessage(message, first + static_cast<std::uint32_t>(i));
    }
    return frames.position == block.framesEnd ? NO_ERROR : CONSISTENCY_ERROR;
}

ErrorCode RunContent::add(BlockReader* reader, TableFile* file, const Block& block) {
    IndexedBlock added;
    added.start = block.start;
    added.length = block.framesEnd + reader->footerSize - block.start;
    added.uniformIdsAscend = true;
    added.minimum = reader->summary.minimum;
    added.maximum = reader->summary.maximum;
    dropUnadded();
    if (blocks_.size() == blocks_.capacity()) {
        blocks_.reserve(2 * blocks_.size() + 1);  // one more alone would copy them all for each block
    }
    const ErrorCode code = readFrames(reader, file, block, &added);
    if (code == NO_ERROR) {
        blocks_.push_back(added);
    }
    return code;
}

std::vector<IndexPart> RunContent::write(RunWriter* run) {
    dropUnadded();
    std::vector<IndexPart> parts;
    BlockMapWriter blocks(run, layout_);
    for (const IndexedBlock& block : blocks_) {
        blocks.add(block);
    }
    parts.push_back(blocks.finish());
    for (std::vector<std::uint64_t>& entries : parts_) {
        sortByKey(&entries, &sorted_);
        KeyMapWriter keys(run);
        for (const std::uint64_t entry : entries) {
            keys.add(static_cast<std::uint32_t>(entry >> KEY_SHIFT), static_cast<std::uint32_t>(entry));
        }
        parts.push_back(keys.finish());
    }
    return parts;
}

}  // namespace tabulo::internal
