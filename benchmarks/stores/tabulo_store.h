// A message table of the workload's layout.
#pragma once

#include <memory>
#include <string>

#include "messagetable/message_table.h"

namespace tabulo::bench {

struct TableDeleter {
    void operator()(MessageTable* table) const noexcept { mt_destroy(table); }
};
using TablePtr = std::unique_ptr<MessageTable, TableDeleter>;

// The table "orders" in a directory, with the workload's seven configured or built-in texts and two numbers, five of
// the texts summarised; not open yet.
TablePtr table_ofOrders(const std::string& directory);
// A table without configured fields, for messages as small as they get.
TablePtr table_ofSmallMessages(const std::string& directory);
// Opens it, or ends the process.
void table_open(MessageTable* table, std::int32_t mode);

}  // namespace tabulo::bench
