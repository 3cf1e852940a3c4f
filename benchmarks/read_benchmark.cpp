// Reading from stores of a million orders: scans, ranges, one ClOrdID, the last thousand, opening.
//
//   read_benchmark [--results file] [--directory directory] [--messages n] [--turns n] [--stores name,name]
//
// Each store is filled once (append_turn.h), and every order of it compared with what was written, field by field. Then
// the stores have their turns, each in a process of its own. What each query hands out is counted and summed, so that
// nobody is fast by being wrong.
#include <algorithm>
#include <filesystem>
#include <functional>
#include <map>
#include <utility>

#include "benchmarks/append_turn.h"
#include "benchmarks/measure.h"
#include "benchmarks/quiet_turn.h"
#include "benchmarks/stores/tabulo_store.h"

namespace {

using namespace tabulo::internal;
using namespace tabulo::internal::bench;

constexpr std::int32_t RANGE = 1000;
constexpr double LONGEST = 200e6;  // no more repeats of one query after so many nanoseconds

std::int32_t messages = 1'000'500;  // half a block is open

// What a query has handed out.
struct Seen {
    std::int32_t count = 0;
    std::int32_t most = 0;  // stop after so many, 0 for never
    std::uint64_t digest = 0;
    std::int32_t lastId = 0;
    bool inOrder = true;
    bool backward = false;
};

bool see(void* context, const Order& order) {
    auto* seen = static_cast<Seen*>(context);
    const std::int32_t id = order.metadata.uniformId;
    seen->inOrder = seen->inOrder && (seen->count == 0 || id - seen->lastId == (seen->backward ? -1 : 1));
    seen->lastId = id;
    seen->count += 1;
    seen->digest += order_digest(order);
    return seen->count != seen->most;
}

// The sum of the digests of a range of orders.
std::uint64_t digestOf(std::int32_t first, std::int32_t last) {
    OrderRecord record;
    std::uint64_t digest = 0;
    for (std::int32_t number = first; number <= last; ++number) {
        order_make(&record, number);
        digest += order_digest(order_of(record));
    }
    return digest;
}
std::uint64_t digestOfAll = 0;

// How many orders have a symbol, and the sum of their digests.
std::pair<std::int32_t, std::uint64_t> ordersOf(const std::string& symbol) {
    static std::map<std::string, std::pair<std::int32_t, std::uint64_t>> found;
    if (found.empty()) {
        OrderRecord record;
        for (std::int32_t number = 1; number <= messages; ++number) {
            order_make(&record, number);
            const Order order = order_of(record);
            auto& [count, digest] = found[std::string(stringField_withoutNul(order.texts[SYMBOL]))];
            count += 1;
            digest += order_digest(order);
        }
    }
    return found[symbol];
}

void require(const Store& store, bool good, const std::string& what) {
    if (!good) {
        fail(std::string(store.name) + " answers wrongly: " + what);
    }
}

// Reads with a query and compares with the range of orders that it asks for; the time in nanoseconds.
std::int64_t timed(const Store& store, void* opened, const Query& query, std::int32_t first, std::int32_t last,
                   std::int32_t most, const char* what) {
    Seen seen;
    seen.most = most;
    seen.backward = query.backward;
    const std::int64_t start = now();
    store.read(opened, query, see, &seen);
    const std::int64_t time = now() - start;
    const bool all = last - first + 1 == messages;
    require(store, seen.count == last - first + 1 && seen.inOrder, what);
    require(store, seen.digest == (all ? digestOfAll : digestOf(first, last)), what);
    return time;
}

// The median of a measurement's repeats, in nanoseconds.
double repeated(int times, const std::function<std::int64_t(int)>& measure) {
    std::vector<double> values;
    double spent = 0;
    for (int i = 0; i < times && (i == 0 || spent < LONGEST); ++i) {
        values.push_back(static_cast<double>(measure(i)));
        spent += values.back();
    }
    return median(values);
}

void repeat(const Store& store, const char* metric, int times, const std::function<std::int64_t(int)>& measure) {
    result_add("read", store.name, metric, "ms", repeated(times, measure) / 1e6);
}

// The first order of the i-th range, all over the store.
std::int32_t rangeStart(int i) {
    const std::int64_t places = messages - RANGE;
    return static_cast<std::int32_t>(1 + (i * std::int64_t{618'033} + 271'828) % places);
}

Query sequenceRange(std::int32_t first) {
    return {QueryKind::sequence, first, first + RANGE - 1, {}, false};
}

Query timeRange(std::int32_t first) {
    return {QueryKind::time, order_time(first), order_time(first + RANGE - 1), {}, false};
}

void scan(const Store& store, void* opened, bool backward) {
    Query query;
    query.backward = backward;
    const double time = repeated(3, [&](int) { return timed(store, opened, query, 1, messages, 0, "a scan"); });
    result_add("read", store.name, backward ? "scan backward" : "scan forward", "messages/s", 1e9 * messages / time);
}

// The first query of a freshly opened store, and the opening itself.
void firstQueries(const Store& store, const char* metric, Query (*range)(std::int32_t)) {
    repeat(store, metric, 9, [&](int i) {
        void* opened = store.open("store-" + std::string(store.name), Access::read);
        const std::int32_t first = rangeStart(100 + i);
        const std::int64_t time = timed(store, opened, range(first), first, first + RANGE - 1, 0, metric);
        store.close(opened);
        return time;
    });
}

void ranges(const Store& store, void* opened, const char* metric, Query (*range)(std::int32_t)) {
    repeat(store, metric, 31, [&](int i) {
        const std::int32_t first = rangeStart(i);
        return timed(store, opened, range(first), first, first + RANGE - 1, 0, metric);
    });
}

// All orders of one symbol: about one in 500.
void symbols(const Store& store, void* opened) {
    repeat(store, "one symbol", 9, [&](int i) {
        const std::string symbol = order_symbol(rangeStart(i));
        Seen seen;
        const std::int64_t start = now();
        store.read(opened, {QueryKind::symbol, 0, 0, symbol, false}, see, &seen);
        const std::int64_t time = now() - start;
        require(store, ordersOf(symbol) == std::pair(seen.count, seen.digest), "one symbol");
        return time;
    });
}

void lookups(const Store& store, void* opened) {
    repeat(store, "ClOrdID present", 21, [&](int i) {
        const std::int32_t number = rangeStart(i);
        return timed(store, opened, {QueryKind::clOrdId, 0, 0, order_clOrdId(number), false}, number, number, 1,
                     "one ClOrdID");
    });
    repeat(store, "ClOrdID absent", 11, [&](int i) {
        return timed(store, opened, {QueryKind::clOrdId, 0, 0, order_absentClOrdId(i), false}, 1, 0, 1,
                     "an absent ClOrdID");
    });
}

void turn(const Store& store) {
    firstQueries(store, "sequence range, first", sequenceRange);
    if (!store.bySequenceOnly) {
        firstQueries(store, "time range, first", timeRange);
    }
    void* opened = store.open("store-" + std::string(store.name), Access::read);
    scan(store, opened, false);
    scan(store, opened, true);
    ranges(store, opened, "sequence range", sequenceRange);
    if (!store.bySequenceOnly) {
        ranges(store, opened, "time range", timeRange);
        lookups(store, opened);
        symbols(store, opened);
    }
    repeat(store, "last 1000", 31, [&](int) {
        Query query;
        query.backward = true;
        return timed(store, opened, query, messages - RANGE + 1, messages, RANGE, "the last thousand");
    });
    store.close(opened);
    repeat(store, "open and close", 9, [&](int) {
        const std::int64_t start = now();
        store.close(store.open("store-" + std::string(store.name), Access::read));
        return now() - start;
    });
}

// Compares every order with the one that was written.
void verify(const Store& store) {
    struct Context {
        OrderRecord expected;
        std::int32_t number = 0;
        bool equal = true;
    } context;
    void* opened = store.open("store-" + std::string(store.name), Access::read);
    store.read(
        opened, Query{},
        [](void* object, const Order& order) {
            auto* checked = static_cast<Context*>(object);
            checked->number += 1;
            order_make(&checked->expected, checked->number);
            checked->equal = order_equals(order, order_of(checked->expected));
            return checked->equal;
        },
        &context);
    require(store, context.equal && context.number == messages,
            "order " + std::to_string(context.number) + " is not what was written, or the last one");
    store.close(opened);
}

// Gives the table another name beside which its index stands.
void index(const Store& indexed) {
    const std::string directory = "store-" + std::string(indexed.name);
    std::filesystem::create_directory(directory);
    std::filesystem::create_hard_link("store-tabulo/orders", directory + "/orders");
    TablePtr table = table_ofOrders(directory);
    table_open(table.get(), OpenMode::read);
    table_index(table.get());
}

}  // namespace

int main(int argc, char** argv) {
    Options options = options_read(argc, argv, "read");
    messages = options.messages == 0 ? messages : options.messages;
    options.turns = options.turns == 0 ? 3 : options.turns;
    if (messages <= RANGE) {
        fail("the ranges need more messages than " + std::to_string(RANGE));
    }
    result_add("setting", "read", "messages", "messages", messages);
    result_add("setting", "read", "turns", "turns", options.turns);
    digestOfAll = digestOf(1, messages);
    for (const Store* store : options.stores) {
        appendTurn_run(*store, "fill", "store-" + std::string(store->name), messages);
        child_run([&] { verify(*store); });
    }
    (void)ordersOf({});  // known to every turn
    const Store indexed = tabulo_indexedStore();
    if (std::filesystem::exists("store-tabulo")) {
        child_run([&] { index(indexed); });
        options.stores.push_back(&indexed);
    }
    for (std::int32_t i = 0; i < options.turns; ++i) {
        for (const Store* store : options.stores) {
            quietTurn_run("read", store->name, [&] { child_run([&] { turn(*store); }); });
        }
    }
    options_finish(options);
    return 0;
}
