#include "storage/byte_stream_file.h"

#include <gtest/gtest.h>

#include <array>
#include <cerrno>
#include <limits>

#include "tests/storage/open_table_file.h"
#include "tests/support/allocation_failure.h"
#include "tests/support/bytes.h"
#include "tests/support/fault_platform.h"
#include "tests/support/log_capture.h"
#include "tests/support/temporary_directory.h"

namespace tabulo::internal::test {
namespace {

class ByteStreamFile : public ::testing::Test {
  protected:
    void SetUp() override {
        writeFile(path, content);
        file = openTableFile(path, OpenMode::write);
    }
    std::string unreadHex() const {
        return toHex({byteStream_readPointer(stream.get()), static_cast<std::size_t>(byteStream_unread(stream.get()))});
    }

    const TemporaryDirectory directory;
    const std::string path = directory.file("orders");
    const Bytes content = pattern(100);
    TableFilePtr file;
    const ByteStreamPtr stream{byteStream_create(10)};
};

TEST_F(ByteStreamFile, WritesTheFilledBytesAtTheVirtualPosition) {
    byteStream_putBytes(stream.get(), fromHex("aa bb cc").data(), 3);
    byteStream_skip(stream.get(), 2);
    ASSERT_EQ(tableFileSeekSet(file.get(), 99), NO_ERROR);
    EXPECT_EQ(byteStream_writeToFile(stream.get(), file.get()), NO_ERROR);
    EXPECT_EQ(tableFileFlush(file.get()), NO_ERROR);
    EXPECT_EQ(toHex(readFile(path)), hexOf(content, 0, 99) + " aa bb cc") << "consumed bytes are written too";
}

TEST_F(ByteStreamFile, AStreamThatHoldsAnErrorWritesNothingAndReturnsIt) {
    byteStream_putBytes(stream.get(), "abc", 3);
    stream->error = STREAM_EXTENSION_ERROR;
    EXPECT_EQ(byteStream_writeToFile(stream.get(), file.get()), STREAM_EXTENSION_ERROR);
    EXPECT_EQ(tableFileFlush(file.get()), NO_ERROR);
    EXPECT_EQ(positionOf(file), 0);
    EXPECT_EQ(toHex(readFile(path)), toHex(content));
}

TEST_F(ByteStreamFile, WritingHandsOutTheFilesCode) {
    byteStream_putBytes(stream.get(), "abc", 3);
    const TableFilePtr reader = openTableFile(path, OpenMode::read);
    EXPECT_EQ(byteStream_writeToFile(stream.get(), reader.get()), READ_ONLY_ERROR);
    EXPECT_EQ(byteStream_writeToFile(stream.get(), nullptr), NULL_POINTER_ERROR);
    EXPECT_EQ(byteStream_writeToFile(nullptr, file.get()), NULL_POINTER_ERROR);
}

TEST_F(ByteStreamFile, ReadsExactlyTheBytesFromTheVirtualPosition) {
    stream->error = STREAM_EXTENSION_ERROR;
    byteStream_clearError(stream.get());
    byteStream_putBytes(stream.get(), "abcdef", 6);
    byteStream_skip(stream.get(), 4);
    stream->error = STREAM_WRITE_RESET_ERROR;
    ASSERT_EQ(tableFileSeekSet(file.get(), 30), NO_ERROR);
    EXPECT_EQ(byteStream_readFromFile(stream.get(), file.get(), 8), NO_ERROR);
    EXPECT_EQ(byteStream_error(stream.get()), NO_ERROR) << "an old error is cleared first";
    EXPECT_EQ(byteStream_readMark(stream.get()), 0);
    EXPECT_EQ(byteStream_writeMark(stream.get()), 8);
    EXPECT_EQ(unreadHex(), hexOf(content, 30, 8));
    EXPECT_EQ(byteStream_capacity(stream.get()), 10) << "there was room enough";
    EXPECT_EQ(positionOf(file), 38);
}

TEST_F(ByteStreamFile, ReadingKeepsTheDirection) {
    byteStream_rewind(stream.get(), BYTE_STREAM_BACKWARD);
    EXPECT_EQ(byteStream_readFromFile(stream.get(), file.get(), 8), NO_ERROR);
    EXPECT_EQ(stream->direction, BYTE_STREAM_BACKWARD);
    std::uint8_t last = 0;
    byteStream_get(stream.get(), &last);
    EXPECT_EQ(last, content[7]);
}

TEST_F(ByteStreamFile, ReadingMoreThanTheCapacityGrowsTheStreamByTheWholeCount) {
    EXPECT_EQ(byteStream_readFromFile(stream.get(), file.get(), 20), NO_ERROR);
    EXPECT_EQ(byteStream_capacity(stream.get()), 10 * 3 / 2 + 20);
    EXPECT_EQ(unreadHex(), hexOf(content, 0, 20));
}

TEST_F(ByteStreamFile, ReadingNothingEmptiesTheStream) {
    byteStream_putBytes(stream.get(), "abc", 3);
    EXPECT_EQ(byteStream_readFromFile(stream.get(), file.get(), 0), NO_ERROR);
    EXPECT_EQ(byteStream_writeMark(stream.get()), 0);
}

TEST_F(ByteStreamFile, AFixedBufferThatIsTooSmallIsOutOfMemory) {
    std::array<std::uint8_t, 8> buffer{};
    KSVByteStream fixed;
    byteStream_init(&fixed, buffer.data(), 8);
    byteStream_putBytes(&fixed, "abc", 3);
    EXPECT_EQ(byteStream_readFromFile(&fixed, file.get(), 9), OUT_OF_MEMORY_ERROR);
    EXPECT_EQ(byteStream_error(&fixed), OUT_OF_MEMORY_ERROR);
    EXPECT_EQ(byteStream_writeMark(&fixed), 0);
    EXPECT_EQ(positionOf(file), 0);
    EXPECT_EQ(byteStream_readFromFile(&fixed, file.get(), 8), NO_ERROR);
}

TEST_F(ByteStreamFile, ReadingWithoutMemoryIsOutOfMemory) {
    ErrorCode code = NO_ERROR;
    {
        const AllocationFailure failure(1);
        code = byteStream_readFromFile(stream.get(), file.get(), 20);
    }
    EXPECT_EQ(code, OUT_OF_MEMORY_ERROR);
    EXPECT_EQ(byteStream_error(stream.get()), OUT_OF_MEMORY_ERROR);
    EXPECT_EQ(byteStream_writeMark(stream.get()), 0);
}

TEST_F(ByteStreamFile, ACountThatNoBufferCanHoldIsOutOfMemory) {
    EXPECT_EQ(byteStream_readFromFile(stream.get(), file.get(), std::numeric_limits<std::int32_t>::max()),
              OUT_OF_MEMORY_ERROR);
    EXPECT_EQ(byteStream_error(stream.get()), OUT_OF_MEMORY_ERROR);
}

TEST_F(ByteStreamFile, ANegativeCountIsAWrongParameter) {
    byteStream_putBytes(stream.get(), "abc", 3);
    EXPECT_EQ(byteStream_readFromFile(stream.get(), file.get(), -1), WRONG_PARAMETER_ERROR);
    EXPECT_EQ(byteStream_error(stream.get()), WRONG_PARAMETER_ERROR);
    EXPECT_EQ(byteStream_writeMark(stream.get()), 0);
    EXPECT_EQ(positionOf(file), 0);
}

TEST_F(ByteStreamFile, ReadingBeyondTheEndIsAReadErrorAndLeavesTheStreamEmpty) {
    byteStream_putBytes(stream.get(), "abc", 3);
    byteStream_skip(stream.get(), 2);
    ASSERT_EQ(tableFileSeekSet(file.get(), 95), NO_ERROR);
    EXPECT_EQ(byteStream_readFromFile(stream.get(), file.get(), 6), FILE_READ_ERROR);
    EXPECT_EQ(byteStream_error(stream.get()), FILE_READ_ERROR);
    EXPECT_EQ(byteStream_writeMark(stream.get()), 0);
    EXPECT_EQ(byteStream_unread(stream.get()), 0);
}

TEST_F(ByteStreamFile, ReadingFromNoFileOrIntoNoStreamIsANullPointer) {
    EXPECT_EQ(byteStream_readFromFile(stream.get(), nullptr, 4), NULL_POINTER_ERROR);
    EXPECT_EQ(byteStream_readFromFile(nullptr, file.get(), 4), NULL_POINTER_ERROR);
}

TEST_F(ByteStreamFile, ReadingAtAnOffsetTakesWhatIsThereAndMovesNothing) {
    EXPECT_EQ(byteStream_readFromFileAt(stream.get(), file.get(), 95, 20), NO_ERROR);
    EXPECT_EQ(unreadHex(), hexOf(content, 95, 5));
    EXPECT_EQ(positionOf(file), 0);
    EXPECT_EQ(byteStream_readFromFileAt(stream.get(), file.get(), 200, 20), NO_ERROR);
    EXPECT_EQ(byteStream_writeMark(stream.get()), 0);
}

TEST_F(ByteStreamFile, ReadingAtAnOffsetReportsWhatFails) {
    EXPECT_EQ(byteStream_readFromFileAt(stream.get(), file.get(), 0, -1), WRONG_PARAMETER_ERROR);
    EXPECT_EQ(byteStream_error(stream.get()), WRONG_PARAMETER_ERROR);
    FaultPlatform platform;
    platform.failAll(FileCall::readAt, EIO);
    EXPECT_EQ(byteStream_readFromFileAt(stream.get(), file.get(), 0, 4), FILE_READ_ERROR);
    EXPECT_EQ(byteStream_error(stream.get()), FILE_READ_ERROR);
    EXPECT_EQ(byteStream_writeMark(stream.get()), 0);
}

}  // namespace
}  // namespace tabulo::internal::test
