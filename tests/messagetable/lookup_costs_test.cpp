// What a lookup asks of the system: nothing of a table that is open for writing, two calls of a reader whose file has
// not changed, and of a reader whose file has grown only what is new.
#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "messagetable/message_lookup.h"
#include "tests/messagetable/message_table_fixture.h"
#include "tests/support/fault_platform.h"

namespace tabulo::internal::test {
namespace {

constexpr std::int64_t TAIL = 52;
constexpr std::int64_t TAIL_SIZE = 88;
constexpr std::int64_t LENGTH_WORD = 8;

struct Lookup {
    const char* name;
    ErrorCode (*ask)(MessageTable* table);
};

constexpr std::array<Lookup, 5> lookups{{
    {"the last message id",
     [](MessageTable* table) {
         std::int32_t id = 0;
         return mt_getLastMessageId(table, 0, &id);
     }},
    {"the last good number",
     [](MessageTable* table) {
         std::int32_t number = 0;
         std::int64_t time = 0;
         return mt_getLastGoodMsgSeqNum(table, 0, &number, &time);
     }},
    {"the first pending number",
     [](MessageTable* table) {
         std::int32_t number = 0;
         return mt_getFirstPendingMsgSeqNum(table, 0, &number);
     }},
    {"the last pending number",
     [](MessageTable* table) {
         std::int32_t number = 0;
         return mt_getLastPendingMsgSeqNum(table, 0, &number);
     }},
    {"the last uniform id",
     [](MessageTable* table) {
         std::int32_t id = 0;
         return mt_getLastUniformMessageId(table, &id);
     }},
}};

class LookupCosts : public MessageTableTest {
  protected:
    void TearDown() override { table.reset(); }
    MessageTablePtr openReader() const { return openTable(directory.root(), OpenMode::read, shape); }
    std::int64_t frameSize(std::int32_t n) const {
        return static_cast<std::int64_t>(frameOf(simpleMessage(n, shape)).size());
    }
    std::int64_t size() const { return tableFileCachedSize(tableStorage_master(table->storage.get())); }

    // Every lookup of a reader makes these calls and no other.
    static void expectTailAndSize(MessageTable* reader, const std::string& state) {
        for (const Lookup& lookup : lookups) {
            FaultPlatform platform;
            ASSERT_EQ(lookup.ask(reader), NO_ERROR) << lookup.name << ", " << state;
            ASSERT_EQ(platform.sequence(), "readAt size") << lookup.name << ", " << state;
            EXPECT_EQ(platform.calls()[0].offset, TAIL) << lookup.name << ", " << state;
            EXPECT_EQ(platform.calls()[0].length, TAIL_SIZE) << lookup.name << ", " << state;
        }
    }
    // Appends messages and lets the reader look: the reads behind that of the tail.
    std::vector<RecordedCall> readsAfter(std::int32_t first, std::int32_t last, const MessageTablePtr& reader) {
        EXPECT_EQ(writeSimple(first, last), NO_ERROR);
        FaultPlatform platform;
        std::int32_t id = 0;
        EXPECT_EQ(mt_getLastUniformMessageId(reader.get(), &id), NO_ERROR);
        EXPECT_EQ(id, last);
        std::vector<RecordedCall> reads = platform.calls(FileCall::readAt);
        EXPECT_EQ(reads.at(0).offset, TAIL);
        reads.erase(reads.begin());
        return reads;
    }
    static std::int64_t sum(const std::vector<RecordedCall>& reads) {
        std::int64_t bytes = 0;
        for (const RecordedCall& read : reads) {
            bytes += read.length;
        }
        return bytes;
    }
};

TEST_F(LookupCosts, AWritableTableAsksTheSystemNothing) {
    for (const bool reopened : {false, true}) {
        open(reopened ? OpenMode::write : OpenMode::create);
        ASSERT_EQ(writeSimple(1, 10), NO_ERROR);
        const FaultPlatform platform;
        for (const Lookup& lookup : lookups) {
            EXPECT_EQ(lookup.ask(table.get()), NO_ERROR) << lookup.name;
        }
        EXPECT_EQ(platform.sequence(), "");
    }
}

TEST_F(LookupCosts, AReaderOfAnUnchangedFileReadsItsTailAndAsksForItsSize) {
    open(OpenMode::create);
    const MessageTablePtr reader = openReader();
    for (std::int32_t n = 0; n <= 10; ++n) {
        ASSERT_TRUE(n == 0 || writeSimple(n, n) == NO_ERROR);
        ASSERT_EQ(mt_refresh(reader.get()), NO_ERROR);
        expectTailAndSize(reader.get(), std::to_string(n) + " messages, not closed");
    }
    ASSERT_EQ(closeTable(table), NO_ERROR);
    expectTailAndSize(reader.get(), "closed");
    const MessageTablePtr another = openReader();
    ASSERT_EQ(mt_refresh(another.get()), NO_ERROR);
    expectTailAndSize(another.get(), "opened after the close");
}

TEST_F(LookupCosts, AReaderOfAGrownFileReadsTheMessageThatItKnowsLastAndWhatIsBehindIt) {
    shape.messagesPerBlock = 1000;
    open(OpenMode::create);
    const MessageTablePtr reader = openReader();
    readsAfter(1, 300, reader);
    std::int32_t last = 300;
    for (const std::int32_t count : {1, 2, 50, 400}) {
        const std::int64_t before = size();
        const std::vector<RecordedCall> reads = readsAfter(last + 1, last + count, reader);
        ASSERT_EQ(reads.size(), 1U) << count << " messages";
        EXPECT_EQ(reads[0].offset, before - frameSize(last)) << count << " messages";
        EXPECT_EQ(reads[0].offset + reads[0].length, size()) << count << " messages";
        last += count;
    }
}

TEST_F(LookupCosts, AReaderThatFollowsReadsNoMoreFromABlockThatIsNearlyFull) {
    shape.messagesPerBlock = 1000;
    open(OpenMode::create);
    const MessageTablePtr reader = openReader();
    for (std::int32_t n = 1; n <= 2100; ++n) {
        const bool atEdge = n > 1 && n % 1000 <= 1;  // the first or the last message of a block
        const std::int64_t footer = atEdge ? mt_storage(table.get())->footerSize : 0;
        const std::int64_t bytes = sum(readsAfter(n, n, reader));
        ASSERT_GE(bytes, frameSize(n)) << "message " << n << " was not read";
        ASSERT_LE(bytes, 2 * frameSize(n) + footer + 4 * LENGTH_WORD) << "for message " << n;
    }
}

TEST_F(LookupCosts, AReaderWhoseBlockWasClosedReadsNothingBeforeTheMessageThatItKnewLast) {
    shape.messagesPerBlock = 1000;
    open(OpenMode::create);
    const MessageTablePtr reader = openReader();
    readsAfter(1, 998, reader);
    std::int32_t last = 998;
    for (const std::int32_t count : {7, 994, 3, 2990}) {
        const std::int64_t known = size() - frameSize(last);
        const std::vector<RecordedCall> reads = readsAfter(last + 1, last + count, reader);
        last += count;
        for (const RecordedCall& read : reads) {
            EXPECT_GE(read.offset, known) << "up to message " << last;
        }
        // The open block is read once more when others were closed before it.
        EXPECT_LE(sum(reads), 2 * (size() - known)) << "up to message " << last;
    }
}

}  // namespace
}  // namespace tabulo::internal::test
