#include "benchmarks/append_turn.h"

#include <algorithm>
#include <csignal>
#include <memory>
#include <vector>

#include "benchmarks/measure.h"

namespace tabulo::internal::bench {

namespace {

constexpr std::int32_t BATCH = 256;  // orders, which the processor's second cache holds
constexpr std::int32_t MEMORY_LOOKS = 64;

struct Batch {
    std::unique_ptr<OrderRecord[]> records = std::make_unique<OrderRecord[]>(BATCH);
    std::int32_t count = 0;

    void fill(std::int32_t first, std::int32_t last) {
        count = std::min(BATCH, last - first + 1);
        for (std::int32_t i = 0; i < count; ++i) {
            order_make(&records[static_cast<std::size_t>(i)], first + i);
        }
    }
    Order order(std::int32_t i) const { return order_of(records[static_cast<std::size_t>(i)]); }
};

struct Figures {
    std::int64_t timed = 0;  // nanoseconds of the batches timed as a whole, and their messages
    std::int32_t timedMessages = 0;
    std::vector<std::uint32_t> latencies;
    std::int64_t memory = 0;
};

void appendAll(const Store& store, void* opened, std::int32_t messages, Batch* batch, Figures* figures) {
    const std::int32_t batches = (messages + BATCH - 1) / BATCH;
    std::int64_t memory = 0;
    for (std::int32_t b = 0; b < batches; ++b) {
        batch->fill(b * BATCH + 1, messages);
        const std::int64_t start = now();
        if (b % 2 == 0) {
            for (std::int32_t i = 0; i < batch->count; ++i) {
                store.append(opened, batch->order(i));
            }
            figures->timed += now() - start;
            figures->timedMessages += batch->count;
        } else {
            std::int64_t before = start;
            for (std::int32_t i = 0; i < batch->count; ++i) {
                store.append(opened, batch->order(i));
                const std::int64_t after = now();
                figures->latencies.push_back(static_cast<std::uint32_t>(after - before));
                before = after;
            }
        }
        if (b == batches - 1 || b % std::max(1, batches / MEMORY_LOOKS) == 0) {
            memory = std::max(memory, memory_own());
        }
    }
    figures->memory = memory;
}

void appendAndDie(const Store& store, const char* group, const std::string& directory, std::int32_t messages) {
    Batch batch;
    batch.fill(1, BATCH);
    Figures figures;
    figures.latencies.assign(static_cast<std::size_t>(messages), 1);  // so that its memory is there before
    figures.latencies.clear();
    const std::int64_t idle = memory_own();
    void* opened = store.open(directory, Access::create);
    appendAll(store, opened, messages, &batch, &figures);
    result_add(group, store.name, "rate", "messages/s",
               1e9 * figures.timedMessages / static_cast<double>(figures.timed));
    result_add(group, store.name, "p50", "ns", percentile(&figures.latencies, 0.5));
    result_add(group, store.name, "p99", "ns", percentile(&figures.latencies, 0.99));
    result_add(group, store.name, "p99.9", "ns", percentile(&figures.latencies, 0.999));
    result_add(group, store.name, "max", "ns", percentile(&figures.latencies, 1));
    result_add(group, store.name, "memory", "bytes", static_cast<double>(figures.memory - idle));
    std::raise(SIGKILL);
}

void reopenAndClose(const Store& store, const char* group, const std::string& directory, std::int32_t messages) {
    const std::int64_t start = now();
    void* opened = store.open(directory, Access::write);
    result_add(group, store.name, "open after kill", "ms", static_cast<double>(now() - start) / 1e6);
    store.close(opened);
    result_add(group, store.name, "disk", "bytes/message", static_cast<double>(directory_bytes(directory)) / messages);
}

}  // namespace

void appendTurn_run(const Store& store, const char* group, const std::string& directory, std::int32_t messages) {
    directory_make(directory);
    child_run([&] { appendAndDie(store, group, directory, messages); }, true);
    child_run([&] { reopenAndClose(store, group, directory, messages); });
}

}  // namespace tabulo::internal::bench
