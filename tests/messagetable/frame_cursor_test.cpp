#include "messagetable/frame_cursor.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <limits>

#include "tests/messagetable/table_image.h"
#include "tests/support/fault_platform.h"

namespace tabulo::internal::test {
namespace {

constexpr std::int64_t headerSize = 140;

// A file whose frames stand right behind the header, without a block around them.
class FrameCursors : public TableImageTest {
  protected:
    // Puts the frames there and opens the file read-only.
    void readFrames(const Bytes& frames) {
        reader.reset();
        table.reset();
        place(concatenated(closedImage(shape, {}), frames));
        open(OpenMode::read);
        ASSERT_NE(table, nullptr);
        reader.reset(mfr_createReader(table->storage.get(), table->header.layout));
        file = tableStorage_master(table->storage.get());
        end = headerSize + static_cast<std::int64_t>(frames.size());
    }
    FrameCursor forward(std::int32_t pieceSize) {
        return frameCursor_forward(reader.get(), file, headerSize, end, pieceSize);
    }
    FrameCursor backward(std::int32_t pieceSize) {
        return frameCursor_backward(reader.get(), file, headerSize, end, pieceSize);
    }
    static Message messageOf(const DecodedMessage& decoded, const TableShape& shape) {
        Message message = bareMessage(0, shape);
        message.metadata = decoded.metadata;
        for (std::size_t i = 0; i < message.strings.size(); ++i) {
            if (decoded.stringFields[i].length > 0) {
                message.strings[i] = std::string(stringField_bytes(decoded.stringFields[i]));
            }
        }
        std::copy_n(decoded.numericFields.begin(), message.numbers.size(), message.numbers.begin());
        return message;
    }
    using Step = ErrorCode (*)(FrameCursor*, DecodedMessage*) noexcept;
    // Steps to the first failure, which is returned with the messages before it.
    std::pair<ErrorCode, std::vector<Message>> walk(FrameCursor cursor, Step step) const {
        std::vector<Message> messages;
        DecodedMessage decoded;
        for (;;) {
            const std::int64_t before = cursor.position;
            const ErrorCode code = step(&cursor, &decoded);
            if (code != NO_ERROR) {
                EXPECT_EQ(cursor.position, before) << "a failure moved the cursor";
                return {code, messages};
            }
            EXPECT_EQ(std::abs(cursor.position - before), decoded.frameLength);
            messages.push_back(messageOf(decoded, shape));
        }
    }

