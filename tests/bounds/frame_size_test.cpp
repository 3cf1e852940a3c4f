// Messages of 16 MiB, of the largest size there is, and beyond it.
#include <gtest/gtest.h>

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <limits>

#include "messagetable/table_walk.h"
#include "query/message_table_iterator.h"
#include "tests/bounds/sparse_platform.h"
#include "tests/messagetable/message_table_fixture.h"
#include "tests/support/log_capture.h"
#include "tests/support/message_takers.h"
#include "tests/support/test_run.h"

namespace tabulo::internal::test {
namespace {

constexpr std::int32_t MIB = 1 << 20;
constexpr std::int32_t BARE_FRAME = 55;
constexpr std::int32_t LARGEST_LENGTH = std::numeric_limits<std::int32_t>::max();
// A write is put together in a buffer of 2048 bytes and 1250 for each summarised field. Where that is not enough it
// becomes half as large again and what is missing, and never larger than 2^31 - 1 bytes.
constexpr std::int64_t WRITE_BUFFER = 2 * 1250 + 2048;
constexpr std::int64_t LARGEST_ACCEPTED = LARGEST_LENGTH - WRITE_BUFFER * 3 / 2 + WRITE_BUFFER;
constexpr std::size_t WIRE_MESSAGE = 2;  // its place among the four string fields

class FrameSize : public MessageTableTest {
  protected:
    FrameSize() { shape.messagesPerBlock = 3; }

    // A message whose frame has this size; its text differs from place to place.
    Message messageOf(std::int32_t n, std::int32_t frameSize) const {
        Message message = bareMessage(n, shape);
        std::string text(static_cast<std::size_t>(frameSize - BARE_FRAME), '\0');
        for (std::size_t i = 0; i < text.size(); ++i) {
            text[i] = static_cast<char>(i * 7 + i / 251 + static_cast<std::size_t>(n));
        }
        message.strings[WIRE_MESSAGE] = std::move(text);
        return message;
    }

    // Not with the framework's comparison: a failure would print all of it.
    static bool sameMessages(const std::vector<Message>& left, const std::vector<Message>& right) {
        return left == right;
    }

    LogCapture log;
};

TEST_F(FrameSize, SixteenMebibytesAreStoredReadSelectedAndRecovered) {
    std::vector<Message> messages;
    open(OpenMode::create);
    // At each place of a block: behind the length word, in between, and in front of the footer.
    for (std::int32_t n = 1; n <= 4; ++n) {
        messages.push_back(messageOf(n, 16 * MIB));
        ASSERT_EQ(write(messages.back()), NO_ERROR);
    }
    messages.push_back(simpleMessage(5, shape));
    ASSERT_EQ(write(messages.back()), NO_ERROR);
    EXPECT_TRUE(sameMessages(messagesIn(directory.root(), shape), messages)) << "a reader beside the writer";
    open(OpenMode::write);  // the one before was abandoned
    EXPECT_EQ(table->records.dataInfo.messageCount, 5);
    EXPECT_TRUE(sameMessages(readAll(table.get()).messages, messages)) << "forward after recovery";
    std::vector<Message> backward = readAllBackward(table.get()).messages;
    std::reverse(backward.begin(), backward.end());
    EXPECT_TRUE(sameMessages(backward, messages)) << "backward after recovery";
    const MessageTableIteratorPtr iterator(mtIterator_open(table.get(), conditions_create()));
    bool end = false;
    for (const Message& message : messages) {
        ASSERT_EQ(mtIterator_next(iterator.get(), &end), NO_ERROR);
        ASSERT_FALSE(end);
        EXPECT_TRUE(stringField_bytes(mtIterator_getWireMessage(iterator.get())) == *message.strings[WIRE_MESSAGE]);
    }
    reportFigure("bounds", "frames of 16 MiB", 4);
}

TEST_F(FrameSize, SixteenMebibytesCutByOneByteAreLostAloneAndTheNextMessageTakesTheirPlace) {
    open(OpenMode::create);
    ASSERT_EQ(write(simpleMessage(1, shape)), NO_ERROR);
    ASSERT_EQ(write(messageOf(2, 16 * MIB)), NO_ERROR);
    table.reset();
    std::filesystem::resize_file(path(), std::filesystem::file_size(path()) - 1);
    open(OpenMode::write);
    ASSERT_EQ(write(simpleMessage(3, shape)), NO_ERROR);
    EXPECT_EQ(messagesIn(directory.root(), shape),
              (std::vector<Message>{simpleMessage(1, shape), simpleMessage(3, shape)}));
}

TEST_F(FrameSize, SixteenMebibytesAreTakenAsAnEncodedFrame) {
    open(OpenMode::create);
    const Message message = messageOf(1, 16 * MIB);
    const Bytes frame = frameOf(message);
    ASSERT_EQ(frame.size(), static_cast<std::size_t>(16 * MIB));
    ASSERT_EQ(mt_writeRawMessage(table.get(), frame.data(), 16 * MIB), NO_ERROR);
    EXPECT_TRUE(sameMessages(messagesIn(directory.root(), shape), {message}));
}

// Zero bytes that take no memory while they are only read.
class ZeroBytes {
  public:
    explicit ZeroBytes(std::size_t length)
        : length_(length),
          bytes_(::mmap(nullptr, length, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0)) {}
    ~ZeroBytes() {
        if (bytes_ != MAP_FAILED) {
            ::munmap(bytes_, length_);
        }
    }
    ZeroBytes(const ZeroBytes&) = delete;
    ZeroBytes& operator=(const ZeroBytes&) = delete;

