// A table whose offsets go beyond 2 and 4 GiB. Its large messages consist of zero bytes, which are holes of the file.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <stdexcept>

#include "index/uniform_lookup.h"
#include "messagetable/message_lookup.h"
#include "messagetable/table_walk.h"
#include "query/message_read.h"
#include "query/message_table_iterator.h"
#include "tests/bounds/sparse_platform.h"
#include "tests/messagetable/message_table_fixture.h"
#include "tests/support/log_capture.h"
#include "tests/support/message_takers.h"
#include "tests/support/test_run.h"

namespace tabulo::internal::test {
namespace {

constexpr std::int32_t PER_BLOCK = 8;
constexpr std::int64_t FRAME = 270 << 20;
constexpr std::int64_t GIB = std::int64_t{1} << 30;
constexpr std::int64_t HEADER = 140;
constexpr std::int64_t FOOTER = 2652;
constexpr std::int64_t FULL_BLOCK = 8 + PER_BLOCK * FRAME + FOOTER;
// Of a message without any field.
constexpr std::int64_t BARE_FRAME = 55;
constexpr std::int32_t LARGE_MESSAGES = 2 * PER_BLOCK;

static_assert(HEADER + FULL_BLOCK > 2 * GIB && HEADER + 2 * FULL_BLOCK > 4 * GIB);

using Ids = std::vector<std::int32_t>;

// The numbers of a message say which one it is.
Message numbered(std::int32_t n, const TableShape& shape) {
    Message message = bareMessage(n, shape);
    message.metadata.seqNum = n;
    message.metadata.connMsgId = n;
    message.metadata.timestamp = n;
    return message;
}

// What a walk has to say: numbers, and that only the large messages have a text, of the right length.
struct Walked {
    Ids ids;
    bool textsFit = true;

    Visit operator()(const MessageView& message) {
        const bool large = message.metadata.uniformId <= LARGE_MESSAGES;
        ids.push_back(message.metadata.uniformId);
        textsFit = textsFit && message.texts[2].length == (large ? FRAME - BARE_FRAME : 0);
        return Visit::goOn;
    }
};

class LargeFile : public ::testing::Test {
  protected:
    void SetUp() override {
        if (!SparsePlatform::holesAreFree(directory.path())) {
            GTEST_SKIP() << "the file system of " << directory.path() << " stores holes as zero bytes";
        }
        shape.messagesPerBlock = PER_BLOCK;
    }

    void open(OpenMode mode) {
        table.reset();
        table = openTable(directory.root(), mode, shape);
        if (table == nullptr) {
            throw std::runtime_error("the table cannot be opened");
        }
    }

    // Two blocks of large frames behind the header of an empty table, as a writer leaves them that never closed a
    // block.
    void makeLargeFrames() {
        open(OpenMode::create);
        table.reset();
        const int file = ::open(directory.file(shape.name).c_str(), O_WRONLY | O_CLOEXEC);
        ASSERT_GE(file, 0);
        std::int64_t offset = HEADER;
        for (std::int32_t n = 1; n <= LARGE_MESSAGES; ++n) {
            offset += n % PER_BLOCK == 1 ? 8 : 0;
            putFrame(file, offset, n);
            offset += FRAME + (n % PER_BLOCK == 0 ? FOOTER : 0);
        }
        // The second footer is missing altogether; the first is a hole.
        ::close(file);
    }

    void putFrame(int file, std::int64_t offset, std::int32_t n) {
        Bytes frame = frameOf(numbered(n, shape));
        const auto put = [file](const Bytes& bytes, std::int64_t place) {
            ASSERT_EQ(::pwrite(file, bytes.data(), bytes.size(), place), static_cast<ssize_t>(bytes.size()));
        };
        const auto word = [](std::int64_t number) {
            Bytes bytes;
            for (int i = 0; i < 4; ++i) {
                bytes.push_back(static_cast<std::uint8_t>(number >> (8 * i)));
            }
            return bytes;
        };
        // Three lengths of 0 before the text: it is the third of the four string fields.
        frame.resize(35 + 2 * 4);
        std::copy_n(word(FRAME).begin(), 4, frame.begin());
        put(frame, offset);
        put(word(FRAME - BARE_FRAME), offset + 35 + 2 * 4);
        put(word(FRAME), offset + FRAME - 4);
    }

    Ids walk(bool backward) {
        const BlockReaderPtr frames(mfr_createReader(table->storage.get(), table->header.layout));
        Walked walked;
        EXPECT_EQ(mt_refresh(table.get()), NO_ERROR);
        EXPECT_EQ(backward ? mfr_readBackward(frames.get(), mt_openBlockStart(table.get()), visitorOf(&walked))
                           : mfr_readForward(frames.get(), table->storage->headerSize, visitorOf(&walked)),
                  NO_ERROR);
        EXPECT_TRUE(walked.textsFit) << "a text has another length than was written";
        return walked.ids;
    }

    Ids select(std::int32_t first, std::int32_t last, bool backward) {
        QueryConditionsPtr conditions(conditions_create());
        EXPECT_EQ(conditions_setIterateBackward(conditions.get(), backward), NO_ERROR);
        EXPECT_EQ(conditions_setSeqNumRange(conditions.get(), first, last), NO_ERROR);
        const MessageTableIteratorPtr iterator(mtIterator_open(table.get(), conditions.release()));
        Ids ids;
        bool end = false;
        if (iterator == nullptr) {
            ADD_FAILURE() << "the iterator cannot be opened";
            return ids;
        }
        while (mtIterator_next(iterator.get(), &end) == NO_ERROR && !end) {
            ids.push_back(mtIterator_getMetadata(iterator.get()).uniformId);
        }
        EXPECT_TRUE(end) << "the query should come to its end";
        return ids;
    }

