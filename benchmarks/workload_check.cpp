#include "benchmarks/workload_check.h"

#include <array>
#include <cstdlib>
#include <string_view>

#include "benchmarks/frame_codec.h"
#include "benchmarks/store.h"
#include "core/byte_stream.h"
#include "messagetable/frame.h"

namespace tabulo::internal::bench {

namespace {

constexpr std::int32_t CHECKED = 1000;

// "8=FIX.4.4|9=nnn|" body "10=nnn|"
bool isRightFix(std::string_view wire) {
    const std::size_t body = wire.find("\00135=") + 1;
    const std::size_t trailer = wire.rfind("\00110=") + 1;
    const std::size_t length = wire.find("\0019=") + 1;
    if (body == 0 || trailer == 0 || length == 0) {
        return false;
    }
    unsigned sum = 0;
    for (const char character : wire.substr(0, trailer)) {
        sum += static_cast<unsigned char>(character);
    }
    return std::strtoul(wire.data() + length + 2, nullptr, 10) == trailer - body &&
           std::strtoul(wire.data() + trailer + 3, nullptr, 10) == sum % 256 && wire.back() == '\x01';
}

bool isSameFrame(const Order& order, KSVByteStream* stream) {
    std::array<std::uint8_t, LARGEST_ORDER> frame;
    const std::size_t length = frame_encode(order, frame.data());
    byteStream_clear(stream);
    return mfr_encodeMessage(order, stream) == NO_ERROR &&
           static_cast<std::size_t>(byteStream_writeMark(stream)) == length &&
           std::memcmp(byteStream_buffer(stream), frame.data(), length) == 0;
}

}  // namespace

void workload_check() {
    const ByteStreamPtr stream(byteStream_create(LARGEST_ORDER));
    OrderRecord record;
    for (std::int32_t number = 1; number <= CHECKED; ++number) {
        order_make(&record, number);
        const Order order = order_of(record);
        if (!isRightFix(stringField_withoutNul(order.texts[WIRE]))) {
            fail("order " + std::to_string(number) + " is no correct FIX message");
        }
        if (!isSameFrame(order, stream.get())) {
            fail("the raw limit does not write what a table writes");
        }
    }
}

}  // namespace tabulo::internal::bench
