#include "benchmarks/append_frames.h"

#include <algorithm>
#include <span>

#include "benchmarks/fail.h"
#include "benchmarks/measure.h"
#include "benchmarks/stores/tabulo_store.h"
#include "benchmarks/workload.h"
#include "core/byte_stream.h"
#include "messagetable/frame.h"

namespace tabulo::internal::bench {

namespace {

constexpr std::int32_t FRAMES = 100;
constexpr std::int32_t LARGEST_ORDER = 1024;

void encode(std::int32_t first, std::int32_t last, KSVByteStream* stream) {
    OrderRecord record;
    byteStream_clear(stream);
    for (std::int32_t number = first; number <= last; ++number) {
        order_make(&record, number);
        if (mfr_encodeMessage(order_of(record), stream) != NO_ERROR) {
            fail("an order cannot be encoded");
        }
    }
}

void append(const std::string& directory, std::int32_t messages) {
    const TablePtr table = table_ofOrders(directory);
    table_open(table.get(), OpenMode::create);
    const ByteStreamPtr stream(byteStream_create(FRAMES * LARGEST_ORDER));
    std::int64_t time = 0;
    std::int64_t all = 0;
    for (std::int32_t first = 1; first <= messages; first += FRAMES) {
        encode(first, std::min(first + FRAMES - 1, messages), stream.get());
        std::size_t offset = 0;
        std::int64_t stored = 0;
        const std::int64_t start = now();
        const ErrorCode code = mt_writeRawMessages(
            table.get(),
            {byteStream_buffer(stream.get()), static_cast<std::size_t>(byteStream_writeMark(stream.get()))}, &offset,
            &stored);
        time += now() - start;
        all += stored;
        if (code != NO_ERROR) {
            fail("the table refuses frames");
        }
    }
    if (all != messages || mt_close(table.get()) != NO_ERROR) {
        fail("the table has not stored every frame");
    }
    result_add("append", "tabulo-frames", "rate", "messages/s", 1e9 * messages / static_cast<double>(time));
}

}  // namespace

void appendFrames_run(const std::string& directory, std::int32_t messages) {
    directory_make(directory);
    child_run([&] { append(directory, messages); });
}

}  // namespace tabulo::internal::bench