    const char* text() const { return bytes_ == MAP_FAILED ? nullptr : static_cast<const char*>(bytes_); }

  private:
    std::size_t length_;
    void* bytes_;
};

// Tests with texts near 2^31 bytes.
class LargestFrame : public FrameSize {
  protected:
    // The code of writing a message whose frame would have this size, all of it one field.
    ErrorCode writeFrame(std::int32_t n, std::int64_t frameSize) {
        std::vector<StringField> fields(4);
        fields[WIRE_MESSAGE] = {zeros.text(), static_cast<std::int32_t>(frameSize - BARE_FRAME)};
        return writeFields(n, fields);
    }

    ErrorCode writeFields(std::int32_t n, const std::vector<StringField>& fields) {
        const MessageMetadata metadata = bareMessage(n, shape).metadata;
        return mt_writeMessage(table.get(), {metadata, fields, {}});
    }

    // The write is refused with nothing changed, and the table goes on.
    void expectRefused(ErrorCode code) {
        EXPECT_EQ(code, STREAM_EXTENSION_ERROR);
        EXPECT_EQ(fileBytes(), before) << "a refused message must leave the file as it was";
        EXPECT_EQ(table->records.dataInfo.messageCount, 1);
        ASSERT_EQ(write(simpleMessage(2, shape)), NO_ERROR);
        ASSERT_EQ(write(simpleMessage(3, shape)), NO_ERROR);
        ASSERT_EQ(write(simpleMessage(4, shape)), NO_ERROR);
        ASSERT_EQ(closeTable(table), NO_ERROR);
        EXPECT_EQ(messagesIn(directory.root(), shape), simpleMessages(1, 4, shape));
    }

    void openWithOneMessage() {
        ASSERT_NE(zeros.text(), nullptr);
        open(OpenMode::create);
        ASSERT_EQ(write(simpleMessage(1, shape)), NO_ERROR);
        before = fileBytes();
    }

