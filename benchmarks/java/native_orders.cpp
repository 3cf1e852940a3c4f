// Writes the workload to a table without Java, and prints what a scan of it has to add up to (see Scan.java).
//
//   native_orders <directory> <orders> long|double|numbered
//
// With "double", OrderQty is stored as a double: writeMessage with strings knows no other numbers. With "numbered", the
// connection message ids begin at the class's first one, as a message store gives them.
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string_view>

#include "benchmarks/store.h"
#include "benchmarks/stores/all_stores.h"
#include "benchmarks/workload.h"

namespace tabulo::internal::bench {

namespace {

std::uint64_t middle(std::string_view text) {
    return static_cast<std::uint8_t>(text[text.size() / 2]);
}

std::uint64_t digest(const Order& order) {
    const std::string_view wire = stringField_withoutNul(order.texts[WIRE]);
    const std::string_view id = stringField_withoutNul(order.texts[CL_ORD_ID]);
    return wire.size() * 3 + middle(wire) * 5 + id.size() * 7 + middle(id) * 11 +
           static_cast<std::uint64_t>(order.metadata.seqNum) * 13 +
           static_cast<std::uint64_t>(order.metadata.timestamp) * 17 +
           static_cast<std::uint64_t>(order.numbers[0].longValue) * 19 +
           static_cast<std::uint64_t>(order.numbers[1].longValue) * 23;
}

}  // namespace

}  // namespace tabulo::internal::bench

int main(int argc, char** argv) {
    using namespace tabulo::internal::bench;
    if (argc != 4) {
        fail("usage: native_orders <directory> <orders> long|double|numbered");
    }
    const bool doubles = std::string_view(argv[3]) == "double";
    const bool numbered = std::string_view(argv[3]) == "numbered";
    const Store store = tabulo_store();
    std::filesystem::create_directories(argv[1]);
    void* table = store.open(argv[1], Access::create);
    OrderRecord record;
    std::uint64_t sum = 0;
    for (std::int32_t number = 1; number <= std::atoi(argv[2]); ++number) {
        order_make(&record, number);
        if (numbered) {
            record.message.metadata.connMsgId = number - 1;
        }
        if (doubles) {
            tabulo::internal::NumericValue& quantity = record.message.numbers[0];
            quantity = tabulo::internal::numericValue_ofDouble(static_cast<double>(quantity.longValue));
        }
        store.append(table, order_of(record));
        sum += digest(order_of(record));
    }
    store.close(table);
    std::printf("%llu\n", static_cast<unsigned long long>(sum));
    return 0;
}
