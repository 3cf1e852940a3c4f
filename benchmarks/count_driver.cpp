// Appends orders of the workload to a table, and scans them: for count_instructions.py, which counts the instructions
// of one function here.
//
//   count_driver append|forward|backward <directory> <orders>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "benchmarks/store.h"
#include "benchmarks/stores/tabulo_store.h"
#include "benchmarks/workload.h"
#include "query/message_table_iterator.h"
#include "query/query_conditions.h"

// What is counted, each with a name that the counting tool finds, and with everything that it calls.
extern "C" {
[[gnu::noinline]] bool count_append(tabulo::internal::MessageTable* table, const tabulo::internal::bench::Order* order);
[[gnu::noinline]] int count_scan(tabulo::internal::MessageTableIterator* iterator);
}

namespace {

using namespace tabulo::internal;
using namespace tabulo::internal::bench;

void appendOrders(MessageTable* table, std::int32_t messages) {
    OrderRecord record;
    for (std::int32_t number = 1; number <= messages; ++number) {
        order_make(&record, number);
        const Order order = order_of(record);
        if (!count_append(table, &order)) {
            fail("the table refuses a message");
        }
    }
}

void scan(MessageTable* table, bool backward, std::int32_t messages) {
    QueryConditions* conditions = conditions_create();
    (void)conditions_setIterateBackward(conditions, backward);
    const MessageTableIteratorPtr iterator(mtIterator_open(table, conditions));
    if (iterator == nullptr) {
        fail("no iterator can be opened");
    }
    if (count_scan(iterator.get()) != messages) {
        fail("the table cannot be read, or has other messages than were written");
    }
}

}  // namespace

bool count_append(MessageTable* table, const Order* order) {
    return mt_writeMessage(table, *order) == NO_ERROR;
}

int count_scan(MessageTableIterator* iterator) {
    int count = 0;
    bool end = false;
    while (mtIterator_next(iterator, &end) == NO_ERROR && !end) {
        ++count;
    }
    return end ? count : -1;
}

int main(int argc, char** argv) {
    const std::string mode = argc == 4 ? argv[1] : "";
    if (mode != "append" && mode != "forward" && mode != "backward") {
        fail("usage: count_driver append|forward|backward <directory> <orders>");
    }
    const std::int32_t messages = std::atoi(argv[3]);
    std::filesystem::create_directories(argv[2]);
    const TablePtr table = table_ofOrders(argv[2]);
    table_open(table.get(), OpenMode::create);
    appendOrders(table.get(), messages);
    if (mode != "append") {
        scan(table.get(), mode == "backward", messages);
    }
    return 0;
}
