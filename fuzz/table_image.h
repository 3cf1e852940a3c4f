// The bytes of a message table file taken apart into header, blocks and frames, so that a mutation can change one piece
// and keep the lengths around it right.
//
// Without this nearly every mutation ends at the first length that disagrees. Whatever does not parse stays as it is.
#pragma once

#include <cstdint>
#include <random>
#include <span>
#include <vector>

#include "storage/table_config.h"

namespace tabulo::internal::fuzz {

using Bytes = std::vector<std::uint8_t>;
using Randomness = std::minstd_rand;

struct BlockImage {
    std::uint64_t lengthWord = 0;
    std::vector<Bytes> frames;
    Bytes footer;  // empty for a block that is not full
};

struct TableImage {
    MessageTableLayout layout;
    std::size_t footerSize = 0;
    Bytes header;
    std::vector<BlockImage> blocks;
    Bytes tail;  // what is no block
};

TableImage tableImage_parse(std::span<const std::uint8_t> bytes, const MessageTableLayout& layout);
Bytes tableImage_bytes(const TableImage& image);
// Puts all frames into blocks as a writer would: full ones closed, with the right footers and lengths.
void tableImage_rebuild(TableImage* image);
// Makes lastBlockEnd and dataEnd in the header agree with the blocks.
void tableImage_repairTail(TableImage* image);
// Changes one piece at random.
void tableImage_mutate(TableImage* image, Randomness* random);

// What a target's own mutator does with an input of which a table file is the rest, from `fileStart` on: half of the
// time one piece of the file is changed and the lengths around it are kept right, else any byte. Gives the input's new
// size.
std::size_t tableFile_mutate(std::span<std::uint8_t> input, std::size_t size, std::size_t fileStart,
                             const MessageTableLayout& layout, unsigned int seed);

// Makes a frame of any bytes: types, field lengths and both frame lengths fit.
Bytes frame_repair(const Bytes& bytes, const MessageTableLayout& layout);
// Changes bytes as libFuzzer does, up to `longest` of them; frame lengths no longer fit.
void bytes_mutate(Bytes* bytes, std::size_t longest);

// The footer of a closed block that holds these frames.
Bytes footer_of(const std::vector<Bytes>& frames, const MessageTableLayout& layout);
std::size_t footer_size(const MessageTableLayout& layout);

}  // namespace tabulo::internal::fuzz