    void checkFarEnd(const char* when, std::int32_t last) {
        SCOPED_TRACE(when);
        const std::int32_t bareBlocks = (last - LARGE_MESSAGES) / PER_BLOCK;
        const std::int64_t open = HEADER + 2 * FULL_BLOCK + bareBlocks * (8 + PER_BLOCK * BARE_FRAME + FOOTER);
        EXPECT_EQ(mt_refresh(table.get()), NO_ERROR);
        EXPECT_EQ(mt_openBlockStart(table.get()), open);
        std::int32_t uniformId = 0;
        EXPECT_EQ(mt_getLastUniformMessageId(table.get(), &uniformId), NO_ERROR);
        EXPECT_EQ(uniformId, last);
        EXPECT_EQ(select(LARGE_MESSAGES + 1, last, false).size(), static_cast<std::size_t>(last - LARGE_MESSAGES));
        EXPECT_EQ(select(last, last, true), Ids{last});
        UniformPlace place;
        EXPECT_EQ(mt_findUniformId(table.get(), LARGE_MESSAGES + 2, &place), NO_ERROR);
        EXPECT_EQ(place.offset, HEADER + 2 * FULL_BLOCK + 8 + BARE_FRAME);
        EXPECT_EQ(place.ordinal, LARGE_MESSAGES + 1);
        Walked heard;
        const MessageListener listener = listenerOf(&heard);
        for (const bool backward : {false, true}) {
            EXPECT_EQ(mt_readMessages(table.get(), &last, 1, &listener, backward), NO_ERROR);
        }
        EXPECT_EQ(heard.ids, (Ids{last, last}));
    }

    std::int64_t fileSize() const {
        return static_cast<std::int64_t>(std::filesystem::file_size(directory.file(shape.name)));
    }

    void writeBare(std::int32_t first, std::int32_t last) {
        for (std::int32_t n = first; n <= last; ++n) {
            ASSERT_EQ(writeMessage(table.get(), numbered(n, shape)), NO_ERROR) << "message " << n;
        }
    }

    TemporaryDirectory directory;
    TableShape shape;
    SparsePlatform platform;
    LogCapture log;
    MessageTablePtr table;
};

TEST_F(LargeFile, IsRecoveredWalkedQueriedAndContinuedBeyondTwoAndFourGibibytes) {
    makeLargeFrames();
    // Recovery finds the frames, and closes both blocks behind 2 and 4 GiB.
    open(OpenMode::write);
    EXPECT_EQ(fileSize(), HEADER + 2 * FULL_BLOCK);
    EXPECT_EQ(table->records.dataInfo.messageCount, LARGE_MESSAGES);
    EXPECT_EQ(static_cast<std::int64_t>(table->records.dataInfo.dataEnd), HEADER + 2 * FULL_BLOCK);
    const std::int32_t last = LARGE_MESSAGES + PER_BLOCK + 2;
    writeBare(LARGE_MESSAGES + 1, last);
    checkFarEnd("the writer", last);
    ASSERT_EQ(closeTable(table), NO_ERROR);
    open(OpenMode::read);
    checkFarEnd("a reader", last);
    Ids ids;
    for (std::int32_t n = 1; n <= last; ++n) {
        ids.push_back(n);
    }
    EXPECT_EQ(walk(false), ids);
    std::reverse(ids.begin(), ids.end());
    EXPECT_EQ(walk(true), ids);
    EXPECT_EQ(select(PER_BLOCK, PER_BLOCK + 1, false), (Ids{PER_BLOCK, PER_BLOCK + 1})) << "on both sides of 2 GiB";
    // Cut in the midst of the last message: only that one is lost.
    table.reset();
    std::filesystem::resize_file(directory.file(shape.name), static_cast<std::uintmax_t>(fileSize() - 20));
    open(OpenMode::write);
    EXPECT_EQ(table->records.dataInfo.messageCount, last - 1);
    checkFarEnd("the writer after a second recovery", last - 1);
    writeBare(last, last);
    ASSERT_EQ(closeTable(table), NO_ERROR);
    log.clear();
    open(OpenMode::write);
    EXPECT_TRUE(log.warnings().empty()) << "a table that was closed is not recovered";
    checkFarEnd("the writer of a closed table", last);
    reportFigure("bounds", "bytes of the largest table", fileSize());
}

TEST_F(LargeFile, IsCutInAClosedBlockBeyondFourGibibytesAndKeepsWhatIsWhole) {
    makeLargeFrames();
    open(OpenMode::write);
    ASSERT_EQ(closeTable(table), NO_ERROR);
    const std::int64_t secondBlock = HEADER + FULL_BLOCK;
    std::filesystem::resize_file(directory.file(shape.name),
                                 static_cast<std::uintmax_t>(secondBlock + 8 + (PER_BLOCK - 1) * FRAME + 100));
    log.clear();
    open(OpenMode::write);
    EXPECT_EQ(table->records.dataInfo.messageCount, LARGE_MESSAGES - 1);
    EXPECT_EQ(fileSize(), secondBlock + 8 + (PER_BLOCK - 1) * FRAME);
    writeBare(LARGE_MESSAGES, LARGE_MESSAGES);
    EXPECT_EQ(mt_openBlockStart(table.get()), fileSize()) << "the block is full again";
    EXPECT_EQ(select(LARGE_MESSAGES, LARGE_MESSAGES, true), Ids{LARGE_MESSAGES});
}

}  // namespace
}  // namespace tabulo::internal::test
