// How figures grow with a table: one table of orders, from a thousand to ten million, asked with and without its side
// index at every power of ten.
//
//   growth_benchmark [--results file] [--directory directory] [--messages n]
//
// At each size all blocks are closed: what an open one costs is the same at every size. The index is built from
// nothing. Look-ups of an index are also counted: calls to the system, and bytes read. Recovering is timed with half a
// block open, behind a writer that has died.
#include <algorithm>
#include <csignal>
#include <filesystem>
#include <functional>
#include <numeric>

#include "benchmarks/frame_codec.h"
#include "benchmarks/measure.h"
#include "benchmarks/stores/all_stores.h"
#include "benchmarks/stores/tabulo_store.h"
#include "core/log.h"
#include "index/uniform_lookup.h"
#include "query/message_read.h"
#include "storage/file_platform.h"
#include "tabulo/writer.h"

namespace {

using namespace tabulo::internal;
using namespace tabulo::internal::bench;

constexpr std::int32_t SMALLEST = 1000;
constexpr std::int32_t OPEN_BLOCK = 500;
constexpr std::int32_t RANGE = 1000;
constexpr double LONGEST = 300e6;  // no more repeats of one query after so many nanoseconds
constexpr int REPEATS = 101;

const Store store = tabulo_store();

// What the last look-up has asked of the system.
struct Reads {
    static inline std::int64_t calls = 0;
    static inline std::int64_t bytes = 0;

