// Block cursors over a file that changes, or cannot be read, while they look at it.
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <utility>

#include "messagetable/block_cursor.h"
#include "tests/messagetable/block_reader_fixture.h"
#include "tests/support/call_hook.h"
#include "tests/support/fault_platform.h"

namespace tabulo::internal::test {
namespace {

class BlockCursorChanges : public BlockReaderTest {
  protected:
    void startAt(std::size_t position, BlockCursor::OpenBlocks openBlocks) {
        cursor = blockCursor_at(reader.get(), static_cast<std::int64_t>(position), openBlocks,
                                BlockCursor::ZeroWords::judged);
    }
    // A closed block whose length word is 0 and one of whose frames is none: damage, unless the table was dropped.
    Bytes damaged() const {
        const TableMap places = map(8);
        Bytes bytes = closed(8);
        putU64(&bytes, places.blockStarts[0], 0);
        std::fill_n(bytes.begin() + static_cast<std::ptrdiff_t>(places.frame(2).start), 8, std::uint8_t{0});
        return bytes;
    }
    // How the block is seen when the file becomes `later` in front of one of the calls.
    BlockState seenWith(const Bytes& later, int call) {
        read(damaged());
        startAt(map(8).blockStarts[0], BlockCursor::OpenBlocks::scanned);
        const CallHook hook([&](int n) {
            if (n == call) {
                writeFile(path(), later);
            }
        });
        const ErrorCode code = blockCursor_next(&cursor, file);
        if (CallHook::count() <= call) {
            return BlockState::none;
        }
        return code == NO_ERROR ? cursor.block.state : BlockState::damaged;  // what was being read is gone
    }

    BlockCursor cursor;
};

// One sign of a drop is enough: a file that is shorter, an earlier end of the data, an earlier end of the last block.
TEST_F(BlockCursorChanges, DamageInATableThatIsDroppedMeanwhileIsABlockThatIsGone) {
    const TableMap places = map(8);
    const Bytes whole = damaged();
    Bytes earlierData = whole;
    putU64(&earlierData, places.storedDataEnd(), places.storedDataEnd());
    Bytes earlierBlock = whole;
    putU64(&earlierBlock, places.storedLastBlockEnd(), places.headerSize);
    for (const auto& [what, later] : {std::pair<const char*, Bytes>{"shorter", cutAt(whole, whole.size() - 1)},
                                      {"with an earlier end of the data", earlierData},
                                      {"with an earlier end of the last block", earlierBlock}}) {
        int gone = 0;
        for (int call = 0;; ++call) {
            const BlockState state = seenWith(later, call);
            if (state == BlockState::none) {
                break;
            }
            gone += state == BlockState::gone ? 1 : 0;
        }
        EXPECT_GT(gone, 0) << "a file that becomes one " << what << " is never taken for one that was dropped";
    }
}

TEST_F(BlockCursorChanges, ARefusedReadOfAnOpenBlockThatLooksDamagedIsTold) {
    const TableMap places = map(7);
    Bytes bytes = closed(7);
    putU64(&bytes, places.openBlockStart, 7);  // as no block is long
    read(bytes);
    int reads = 0;
    {
        startAt(places.openBlockStart, BlockCursor::OpenBlocks::scanned);
        const FaultPlatform platform;
        EXPECT_EQ(mfr_loadOpenBlock(&cursor, file), NO_ERROR);
        reads = platform.count(FileCall::readAt);
    }
    EXPECT_GE(reads, 4) << "the word twice, the header's tail, the frames";
    for (int n = 1; n <= reads; ++n) {
        startAt(places.openBlockStart, BlockCursor::OpenBlocks::scanned);
        FaultPlatform platform;
        platform.failNth(FileCall::readAt, n, EIO);
        EXPECT_EQ(mfr_loadOpenBlock(&cursor, file), FILE_READ_ERROR) << "read " << n;
    }
}

}  // namespace
}  // namespace tabulo::internal::test
