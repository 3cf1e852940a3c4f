#include "messagetable/frame.h"

#include <gtest/gtest.h>

#include <array>
#include <limits>
#include <string>
#include <vector>

#include "tests/messagetable/expected_bytes.h"
#include "tests/messagetable/message_table_fixture.h"
#include "tests/support/bytes.h"

namespace tabulo::internal::test {
namespace {

// The offsets of a frame of four string fields and no numeric one, all absent.
constexpr std::size_t BARE_FRAME = 55;
constexpr std::size_t MSG_LEN_2 = BARE_FRAME - 4;

TableShape numericShape(int count) {
    TableShape shape;
    for (int i = 0; i < count; ++i) {
        shape.numericNames.push_back("N" + std::to_string(i));
    }
    return shape;
}

// A stream over the bytes of a test, and what a decode of it gave.
struct Decoding {
    explicit Decoding(Bytes frame, std::int32_t stringCount = 4, std::int32_t numericCount = 0)
        : bytes(std::move(frame)) {
        layout.stringFieldCount = stringCount;
        layout.numericFieldCount = numericCount;
        byteStream_init(&stream, bytes.data(), static_cast<std::int32_t>(bytes.size()));
        byteStream_resetWrite(&stream, static_cast<std::int32_t>(bytes.size()));
        message.stringFields.fill({"left from before", 5});
    }
    ErrorCode forward() { return mfr_decodeMessage(layout, &stream, &message); }
    ErrorCode backwardFrom(std::size_t mark) {
        EXPECT_EQ(byteStream_resetRead(&stream, BYTE_STREAM_FORWARD, static_cast<std::int32_t>(mark)).bytes, 0);
        return backward();
    }
    ErrorCode backward() { return mfr_decodeMessageBackward(layout, &stream, &message); }
    std::int32_t mark() const { return byteStream_readMark(&stream); }

