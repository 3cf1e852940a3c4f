// Fuzz target: the footer of a closed block, of any content, and conditions that are asked about it.
//
//   1     layout: a number of layouts()
//   1     n
//   n     query conditions (conditions_input.h)
//   rest  the footer
//
// A footer that is believed must write to the same bytes.
#include "fuzz/conditions_input.h"
#include "fuzz/harness.h"
#include "fuzz/table_image.h"
#include "fuzz/tables.h"
#include "query/match.h"

namespace tabulo::internal::fuzz {

namespace {

constexpr std::size_t PREFIX_SIZE = 2;

// Filters are written from where a writer keeps them, and a reader leaves them in the footer.
void takeStoredFilters(BlockSummary* summary) {
    for (std::size_t i = 0; i < summary->filters.size(); ++i) {
        const std::uint8_t* stored = summary->storedFilters + i * BLOOM_FILTER_STORED_SIZE;
        bloomFilter_setBits(&summary->filters[i], stored + sizeof(std::uint32_t));
    }
}

void requireSame(const Bytes& footer, const BlockSummary& summary, const MessageTableLayout& layout) {
    const ByteStreamPtr stream(byteStream_create(0));
    requireSuccess(blockSummary_writeFooter(&summary, layout, stream.get()), "writing a footer that was read");
    const auto length = static_cast<std::size_t>(byteStream_writeMark(stream.get()));
    require(length + BLOCK_LENGTH_SIZE == footer.size(), "a footer of a wrong size is believed");
    require(std::equal(footer.begin(), footer.end() - BLOCK_LENGTH_SIZE, byteStream_buffer(stream.get())),
            "a footer that was read writes to other bytes");
}

// Absent values have 8 bytes of no meaning, which are written as zero bytes.
void clearAbsentValues(Bytes* footer, const MessageTableLayout& layout) {
    constexpr std::size_t FIXED = 36;
    const std::size_t record = FIXED + static_cast<std::size_t>(layout.numericFieldCount * FIXED_NUMERIC_SIZE);
    for (std::size_t start = FIXED; start < 2 * record; start += record) {
        for (std::int32_t i = 0; i < layout.numericFieldCount; ++i) {
            const std::size_t value = start + static_cast<std::size_t>(i * FIXED_NUMERIC_SIZE);
            if ((*footer)[value] == 0) {
                std::fill_n(footer->begin() + static_cast<std::ptrdiff_t>(value) + 1, NUMERIC_VALUE_BYTES, 0);
            }
        }
    }
}

}  // namespace

}  // namespace tabulo::internal::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);
extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size, std::size_t maxSize,
                                               unsigned int seed);
extern "C" std::size_t LLVMFuzzerMutate(std::uint8_t* data, std::size_t size, std::size_t maxSize);

using namespace tabulo::internal::fuzz;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Input input({data, size});
    const tabulo::internal::MessageTableLayout& layout = layouts()[input.byte() % layouts().size()];
    Input conditions(input.take(input.byte()));
    Bytes footer(input.rest().begin(), input.rest().end());
    const auto length = static_cast<std::int32_t>(footer.size());
    std::uint64_t blockLength = 1000;
    if (footer.size() >= sizeof(blockLength)) {
        std::memcpy(&blockLength, footer.data() + footer.size() - sizeof(blockLength), sizeof(blockLength));
    }
    tabulo::internal::KSVByteStream stream;
    tabulo::internal::byteStream_init(&stream, footer.data(), length);
    tabulo::internal::byteStream_resetWrite(&stream, length);
    tabulo::internal::BlockSummary summary;
    requireSuccess(tabulo::internal::blockSummary_init(&summary, layout), "a summary");
    const tabulo::internal::ErrorCode code =
        tabulo::internal::blockSummary_readFooter(&summary, layout, &stream, blockLength);
    require(code == tabulo::internal::NO_ERROR || code == tabulo::internal::HEADER_CORRUPTED_ERROR ||
                code == tabulo::internal::CONSISTENCY_ERROR,
            "a footer is refused with another code");
    if (code == tabulo::internal::NO_ERROR) {
        tabulo::internal::query_blockMayMatch(*conditionsFrom(&conditions, layout), summary, layout);
        clearAbsentValues(&footer, layout);
        takeStoredFilters(&summary);
        requireSame(footer, summary, layout);
    }
    return 0;
}

// Half of the time the footer gets the size that it must have.
extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size, std::size_t maxSize,
                                               unsigned int seed) {
    Randomness random(seed);
    const std::size_t mutated = LLVMFuzzerMutate(data, size, maxSize);
    const std::size_t start = PREFIX_SIZE + (mutated < PREFIX_SIZE ? 0U : data[PREFIX_SIZE - 1]);
    if (mutated < start || random() % 2 == 0) {
        return mutated;
    }
    const std::size_t whole = start + footer_size(layouts()[data[0] % layouts().size()]);
    if (whole > maxSize) {
        return mutated;
    }
    if (mutated < whole) {
        std::fill(data + mutated, data + whole, std::uint8_t{0});
    }
    return whole;
}
