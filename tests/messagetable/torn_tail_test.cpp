#include "messagetable/torn_tail.h"

#include <gtest/gtest.h>

#include "tests/messagetable/block_reader_fixture.h"

namespace tabulo::internal::test {
namespace {

class TornTail : public BlockReaderTest {
  protected:
    bool isTorn(std::size_t start, std::size_t end) {
        bool torn = false;
        EXPECT_EQ(tornTail_check(file, reader->layout, static_cast<std::int64_t>(start), static_cast<std::int64_t>(end),
                                 &torn),
                  NO_ERROR);
        return torn;
    }
};

TEST_F(TornTail, IsJudgedByTheBytesUpToTheEndThatWasSeenAndByNothingBehindIt) {
    const Bytes whole = unclosedImage(shape, simpleMessages(1, 7, shape));
    const TableMap::Frame frame = map(7).frame(7);
    for (std::size_t end = frame.start + 8; end < frame.end; ++end) {
        read(concatenated(cutAt(whole, end), Bytes(1000, 0xff)));
        EXPECT_TRUE(isTorn(frame.start, end)) << end - frame.start << " bytes of the frame were there";
    }
}

}  // namespace
}  // namespace tabulo::internal::test
