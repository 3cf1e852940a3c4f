// A table with a side index beside it, and what an index that is used must answer.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "index/index_builder.h"
#include "index/side_index.h"
#include "tests/messagetable/table_image.h"

namespace tabulo::internal::test {

// How many descriptors this process has open.
std::size_t openDescriptors();
// The bytes of the runs of an index, page by page without what differs from one index to another.
std::vector<Bytes> runContents(const Bytes& index, const IndexSlot& slot);

// A table of four messages a block, with the texts "ClOrdID", of its own for each message, and "Symbol", one of seven.
// `writer` has it open for writing.
class IndexedTableTest : public ::testing::Test {
  protected:
    IndexedTableTest();

    // Another table, of this name and the shape of now, takes the place of the one at hand.
    void begin(const std::string& name);
    // Messages with the uniform ids first to last.
    void write(std::int32_t first, std::int32_t last);
    void writeBlocks(std::int32_t count);
    // The message with this uniform id.
    Message messageOf(std::int32_t n) const;
    std::string path() const { return directory.file(shape.name); }
    std::string indexPath() const { return path() + ".idx"; }
    std::string newIndexPath() const { return path() + ".idx.new"; }
    MessageTablePtr openReader() const { return openTable(directory.root(), OpenMode::read, shape); }

    // A builder that is not open.
    std::unique_ptr<IndexBuilder> newBuilder() const;
    // Opens one, which ends the test when that is refused.
    std::unique_ptr<IndexBuilder> openBuilder() const;
    // Lets a builder cover what is closed, when it is at least so many blocks.
    ErrorCode update(IndexBuilder* builder, std::uint32_t fewest = 1) const;
    // Covers, block by block or all at once, all that is closed, with a builder of its own, and does not merge.
    void build(bool isBlockByBlock = false);

    // The index as a query of this moment uses it; null when none is.
    std::shared_ptr<SideIndex> index(MessageTable* table) const;
    // How many blocks a query of this moment need not walk over; 0 without an index.
    std::uint32_t covered() const;
    // Compares all that an index tells about the messages 1 to `last` with what was written. Where a page of it is
    // damaged it may tell nothing, if the test allows it. Empty, or what is wrong.
    std::string indexFault(std::int32_t last, bool maySayNothing = false) const;

    TemporaryDirectory directory;
    TableShape shape;
    LogCapture log;
    MessageTablePtr writer;
    std::int32_t written = 0;
    // What the texts begin with: another one makes another table of the same size.
    char mark = 'c';
};

}  // namespace tabulo::internal::test
