// A stored message allocates no memory: the first allocation of every append would fail here, and show in its result.
#include <gtest/gtest.h>

#include <new>

#include "messagetable/message_table.h"
#include "tests/messagetable/message_table_fixture.h"
#include "tests/support/allocation_failure.h"

namespace tabulo::internal::test {
namespace {

class WriteAllocations : public MessageTableTest {
  protected:
    // Stores a message while the next allocation of this thread would fail.
    ErrorCode writeWithoutMemory(const Message& message) {
        const MessageFields fields(message);
        const AllocationFailure failure(1);
        const ErrorCode code = mt_writeMessage(table.get(), fields.view());
        void* next = ::operator new(1, std::nothrow);
        unharmed = unharmed && next == nullptr;
        ::operator delete(next);
        return code;
    }

    bool unharmed = true;  // the failure was still to come after each append: none had swallowed it
};

TEST_F(WriteAllocations, AnAppendMakesNoneAlsoWhenItClosesABlock) {
    for (const TableShape& wanted : {TableShape{}, widestShape(4)}) {
        shape = wanted;
        open(OpenMode::create);
        ASSERT_EQ(writeSimple(1, shape.messagesPerBlock), NO_ERROR);  // the writer's stream has seen a footer
        for (std::int32_t n = shape.messagesPerBlock + 1; n <= 50; ++n) {
            ASSERT_EQ(writeWithoutMemory(simpleMessage(n, shape)), NO_ERROR) << "message " << n;
        }
        EXPECT_TRUE(unharmed) << "an append allocated memory and went on without it";
        EXPECT_EQ(readAll(table.get()).messages, simpleMessages(1, 50, shape));
    }
}

TEST_F(WriteAllocations, TheFirstAppendsOfATableMakeNoneEither) {
    shape = defaultShape();
    open(OpenMode::create);
    for (std::int32_t n = 1; n <= 20; ++n) {
        ASSERT_EQ(writeWithoutMemory(simpleMessage(n, shape)), NO_ERROR) << "message " << n;
    }
    EXPECT_TRUE(unharmed);
}

TEST_F(WriteAllocations, AMessageAsLargeAsOneBeforeMakesNone) {
    open(OpenMode::create);
    Message large = simpleMessage(1);
    large.strings[2] = std::string(200000, 'x');
    ASSERT_EQ(write(large), NO_ERROR);
    ASSERT_EQ(write(large), NO_ERROR);
    ASSERT_EQ(write(large), NO_ERROR);
    for (int i = 0; i < 5; ++i) {
        EXPECT_EQ(writeWithoutMemory(large), NO_ERROR);
    }
    EXPECT_TRUE(unharmed);
}

TEST_F(WriteAllocations, ARawMessageMakesNone) {
    open(OpenMode::create);
    ASSERT_EQ(writeSimple(1, 3), NO_ERROR);
    const Bytes frame = frameOf(simpleMessage(4));
    for (int i = 0; i < 6; ++i) {
        ErrorCode code = NO_ERROR;
        {
            const AllocationFailure failure(1);
            code = mt_writeRawMessage(table.get(), frame.data(), static_cast<std::int32_t>(frame.size()));
        }
        EXPECT_EQ(code, NO_ERROR) << i;
    }
}

TEST_F(WriteAllocations, AMessageThatNeedsALargerBufferIsSeenToAllocate) {
    open(OpenMode::create);
    Message large = simpleMessage(1);
    large.strings[2] = std::string(200000, 'x');
    EXPECT_EQ(writeWithoutMemory(large), STREAM_EXTENSION_ERROR);
}

}  // namespace
}  // namespace tabulo::internal::test
