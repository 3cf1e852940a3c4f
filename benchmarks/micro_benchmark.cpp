// The library's smallest steps, one by one, over orders of the workload.
#include <benchmark/benchmark.h>

#include <array>
#include <string>
#include <vector>

#include "benchmarks/workload.h"
#include "core/bloom_filter.h"
#include "core/byte_stream.h"
#include "messagetable/block_summary.h"
#include "messagetable/frame.h"
#include "query/match.h"
#include "query/query_conditions.h"

namespace {

using namespace tabulo::internal;
using namespace tabulo::internal::bench;

constexpr std::int32_t ORDERS = 256;
constexpr std::int32_t STREAM_SIZE = 16 * 1024;

MessageTableLayout layout() {
    MessageTableLayout made;
    made.stringFieldCount = ORDER_STRINGS;
    made.summarisedStringFieldCount = 5;
    made.numericFieldCount = ORDER_NUMBERS;
    return made;
}

// Orders one after another, made once.
Order nextOrder() {
    static std::array<OrderRecord, ORDERS>* const records = [] {
        auto* made = new std::array<OrderRecord, ORDERS>;
        for (std::int32_t i = 0; i < ORDERS; ++i) {
            order_make(&(*made)[static_cast<std::size_t>(i)], i + 1);
        }
        return made;
    }();
    static std::size_t place = 0;
    return order_of((*records)[place++ % ORDERS]);
}

void frameEncoding(benchmark::State& state) {
    const ByteStreamPtr stream(byteStream_create(STREAM_SIZE));
    for (auto _ : state) {
        byteStream_clear(stream.get());
        benchmark::DoNotOptimize(mfr_encodeMessage(nextOrder(), stream.get()));
    }
}
BENCHMARK(frameEncoding);

void frameDecoding(benchmark::State& state) {
    const ByteStreamPtr stream(byteStream_create(STREAM_SIZE));
    while (byteStream_writeMark(stream.get()) < STREAM_SIZE - 1024) {
        (void)mfr_encodeMessage(nextOrder(), stream.get());
    }
    const MessageTableLayout made = layout();
    DecodedMessage message;
    for (auto _ : state) {
        if (byteStream_unread(stream.get()) == 0) {
            byteStream_rewind(stream.get(), BYTE_STREAM_FORWARD);
        }
        benchmark::DoNotOptimize(mfr_decodeMessage(made, stream.get(), &message));
    }
}
BENCHMARK(frameDecoding);

// Keys of a length, all different.
std::vector<std::string> keysOf(std::size_t length) {
    std::vector<std::string> keys;
    for (std::int32_t i = 0; i < ORDERS; ++i) {
        std::string key;
        for (std::int32_t part = 0; key.size() < length; ++part) {
            key += order_clOrdId(i + part * ORDERS);
        }
        keys.push_back(key.substr(0, length));
    }
    return keys;
}

// The seven hashes of a key, and the bits that they set.
void sevenHashesAdded(benchmark::State& state) {
    const std::vector<std::string> keys = keysOf(static_cast<std::size_t>(state.range(0)));
    const BloomFilterPtr filter(bloomFilter_create());
    std::size_t place = 0;
    for (auto _ : state) {
        bloomFilter_add(filter.get(), keys[place++ % keys.size()]);
    }
}
BENCHMARK(sevenHashesAdded)->Arg(8)->Arg(16)->Arg(32);

void keyLookedFor(benchmark::State& state) {
    const std::vector<std::string> keys = keysOf(static_cast<std::size_t>(state.range(0)));
    const BloomFilterPtr filter(bloomFilter_create());
    for (const std::string& key : keys) {
        bloomFilter_add(filter.get(), key);
    }
    std::size_t place = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(bloomFilter_mayContain(filter.get(), keys[place++ % keys.size()]));
    }
}
BENCHMARK(keyLookedFor)->Arg(8)->Arg(16)->Arg(32);

BlockSummary fullSummary() {
    BlockSummary summary;
    (void)blockSummary_init(&summary, layout());
    for (std::int32_t i = 0; i < MESSAGES_PER_BLOCK; ++i) {
        blockSummary_add(&summary, layout(), nextOrder(), 700);
    }
    return summary;
}

void summaryAdding(benchmark::State& state) {
    const MessageTableLayout made = layout();
    BlockSummary summary = fullSummary();
    for (auto _ : state) {
        blockSummary_add(&summary, made, nextOrder(), 700);
    }
}
BENCHMARK(summaryAdding);

void footerWriting(benchmark::State& state) {
    const MessageTableLayout made = layout();
    const BlockSummary summary = fullSummary();
    const ByteStreamPtr stream(byteStream_create(STREAM_SIZE));
    for (auto _ : state) {
        byteStream_clear(stream.get());
        benchmark::DoNotOptimize(blockSummary_writeFooter(&summary, made, stream.get()));
    }
}
BENCHMARK(footerWriting);

void footerChecking(benchmark::State& state) {
    const MessageTableLayout made = layout();
    BlockSummary summary = fullSummary();
    constexpr std::uint64_t BLOCK_LENGTH = 700'000;
    const ByteStreamPtr stream(byteStream_create(STREAM_SIZE));
    (void)blockSummary_writeFooter(&summary, made, stream.get());
    byteStream_put(stream.get(), BLOCK_LENGTH);
    for (auto _ : state) {
        byteStream_rewind(stream.get(), BYTE_STREAM_FORWARD);
        if (blockSummary_readFooter(&summary, made, stream.get(), BLOCK_LENGTH) != NO_ERROR) {
            state.SkipWithError("the footer is refused");
        }
    }
}
BENCHMARK(footerChecking);

// A range of sequence numbers and times, one ClOrdID, a range of prices.
QueryConditionsPtr someConditions() {
    QueryConditionsPtr conditions(conditions_create());
    (void)conditions_setSeqNumRange(conditions.get(), 1, 1'000'000);
    (void)conditions_setStartingTime(conditions.get(), order_time(1));
    (void)conditions_setEndingTime(conditions.get(), order_time(1'000'000));
    (void)conditions_addStringFilter(conditions.get(), CL_ORD_ID, false, false);
    (void)conditions_setStringFilterValueCount(conditions.get(), 1);
    (void)conditions_setStringFilterValue(conditions.get(), "YSRFLC6K7FCF", 0);
    const double low = 10;
    const double high = 600;
    (void)conditions_addDoubleFilter(conditions.get(), 1, &low, &high, 1, nullptr, 0, false);
    return conditions;
}

void matcherOverMessages(benchmark::State& state) {
    const QueryConditionsPtr conditions = someConditions();
    for (auto _ : state) {
        benchmark::DoNotOptimize(query_messageMatches(*conditions, nextOrder()));
    }
}
BENCHMARK(matcherOverMessages);

void matcherOverBlocks(benchmark::State& state) {
    const MessageTableLayout made = layout();
    const BlockSummary summary = fullSummary();
    const QueryConditionsPtr conditions = someConditions();
    for (auto _ : state) {
        benchmark::DoNotOptimize(query_blockMayMatch(*conditions, summary, made));
    }
}
BENCHMARK(matcherOverBlocks);

void conditionBuilding(benchmark::State& state) {
    for (auto _ : state) {
        benchmark::DoNotOptimize(someConditions());
    }
}
BENCHMARK(conditionBuilding);

}  // namespace

BENCHMARK_MAIN();
