// Message tables in the files of a memory platform.
#pragma once

#include <string>
#include <vector>

#include "tests/messagetable/message_table_fixture.h"
#include "tests/support/memory_platform.h"

namespace tabulo::internal::test {

// The root of the tables, and the file of one.
inline constexpr const char* MEMORY_ROOT = "memory/";
std::string memoryPath(const TableShape& shape);

// How a writer left a table: closed, or with the header's records of the last closed block.
enum class TableEnd { closed, unclosed };

// The file of a table with these messages. It is written in place of all files of the platform.
Bytes writtenTable(MemoryPlatform* platform, const TableShape& shape, const std::vector<Message>& messages,
                   TableEnd end);

}  // namespace tabulo::internal::test
