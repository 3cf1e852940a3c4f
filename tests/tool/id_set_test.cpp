#include "tool/id_set.h"

#include <gtest/gtest.h>
#include <malloc.h>

#include <random>
#include <set>
#include <string>
#include <vector>

#include "tests/support/test_run.h"

namespace tabulo::tool {

namespace {

TEST(IdSetTest, RandomIdsAreKeptOnceInTheirOrder) {
    const std::uint32_t seed = internal::test::testSeed();
    std::mt19937 random(seed);
    IdSet ids;
    std::set<std::string> expected;
    std::vector<std::string> order;
    EXPECT_FALSE(ids.contains("0"));
    for (int n = 0; n < 50000; ++n) {
        std::string id = std::to_string(random() % 20000);
        id.resize(random() % 30 == 0 ? 0 : id.size());
        const bool isNew = expected.insert(id).second;
        ASSERT_EQ(ids.contains(id), !isNew) << id << ", seed " << seed;
        ASSERT_EQ(ids.add(id), isNew) << id << ", seed " << seed;
        if (isNew) {
            order.push_back(id);
        }
    }
    ASSERT_EQ(ids.size(), order.size());
    for (std::size_t n = 0; n < order.size(); ++n) {
        ASSERT_EQ(ids[n], order[n]) << n << ", seed " << seed;
    }
}

// Counted by the allocator; one that does not count (a sanitizer's) gives 0.
TEST(IdSetTest, AnIdTakesLessThanAHundredBytes) {
    constexpr std::size_t COUNT = 200000;
    const std::size_t before = ::mallinfo2().uordblks + ::mallinfo2().hblkhd;
    IdSet ids;
    for (std::size_t n = 0; n < COUNT; ++n) {
        ids.add("ORDER-20261120-" + std::to_string(100000 + n));
        if (n % 1000 == 999) {
            const std::size_t taken = ::mallinfo2().uordblks + ::mallinfo2().hblkhd - before;
            ASSERT_LT(taken, 100 * (n + 1)) << "for " << n + 1 << " ids";
        }
    }
}

}  // namespace

}  // namespace tabulo::tool
