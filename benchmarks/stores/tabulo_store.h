// A message table of the workload's layout.
#pragma once

#include <memory>
#include <string>

#include "benchmarks/store.h"
#include "core/handle.h"
#include "messagetable/message_table.h"

namespace tabulo::internal::bench {

using TablePtr = Handle<MessageTable, mt_destroy>;

// The table "orders" in a directory, with the workload's seven configured or built-in texts and two numbers, five of
// the texts summarised; not open yet.
TablePtr table_ofOrders(const std::string& directory);
// The table "reports", with the three fields by which messages name their order, all with filters.
TablePtr table_ofReports(const std::string& directory);
// A table without configured fields, for messages as small as they get.
TablePtr table_ofSmallMessages(const std::string& directory);
// Opens it, or ends the process.
void table_open(MessageTable* table, OpenMode mode);
// Builds the side index of an open table, or ends the process.
void table_index(MessageTable* table);

// The store of a directory in which somebody has built the index of the table. It is read alone.
Store tabulo_indexedStore();

}  // namespace tabulo::internal::bench
