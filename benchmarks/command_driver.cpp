// Makes the tables of command_benchmark.py, and reads one as its limit.
//
//   command_driver orders <directory> <orders>            the table "orders" of the workload
//   command_driver reports <directory> <messages>         the table "reports", of short messages that name their orders
//   command_driver trickle <directory> <orders>           appends to the table "orders", from a line of input on
//   command_driver folder <directory> <tables> <orders>   so many tables of orders, "orders-0001" and so on
//   command_driver scan <directory> <orders>              reads the table "orders"; fails unless it has so many
//   command_driver pipe <directory> <orders>              the same, and writes the wire messages to standard output
#include <unistd.h>

#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <string_view>
#include <thread>

#include "benchmarks/stores/all_stores.h"
#include "benchmarks/stores/tabulo_store.h"
#include "benchmarks/workload.h"
#include "core/log.h"

namespace {

using namespace tabulo::internal;
using namespace tabulo::internal::bench;

constexpr std::size_t LARGEST_WRITE = std::size_t{64} * 1024;

void writeOrders(const std::string& directory, std::int32_t first, std::int32_t orders) {
    const Store store = tabulo_store();
    std::filesystem::create_directories(directory);
    void* table = store.open(directory, Access::create);
    OrderRecord record;
    for (std::int32_t number = first; number < first + orders; ++number) {
        order_make(&record, number);
        store.append(table, order_of(record));
    }
    store.close(table);
}

// Each order has four messages, a quarter of the table apart: it is sent, reported, replaced and reported again.
void writeReports(const std::string& directory, std::int32_t messages) {
    constexpr std::int32_t STEPS = 4;
    constexpr std::array<char, STEPS> TYPES{'D', '8', 'G', '8'};
    const std::int32_t orders = (messages - 1) / STEPS + 1;
    std::filesystem::create_directories(directory);
    const TablePtr table = table_ofReports(directory);
    table_open(table.get(), OpenMode::create);
    MessageMetadata metadata;
    for (std::int32_t number = 1; number <= messages; ++number) {
        const std::int32_t step = (number - 1) / orders;
        const std::string order = std::to_string((number - 1) % orders + 1);
        const std::string sent = "C" + order + (step > 1 ? "R" : "");
        const std::string replaced = "C" + order;
        const std::string taken = "O" + order;
        const std::string wire = "8=FIX.4.4|35=" + std::string(1, TYPES[static_cast<std::size_t>(step)]) +
                                 "|11=" + sent + (step == 2 ? "|41=" + replaced : "") +
                                 (step % 2 == 1 ? "|37=" + taken : "") + "|";
        const auto text = [](const std::string& value, bool isThere) {
            return isThere ? StringField{value.c_str(), static_cast<std::int32_t>(value.size()) + 1} : StringField{};
        };
        const std::array<StringField, 7> strings{
            {{}, {}, text(sent, true), text(replaced, step == 2), text(taken, step % 2 == 1), text(wire, true), {}}};
        metadata.msgType[0] = TYPES[static_cast<std::size_t>(step)];
        metadata.uniformId = number;
        metadata.seqNum = number;
        metadata.connMsgId = number;
        metadata.timestamp = order_time(number);
        if (mt_writeMessage(table.get(), {metadata, strings, {}}) != NO_ERROR) {
            fail("the table refuses a message");
        }
    }
    if (mt_close(table.get()) != NO_ERROR) {
        fail("the table cannot be closed");
    }
}

std::int64_t nanoseconds() {
    return std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

// Appends an order every few milliseconds, from the first line of standard input on, and prints when each append has
// returned (nanoseconds of the monotonic clock).
void trickle(const std::string& directory, std::int32_t orders) {
    constexpr std::chrono::milliseconds APART{5};
    const Store store = tabulo_store();
    std::filesystem::create_directories(directory);
    void* table = store.open(directory, Access::create);
    std::printf("ready\n");
    std::fflush(stdout);
    (void)std::getchar();  // whatever it is, it is time to begin
    OrderRecord record;
    for (std::int32_t number = 1; number <= orders; ++number) {
        order_make(&record, number);
        store.append(table, order_of(record));
        std::printf("%lld\n", static_cast<long long>(nanoseconds()));
        std::this_thread::sleep_for(APART);
    }
    store.close(table);
}

void writeFolder(const std::string& directory, std::int32_t tables, std::int32_t orders) {
    for (std::int32_t i = 0; i < tables; ++i) {
        const std::string number = std::to_string(10'000 + i).substr(1);
        writeOrders(directory + "/one", 1 + i * orders, orders);
        std::filesystem::rename(directory + "/one/orders", directory + "/orders-" + number);
    }
    std::filesystem::remove_all(directory + "/one");
}

struct Output {
    bool isWanted = false;
    std::int32_t orders = 0;
    std::uint64_t digest = 0;
    std::string gathered{};

    void flush() {
        for (std::string_view rest = gathered; !rest.empty();) {
            const ssize_t written = ::write(STDOUT_FILENO, rest.data(), rest.size());
            if (written < 0) {
                fail("standard output cannot be written");
            }
            rest.remove_prefix(static_cast<std::size_t>(written));
        }
        gathered.clear();
    }
};

bool take(void* context, const Order& order) {
    auto* output = static_cast<Output*>(context);
    output->orders += 1;
    if (!output->isWanted) {
        output->digest += order_digest(order);
        return true;
    }
    output->gathered += stringField_withoutNul(order.texts[WIRE]);
    if (output->gathered.size() >= LARGEST_WRITE) {
        output->flush();
    }
    return true;
}

void read(const std::string& directory, std::int32_t orders, bool isWritten) {
    const Store store = tabulo_store();
    Output output;
    output.isWanted = isWritten;
    void* table = store.open(directory, Access::read);
    store.read(table, Query{}, take, &output);
    output.flush();
    store.close(table);
    if (output.orders != orders || (!isWritten && output.digest == 0)) {
        fail("the table has other orders than were written");
    }
}

}  // namespace

int main(int argc, char** argv) {
    log_setFacility(nullptr);
    const std::string what = argc > 2 ? argv[1] : "";
    const std::string directory = argc > 2 ? argv[2] : "";
    const std::int32_t count = argc > 3 ? std::atoi(argv[3]) : 0;
    if (what == "orders" && argc == 4) {
        writeOrders(directory, 1, count);
    } else if (what == "reports" && argc == 4) {
        writeReports(directory, count);
    } else if (what == "trickle" && argc == 4) {
        trickle(directory, count);
    } else if (what == "folder" && argc == 5) {
        writeFolder(directory, count, std::atoi(argv[4]));
    } else if ((what == "scan" || what == "pipe") && argc == 4) {
        read(directory, count, what == "pipe");
    } else {
        fail(
            "usage: command_driver orders|reports|trickle|folder|scan|pipe <directory> <count> [<orders of each "
            "table>]");
    }
    return 0;
}
