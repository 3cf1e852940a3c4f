#include "fuzz/table_image.h"

#include <algorithm>
#include <cstring>

#include "fuzz/harness.h"
#include "messagetable/block_summary.h"
#include "messagetable/block_writer.h"
#include "messagetable/frame.h"
#include "messagetable/table_header.h"
#include "storage/generic_header.h"

extern "C" std::size_t LLVMFuzzerMutate(std::uint8_t* data, std::size_t size, std::size_t maxSize);

namespace tabulo::internal::fuzz {

namespace {

constexpr std::size_t HEADER_SIZE_OFFSET = 15;
constexpr std::size_t GROWTH = 64;  // what one mutation may add to a piece

template <typename T>
T numberAt(std::span<const std::uint8_t> bytes, std::size_t offset) {
    T value{};
    if (offset + sizeof(T) <= bytes.size()) {
        std::memcpy(&value, bytes.data() + offset, sizeof(T));
    }
    return value;
}

template <typename T>
void put(Bytes* bytes, std::size_t offset, T value) {
    if (offset + sizeof(T) <= bytes->size()) {
        std::memcpy(bytes->data() + offset, &value, sizeof(T));
    }
}

template <typename T>
void append(Bytes* bytes, T value) {
    bytes->resize(bytes->size() + sizeof(T));
    put(bytes, bytes->size() - sizeof(T), value);
}

void append(Bytes* bytes, const Bytes& more) {
    bytes->insert(bytes->end(), more.begin(), more.end());
}

std::size_t smallestFrame(const MessageTableLayout& layout) {
    return static_cast<std::size_t>(mfr_minimumFrameSize(layout.stringFieldCount, layout.numericFieldCount));
}

std::size_t pick(Randomness* random, std::size_t count) {
    return (*random)() % count;
}

// Frames at the beginning of `bytes`, at most a block of them.
std::vector<Bytes> framesIn(std::span<const std::uint8_t> bytes, const MessageTableLayout& layout) {
    std::vector<Bytes> frames;
    while (frames.size() < static_cast<std::size_t>(layout.messagesPerBlock)) {
        const std::size_t length = numberAt<std::uint32_t>(bytes, 0);
        if (length < smallestFrame(layout) || length > bytes.size() ||
            numberAt<std::uint32_t>(bytes, length - FRAME_LENGTH_SIZE) != length) {
            break;
        }
        frames.emplace_back(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(length));
        bytes = bytes.subspan(length);
    }
    return frames;
}

std::size_t sizeOf(const std::vector<Bytes>& frames) {
    std::size_t size = 0;
    for (const Bytes& frame : frames) {
        size += frame.size();
    }
    return size;
}

std::size_t sizeOf(const BlockImage& block) {
    return BLOCK_LENGTH_SIZE + sizeOf(block.frames) + block.footer.size();
}

// The lengths of a block with a footer; a block without one is open.
void repairLengths(BlockImage* block) {
    block->lengthWord = block->footer.empty() ? 0 : sizeOf(*block);
    if (!block->footer.empty()) {
        put(&block->footer, block->footer.size() - BLOCK_LENGTH_SIZE, block->lengthWord);
    }
}

// The bytes of a piece are changed, its length stays.
void mutateInPlace(Bytes* bytes) {
    if (!bytes->empty()) {
        const std::size_t size = bytes->size();
        bytes_mutate(bytes, size);
        bytes->resize(size);
    }
}

void mutateFrames(std::vector<Bytes>* frames, const MessageTableLayout& layout, Randomness* random) {
    if (frames->empty()) {
        frames->push_back(frame_repair({}, layout));
        return;
    }
    const std::size_t which = pick(random, frames->size());
    Bytes& frame = (*frames)[which];
    switch (pick(random, 4)) {
        case 0:
            frames->insert(frames->begin(), Bytes(frame));
            return;
        case 1:
            frames->erase(frames->begin() + static_cast<std::ptrdiff_t>(which));
            return;
        default:
            bytes_mutate(&frame, frame.size() + GROWTH);
            frame = frame_repair(frame, layout);
    }
}

}  // namespace

void bytes_mutate(Bytes* bytes, std::size_t longest) {
    const std::size_t size = bytes->size();
    const std::size_t room = std::max<std::size_t>(longest, 1);
    bytes->resize(std::max(size, room));
    bytes->resize(LLVMFuzzerMutate(bytes->data(), std::min(size, room), room));
}

Bytes frame_repair(const Bytes& bytes, const MessageTableLayout& layout) {
    Bytes padded = bytes;
    const auto numbers = static_cast<std::size_t>(layout.numericFieldCount);
    const auto strings = static_cast<std::size_t>(layout.stringFieldCount);
    padded.resize(std::max(padded.size(), smallestFrame(layout) + numbers * NUMERIC_VALUE_BYTES));
    Bytes frame(padded.begin(), padded.begin() + FRAME_FIXED_SIZE);
    std::size_t position = FRAME_FIXED_SIZE;
    for (std::size_t i = 0; i < numbers; ++i) {
        const auto type = static_cast<std::uint8_t>(padded[position++] % 3);
        frame.push_back(type);
        if (type != 0) {
            append(&frame, numberAt<std::uint64_t>(padded, position));
            position += NUMERIC_VALUE_BYTES;
        }
    }
    for (std::size_t i = 0; i < strings; ++i) {
        std::size_t length = numberAt<std::uint32_t>(padded, position);
        position += STRING_LENGTH_SIZE;
        // The fields that follow, and msgLen2, need their place; the last field takes what is left.
        const std::size_t needed = position + (strings - 1 - i) * STRING_LENGTH_SIZE + FRAME_LENGTH_SIZE;
        const std::size_t most = padded.size() > needed ? padded.size() - needed : 0;
        length = i + 1 == strings ? most : std::min(length, most);
        append(&frame, static_cast<std::uint32_t>(length));
        const auto text = padded.begin() + static_cast<std::ptrdiff_t>(position);
        frame.insert(frame.end(), text, text + static_cast<std::ptrdiff_t>(length));
        position += length;
    }
    append(&frame, static_cast<std::uint32_t>(0));
    put(&frame, 0, static_cast<std::uint32_t>(frame.size()));
    put(&frame, frame.size() - FRAME_LENGTH_SIZE, static_cast<std::uint32_t>(frame.size()));
    return frame;
}

std::size_t footer_size(const MessageTableLayout& layout) {
    return static_cast<std::size_t>(mfrX_footerSize(&layout));
}

Bytes footer_of(const std::vector<Bytes>& frames, const MessageTableLayout& layout) {
    BlockSummary summary;
    requireSuccess(blockSummary_init(&summary, layout), "a summary");
    for (Bytes frame : frames) {
        const auto size = static_cast<std::int32_t>(frame.size());
        KSVByteStream stream;
        byteStream_init(&stream, frame.data(), size);
        byteStream_resetWrite(&stream, size);
        DecodedMessage message;
        if (mfr_decodeMessage(layout, &stream, &message) == NO_ERROR) {
            blockSummary_add(&summary, layout, message_view(message, layout), size);
        }
    }
    const ByteStreamPtr stream(byteStream_create(0));
    requireSuccess(blockSummary_writeFooter(&summary, layout, stream.get()), "a footer");
    byteStream_put(stream.get(), std::uint64_t{BLOCK_LENGTH_SIZE} + sizeOf(frames) + footer_size(layout));
    return {byteStream_buffer(stream.get()), byteStream_buffer(stream.get()) + byteStream_writeMark(stream.get())};
}

TableImage tableImage_parse(std::span<const std::uint8_t> bytes, const MessageTableLayout& layout) {
    TableImage image;
    image.layout = layout;
    image.footerSize = footer_size(layout);
    std::size_t headerSize = numberAt<std::uint32_t>(bytes, HEADER_SIZE_OFFSET);
    if (headerSize < static_cast<std::size_t>(GENERIC_HEADER_SIZE) || headerSize > MAX_HEADER_SIZE) {
        headerSize = MIN_HEADER_SIZE;
    }
    headerSize = std::min(headerSize, bytes.size());
    image.header.assign(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(headerSize));
    bytes = bytes.subspan(headerSize);
    while (bytes.size() > BLOCK_LENGTH_SIZE) {
        BlockImage block;
        block.lengthWord = numberAt<std::uint64_t>(bytes, 0);
        block.frames = framesIn(bytes.subspan(BLOCK_LENGTH_SIZE), layout);
        if (block.frames.empty()) {
            break;
        }
        bytes = bytes.subspan(BLOCK_LENGTH_SIZE + sizeOf(block.frames));
        if (block.frames.size() == static_cast<std::size_t>(layout.messagesPerBlock) &&
            bytes.size() >= image.footerSize) {
            block.footer.assign(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(image.footerSize));
            bytes = bytes.subspan(image.footerSize);
        }
        image.blocks.push_back(std::move(block));
    }
    image.tail.assign(bytes.begin(), bytes.end());
    return image;
}

Bytes tableImage_bytes(const TableImage& image) {
    Bytes bytes = image.header;
    for (const BlockImage& block : image.blocks) {
        append(&bytes, block.lengthWord);
        for (const Bytes& frame : block.frames) {
            append(&bytes, frame);
        }
        append(&bytes, block.footer);
    }
    append(&bytes, image.tail);
    return bytes;
}

void tableImage_rebuild(TableImage* image) {
    std::vector<Bytes> all;
    for (const BlockImage& block : image->blocks) {
        all.insert(all.end(), block.frames.begin(), block.frames.end());
    }
    image->blocks.clear();
    const auto perBlock = static_cast<std::size_t>(image->layout.messagesPerBlock);
    for (std::size_t i = 0; i < all.size(); i += perBlock) {
        BlockImage block;
        const std::size_t count = std::min(perBlock, all.size() - i);
        const auto first = all.begin() + static_cast<std::ptrdiff_t>(i);
        block.frames.assign(first, first + static_cast<std::ptrdiff_t>(count));
        if (count == perBlock) {
            block.footer = footer_of(block.frames, image->layout);
        }
        repairLengths(&block);
        image->blocks.push_back(std::move(block));
    }
}

void tableImage_repairTail(TableImage* image) {
    if (image->header.size() < MIN_HEADER_SIZE + HEADER_TAIL_SIZE) {
        return;
    }
    std::uint64_t end = image->header.size();
    std::uint64_t lastBlockEnd = end;
    for (const BlockImage& block : image->blocks) {
        end += sizeOf(block);
        lastBlockEnd = block.footer.empty() ? lastBlockEnd : end;
    }
    const std::size_t tail = image->header.size() - HEADER_TAIL_SIZE;
    put(&image->header, tail + 8, lastBlockEnd);
    put(&image->header, tail + BLOCK_INFO_SIZE, end + image->tail.size());
}

void tableImage_mutate(TableImage* image, Randomness* random) {
    if (image->blocks.empty()) {
        image->blocks.push_back({0, {frame_repair({}, image->layout)}, {}});
    }
    BlockImage& block = image->blocks[pick(random, image->blocks.size())];
    switch (pick(random, 8)) {
        case 0:
            mutateInPlace(&block.footer);
            repairLengths(&block);
            break;
        case 1:
            block.lengthWord = pick(random, 2) == 0 ? 0 : sizeOf(block);
            break;
        case 2:
            mutateInPlace(&image->header);
            break;
        case 3:
            bytes_mutate(&image->tail, image->tail.size() + GROWTH);
            break;
        case 4:
            block.footer.resize(pick(random, image->footerSize + 1));
            break;
        case 5:
            mutateFrames(&block.frames, image->layout, random);
            repairLengths(&block);
            break;
        default:
            mutateFrames(&block.frames, image->layout, random);
            tableImage_rebuild(image);
    }
    if (pick(random, 2) == 0) {
        tableImage_repairTail(image);
    }
}

std::size_t tableFile_mutate(std::span<std::uint8_t> input, std::size_t size, std::size_t fileStart,
                             const MessageTableLayout& layout, unsigned int seed) {
    Randomness random(seed);
    if (size < fileStart || random() % 2 == 0) {
        return LLVMFuzzerMutate(input.data(), size, input.size());
    }
    TableImage image = tableImage_parse(input.subspan(fileStart, size - fileStart), layout);
    tableImage_mutate(&image, &random);
    const Bytes bytes = tableImage_bytes(image);
    const std::size_t count = std::min(bytes.size(), input.size() - fileStart);
    std::copy_n(bytes.begin(), count, input.begin() + static_cast<std::ptrdiff_t>(fileStart));
    return fileStart + count;
}

}  // namespace tabulo::internal::fuzz
