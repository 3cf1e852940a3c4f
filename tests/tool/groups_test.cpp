#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "tests/support/test_run.h"
#include "tool/group_key.h"
#include "tool/message_groups.h"

namespace tabulo::tool {

namespace {

std::string keyOf(const std::vector<ListValue>& values) {
    std::string key;
    for (const ListValue& value : values) {
        putKeyValue(&key, value);
    }
    return key;
}

TEST(GroupKeyTest, AKeyGivesItsValuesBack) {
    const std::vector<ListValue> values = {std::string("a\0b\0\xFF", 5),
                                           std::string(),
                                           {},
                                           std::numeric_limits<std::int64_t>::min(),
                                           std::int64_t{-1},
                                           -0.5,
                                           std::numeric_limits<double>::infinity(),
                                           std::string("\0", 1)};
    const std::vector<ListValue> back = keyValues(keyOf(values));
    ASSERT_EQ(back.size(), values.size());
    for (std::size_t i = 0; i < values.size(); ++i) {
        EXPECT_EQ(back[i].index(), values[i].index()) << i;
        EXPECT_EQ(keyOf({back[i]}), keyOf({values[i]})) << i;
    }
    EXPECT_EQ(std::get<std::string>(back[0]), std::string("a\0b\0\xFF", 5));
    EXPECT_EQ(std::get<std::int64_t>(back[4]), -1);
    EXPECT_EQ(std::get<double>(back[5]), -0.5);
    EXPECT_TRUE(keyValues("").empty());
}

TEST(GroupKeyTest, KeysCompareAsTheirValuesDo) {
    const double infinity = std::numeric_limits<double>::infinity();
    const std::vector<std::vector<ListValue>> ordered = {
        {{}},
        {std::numeric_limits<std::int64_t>::min()},
        {std::int64_t{-2}},
        {std::int64_t{-1}},
        {std::int64_t{0}},
        {std::int64_t{300}},
        {-infinity},
        {-2.5},
        {-1.0},
        {0.0},
        {1e-300},
        {infinity},
        {std::string()},
        {std::string("\0", 1)},
        {std::string("\0a", 2)},
        {std::string("a")},
        {std::string("a"), std::string("z")},
        {std::string("a\0", 2)},
        {std::string("aa")},
        {std::string("\xFF")},
    };
    for (std::size_t i = 1; i < ordered.size(); ++i) {
        EXPECT_LT(keyOf(ordered[i - 1]), keyOf(ordered[i])) << "the values " << i - 1 << " and " << i;
    }
}

TEST(GroupKeyTest, NamesOfGroupsAreReadOrRefused) {
    EXPECT_EQ(groupPartNamed("class").by, GroupBy::messageClass);
    EXPECT_EQ(groupPartNamed("field:a:b").field, "a:b");
    for (const char* name : {"", "Type", "field", "field:", "second"}) {
        EXPECT_THROW(groupPartNamed(name), UsageError) << name;
    }
}

TEST(MessageGroupsTest, CountsAreThoseOfAPlainMap) {
    std::mt19937 random(internal::test::testSeed());
    struct Counts {
        std::int64_t messages = 0;
        std::int64_t bytes = 0;
        std::int64_t first = std::numeric_limits<std::int64_t>::max();
        std::int64_t last = std::numeric_limits<std::int64_t>::min();
    };
    std::map<std::string, Counts> expected;
    MessageGroups groups;
    for (int i = 0; i < 50000; ++i) {
        const std::string key = "key-" + std::string(random() % 40, 'x') + std::to_string(random() % 200);
        const auto bytes = static_cast<std::int64_t>(random() % 1000);
        const auto time = static_cast<std::int64_t>(random() % 100000) - 50000;
        groups.add(key, bytes, time, std::nullopt);
        Counts& counts = expected[key];
        counts = {counts.messages + 1, counts.bytes + bytes, std::min(counts.first, time), std::max(counts.last, time)};
    }
    const auto sorted = groups.sorted(true);
    ASSERT_EQ(sorted.size(), expected.size());
    auto next = sorted.begin();
    for (const auto& [key, counts] : expected) {
        const MessageGroup& group = **next++;
        ASSERT_EQ(group.key, key);
        EXPECT_EQ(group.messages, counts.messages);
        EXPECT_EQ(group.bytes, counts.bytes);
        EXPECT_EQ(group.firstTime, counts.first);
        EXPECT_EQ(group.lastTime, counts.last);
        EXPECT_EQ(group.peak, 0);
    }
    const auto bySize = groups.sorted(false);
    EXPECT_TRUE(std::is_sorted(bySize.begin(), bySize.end(),
                               [](const MessageGroup* a, const MessageGroup* b) { return a->messages > b->messages; }));
}

TEST(MessageGroupsTest, ThePeakOfSecondsInOrderIsTheMostOfOne) {
    std::mt19937 random(internal::test::testSeed());
    MessageGroups groups;
    std::map<std::int64_t, std::int32_t> counts;
    std::int64_t second = -100;
    for (int i = 0; i < 5000; ++i) {
        second += random() % 4 == 0 ? static_cast<std::int64_t>(random() % 3) : 0;
        groups.add("", 0, second, second);
        ++counts[second];
    }
    std::int32_t most = 0;
    for (const auto& [at, count] : counts) {
        most = std::max(most, count);
    }
    ASSERT_EQ(groups.size(), 1U);
    EXPECT_EQ(groups.sorted(true)[0]->peak, most);
}

}  // namespace

}  // namespace tabulo::tool
