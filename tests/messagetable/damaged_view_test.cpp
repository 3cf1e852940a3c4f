// What lookups and reading backward say of a table whose open block cannot be found: nothing but the damage.
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>

#include "messagetable/message_lookup.h"
#include "query/message_read.h"
#include "tests/messagetable/table_image.h"
#include "tests/messagetable/walk_record.h"
#include "tests/support/fault_platform.h"

namespace tabulo::internal::test {
namespace {

constexpr std::int32_t LAST = 13;  // three closed blocks of four messages and one message of the open one

class DamagedView : public TableImageTest {
  protected:
    DamagedView()
        : messages(simpleMessages(1, LAST, shape)),
          places(mapOf(shape, messages)),
          whole(closedImage(shape, messages)) {}

    // The footer in front of the open block is not to be believed, so that all blocks are stepped over; the second one
    // has its length, but not its footer.
    Bytes withoutFooters() const {
        Bytes bytes = whole;
        putU64(&bytes, places.blockStarts[2], 1);
        putU64(&bytes, places.blockStarts[2] - 8, 1);
        return bytes;
    }
    void read(const Bytes& bytes) {
        table.reset();
        place(bytes);
        open(OpenMode::read);
    }
    ErrorCode lastUniformId(std::int32_t* id) { return mt_getLastUniformMessageId(table.get(), id); }
    ErrorCode readBackward(const std::vector<std::int32_t>& ids, WalkRecord* record) {
        const MessageListener listener{record, record->visitor().onMessage, [](void*, ErrorCode end) { return end; }};
        return mt_readMessages(table.get(), ids.data(), static_cast<std::int32_t>(ids.size()), &listener, true);
    }

    const std::vector<Message> messages;
    const TableMap places;
    const Bytes whole;
};

TEST_F(DamagedView, IsStillFoundByTheFramesOfBlocksWithoutTheirFooters) {
    read(withoutFooters());
    std::int32_t id = -1;
    EXPECT_EQ(lastUniformId(&id), NO_ERROR);
    EXPECT_EQ(id, LAST);
}

TEST_F(DamagedView, IsNoneWhereFramesOfSuchABlockAreDamagedToo) {
    for (const std::size_t frame : {5U, 7U, 8U}) {
        SCOPED_TRACE("message " + std::to_string(frame));
        Bytes zeroed = withoutFooters();
        const auto start = zeroed.begin() + static_cast<std::ptrdiff_t>(places.frame(frame).start);
        std::fill(start, zeroed.begin() + static_cast<std::ptrdiff_t>(places.frame(frame).end), 0);
        Bytes broken = withoutFooters();
        putU32(&broken, places.frame(frame).end - 4, 1);
        for (const Bytes& bytes : {zeroed, broken}) {
            read(bytes);
            std::int32_t id = -1;
            EXPECT_NE(lastUniformId(&id), NO_ERROR) << "messages behind the damage are not looked at";
            EXPECT_EQ(id, -1);
            WalkRecord record;
            EXPECT_NE(readBackward({2, 9, 13}, &record), NO_ERROR);
        }
    }
}

// The header's tail speaks of more bytes than are there, so that what the file holds is looked for from its start on.
TEST_F(DamagedView, OfAFileThatWasCutToItsHeaderForgetsWhatItKnewOfTheBlocks) {
    read(whole);
    std::int32_t id = -1;
    ASSERT_EQ(lastUniformId(&id), NO_ERROR);
    ASSERT_EQ(id, LAST);
    std::filesystem::resize_file(path(), places.headerSize);
    EXPECT_EQ(lastUniformId(&id), NO_ERROR);
    EXPECT_EQ(id, 0) << "no message is left in the file, and the last one is still told";
}

TEST_F(DamagedView, OfABlockWithADamagedLengthWordIsAReadErrorWhateverCannotBeRead) {
    Bytes bytes = whole;
    putU64(&bytes, places.openBlockStart, 1);
    int reads = 0;
    {
        read(bytes);
        FaultPlatform platform;
        std::int32_t id = -1;
        EXPECT_EQ(lastUniformId(&id), NO_ERROR);
        EXPECT_EQ(id, LAST) << "its frames are read all the same";
        reads = platform.count(FileCall::readAt);
    }
    for (int n = 1; n <= reads; ++n) {
        read(bytes);
        FaultPlatform platform;
        platform.failNth(FileCall::readAt, n, EIO);
        std::int32_t id = -1;
        EXPECT_EQ(lastUniformId(&id), FILE_READ_ERROR) << "read " << n << " of " << reads;
        EXPECT_EQ(id, -1);
    }
}

}  // namespace
}  // namespace tabulo::internal::test
