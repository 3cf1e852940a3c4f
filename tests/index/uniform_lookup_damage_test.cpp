// Where the lookup of a uniform id says that reading goes on in a damaged table: at the right place, or nowhere.
#include <gtest/gtest.h>

#include <algorithm>

#include "index/uniform_lookup.h"
#include "tests/messagetable/table_image.h"

namespace tabulo::internal::test {
namespace {

constexpr std::int32_t LAST = 18;  // four closed blocks of four messages and two messages of the open one

class UniformLookupInDamage : public TableImageTest {
  protected:
    UniformLookupInDamage()
        : messages(simpleMessages(1, LAST, shape)),
          places(mapOf(shape, messages)),
          whole(closedImage(shape, messages)) {}

    static void zero(Bytes* bytes, std::size_t start, std::size_t end) {
        std::fill(bytes->begin() + static_cast<std::ptrdiff_t>(start),
                  bytes->begin() + static_cast<std::ptrdiff_t>(end), 0);
    }
    void zeroFrame(Bytes* bytes, std::size_t number) const {
        zero(bytes, places.frame(number).start, places.frame(number).end);
    }
    void zeroWord(Bytes* bytes, std::size_t block) const { putU64(bytes, places.blockStarts.at(block - 1), 0); }
    void read(const Bytes& bytes) {
        table.reset();
        place(bytes);
        open(OpenMode::read);
    }
    ErrorCode find(std::int32_t id) {
        found = {-1, -1, -1};
        return mt_findUniformId(table.get(), id, &found);
    }
    void expectFound(std::int32_t first, std::int32_t last) {
        for (std::int32_t id = first; id <= last; ++id) {
            ASSERT_EQ(find(id), NO_ERROR) << "looking for " << id;
            EXPECT_EQ(found.ordinal, id - 1) << "looking for " << id;
            EXPECT_EQ(found.offset + found.skip,
                      static_cast<std::int64_t>(places.frame(static_cast<std::size_t>(id)).start))
                << "looking for " << id;
        }
    }
    void expectRefused(std::int32_t first, std::int32_t last, ErrorCode code) {
        for (std::int32_t id = first; id <= last; ++id) {
            EXPECT_EQ(find(id), code) << "looking for " << id << ": message " << found.ordinal + 1;
        }
    }

    const std::vector<Message> messages;
    const TableMap places;
    const Bytes whole;
    UniformPlace found;
};

TEST_F(UniformLookupInDamage, AZeroedFrameInsideAClosedBlockIsToldByWhoeverHasToReadIt) {
    for (const std::int32_t zeroed : {5, 7, 8}) {
        SCOPED_TRACE("message " + std::to_string(zeroed));
        Bytes bytes = whole;
        zeroFrame(&bytes, static_cast<std::size_t>(zeroed));
        read(bytes);
        expectFound(1, zeroed - 1);
        expectRefused(zeroed, 8, CONSISTENCY_ERROR);
        expectFound(9, LAST);  // the block's footer says that they are behind it
    }
}

TEST_F(UniformLookupInDamage, AFrameThatIsCutByAWrongLengthInsideAClosedBlockIsToldToo) {
    Bytes bytes = whole;
    putU32(&bytes, places.frame(8).start + 35, 100'000);  // the length of its first text
    read(bytes);
    expectFound(1, 7);
    expectRefused(8, 8, CONSISTENCY_ERROR);
    expectFound(9, LAST);
}

TEST_F(UniformLookupInDamage, AZeroedBlockStartIsDamageForAllThatIsNotInFrontOfIt) {
    for (const std::size_t block : {1U, 2U, 3U}) {
        SCOPED_TRACE("block " + std::to_string(block));
        Bytes bytes = whole;
        zeroWord(&bytes, block);
        zeroFrame(&bytes, 4 * block - 3);
        read(bytes);
        const auto inFront = static_cast<std::int32_t>(4 * block - 4);
        expectFound(1, inFront);
        expectRefused(inFront + 1, LAST + 1, HEADER_CORRUPTED_ERROR);
    }
}

TEST_F(UniformLookupInDamage, ABlockWithoutItsLengthWordAndWithADamagedFrameIsNoPlaceToStop) {
    Bytes bytes = whole;
    zeroWord(&bytes, 2);
    zeroFrame(&bytes, 7);
    read(bytes);
    expectFound(1, 4);
    expectRefused(7, LAST + 1, HEADER_CORRUPTED_ERROR);
}

TEST_F(UniformLookupInDamage, ABlockWithoutItsLengthWordAndWithAnotherFooterIsNoPlaceToStop) {
    Bytes bytes = whole;
    zeroWord(&bytes, 2);
    putU64(&bytes, places.blockStarts[2] - 8, 1);
    read(bytes);
    expectFound(1, 4);
    expectRefused(9, LAST + 1, HEADER_CORRUPTED_ERROR);
}

TEST_F(UniformLookupInDamage, AFullBlockWithALengthWordOf0IsSteppedOverByItsFooter) {
    for (const std::size_t block : {1U, 2U, 4U}) {
        SCOPED_TRACE("block " + std::to_string(block));
        Bytes bytes = whole;
        zeroWord(&bytes, block);
        read(bytes);
        expectFound(1, LAST);
        ASSERT_EQ(find(LAST + 1), NO_ERROR);
        EXPECT_EQ(found.ordinal, LAST);
        EXPECT_EQ(found.offset, static_cast<std::int64_t>(whole.size()));
    }
}

TEST_F(UniformLookupInDamage, AllBlocksWithALengthWordOf0AreSteppedOverByTheirFooters) {
    Bytes bytes = whole;
    for (std::size_t block = 1; block <= 4; ++block) {
        zeroWord(&bytes, block);
    }
    read(bytes);
    expectFound(1, LAST);
}

TEST_F(UniformLookupInDamage, DamageInTheOpenBlockIsNoEndOfTheData) {
    Bytes bytes = whole;
    zeroFrame(&bytes, 17);
    table.reset();
    place(bytes);
    table = createTable(directory.root(), shape);
    ASSERT_EQ(mt_open(table.get(), OpenMode::read), NO_ERROR);
    expectRefused(LAST, LAST + 1, CONSISTENCY_ERROR);
}

TEST_F(UniformLookupInDamage, AWritersOwnTableTellsTheSame) {
    Bytes bytes = whole;
    zeroWord(&bytes, 2);
    zeroFrame(&bytes, 5);
    zeroFrame(&bytes, 11);
    place(bytes);
    open(OpenMode::write);
    expectFound(1, 4);
    expectRefused(5, LAST, HEADER_CORRUPTED_ERROR);
    table.reset();
    putU64(&bytes, places.blockStarts[1], places.blockStarts[2] - places.blockStarts[1]);
    place(bytes);
    open(OpenMode::write);
    expectRefused(5, 8, CONSISTENCY_ERROR);
    expectFound(9, 10);
    expectRefused(11, 12, CONSISTENCY_ERROR);
    expectFound(13, LAST);
}

}  // namespace
}  // namespace tabulo::internal::test
