#include "tests/damage/memory_table.h"

namespace tabulo::internal::test {

std::string memoryPath(const TableShape& shape) {
    return MEMORY_ROOT + shape.name;
}

Bytes writtenTable(MemoryPlatform* platform, const TableShape& shape, const std::vector<Message>& messages,
                   TableEnd end) {
    platform->removeAll();
    MessageTablePtr table = openTable(MEMORY_ROOT, OpenMode::create, shape);
    for (const Message& message : messages) {
        EXPECT_EQ(writeMessage(table.get(), message), NO_ERROR);
    }
    if (end == TableEnd::closed) {
        EXPECT_EQ(mt_close(table.get()), NO_ERROR);
    }
    table.reset();
    return platform->bytes(memoryPath(shape));
}

}  // namespace tabulo::internal::test
