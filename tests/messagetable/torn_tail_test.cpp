#include "messagetable/torn_tail.h"

#include <gtest/gtest.h>

#include <cerrno>

#include "tests/messagetable/block_reader_fixture.h"
#include "tests/support/fault_platform.h"

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

TEST_F(TornTail, ThatCannotBeReadIsAReadError) {
    const TableMap::Frame frame = map(7).frame(7);
    const std::size_t end = frame.end - 1;
    read(cutAt(unclosedImage(shape, simpleMessages(1, 7, shape)), end));
    FaultPlatform platform;
    ASSERT_TRUE(isTorn(frame.start, end));
    const int reads = platform.count(FileCall::readAt);
    EXPECT_GE(reads, 3) << "the bytes, the fields, and the search for another frame";
    for (int n = 1; n <= reads; ++n) {
        platform.clear();
        platform.failNth(FileCall::readAt, n, EIO);
        bool torn = false;
        EXPECT_EQ(tornTail_check(file, reader->layout, static_cast<std::int64_t>(frame.start),
                                 static_cast<std::int64_t>(end), &torn),
                  FILE_READ_ERROR)
            << "read " << n << " of " << reads;
    }
}

}  // namespace
}  // namespace tabulo::internal::test
