// Jumps to a frame of a block by way of one whose place is known.
#include "messagetable/frame_jump.h"

#include <gtest/gtest.h>

#include "tests/messagetable/table_image.h"

namespace tabulo::internal::test {
namespace {

constexpr std::int64_t headerSize = 140;
constexpr std::int32_t FRAMES = 6;
constexpr std::int32_t PIECE = 4096;

class FrameJumps : public TableImageTest {
  protected:
    // Puts frames 0 to 5 right behind the header and opens the file read-only; the length behind frame `damaged` is one
    // that no frame there can have.
    void make(std::int32_t damaged = FRAMES) {
        Bytes bytes = closedImage(shape, {});
        offsets.clear();
        for (std::int32_t n = 0; n < FRAMES; ++n) {
            offsets.push_back(static_cast<std::int64_t>(bytes.size()));
            Bytes frame = frameOf(simpleMessage(n, shape));
            if (n == damaged) {
                frame.back() ^= 1U;
            }
            bytes = concatenated(bytes, frame);
        }
        offsets.push_back(static_cast<std::int64_t>(bytes.size()));
        ASSERT_EQ(offsets.front(), headerSize);
        reader.reset();
        table.reset();
        place(bytes);
        open(OpenMode::read);
        ASSERT_NE(table, nullptr);
        reader.reset(mfr_createReader(table->storage.get(), table->header.layout));
        file = tableStorage_master(table->storage.get());
    }
    FrameMark mark(std::int32_t number) const { return {offsets.at(static_cast<std::size_t>(number)), number}; }
    FrameCursor forward() { return frameCursor_forward(reader.get(), file, offsets.front(), offsets.back(), PIECE); }
    FrameCursor backward() { return frameCursor_backward(reader.get(), file, offsets.front(), offsets.back(), PIECE); }

    std::vector<std::int64_t> offsets;  // of the frames, and their end
    BlockReaderPtr reader;
    TableFile* file = nullptr;
    DecodedMessage passed;
};

TEST_F(FrameJumps, ReachEveryFrameFromEveryMark) {
    make();
    for (std::int32_t target = 0; target < FRAMES; ++target) {
        for (std::int32_t m = 0; m <= FRAMES; ++m) {
            SCOPED_TRACE(::testing::Message() << "frame " << target << " by mark " << m);
            DecodedMessage found;
            if (m <= target) {
                FrameCursor cursor = forward();
                std::int32_t number = 0;
                EXPECT_EQ(frameJump_forward(&cursor, mark(m), PIECE, target, &number, &passed), NO_ERROR);
                EXPECT_EQ(number, target);
                ASSERT_EQ(frameCursor_next(&cursor, &found), NO_ERROR);
            } else {
                FrameCursor cursor = backward();
                std::int32_t number = FRAMES;
                EXPECT_EQ(frameJump_backward(&cursor, mark(m), PIECE, target, &number, &passed), NO_ERROR);
                EXPECT_EQ(number, target + 1);
                ASSERT_EQ(frameCursor_previous(&cursor, &found), NO_ERROR);
            }
            EXPECT_EQ(found.metadata.uniformId, target);
        }
    }
}

TEST_F(FrameJumps, OverADamagedFrameFailAndMoveNothing) {
    make(3);
    DecodedMessage found;
    for (const std::int32_t m : {0, 1, 2}) {
        SCOPED_TRACE(::testing::Message() << "by mark " << m);
        FrameCursor cursor = forward();
        std::int32_t number = 0;
        EXPECT_EQ(frameJump_forward(&cursor, mark(m), 1, 5, &number, &passed), CONSISTENCY_ERROR);
        EXPECT_EQ(cursor.position, offsets.front());
        EXPECT_EQ(number, 0);
        ASSERT_EQ(frameCursor_next(&cursor, &found), NO_ERROR) << "the cursor goes on where it was";
        EXPECT_EQ(found.metadata.uniformId, 0);

        cursor = backward();
        number = FRAMES;
        EXPECT_EQ(frameJump_backward(&cursor, mark(FRAMES - m), 1, 0, &number, &passed), NO_DATA_ERROR);
        EXPECT_EQ(cursor.position, offsets.back());
        EXPECT_EQ(number, FRAMES);
        ASSERT_EQ(frameCursor_previous(&cursor, &found), NO_ERROR);
        EXPECT_EQ(found.metadata.uniformId, FRAMES - 1);
    }
}

TEST_F(FrameJumps, ByAMarkOutsideTheBlockFailAndMoveNothing) {
    make();
    for (const std::int64_t outside : {offsets.front() - 1, offsets.back() + 1}) {
        FrameCursor cursor = forward();
        std::int32_t number = 0;
        EXPECT_EQ(frameJump_forward(&cursor, {outside, 4}, PIECE, 5, &number, &passed), CONSISTENCY_ERROR);
        EXPECT_EQ(cursor.position, offsets.front());
        EXPECT_EQ(number, 0);
        cursor = backward();
        number = FRAMES;
        EXPECT_EQ(frameJump_backward(&cursor, {outside, 2}, PIECE, 0, &number, &passed), CONSISTENCY_ERROR);
        EXPECT_EQ(cursor.position, offsets.back());
        EXPECT_EQ(number, FRAMES);
    }
}

}  // namespace
}  // namespace tabulo::internal::test
