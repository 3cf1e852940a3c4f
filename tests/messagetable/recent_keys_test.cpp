#include "messagetable/recent_keys.h"

#include <gtest/gtest.h>

#include <random>
#include <set>
#include <string>

#include "tests/support/test_run.h"

namespace tabulo::internal::test {
namespace {

TEST(RecentKeys, AKeyIsSeenTheSecondTime) {
    RecentKeys keys;
    for (std::size_t length = 1; length <= 16; ++length) {
        const std::string key(length, 'k');
        EXPECT_FALSE(keys.seen(key)) << length << " bytes";
        EXPECT_TRUE(keys.seen(key)) << length << " bytes";
    }
}

TEST(RecentKeys, NothingAndLongKeysAreNeverSeen) {
    RecentKeys keys;
    for (const std::size_t length : {std::size_t{0}, std::size_t{17}, std::size_t{1000}}) {
        const std::string key(length, 'k');
        EXPECT_FALSE(keys.seen(key));
        EXPECT_FALSE(keys.seen(key)) << length << " bytes";
    }
}

TEST(RecentKeys, AClearedTableHasSeenNothing) {
    RecentKeys keys;
    keys.seen("ACME");
    keys.clear();
    EXPECT_FALSE(keys.seen("ACME"));
}

// The one thing that must never happen: a key that is taken for another one would be missing in a filter.
TEST(RecentKeys, NoKeyIsTakenForAnotherOne) {
    std::minstd_rand random(testSeed());
    for (int round = 0; round < 2000 * testEffort(); ++round) {
        RecentKeys keys;
        std::set<std::string> given;
        for (int i = 0; i < 50; ++i) {
            // Few different bytes, zeros among them, so that keys are nearly the same.
            std::string key(random() % 16 + 1, '\0');
            for (char& byte : key) {
                byte = static_cast<char>(random() % 2);
            }
            const bool first = given.insert(key).second;
            ASSERT_FALSE(first && keys.seen(key)) << "round " << round << ", key " << i;
            if (!first) {
                keys.seen(key);
            }
        }
    }
}

}  // namespace
}  // namespace tabulo::internal::test
