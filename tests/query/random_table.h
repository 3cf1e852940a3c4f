// Random messages.
#pragma once

#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "tests/query/query_fixture.h"

namespace tabulo::internal::test {

class Random {
  public:
    explicit Random(std::uint32_t seed) : engine_(seed) {}

    std::uint32_t bits() { return static_cast<std::uint32_t>(engine_()); }
    // 0 to count - 1.
    std::int32_t below(std::int32_t count) { return static_cast<std::int32_t>(bits() % static_cast<unsigned>(count)); }
    std::int32_t between(std::int32_t low, std::int32_t high) { return low + below(high - low + 1); }
    bool percent(std::int32_t chance) { return below(100) < chance; }
    template <typename T>
    const T& of(const std::vector<T>& list) {
        return list[static_cast<std::size_t>(below(static_cast<std::int32_t>(list.size())))];
    }

  private:
    std::mt19937 engine_;
};

// A layout and messages for a few closed blocks and, mostly, an open one. Neighbours are alike, so that blocks differ.
struct RandomMessages {
    MessageTableLayout layout;
    std::vector<Message> messages;
    std::size_t closed = 0;  // messages in closed blocks
};

RandomMessages randomMessages(Random* random, bool blocksOfAThousand);

}  // namespace tabulo::internal::test
