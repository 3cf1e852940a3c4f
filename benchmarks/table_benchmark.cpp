// What is asked of a message table alone: opening, recovering, skipping blocks, memory, the share of footers, and the
// watcher's throughput from a backlog.
//
//   table_benchmark [--results file] [--directory directory] [--messages n] [--turns n]
//
// --messages is the size of the large table (10 million); the tables of orders have a tenth of it. The large table's
// messages have 40 bytes of wire message and nothing else, so that it takes a gigabyte and not seven.
#include <algorithm>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <memory>

#include "benchmarks/measure.h"
#include "benchmarks/stores/all_stores.h"
#include "benchmarks/stores/tabulo_store.h"
#include "query/message_table_iterator.h"
#include "query/query_conditions.h"
#include "storage/file_platform.h"
#include "watcher/message_watcher.h"

namespace {

using namespace tabulo::internal;
using namespace tabulo::internal::bench;

constexpr std::int32_t OPEN_BLOCK = 500;  // messages in the open block of every table that is opened
constexpr std::int32_t SMALL_TABLE = 1000;
constexpr std::int32_t OPENINGS = 51;

std::int32_t largeTable = 10'000'000;

void small_write(MessageTable* table, std::int32_t number) {
    static constexpr char WIRE[] = "8=FIX.4.4|9=22|35=0|49=A|56=B|10=000|";
    const std::array<StringField, 4> strings{{{}, {}, {WIRE, sizeof(WIRE)}, {}}};
    MessageMetadata metadata;
    metadata.uniformId = number;
    metadata.seqNum = number;
    metadata.connMsgId = number;
    metadata.timestamp = number;
    metadata.msgType[0] = '0';
    if (mt_writeMessage(table, {metadata, strings, {}}) != NO_ERROR) {
        fail("the table refuses a message");
    }
}

double mebibytes(std::int64_t bytes) {
    return static_cast<double>(bytes) / (1024 * 1024);
}

// Memory of a writer above the process before it: the first figure with a tenth of the messages written.
void writeSmall(const std::string& directory, std::int32_t messages, bool report) {
    directory_make(directory);
    const std::int64_t idle = memory_resident();
    memory_resetPeak();
    TablePtr table = table_ofSmallMessages(directory);
    table_open(table.get(), OpenMode::create);
    const std::int64_t start = now();
    for (std::int32_t number = 1; number <= messages; ++number) {
        small_write(table.get(), number);
        if (report && number == messages / 10) {
            result_add("memory", "writer", "after a tenth", "MiB", mebibytes(memory_peak() - idle));
        }
    }
    if (report) {
        result_add("memory", "writer", "at the end", "MiB", mebibytes(memory_peak() - idle));
        result_add("memory", "writer", "rate of small messages", "messages/s",
                   1e9 * messages / static_cast<double>(now() - start));
    }
    if (mt_close(table.get()) != NO_ERROR) {
        fail("the table cannot be closed");
    }
}

// One opening after a clean close. A table that is only opened and closed again stays as it is.
double openingTime(const std::string& directory, OpenMode mode) {
    TablePtr table = table_ofSmallMessages(directory);
    const std::int64_t start = now();
    table_open(table.get(), mode);
    const auto time = static_cast<double>(now() - start);
    if (mt_close(table.get()) != NO_ERROR) {
        fail("the table cannot be closed");
    }
    return time / 1e6;
}

void measureOpenings() {
    for (const auto& [mode, metric] : {std::pair{OpenMode::write, "for writing"}, {OpenMode::read, "for reading"}}) {
        std::vector<double> few;
        std::vector<double> many;
        for (std::int32_t i = 0; i < OPENINGS; ++i) {
            few.push_back(openingTime("few", mode));
            many.push_back(openingTime("many", mode));
        }
        result_add("open", "thousand", metric, "ms", median(few));
        result_add("open", "large", metric, "ms", median(many));
    }
}

// Memory of an iterator that walks the whole table.
void walkSmall(std::int32_t messages) {
    TablePtr table = table_ofSmallMessages("many");
    table_open(table.get(), OpenMode::read);
    const std::int64_t idle = memory_resident();
    memory_resetPeak();
    const MessageTableIteratorPtr iterator(mtIterator_open(table.get(), conditions_create()));
    bool end = false;
    for (std::int32_t number = 1; number <= messages; ++number) {
        if (mtIterator_next(iterator.get(), &end) != NO_ERROR || end ||
            mtIterator_getMetadata(iterator.get()).uniformId != number) {
            fail("the large table is read wrongly");
        }
        if (number == messages / 10) {
            result_add("memory", "iterator", "after a tenth", "MiB", mebibytes(memory_peak() - idle));
        }
    }
    result_add("memory", "iterator", "at the end", "MiB", mebibytes(memory_peak() - idle));
}

// Appends orders, the first of which gets the number given.
void appendOrders(MessageTable* table, std::int32_t first, std::int32_t last) {
    const Store store = tabulo_store();
    OrderRecord record;
    for (std::int32_t number = first; number <= last; ++number) {
        order_make(&record, number);
        store.append(table, order_of(record));
    }
}

std::int64_t frameBytesOf(std::int32_t messages) {
    OrderRecord record;
    std::int64_t bytes = 0;
    for (std::int32_t number = 1; number <= messages; ++number) {
        order_make(&record, number);
        bytes += 4 + 31 + 18 + 4;  // frame.h: the fixed part, two numbers, the trailing length
        for (const StringField& field : order_of(record).texts) {
            bytes += 4 + field.length;
        }
    }
    return bytes;
}

// Fills a table with orders and dies. Its opening is timed twice: at once, and again when a block more has been written
// by a process that dies, too: by then the system has most of the file on the disk.
void measureKills(std::int32_t messages) {
    directory_make("orders");
    child_run(
        [&] {
            TablePtr table = table_ofOrders("orders");
            table_open(table.get(), OpenMode::create);
            appendOrders(table.get(), 1, messages);
            std::raise(SIGKILL);
        },
        true);
    result_add(
        "disk", "footers and header", "above the frames", "%",
        100 * (static_cast<double>(directory_bytes("orders")) / static_cast<double>(frameBytesOf(messages)) - 1));
    std::int32_t written = messages;
    for (const char* metric : {"open at once", "open again"}) {
        child_run(
            [&] {
                TablePtr table = table_ofOrders("orders");
                const std::int64_t start = now();
                table_open(table.get(), OpenMode::write);
                result_add("kill", "tabulo", metric, "ms", static_cast<double>(now() - start) / 1e6);
                appendOrders(table.get(), written + 1, written + MESSAGES_PER_BLOCK);
                std::raise(SIGKILL);
            },
            true);
        written += MESSAGES_PER_BLOCK;
    }
}

// System calls of an iterator, through the platform seam; its visitor tells them apart by blocks.
struct Calls {
    FilePlatform platform;
    MessageVisitor match;  // the iterator's own
    int sinceBlock = 0;
    std::vector<double> perSkippedBlock;
};
Calls calls;

ErrorCode countBlock(void* owner, const BlockSummary& summary, Visit* answer) {
    const ErrorCode code = calls.match.onBlock(owner, summary, answer);
    if (*answer != Visit::skipBlock) {
        fail("a block is not skipped that cannot match");
    }
    calls.perSkippedBlock.push_back(calls.sinceBlock);
    calls.sinceBlock = 0;
    return code;
}

// A query that no message answers, asked twice through one table: what the second one costs may be less.
void countSkipping(MessageTable* table, bool backward, const char* metric) {
    QueryConditions* conditions = conditions_create();
    (void)conditions_setIterateBackward(conditions, backward);
    (void)conditions_setMessageIdRange(conditions, 400'000'000, 400'000'001);  // which footers alone tell
    const MessageTableIteratorPtr iterator(mtIterator_open(table, conditions));
    calls.match = iterator->match;
    iterator->match.onBlock = countBlock;
    calls.sinceBlock = 0;
    calls.perSkippedBlock.clear();
    bool end = false;
    const std::int64_t start = now();
    if (mtIterator_next(iterator.get(), &end) != NO_ERROR || !end || calls.perSkippedBlock.size() < 2) {
        fail("the query that nothing answers is answered");
    }
    const auto time = static_cast<double>(now() - start);
    // The first block's calls are those of the query's beginning.
    const std::vector<double> others(calls.perSkippedBlock.begin() + 1, calls.perSkippedBlock.end());
    const std::string name = metric;
    result_add("skip", name, "calls", "calls", median(others));
    result_add("skip", name, "most calls", "calls", *std::max_element(others.begin(), others.end()));
    result_add("skip", name, "time", "us/block", time / 1e3 / static_cast<double>(calls.perSkippedBlock.size()));
}

void measureSkipping() {
    calls.platform = filePlatform_system();
    calls.platform.readAt = [](int descriptor, void* buffer, std::size_t length, std::int64_t offset,
                               std::size_t* transferred) {
        calls.sinceBlock += 1;
        return filePlatform_system().readAt(descriptor, buffer, length, offset, transferred);
    };
    calls.platform.size = [](int descriptor, std::int64_t* size) {
        calls.sinceBlock += 1;
        return filePlatform_system().size(descriptor, size);
    };
    filePlatform_install(&calls.platform);
    TablePtr table = table_ofOrders("orders");
    table_open(table.get(), OpenMode::read);
    countSkipping(table.get(), false, "forward");
    countSkipping(table.get(), false, "forward, again");
    countSkipping(table.get(), true, "backward");
    countSkipping(table.get(), true, "backward, again");
    filePlatform_install(nullptr);
}

struct Watched {
    std::int32_t count = 0;
    std::int32_t last = 0;

