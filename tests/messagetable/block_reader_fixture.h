// One table file, opened read-only with a block reader of its own.
#pragma once

#include <cstddef>
#include <cstdint>

#include "messagetable/block_reader.h"
#include "tests/messagetable/table_image.h"

namespace tabulo::internal::test {

class BlockReaderTest : public TableImageTest {
  protected:
    // Puts a file there and opens it.
    void read(const Bytes& bytes) {
        reader.reset();
        table.reset();
        place(bytes);
        open(OpenMode::read);
        ASSERT_NE(table, nullptr);
        reader.reset(mfr_createReader(table->storage.get(), table->header.layout));
        ASSERT_NE(reader, nullptr);
        blockSummary_reset(&reader->summary, false);
        file = tableStorage_master(table->storage.get());
    }
    Bytes closed(std::int32_t last) const { return closedImage(shape, simpleMessages(1, last, shape)); }
    TableMap map(std::int32_t last) const { return mapOf(shape, simpleMessages(1, last, shape)); }
    // The smallest length of a closed block.
    std::uint64_t smallestBlock() const {
        const std::size_t smallestFrame = frameOf(bareMessage(1, shape)).size();
        return 8 + 4 * smallestFrame + map(0).footerSize;
    }
    // Lengths that no block at `start` of a file of this size can have.
    std::vector<std::uint64_t> impossibleLengths(std::size_t start, std::size_t size) const {
        const std::uint64_t available = size - start;
        return {1,
                7,
                8,
                map(0).footerSize,
                smallestBlock() - 1,
                available + 1,
                available + 1'000'000,
                std::uint64_t{1} << 31,
                std::uint64_t{1} << 62,
                std::uint64_t{1} << 63,
                ~std::uint64_t{0},
                ~std::uint64_t{0} - start};
    }

    BlockReaderPtr reader;
    TableFile* file = nullptr;
};

}  // namespace tabulo::internal::test
