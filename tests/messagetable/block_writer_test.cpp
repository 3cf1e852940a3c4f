#include "messagetable/block_writer.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#include "tests/messagetable/message_table_fixture.h"
#include "tests/messagetable/table_image.h"
#include "tests/support/allocation_failure.h"
#include "tests/support/debug_log.h"

namespace tabulo::internal::test {
namespace {

using Lines = std::vector<std::string>;

std::string pointerText(const void* pointer) {
    char text[32];
    std::snprintf(text, sizeof(text), "%p", pointer);
    return text;
}

class FrameWriter : public MessageTableTest {
  protected:
    void SetUp() override { table = createTable(directory.root(), shape); }
    BlockWriterPtr create(TableStorage* storage) const {
        return BlockWriterPtr(mfr_create(storage, &table->header.layout));
    }
    const MessageTableLayout* layout() const { return &table->header.layout; }
};

TEST_F(FrameWriter, RecordsTheFooterSizeInItsStorage) {
    EXPECT_EQ(table->storage->footerSize, 2652);
    table->storage->footerSize = 0;
    const BlockWriterPtr frames = create(table->storage.get());
    ASSERT_NE(frames, nullptr);
    EXPECT_EQ(frames->footerSize, 2652);
    EXPECT_EQ(table->storage->footerSize, 2652);
}

TEST_F(FrameWriter, TakesTheFooterSizeThatItsStorageRecordsAlready) {
    table->storage->footerSize = 4711;
    const BlockWriterPtr frames = create(table->storage.get());
    ASSERT_NE(frames, nullptr);
    EXPECT_EQ(frames->footerSize, 4711);
}

TEST_F(FrameWriter, WithoutAStorageHasNoFooterSize) {
    const BlockWriterPtr frames = create(nullptr);
    ASSERT_NE(frames, nullptr);
    EXPECT_EQ(frames->footerSize, 0);
}

TEST_F(FrameWriter, BeginsWithAStreamThatHoldsAFrameAndAFooter) {
    EXPECT_EQ(byteStream_capacity(table->writer->stream.get()), 2 * 1250 + 2048);
    shape = widestShape();
    table = createTable(directory.root(), shape);
    EXPECT_EQ(byteStream_capacity(table->writer->stream.get()), 14 * 1250 + 2048);
    EXPECT_EQ(table->writer->summary.filters.size(), 14U);
}

TEST_F(FrameWriter, LogsItsCreationAndThatOfTheOneThatMeasuresTheFooter) {
    table->storage->footerSize = 0;
    DebugLog log;
    const BlockWriterPtr frames = create(table->storage.get());
    const Lines lines = log.lines();
    const std::string config = pointerText(layout());
    ASSERT_EQ(lines.size(), 6U) << log.text();
    EXPECT_EQ(lines[0],
              debugLine("+ mfr_create", "storage=" + pointerText(table->storage.get()) + ", config=" + config + "."));
    EXPECT_EQ(lines[1], debugLine("+ mfrX_footerSize", "config=" + config));
    EXPECT_EQ(lines[2].find(debugLine("+ mfr_create", "storage=" + pointerText(nullptr) + ", config=")), 0U)
        << lines[2];
    EXPECT_EQ(lines[3].find(debugLine("- mfr_create", "self=0x")), 0U) << lines[3];
    EXPECT_EQ(lines[4], debugLine("- mfrX_footerSize", "size = 2652"));
    EXPECT_EQ(lines[5], debugLine("- mfr_create", "self=" + pointerText(frames.get()) + ", inited=1."));
}

TEST_F(FrameWriter, WithoutMemoryIsNoneAndSaysSoWhicheverAllocationFails) {
    int failures = 0;
    for (int n = 1;; ++n) {
        DebugLog log;
        BlockWriter* frames = nullptr;
        {
            const AllocationFailure failure(n);
            frames = mfr_create(table->storage.get(), layout());
        }
        if (frames != nullptr) {
            mfr_destroy(frames);
            break;
        }
        failures += 1;
        ASSERT_LT(n, 100) << "never created";
        EXPECT_EQ(log.lines().back(), debugLine("- mfr_create", "self=" + pointerText(nullptr) + ", inited=0.")) << n;
    }
    EXPECT_GE(failures, 4) << "writer, stream, and a filter's two parts";
}

TEST_F(FrameWriter, DestroyedWhenThereIsNoneIsFine) {
    mfr_destroy(nullptr);
}

TEST_F(FrameWriter, ResetsItsSummaryAndOnRequestItsStaticIndexes) {
    open(OpenMode::create);
    ASSERT_EQ(writeSimple(1, 2), NO_ERROR);
    mfr_reset(table->writer.get(), true);
    EXPECT_EQ(table->writer->summary.messageCount, 0);
    EXPECT_EQ(table->writer->summary.frameBytes, 0U);
    EXPECT_EQ(table->writer->summary.filters[0].words, std::vector<std::uint32_t>(313));
    EXPECT_EQ(table->writer->summary.staticIndexes.lastUniform, 2);
    mfr_reset(table->writer.get(), false);
    EXPECT_TRUE(table->writer->summary.staticIndexes == mthStaticIndexes{});
    table->writer->summary.staticIndexes.lastUniform = 3;
    mfr_resetAll(table->writer.get());
    EXPECT_TRUE(table->writer->summary.staticIndexes == mthStaticIndexes{});
}

TEST_F(FrameWriter, KeepsItsStaticIndexesWhenABlockIsClosed) {
    open(OpenMode::create);
    ASSERT_EQ(writeSimple(1, 3), NO_ERROR);
    EXPECT_EQ(table->writer->summary.messageCount, 0);
    EXPECT_EQ(table->writer->summary.staticIndexes.lastUniform, 3);
    EXPECT_EQ(table->writer->summary.filters[0].words, std::vector<std::uint32_t>(313));
}

TEST_F(FrameWriter, MakesRoomForTheLargestBlockOfABatch) {
    open(OpenMode::create);
    ASSERT_EQ(writeSimple(1, 1), NO_ERROR);
    const auto roomFor = [&](const std::vector<std::int32_t>& lengths) {
        Bytes frames;
        for (const std::int32_t length : lengths) {
            Bytes frame(static_cast<std::size_t>(length), 0);
            putU32(&frame, 0, static_cast<std::uint32_t>(length));
            frames = concatenated(frames, frame);
        }
        EXPECT_EQ(blockWriter_makeRoom(table->writer.get(), frames), NO_ERROR);
        return byteStream_capacity(table->writer->stream.get()) - 8 - table->writer->footerSize;
    };
    // Blocks of three messages, of which the first has one already.
    EXPECT_EQ(roomFor({20000}), 20000);
    EXPECT_EQ(roomFor({100, 100, 100, 100, 100, 30000, 30000, 100}), 60100) << "the third block is the largest";
}

TEST(FooterSize, OfADefaultTableIs2652AndOfTheWidestOne18012) {
    const MessageTableLayout byDefault;
    EXPECT_EQ(mfrX_footerSize(&byDefault), 2652);
    const MessageTableLayout widest{1000, 16, 14, 16};
    EXPECT_EQ(mfrX_footerSize(&widest), 18012);
    const MessageTableLayout none{1000, 4, 0, 0};
    EXPECT_EQ(mfrX_footerSize(&none), 2 * 36 + 60 + 8);
}

TEST(FooterSize, OfAnImpossibleLayoutIsZero) {
    const MessageTableLayout impossible{0, 4, 2, 0};
    EXPECT_EQ(mfrX_footerSize(&impossible), 0);
}

}  // namespace
}  // namespace tabulo::internal::test
