// Keys of the key-value peers.
//
// An order's own key is its sequence number and its uniform id, because sequence numbers repeat: so the first of the
// four query keys, the sequence number, needs no entry of its own, which favours the peers. The indexed variants add an
// entry each for time, ClOrdID and Symbol, made of the value and the order's own key. Numbers are stored with their
// highest byte first, so that keys sort as numbers do.
#pragma once

#include <cstdint>
#include <cstring>
#include <string_view>

#include "benchmarks/workload.h"

namespace tabulo::internal::bench {

inline constexpr std::size_t OWN_KEY = 8;

struct OrderKey {
    char bytes[48];
    std::size_t length = 0;

    std::string_view view() const { return {bytes, length}; }
    OrderKey& operator<<(char prefix) {
        bytes[length++] = prefix;
        return *this;
    }
    OrderKey& operator<<(std::string_view text) {
        std::memcpy(bytes + length, text.data(), text.size());
        length += text.size();
        return *this;
    }
    OrderKey& operator<<(std::uint32_t number) {
        number = __builtin_bswap32(number);
        return *this << std::string_view(reinterpret_cast<const char*>(&number), sizeof(number));
    }
    OrderKey& operator<<(std::uint64_t number) {
        number = __builtin_bswap64(number);
        return *this << std::string_view(reinterpret_cast<const char*>(&number), sizeof(number));
    }
    // The order's own key.
    OrderKey& operator<<(const MessageMetadata& metadata) {
        return *this << static_cast<std::uint32_t>(metadata.seqNum) << static_cast<std::uint32_t>(metadata.uniformId);
    }
};

}  // namespace tabulo::internal::bench