    static SystemError readAt(int descriptor, void* buffer, std::size_t length, std::int64_t offset,
                              std::size_t* transferred) {
        const SystemError error = filePlatform_system().readAt(descriptor, buffer, length, offset, transferred);
        calls += 1;
        bytes += static_cast<std::int64_t>(*transferred);
        return error;
    }
};

std::string titled(std::int32_t size) {
    return std::to_string(size);
}

// The i-th place to ask for, all over the table.
std::int32_t place(std::int32_t size, int i) {
    return static_cast<std::int32_t>(1 + (i * std::int64_t{618'033'989} + 271'828) % (size - RANGE + 1));
}

void add(const std::string& subject, std::int32_t size, const std::string& metric, const char* unit, double value) {
    result_add("growth", subject + " " + titled(size), metric, unit, value);
}

// The median time of some repeats, which begin with one that is not counted.
void timed(const std::string& subject, std::int32_t size, const std::string& metric,
           const std::function<void(int)>& ask) {
    std::vector<double> times;
    double spent = 0;
    ask(REPEATS);
    for (int i = 0; i < REPEATS && (i < 5 || spent < LONGEST); ++i) {
        const std::int64_t start = now();
        ask(i);
        times.push_back(static_cast<double>(now() - start));
        spent += times.back();
    }
    add(subject, size, metric, "us", median(times) / 1e3);
}

// Reads what a query selects; it must be so many orders.
void require(MessageTable* table, const Query& query, std::int32_t count) {
    std::int32_t seen = 0;
    store.read(
        table, query,
        [](void* context, const Order&) {
            *static_cast<std::int32_t*>(context) += 1;
            return true;
        },
        &seen);
    if (seen != count) {
        fail("a query of the growing table selects " + std::to_string(seen) + " orders, not " + std::to_string(count));
    }
}

void takeOne(MessageTable* table, std::int32_t id) {
    std::int32_t seen = 0;
    const MessageListener listener{&seen,
                                   [](void* owner, const MessageView&, Visit*) {
                                       *static_cast<std::int32_t*>(owner) += 1;
                                       return NO_ERROR;
                                   },
                                   [](void*, ErrorCode code) { return code; }};
    if (mt_readMessages(table, &id, 1, &listener, false) != NO_ERROR || seen != 1) {
        fail("a message is not read by its id");
    }
}

void findOne(MessageTable* table, std::int32_t id) {
    UniformPlace found;
    if (mt_findUniformId(table, id, &found) != NO_ERROR || found.ordinal != id - 1) {
        fail("a uniform id is not found");
    }
}

void askAll(const std::string& subject, std::int32_t size, bool usesIndex) {
    TablePtr table = table_ofOrders("growing");
    table_open(table.get(), OpenMode::read);
    mt_useSideIndex(table.get(), usesIndex);
    MessageTable* asked = table.get();
    timed(subject, size, "ClOrdID present", [&](int i) {
        require(asked, {QueryKind::clOrdId, 0, 0, order_clOrdId(place(size, i)), false}, 1);
    });
    timed(subject, size, "ClOrdID absent", [&](int i) {
        require(asked, {QueryKind::clOrdId, 0, 0, order_absentClOrdId(i), false}, 0);
    });
    timed(subject, size, "sequence range", [&](int i) {
        const std::int32_t first = place(size, i);
        require(asked, {QueryKind::sequence, first, first + RANGE - 1, {}, false}, RANGE);
    });
    timed(subject, size, "time range", [&](int i) {
        const std::int32_t first = place(size, i);
        require(asked, {QueryKind::time, order_time(first), order_time(first + RANGE - 1), {}, false}, RANGE);
    });
    timed(subject, size, "uniform id", [&](int i) { findOne(asked, place(size, i)); });
    timed(subject, size, "connection message id", [&](int i) { takeOne(asked, place(size, i)); });
    timed(subject, size, "open and close", [&](int) {
        TablePtr opened = table_ofOrders("growing");
        table_open(opened.get(), OpenMode::read);
    });
}

void countReads(std::int32_t size) {
    TablePtr table = table_ofOrders("growing");
    table_open(table.get(), OpenMode::read);
    require(table.get(), {QueryKind::clOrdId, 0, 0, order_clOrdId(place(size, 1)), false}, 1);
    FilePlatform counting = filePlatform_system();
    counting.readAt = Reads::readAt;
    for (const auto& [metric, query, count] :
         {std::tuple{"ClOrdID present", Query{QueryKind::clOrdId, 0, 0, order_clOrdId(place(size, 2)), false}, 1},
          {"ClOrdID absent", Query{QueryKind::clOrdId, 0, 0, order_absentClOrdId(7), false}, 0}}) {
        (void)filePlatform_install(&counting);
        Reads::calls = Reads::bytes = 0;
        require(table.get(), query, count);
        (void)filePlatform_install(nullptr);
        add("index", size, std::string(metric) + ", reads", "calls", static_cast<double>(Reads::calls));
        add("index", size, std::string(metric) + ", read", "bytes", static_cast<double>(Reads::bytes));
    }
}

// Appends orders up to a size.
void grow(MessageTable* table, std::int32_t from, std::int32_t to) {
    OrderRecord record;
    for (std::int32_t number = from + 1; number <= to; ++number) {
        order_make(&record, number);
        store.append(table, order_of(record));
    }
}

void closeTable(MessageTable* table) {
    if (mt_close(table) != NO_ERROR) {
        fail("the growing table cannot be closed");
    }
}

void growClosed(std::int32_t from, std::int32_t to) {
    TablePtr table = table_ofOrders("growing");
    table_open(table.get(), from == 0 ? OpenMode::create : OpenMode::write);
    grow(table.get(), from, to);
    closeTable(table.get());
}

// Opens the table behind a writer that has begun a block, and died.
void recover(std::int32_t size) {
    child_run(
        [&] {
            TablePtr table = table_ofOrders("growing");
            table_open(table.get(), OpenMode::write);
            grow(table.get(), size, size + OPEN_BLOCK);
            (void)std::raise(SIGKILL);
        },
        true);
    const std::int64_t start = now();
    TablePtr table = table_ofOrders("growing");
    table_open(table.get(), OpenMode::write);
    add("table", size, "recover", "us", static_cast<double>(now() - start) / 1e3);
    closeTable(table.get());
}

// Appends through the public API, with the index kept at the close of each block or without.
void appendKept(const std::string& subject, std::int32_t orders, bool keepsIndex) {
    directory_make("kept");
    tabulo::Layout layout;
    layout.texts = {"ClOrdID", "Symbol", "Account"};
    layout.numbers = {"OrderQty", "Price"};
    tabulo::Writer writer = tabulo::Writer::create("kept/orders", layout);
    if (keepsIndex) {
        writer.keepIndex();
    }
    std::vector<std::uint32_t> times;
    OrderRecord record;
    std::vector<std::byte> frame(LARGEST_ORDER);
    for (std::int32_t number = 1; number <= orders; ++number) {
        order_make(&record, number);
        frame.resize(LARGEST_ORDER);
        frame.resize(frame_encode(order_of(record), reinterpret_cast<std::uint8_t*>(frame.data())));
        const std::int64_t start = now();
        (void)writer.appendFrames(frame);  // one of them, or it throws
        times.push_back(static_cast<std::uint32_t>(now() - start));
    }
    const double total = std::accumulate(times.begin(), times.end(), 0.0);
    result_add("keep", subject, "append rate", "messages/s", 1e9 * orders / total);
    for (const auto& [metric, part] :
         {std::pair{"append p50", 0.5}, {"append p99.8", 0.998}, {"append p99.99", 0.9999}}) {
        result_add("keep", subject, metric, "us", percentile(&times, part) / 1e3);
    }
    result_add("keep", subject, "longest append", "us", *std::max_element(times.begin(), times.end()) / 1e3);
}

void buildIndex(std::int32_t size) {
    TablePtr table = table_ofOrders("growing");
    table_open(table.get(), OpenMode::read);
    const std::int64_t start = now();
    table_index(table.get());
    const auto time = static_cast<double>(now() - start);
    const auto bytes = static_cast<double>(std::filesystem::file_size("growing/orders.idx"));
    add("index", size, "build", "us", time / 1e3);
    add("index", size, "build rate", "messages/s", 1e9 * size / time);
    add("index", size, "share of the table", "%",
        100 * bytes / static_cast<double>(std::filesystem::file_size("growing/orders")));
}

}  // namespace

int main(int argc, char** argv) {
    Options options = options_read(argc, argv, "growth");
    log_setFacility(nullptr);  // as programs on the public API have it
    const std::int32_t largest = options.messages == 0 ? 10'000'000 : options.messages;
    for (int i = 0; i < 3; ++i) {
        child_run([&] { appendKept("without", largest / 20, false); });
        child_run([&] { appendKept("keeping the index", largest / 20, true); });
    }
    std::filesystem::remove_all("kept");
    directory_make("growing");
    std::int32_t written = 0;
    for (std::int64_t size = SMALLEST; size <= largest; size *= 10) {
        const auto closed = static_cast<std::int32_t>(size);
        child_run([&] { growClosed(written, closed); });
        written = closed + OPEN_BLOCK;
        result_add("setting", "growth", "largest", "messages", static_cast<double>(size));
        std::filesystem::remove("growing/orders.idx");
        child_run([&] { askAll("no index", closed, false); });
        child_run([&] { buildIndex(closed); });
        child_run([&] { askAll("index", closed, true); });
        child_run([&] { countReads(closed); });
        child_run([&] { recover(closed); });
    }
    options_finish(options);
    return 0;
}