    WatchListener listener() {
        return {this,
                [](void* owner, const MessageView& message, std::int32_t, std::int32_t* stop) {
                    auto* state = static_cast<Watched*>(owner);
                    state->count += 1;
                    *stop = message.metadata.uniformId == state->last ? 1 : 0;
                    return NO_ERROR;
                },
                [](void*, std::int32_t*) { return NO_ERROR; }};
    }
};

// A watcher that begins at the first of many messages; its DEBUG lines go to the log file, as always.
void measureWatcher(std::int32_t messages) {
    TablePtr table = table_ofOrders("orders");
    table_open(table.get(), OpenMode::read);
    MessageTable* handle = table.get();
    MessageWatcher* watcher = messageWatcher_create(&handle, 1);
    const std::int32_t first = 1;
    Watched state;
    state.last = messages;
    const std::int64_t start = now();
    if (messageWatcher_startWatching(watcher, 1, &first, state.listener()) != NO_ERROR || state.count != messages) {
        fail("the watcher has not delivered every message");
    }
    result_add("watcher", "backlog", "rate", "messages/s", 1e9 * messages / static_cast<double>(now() - start));
    messageWatcher_destroy(watcher);
}

void removeLogs() {
    for (const auto& entry : std::filesystem::directory_iterator(".")) {
        if (entry.path().extension() == ".log") {
            std::filesystem::remove(entry.path());
        }
    }
}

}  // namespace

int main(int argc, char** argv) {
    Options options = options_read(argc, argv, "table");
    largeTable = options.messages == 0 ? largeTable : options.messages;
    options.turns = options.turns == 0 ? 3 : options.turns;
    const std::int32_t orders = largeTable / 10 + OPEN_BLOCK;
    result_add("setting", "table", "large table", "messages", largeTable);
    result_add("setting", "table", "orders", "messages", orders);

    child_run([&] { writeSmall("few", SMALL_TABLE + OPEN_BLOCK, false); });
    child_run([&] { writeSmall("many", largeTable + OPEN_BLOCK, true); });
    child_run([&] { walkSmall(largeTable + OPEN_BLOCK); });
    child_run(measureOpenings);
    std::filesystem::remove_all("many");

    for (std::int32_t turn = 0; turn < options.turns; ++turn) {
        measureKills(orders);
    }
    child_run(measureSkipping);
    for (std::int32_t turn = 0; turn < options.turns; ++turn) {
        child_run([&] { measureWatcher(orders); });
        removeLogs();
    }
    options_finish(options);
    return 0;
}
