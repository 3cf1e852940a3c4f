// What each byte of a message table's file is, computed from the documented layout and the messages alone.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "tests/messagetable/table_image.h"

namespace tabulo::internal::test {

struct TableRegion {
    std::size_t start = 0;
    std::size_t end = 0;
    std::string name;
    // A reader has something to compare these bytes with. The format has no checksum: a changed byte elsewhere may go
    // unnoticed.
    bool checked = true;
    std::size_t message = 0;  // whose frame it belongs to, from 1 on; 0 for none
};

// The regions of the file of a table with these messages, in file order and without gaps. An open block without
// messages has none.
std::vector<TableRegion> regionsOf(const TableShape& shape, const std::vector<Message>& messages);

// The places and widths of all numbers in the file that say how long something is, how many there are, or where.
struct TableNumber {
    std::size_t offset = 0;
    std::size_t width = 0;  // 1, 2, 4 or 8 bytes
};
std::vector<TableNumber> numbersOf(const TableShape& shape, const std::vector<Message>& messages);

}  // namespace tabulo::internal::test