    ZeroBytes zeros{static_cast<std::size_t>(LARGEST_LENGTH)};
    Bytes before;
};

TEST_F(LargestFrame, OneByteMoreThanTheLargestIsRefusedAndNothingChanges) {
    openWithOneMessage();
    expectRefused(writeFrame(2, LARGEST_ACCEPTED + 1));
}

TEST_F(LargestFrame, MoreThanALengthCanSayIsRefusedAndNothingChanges) {
    openWithOneMessage();
    expectRefused(writeFrame(2, std::int64_t{LARGEST_LENGTH} + 1));
}

TEST_F(LargestFrame, FieldsThatAreTooLargeTogetherAreRefusedAndNothingChanges) {
    openWithOneMessage();
    const StringField half{zeros.text(), LARGEST_LENGTH / 2};
    expectRefused(writeFields(2, {{}, half, half, half}));
}

TEST_F(LargestFrame, AFieldOfTheLargestLengthIsRefusedInEveryPlace) {
    openWithOneMessage();
    for (std::size_t field = 0; field < 4; ++field) {
        std::vector<StringField> fields(4);
        fields[field] = {zeros.text(), LARGEST_LENGTH};
        EXPECT_EQ(writeFields(2, fields), STREAM_EXTENSION_ERROR) << "string field " << field;
        EXPECT_EQ(fileBytes(), before) << "string field " << field;
    }
}

struct Lengths {
    std::vector<std::int32_t> texts;

    Visit operator()(const MessageView& message) {
        texts.push_back(message.texts[WIRE_MESSAGE].length);
        return Visit::goOn;
    }
};

// Larger ones are left to a long run: they take some GiB of memory for a moment, and seconds.
class LargestFrameInALongRun : public LargestFrame {
  protected:
    void SetUp() override {
        if (testEffort() == 1) {
            GTEST_SKIP() << "in a long run only";
        }
        const std::int64_t free = std::int64_t{::sysconf(_SC_AVPHYS_PAGES)} * ::sysconf(_SC_PAGESIZE);
        if (free < (std::int64_t{8} << 30)) {
            GTEST_SKIP() << "8 GiB of memory are not free";
        }
        if (!SparsePlatform::holesAreFree(directory.path())) {
            GTEST_SKIP() << "the file system of " << directory.path() << " stores holes as zero bytes";
        }
    }

    SparsePlatform platform;
};

TEST_F(LargestFrameInALongRun, IsStoredRecoveredAndReadBothWays) {
    openWithOneMessage();
    ASSERT_EQ(writeFrame(2, LARGEST_ACCEPTED), NO_ERROR);
    ASSERT_EQ(write(simpleMessage(3, shape)), NO_ERROR);
    ASSERT_EQ(write(simpleMessage(4, shape)), NO_ERROR);
    open(OpenMode::write);
    EXPECT_EQ(table->records.dataInfo.messageCount, 4);
    const BlockReaderPtr frames(mfr_createReader(table->storage.get(), table->header.layout));
    const auto shortText = static_cast<std::int32_t>(simpleMessage(1, shape).strings[WIRE_MESSAGE]->size());
    const std::vector<std::int32_t> expected = {shortText, static_cast<std::int32_t>(LARGEST_ACCEPTED - BARE_FRAME),
                                                shortText, shortText};
    Lengths forward;
    EXPECT_EQ(mfr_readForward(frames.get(), table->storage->headerSize, visitorOf(&forward)), NO_ERROR);
    EXPECT_EQ(forward.texts, expected);
    Lengths backward;
    EXPECT_EQ(mfr_readBackward(frames.get(), mt_openBlockStart(table.get()), visitorOf(&backward)), NO_ERROR);
    std::reverse(backward.texts.begin(), backward.texts.end());
    EXPECT_EQ(backward.texts, expected);
    reportFigure("bounds", "bytes of the largest frame", LARGEST_ACCEPTED);
}

TEST_F(LargestFrameInALongRun, LeavesNoRoomForAFooterAndIsRefusedInFrontOfOne) {
    open(OpenMode::create);
    ASSERT_EQ(writeSimple(1, 2), NO_ERROR);
    before = fileBytes();
    EXPECT_EQ(writeFrame(3, LARGEST_ACCEPTED), STREAM_EXTENSION_ERROR);
    EXPECT_EQ(fileBytes(), before);
    ASSERT_EQ(writeSimple(3, 4), NO_ERROR);
    EXPECT_EQ(messagesIn(directory.root(), shape), simpleMessages(1, 4, shape));
}

}  // namespace
}  // namespace tabulo::internal::test