    BlockReaderPtr reader;
    TableFile* file = nullptr;
    std::int64_t end = 0;
};

Bytes framesOf(const std::vector<Message>& messages) {
    Bytes frames;
    for (const Message& message : messages) {
        frames = concatenated(frames, frameOf(message));
    }
    return frames;
}

// Small and large messages, the largest ones at both ends.
std::vector<Message> messagesOfManySizes(const TableShape& shape) {
    std::vector<Message> messages;
    for (const std::size_t size : {90'000U, 0U, 1U, 40'000U, 500U, 17U, 65'536U}) {
        messages.push_back(simpleMessage(static_cast<std::int32_t>(messages.size()) + 1, shape));
        messages.back().strings[2] = std::string(size, static_cast<char>('a' + messages.size()));
        if (size == 0) {
            messages.back() = bareMessage(static_cast<std::int32_t>(messages.size()), shape);
        }
    }
    return messages;
}

TEST_F(FrameCursors, StepForwardThroughPiecesOfAnySize) {
    shape.numericNames = {"Price"};
    const std::vector<Message> messages = messagesOfManySizes(shape);
    readFrames(framesOf(messages));
    const auto start = static_cast<std::int64_t>(table->storage->headerSize);
    const auto stretchEnd = start + static_cast<std::int64_t>(framesOf(messages).size());
    for (const std::int32_t pieceSize : {1, 4, 5, 55, 64, 1000, 65'536, 1'000'000}) {
        const auto [code, found] =
            walk(frameCursor_forward(reader.get(), file, start, stretchEnd, pieceSize), frameCursor_next);
        EXPECT_EQ(code, NO_DATA_ERROR) << "pieces of " << pieceSize;
        EXPECT_TRUE(found == messages) << "pieces of " << pieceSize << ": " << found.size() << " messages";
    }
}

TEST_F(FrameCursors, StepBackwardThroughPiecesOfAnySize) {
    shape.numericNames = {"Price"};
    std::vector<Message> messages = messagesOfManySizes(shape);
    readFrames(framesOf(messages));
    std::reverse(messages.begin(), messages.end());
    const auto start = static_cast<std::int64_t>(table->storage->headerSize);
    const auto stretchEnd = start + static_cast<std::int64_t>(framesOf(messages).size());
    for (const std::int32_t pieceSize : {1, 4, 5, 55, 64, 1000, 65'536, 1'000'000}) {
        const auto [code, found] =
            walk(frameCursor_backward(reader.get(), file, start, stretchEnd, pieceSize), frameCursor_previous);
        EXPECT_EQ(code, NO_DATA_ERROR) << "pieces of " << pieceSize;
        EXPECT_TRUE(found == messages) << "pieces of " << pieceSize << ": " << found.size() << " messages";
    }
}

TEST_F(FrameCursors, APieceThatHoldsTheWholeStretchIsOneRead) {
    readFrames(framesOf(simpleMessages(1, 50, shape)));
    FaultPlatform platform;
    EXPECT_EQ(walk(forward(BLOCK_PIECE_SIZE), frameCursor_next).second.size(), 50U);
    EXPECT_EQ(platform.count(FileCall::readAt), 1);
    EXPECT_EQ(platform.calls(FileCall::readAt)[0].length, end - headerSize);
    platform.clear();
    EXPECT_EQ(walk(backward(BLOCK_PIECE_SIZE), frameCursor_previous).second.size(), 50U);
    EXPECT_EQ(platform.count(FileCall::readAt), 1);
}

TEST_F(FrameCursors, NeverReadOutsideTheStretch) {
    const Bytes frames = framesOf(simpleMessages(1, 20, shape));
    readFrames(concatenated(frames, pattern(1000)));
    end = headerSize + static_cast<std::int64_t>(frames.size());
    FaultPlatform platform;
    for (const std::int32_t pieceSize : {1, 4, 100, 100'000}) {
        EXPECT_EQ(walk(forward(pieceSize), frameCursor_next).second.size(), 20U);
        EXPECT_EQ(walk(backward(pieceSize), frameCursor_previous).second.size(), 20U);
    }
    for (const RecordedCall& call : platform.calls(FileCall::readAt)) {
        EXPECT_GE(call.offset, headerSize);
        EXPECT_LE(call.offset + call.length, end);
    }
}

TEST_F(FrameCursors, AnEmptyStretchHasNoFrames) {
    readFrames({});
    EXPECT_EQ(walk(forward(100), frameCursor_next).first, NO_DATA_ERROR);
    EXPECT_EQ(walk(backward(100), frameCursor_previous).first, NO_DATA_ERROR);
}

TEST_F(FrameCursors, AFrameCutAtAnyByteIsNoData) {
    const Bytes two = framesOf(simpleMessages(1, 2, shape));
    const std::size_t first = frameOf(simpleMessage(1, shape)).size();
    for (std::size_t size = first; size < two.size(); ++size) {
        readFrames(cutAt(two, size));
        for (const std::int32_t pieceSize : {1, 16, 1000}) {
            const auto [code, found] = walk(forward(pieceSize), frameCursor_next);
            EXPECT_EQ(code, NO_DATA_ERROR) << size - first << " bytes of the second frame, pieces of " << pieceSize;
            EXPECT_EQ(found.size(), 1U);
        }
    }
}

TEST_F(FrameCursors, AStretchBeyondTheFilesEndEndsWithTheFile) {
    readFrames(framesOf(simpleMessages(1, 3, shape)));
    end += 10'000;
    const auto [code, found] = walk(forward(64), frameCursor_next);
    EXPECT_EQ(code, NO_DATA_ERROR);
    EXPECT_EQ(found.size(), 3U);
    EXPECT_EQ(walk(backward(64), frameCursor_previous).first, NO_DATA_ERROR) << "no frame ends there";
}

TEST_F(FrameCursors, AFrameWhoseEndWasOverwrittenIsInconsistent) {
    const std::size_t length = frameOf(simpleMessage(1, shape)).size();
    Bytes frames = framesOf(simpleMessages(1, 3, shape));
    putU32(&frames, 2 * length - 4, static_cast<std::uint32_t>(length + 1));
    readFrames(frames);
    for (const std::int32_t pieceSize : {1, 30, 1000}) {
        const auto [code, found] = walk(forward(pieceSize), frameCursor_next);
        EXPECT_EQ(code, CONSISTENCY_ERROR) << "pieces of " << pieceSize;
        EXPECT_EQ(found.size(), 1U);
    }
}

TEST_F(FrameCursors, BothLengthsWrongInTheSameWayIsNoCompleteFrame) {
    const std::size_t length = frameOf(simpleMessage(1, shape)).size();
    for (const std::uint32_t wrong :
         {0U, 3U, static_cast<std::uint32_t>(length - 1), static_cast<std::uint32_t>(length + 1), 0xffffffffU}) {
        Bytes frames = framesOf(simpleMessages(1, 3, shape));
        putU32(&frames, length, wrong);
        putU32(&frames, 2 * length - 4, wrong);
        readFrames(frames);
        const auto [code, found] = walk(forward(1000), frameCursor_next);
        EXPECT_EQ(code, NO_DATA_ERROR) << "length " << wrong;
        EXPECT_EQ(found.size(), 1U) << "length " << wrong;
    }
}

TEST_F(FrameCursors, AnUnknownNumericTypeIsInconsistent) {
    shape.numericNames = {"Price"};
    Bytes frames = framesOf(simpleMessages(1, 3, shape));
    frames[frameOf(simpleMessage(1, shape)).size() + 35] = 9;
    readFrames(frames);
    const auto start = static_cast<std::int64_t>(table->storage->headerSize);
    const auto stretchEnd = start + static_cast<std::int64_t>(frames.size());
    EXPECT_EQ(walk(frameCursor_forward(reader.get(), file, start, stretchEnd, 50), frameCursor_next).first,
              CONSISTENCY_ERROR);
    EXPECT_EQ(walk(frameCursor_backward(reader.get(), file, start, stretchEnd, 50), frameCursor_previous).first,
              CONSISTENCY_ERROR);
}

TEST_F(FrameCursors, ATextBeyondTheDataIsNoData) {
    Bytes frames = framesOf(simpleMessages(1, 1, shape));
    for (const std::uint32_t length : {200U, 0x7fffffffU, 0x80000000U, 0xffffffffU}) {
        putU32(&frames, 35, length);
        readFrames(frames);
        EXPECT_EQ(walk(forward(1000), frameCursor_next).first, NO_DATA_ERROR) << "text length " << length;
        EXPECT_EQ(walk(backward(1000), frameCursor_previous).first, NO_DATA_ERROR) << "text length " << length;
    }
}

TEST_F(FrameCursors, ALastLengthOfZeroIsInconsistentBackward) {
    Bytes frames = framesOf(simpleMessages(1, 2, shape));
    putU32(&frames, frames.size() - 4, 0);
    readFrames(frames);
    EXPECT_EQ(walk(backward(1000), frameCursor_previous).first, CONSISTENCY_ERROR);
}

TEST_F(FrameCursors, ALastLengthThatReachesBeforeTheStretchIsNoDataBackward) {
    Bytes frames = framesOf(simpleMessages(1, 2, shape));
    for (const std::uint32_t length : {static_cast<std::uint32_t>(frames.size() + 1), 0x7fffffffU, 0xffffffffU}) {
        putU32(&frames, frames.size() - 4, length);
        readFrames(frames);
        EXPECT_EQ(walk(backward(1000), frameCursor_previous).first, NO_DATA_ERROR) << "length " << length;
    }
}

TEST_F(FrameCursors, AFrameThatDoesNotEndWhereTheStepBackwardBeganIsRefused) {
    // Its last four bytes name a place where another, shorter frame begins.
    const Bytes inner = frameOf(bareMessage(7, shape));
    Message outer = simpleMessage(1, shape);
    outer.strings[3] = std::string(inner.begin(), inner.end()) + "tail of the text";
    Bytes frames = framesOf({outer, outer});
    putU32(&frames, frames.size() - 4, static_cast<std::uint32_t>(inner.size() + 16 + 4));
    readFrames(frames);
    const ErrorCode code = walk(backward(1000), frameCursor_previous).first;
    EXPECT_EQ(code, CONSISTENCY_ERROR);
}

TEST_F(FrameCursors, ADamagedLengthDoesNotReadTheRestOfTheFileAtOnce) {
    Bytes frames = frameOf(simpleMessage(1, shape));
    putU32(&frames, 0, 0x40000000);
    readFrames(concatenated(frames, Bytes(8'000'000, 0)));
    FaultPlatform platform;
    EXPECT_EQ(walk(forward(64), frameCursor_next).first, CONSISTENCY_ERROR);
    for (const RecordedCall& call : platform.calls(FileCall::readAt)) {
        EXPECT_LE(call.length, 1'000'000) << "a frame of a hundred bytes made it read that much";
    }
}

TEST_F(FrameCursors, ARefusedReadIsAReadErrorAndTheNextStepTriesAgain) {
    readFrames(framesOf(simpleMessages(1, 3, shape)));
    FrameCursor cursor = forward(64);
    DecodedMessage decoded;
    ASSERT_EQ(frameCursor_next(&cursor, &decoded), NO_ERROR);
    {
        FaultPlatform platform;
        platform.failAll(FileCall::readAt, EIO);
        EXPECT_EQ(frameCursor_next(&cursor, &decoded), FILE_READ_ERROR);
        FrameCursor other = backward(64);
        EXPECT_EQ(frameCursor_previous(&other, &decoded), FILE_READ_ERROR);
    }
    ASSERT_EQ(frameCursor_next(&cursor, &decoded), NO_ERROR);
    EXPECT_EQ(decoded.metadata.uniformId, 2);
}

TEST_F(FrameCursors, StepThroughFramesBeyondTwoGibibytes) {
    readFrames({});
    const std::int64_t far = (std::int64_t{5} << 30) + 3;
    const std::vector<Message> messages = simpleMessages(1, 3, shape);
    // The file has a hole in front of the frames.
    patchFile(path(), static_cast<std::size_t>(far), framesOf(messages));
    const auto farEnd = far + static_cast<std::int64_t>(framesOf(messages).size());
    EXPECT_EQ(walk(frameCursor_forward(reader.get(), file, far, farEnd, 100), frameCursor_next).second, messages);
    EXPECT_EQ(walk(frameCursor_backward(reader.get(), file, far, farEnd, 100), frameCursor_previous).second.size(), 3U);
    // A stretch that is itself longer than 2 GiB.
    DecodedMessage decoded;
    FrameCursor cursor = frameCursor_backward(reader.get(), file, headerSize, farEnd, 100);
    ASSERT_EQ(frameCursor_previous(&cursor, &decoded), NO_ERROR);
    EXPECT_EQ(decoded.metadata.uniformId, 3);
}

TEST_F(FrameCursors, ARefusedReadOfALongFrameIsAReadErrorBackwardToo) {
    Message longMessage = simpleMessage(1, shape);
    longMessage.strings[2] = std::string(1000, 'x');
    readFrames(frameOf(longMessage));
    FrameCursor cursor = backward(64);
    DecodedMessage decoded;
    for (int n = 1; n <= 2; ++n) {
        FaultPlatform platform;
        platform.failNth(FileCall::readAt, n, EIO);
        EXPECT_EQ(frameCursor_previous(&cursor, &decoded), FILE_READ_ERROR) << "read " << n;
        EXPECT_EQ(cursor.position, end) << "read " << n;
    }
    ASSERT_EQ(frameCursor_previous(&cursor, &decoded), NO_ERROR);
    EXPECT_EQ(messageOf(decoded, shape), longMessage);
}

}  // namespace
}  // namespace tabulo::internal::test