    Bytes bytes;
    MessageTableLayout layout;
    KSVByteStream stream;
    DecodedMessage message;
};

Bytes bareFrame() {
    return frameOf(bareMessage(1));
}

Bytes joined(const std::vector<Bytes>& parts) {
    ExpectedBytes all;
    for (const Bytes& part : parts) {
        all.append(part);
    }
    return all.bytes();
}

TEST(FrameEncoding, TheSmallestFrameIs55BytesAndBothItsLengthsSaySo) {
    Message message = bareMessage(1);
    EXPECT_EQ(toHex(encodedFrame(message)),
              "37 00 00 00 01 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 "
              "00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 "
              "00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 37 00 00 00");
    EXPECT_EQ(mfr_minimumFrameSize(4, 0), 55);
    EXPECT_EQ(mfr_minimumFrameSize(16, 16), 35 + 16 + 64 + 4);
}

TEST(FrameEncoding, EveryFieldStandsWhereItBelongs) {
    TableShape shape = numericShape(3);
    shape.stringNames = {"ClOrdID"};
    Message message = bareMessage(0x01020304, shape);
    message.metadata.seqNum = -2;
    message.metadata.prevSeqNum = 0x05060708;
    message.metadata.connMsgId = 0x1FFFFFFF;
    message.metadata.timestamp = 0x1112131415161718;
    setMsgType(&message.metadata, "AE");
    message.metadata.isPossDupFlag = 1;
    message.metadata.isOutOfSequence = 1;
    message.numbers[0] = numericValue_ofDouble(1.0);
    message.numbers[2] = numericValue_ofLong(-1);
    message.strings[0] = "no terminator";
    message.strings[2] = withNul("X-1");
    message.strings[4] = withNul("");
    EXPECT_EQ(toHex(encodedFrame(message)),
              "60 00 00 00 "                          // msgLen, 96
              "04 03 02 01 fe ff ff ff 08 07 06 05 "  // uniformId, seqNum, prevSeqNum
              "ff ff ff 1f 18 17 16 15 14 13 12 11 "  // connMsgId, timestamp
              "41 45 00 00 00 01 01 "                 // msgType, isPossDupFlag, isOutOfSequence
              "01 00 00 00 00 00 00 f0 3f "           // a double
              "00 "                                   // absent
              "02 ff ff ff ff ff ff ff ff "           // a long
              "0d 00 00 00 6e 6f 20 74 65 72 6d 69 6e 61 74 6f 72 "
              "00 00 00 00 "
              "04 00 00 00 58 2d 31 00 "
              "00 00 00 00 "
              "01 00 00 00 00 "
              "60 00 00 00");
}

TEST(FrameEncoding, AnAbsentNumericValueTakesOneByteAndAPresentOneNine) {
    const TableShape shape = numericShape(2);
    Message message = bareMessage(1, shape);
    EXPECT_EQ(encodedFrame(message).size(), BARE_FRAME + 2);
    message.numbers[1] = numericValue_ofLong(0);
    EXPECT_EQ(encodedFrame(message).size(), BARE_FRAME + 10);
}

TEST(FrameEncoding, AMsgTypeFillsAllFiveBytesAndIsCutThere) {
    Message message = bareMessage(1);
    message.metadata.msgType = {'A', 'B', 'C', 'D', 'E', 'F'};
    EXPECT_EQ(hexAt(encodedFrame(message), 28, 7), "41 42 43 44 45 00 00");
}

TEST(FrameEncoding, BytesBehindTheNulOfAMsgTypeNeverReachTheFile) {
    Message message = bareMessage(1);
    message.metadata.msgType = {'8', '\0', 'x', 'y', 'z', '!'};
    EXPECT_EQ(hexAt(encodedFrame(message), 28, 7), "38 00 00 00 00 00 00");
    message.metadata.msgType = {'\0', 'x', 'y', 'z', 'w', '!'};
    EXPECT_EQ(hexAt(encodedFrame(message), 28, 7), "00 00 00 00 00 00 00");
}

TEST(FrameEncoding, AppendsToWhatTheStreamHoldsAlready) {
    const ByteStreamPtr stream(byteStream_create(0));
    byteStream_put(stream.get(), std::uint64_t{0x0807060504030201});
    const Message message = simpleMessage(1);
    const MessageMetadata metadata = message.metadata;
    const std::array<StringField, 4> fields{};
    ASSERT_EQ(mfr_encodeMessage({metadata, fields, {}}, stream.get()), NO_ERROR);
    const Bytes written(byteStream_buffer(stream.get()),
                        byteStream_buffer(stream.get()) + byteStream_writeMark(stream.get()));
    ASSERT_EQ(written.size(), 8 + BARE_FRAME);
    EXPECT_EQ(hexAt(written, 0, 8), "01 02 03 04 05 06 07 08");
    EXPECT_EQ(u32At(written, 8), BARE_FRAME) << "the length of the frame and not of the stream";
    EXPECT_EQ(u32At(written, 8 + MSG_LEN_2), BARE_FRAME);
}

TEST(FrameEncoding, AStreamThatCannotHoldTheFrameIsAnExtensionErrorWhereverItEnds) {
    const MessageMetadata metadata;
    const std::array<StringField, 4> fields{};
    for (std::int32_t capacity = 0; capacity <= static_cast<std::int32_t>(BARE_FRAME); ++capacity) {
        Bytes room(BARE_FRAME);
        KSVByteStream stream;
        byteStream_init(&stream, room.data(), capacity);
        const ErrorCode expected = capacity < static_cast<std::int32_t>(BARE_FRAME) ? STREAM_EXTENSION_ERROR : NO_ERROR;
        EXPECT_EQ(mfr_encodeMessage({metadata, fields, {}}, &stream), expected) << capacity;
        EXPECT_EQ(byteStream_error(&stream), expected) << capacity;
    }
}

TEST(FrameEncoding, AFrameBeyondTheLargestInt32IsAnExtensionError) {
    const ByteStreamPtr stream(byteStream_create(64));
    const MessageMetadata metadata;
    // The text is never looked at: the stream is refused the room first.
    std::array<StringField, 4> fields{};
    fields[0] = {"", std::numeric_limits<std::int32_t>::max()};
    EXPECT_EQ(mfr_encodeMessage({metadata, fields, {}}, stream.get()), STREAM_EXTENSION_ERROR);
}

TEST(FrameEncoding, AFrameOfTheLargestInt32IsAskedRoomForAndNoLargerOne) {
    static std::int32_t asked = 0;
    const MessageMetadata metadata;
    std::array<StringField, 4> fields{};
    for (const std::int32_t surplus : {0, 1}) {
        KSVByteStream stream;
        byteStream_init(&stream, nullptr, 0);
        stream.extend = [](KSVByteStream*, std::int32_t extraBytes) {
            asked = extraBytes;
            return false;
        };
        asked = 0;
        fields[0] = {"", std::numeric_limits<std::int32_t>::max() - static_cast<std::int32_t>(BARE_FRAME) + surplus};
        EXPECT_EQ(mfr_encodeMessage({metadata, fields, {}}, &stream), STREAM_EXTENSION_ERROR);
        EXPECT_EQ(asked, surplus == 0 ? std::numeric_limits<std::int32_t>::max() : 0);
    }
}

TEST(FrameDecoding, GivesBackWhatWasEncodedAndLeavesTheMarkBehindTheFrame) {
    const TableShape shape = widestShape();
    Message message = simpleMessage(7, shape);
    message.metadata.prevSeqNum = -4;
    message.metadata.isPossDupFlag = 1;
    message.strings[3] = std::nullopt;
    message.strings[5] = withNul("");
    message.numbers[0] = NumericValue{};
    message.numbers[1] = numericValue_ofDouble(-0.25);
    const Bytes frame = frameOf(message);
    Decoding decoding(joined({frame, fromHex("ff ff ff ff")}), 16, 16);
    ASSERT_EQ(decoding.forward(), NO_ERROR);
    EXPECT_EQ(decoding.mark(), static_cast<std::int32_t>(frame.size()));
    EXPECT_EQ(ownedMessage(message_view(decoding.message, decoding.layout)), message);
    EXPECT_EQ(decoding.message.stringFields[3].text, nullptr) << "an absent field has no pointer";
    const auto* text = reinterpret_cast<const std::uint8_t*>(decoding.message.stringFields[0].text);
    EXPECT_TRUE(text > decoding.bytes.data() && text < decoding.bytes.data() + frame.size())
        << "texts point into the stream's buffer";
}

TEST(FrameDecoding, AppendsTheNulOfAFullMsgTypeItself) {
    Message message = bareMessage(1);
    setMsgType(&message.metadata, "ABCDE");
    Decoding decoding(frameOf(message));
    decoding.message.metadata.msgType.fill('?');
    ASSERT_EQ(decoding.forward(), NO_ERROR);
    EXPECT_STREQ(decoding.message.metadata.msgType.data(), "ABCDE");
}

TEST(FrameDecoding, AFrameCutAnywhereIsNoDataAndTheMarkStays) {
    TableShape shape = numericShape(2);
    Message message = simpleMessage(3, shape);
    message.numbers[0] = NumericValue{};
    const Bytes frame = frameOf(message);
    for (std::size_t length = 0; length < frame.size(); ++length) {
        Decoding decoding(Bytes(frame.begin(), frame.begin() + static_cast<std::ptrdiff_t>(length)), 4, 2);
        EXPECT_EQ(decoding.forward(), NO_DATA_ERROR) << length << " of " << frame.size() << " bytes";
        EXPECT_EQ(decoding.mark(), 0) << length;
    }
}

TEST(FrameDecoding, AnOverwrittenTrailingLengthIsInconsistent) {
    for (const std::uint32_t length : {0U, 54U, 56U, 0xFFFFFFFFU}) {
        Bytes frame = bareFrame();
        frame.resize(MSG_LEN_2);
        Decoding decoding(joined({frame, ExpectedBytes().u32(length).bytes()}));
        EXPECT_EQ(decoding.forward(), CONSISTENCY_ERROR) << length;
        EXPECT_EQ(decoding.mark(), 0);
    }
}

TEST(FrameDecoding, LengthsThatAgreeOnAnotherSizeThanTheFieldsTakeAreNoData) {
    for (const std::uint32_t length : {0U, 54U, 56U, 0xFFFFFFFFU}) {
        Bytes frame = bareFrame();
        frame = joined({ExpectedBytes().u32(length).bytes(), Bytes(frame.begin() + 4, frame.begin() + MSG_LEN_2),
                        ExpectedBytes().u32(length).bytes(), Bytes(8)});
        Decoding decoding(frame);
        EXPECT_EQ(decoding.forward(), NO_DATA_ERROR) << length;
    }
}

TEST(FrameDecoding, AnUnknownNumericTypeIsInconsistent) {
    for (const int type : {3, 4, 127, 128, 255}) {
        Bytes frame = frameOf(bareMessage(1, numericShape(1)));
        frame[35] = static_cast<std::uint8_t>(type);
        Decoding decoding(frame, 4, 1);
        EXPECT_EQ(decoding.forward(), CONSISTENCY_ERROR) << type;
    }
}

TEST(FrameDecoding, AStringLengthBeyondTheDataIsNoDataAndLeavesItsSlotEmpty) {
    for (const std::uint32_t length : {17U, 0x7FFFFFFFU, 0x80000000U, 0xFFFFFFFFU}) {
        Message message = bareMessage(1);
        message.strings[0] = withNul("kept");
        Bytes frame = frameOf(message);
        const Bytes stored = ExpectedBytes().u32(length).bytes();
        std::copy(stored.begin(), stored.end(), frame.begin() + 44);  // the second field's length
        Decoding decoding(frame);
        EXPECT_EQ(decoding.forward(), NO_DATA_ERROR) << length;
        EXPECT_EQ(decoding.message.stringFields[1].text, nullptr);
        EXPECT_EQ(decoding.message.stringFields[1].length, 0);
        EXPECT_EQ(decoding.message.stringFields[3].length, 0) << "all slots are cleared before the first is read";
    }
}

TEST(FrameDecoding, ThreeFramesAreWalkedForward) {
    Decoding decoding(joined({frameOf(simpleMessage(1)), frameOf(simpleMessage(2)), frameOf(simpleMessage(3))}));
    for (const std::int32_t n : {1, 2, 3}) {
        ASSERT_EQ(decoding.forward(), NO_ERROR) << n;
        EXPECT_EQ(decoding.message.metadata.uniformId, n);
    }
    EXPECT_EQ(decoding.forward(), NO_DATA_ERROR);
}

TEST(FrameDecodingBackward, ThreeFramesAreWalkedFromTheLastToTheFirst) {
    const Bytes frames = joined({frameOf(simpleMessage(1)), frameOf(simpleMessage(2)), frameOf(simpleMessage(3))});
    Decoding decoding(joined({frames, fromHex("ee ee ee ee ee ee ee ee")}));
    ASSERT_EQ(
        byteStream_resetRead(&decoding.stream, BYTE_STREAM_FORWARD, static_cast<std::int32_t>(frames.size())).bytes, 0);
    for (const std::int32_t n : {3, 2, 1}) {
        ASSERT_EQ(decoding.backward(), NO_ERROR) << n;
        EXPECT_EQ(decoding.message.metadata.uniformId, n);
        EXPECT_EQ(stringField_bytes(decoding.message.stringFields[0]), withNul("f0-" + std::to_string(n)));
    }
    EXPECT_EQ(decoding.mark(), 0);
    EXPECT_EQ(decoding.backward(), NO_DATA_ERROR) << "nothing stands before the first";
    EXPECT_EQ(decoding.mark(), 0);
}

TEST(FrameDecodingBackward, FewerThanFourBytesBeforeTheMarkAreNoData) {
    for (std::size_t mark = 0; mark < 4; ++mark) {
        Decoding decoding(bareFrame());
        EXPECT_EQ(decoding.backwardFrom(mark), NO_DATA_ERROR) << mark;
        EXPECT_EQ(decoding.mark(), static_cast<std::int32_t>(mark));
    }
}

TEST(FrameDecodingBackward, ATrailingLengthThatReachesBeforeTheStreamIsNoData) {
    for (const std::uint32_t length : {56U, 0x7FFFFFFFU, 0x80000000U, 0xFFFFFFFFU}) {
        Bytes frame = bareFrame();
        frame.resize(MSG_LEN_2);
        Decoding decoding(joined({frame, ExpectedBytes().u32(length).bytes()}));
        EXPECT_EQ(decoding.backwardFrom(BARE_FRAME), NO_DATA_ERROR) << length;
        EXPECT_EQ(decoding.mark(), static_cast<std::int32_t>(BARE_FRAME));
    }
}

TEST(FrameDecodingBackward, AFrameThatDoesNotEndAtTheMarkIsInconsistent) {
    // Four bytes behind a whole frame say that 59 bytes end here; the frame there takes 55.
    Decoding decoding(joined({bareFrame(), ExpectedBytes().u32(59).bytes()}));
    EXPECT_EQ(decoding.backwardFrom(59), CONSISTENCY_ERROR);
    EXPECT_EQ(decoding.mark(), 59);
}

TEST(FrameDecodingBackward, AFrameThatEndsBehindTheMarkIsInconsistent) {
    // The last four bytes of a text that holds a number look like a trailing length back to the frame's start.
    Message message = bareMessage(1);
    message.strings[0] = std::string("\x2b\x00\x00\x00", 4);
    const Bytes frame = frameOf(message);
    Decoding decoding(frame);
    EXPECT_EQ(decoding.backwardFrom(43), CONSISTENCY_ERROR);
    EXPECT_EQ(decoding.mark(), 43);
}

TEST(FrameDecodingBackward, ATrailingLengthOfZeroIsInconsistentAndNoEndlessWalk) {
    Bytes frame = bareFrame();
    frame.resize(MSG_LEN_2);
    Decoding decoding(joined({frame, ExpectedBytes().u32(0).bytes()}));
    EXPECT_EQ(decoding.backwardFrom(BARE_FRAME), CONSISTENCY_ERROR);
    EXPECT_EQ(decoding.mark(), static_cast<std::int32_t>(BARE_FRAME));
}

TEST(FrameDecodingBackward, AnOverwrittenLeadingLengthIsInconsistent) {
    Bytes frame = bareFrame();
    frame[0] = 54;
    Decoding decoding(frame);
    EXPECT_EQ(decoding.backwardFrom(BARE_FRAME), CONSISTENCY_ERROR);
}

}  // namespace
}  // namespace tabulo::internal::test
