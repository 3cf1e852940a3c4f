// What a second look tells about a place of the file where a block was seen.
#include "messagetable/block_look.h"

#include <gtest/gtest.h>

#include <cerrno>

#include "tests/messagetable/block_reader_fixture.h"
#include "tests/support/fault_platform.h"

namespace tabulo::internal::test {
namespace {

class BlockLooks : public BlockReaderTest {
  protected:
    // Opens the file and looks at its tail and size.
    void look(const Bytes& bytes) {
        read(bytes);
        ASSERT_EQ(blockLook_readTail(*reader, file, &seen.tail), NO_ERROR);
        ASSERT_EQ(tableFileGetSize(file, &seen.size), NO_ERROR);
    }
    ErrorCode tryInside(std::size_t place, bool* inside) {
        return blockLook_liesInside(*reader, file, static_cast<std::int64_t>(place), seen, inside);
    }
    bool isInside(std::size_t place) {
        bool inside = false;
        EXPECT_EQ(tryInside(place, &inside), NO_ERROR) << "at " << place;
        return inside;
    }

    BlockLook seen;
};

TEST_F(BlockLooks, APlaceIsInsideABlockUnlessOneBeginsThere) {
    const TableMap places = map(7);
    look(unclosedImage(shape, simpleMessages(1, 7, shape)));
    EXPECT_FALSE(isInside(places.blockStarts[0]));
    EXPECT_TRUE(isInside(places.blockStarts[0] + 1));
    EXPECT_TRUE(isInside(places.blockStarts[1] - 1));
    EXPECT_FALSE(isInside(places.blockStarts[1]));
    EXPECT_TRUE(isInside(places.blockStarts[1] + 1));
    EXPECT_TRUE(isInside(places.dataEnd - 1));
    EXPECT_FALSE(isInside(places.dataEnd));
}

TEST_F(BlockLooks, AFullBlockEndsWithItsLastMessageAlsoWhenAWholeFrameStandsInThePlaceOfItsFooter) {
    const TableMap places = map(8);
    look(concatenated(footerlessImage(shape, simpleMessages(1, 8, shape)), frameOf(simpleMessage(9, shape))));
    EXPECT_TRUE(isInside(places.frame(8).end - 1));
    EXPECT_FALSE(isInside(places.frame(8).end + 1)) << "a ninth message would be one of the next block";
}

TEST_F(BlockLooks, AFileThatWasCutInALengthWordHasNoBlockAroundAnyPlace) {
    const TableMap places = map(8);
    look(closed(8));
    for (const std::size_t size : {places.blockStarts[0], places.blockStarts[0] + 7, places.blockStarts[1] + 4}) {
        place(cutAt(closed(8), size));
        EXPECT_FALSE(isInside(places.frame(6).start)) << "cut to " << size;
    }
}

TEST_F(BlockLooks, ARefusedReadIsAReadError) {
    const TableMap places = map(7);
    look(unclosedImage(shape, simpleMessages(1, 7, shape)));
    FaultPlatform platform;
    ASSERT_TRUE(isInside(places.frame(6).start));
    const int reads = platform.count(FileCall::readAt);
    EXPECT_EQ(reads, 4) << "both length words of the closed block, that of the open one, and its frames";
    for (int n = 1; n <= reads; ++n) {
        platform.clear();
        platform.failNth(FileCall::readAt, n, EIO);
        bool inside = false;
        EXPECT_EQ(tryInside(places.frame(6).start, &inside), FILE_READ_ERROR) << "read " << n;
    }
}

TEST_F(BlockLooks, ARefusedReadOfWhatClosesABlockIsAReadError) {
    const auto start = static_cast<std::int64_t>(map(7).blockStarts[0]);
    look(unclosedImage(shape, simpleMessages(1, 7, shape)));
    bool closed = false;
    ASSERT_EQ(blockLook_isClosed(*reader, file, start, seen, &closed), NO_ERROR);
    ASSERT_TRUE(closed);
    FaultPlatform platform;
    platform.failAll(FileCall::readAt, EIO);
    EXPECT_EQ(blockLook_isClosed(*reader, file, start, seen, &closed), FILE_READ_ERROR);
    EXPECT_FALSE(closed);
}

}  // namespace
}  // namespace tabulo::internal::test
