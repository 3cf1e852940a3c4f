#include "tool/order_search.h"

#include <algorithm>
#include <functional>
#include <limits>
#include <map>
#include <memory>
#include <random>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "tabulo/fix.h"
#include "tabulo/writer.h"
#include "tests/support/captured_output.h"
#include "tests/support/test_run.h"
#include "tests/tool/recorded_session.h"
#include "tests/tool/tool_test.h"

namespace tabulo::tool::test {

namespace {

using Found = std::vector<std::int32_t>;  // uniform ids

// Every message of some tables with its ids, for a search by the definition.
class PlainSearch {
  public:
    void read(const std::string& path) {
        Reader reader(path);
        for (const MessageView& message : reader.messages()) {
            Entry entry{message.uniformId(), message.time(), {}, false};
            std::map<int, std::set<std::string>> byTag;
            FixFields fields(message.wire().value());
            for (FixField field; fields.next(&field);) {
                static const std::set<std::string, std::less<>> NONE = {"NONE", "UNKNOWN", "N/A", "NULL", "0"};
                const bool isNone = field.value.empty() || (field.tag != 11 && NONE.contains(field.value));
                if ((field.tag == 11 || field.tag == 41 || field.tag == 37) && !isNone) {
                    byTag[field.tag].emplace(field.value);
                }
            }
            for (const auto& [tag, values] : byTag) {
                entry.isOfSeveral = entry.isOfSeveral || values.size() > 1;
                for (const std::string& value : values) {
                    entry.ids.insert((tag == 37 ? "order " : "client ") + value);
                }
            }
            entries_.push_back(std::move(entry));
        }
    }

    Found search(const std::string& id) const {
        std::set<std::string> known = {"client " + id, "order " + id};
        std::size_t before = 0;
        std::set<std::int32_t> found;
        while (before != known.size()) {
            before = known.size();
            for (const Entry& entry : entries_) {
                const auto isKnown = [&](const std::string& one) { return known.contains(one); };
                if (std::ranges::any_of(entry.ids, isKnown)) {
                    found.insert(entry.uniformId);
                    if (!entry.isOfSeveral) {
                        known.insert(entry.ids.begin(), entry.ids.end());
                    }
                }
            }
        }
        return {found.begin(), found.end()};
    }

    std::vector<std::string> allIds() const {
        std::set<std::string> ids;
        for (const Entry& entry : entries_) {
            for (const std::string& id : entry.ids) {
                ids.insert(id.substr(id.find(' ') + 1));
            }
        }
        return {ids.begin(), ids.end()};
    }

  private:
    struct Entry {
        std::int32_t uniformId;
        std::int64_t time;
        std::set<std::string> ids;
        bool isOfSeveral;
    };
    std::vector<Entry> entries_;
};

class OrderSearchTest : public ToolTest {
  protected:
    // The messages of an order, by their uniform ids, which must come with rising times.
    Found search(const std::vector<std::string>& paths, const std::string& id) {
        std::vector<Reader> readers;
        for (const std::string& path : paths) {
            readers.emplace_back(path);
        }
        OrderSearch search(console, readers);
        search.search({{OrderIdKind::client, id}, {OrderIdKind::order, id}});
        Found found;
        std::int64_t last = std::numeric_limits<std::int64_t>::min();
        while (const MessageView* message = search.next()) {
            EXPECT_GE(message->time(), last) << "message " << message->uniformId();
            last = message->time();
            found.push_back(message->uniformId());
        }
        search.tellDamage();
        EXPECT_EQ(search.hasFound(), !found.empty());
        return found;
    }

    internal::test::CapturedOutput errors{stderr};
    Console console;
};

Found sorted(Found found) {
    std::ranges::sort(found);
    return found;
}

TEST_F(OrderSearchTest, RecordedOrdersAreFoundWholeInWireMessagesAndByIndexedFields) {
    PlainSearch plain;
    std::vector<std::string> wires;
    std::vector<std::string> indexed;
    std::int32_t next = 1;
    for (const std::string day : {"client-day1", "client-day2"}) {
        wires.push_back(file(day));
        indexed.push_back(file(day + "-indexed"));
        makeRecorded(wires.back(), day, plainLayout(), next);
        next = makeRecorded(indexed.back(), day, orderIdsLayout(), next);
        plain.read(wires.back());
    }
    const std::vector<std::string> ids = plain.allIds();
    ASSERT_GT(ids.size(), 9000U);
    const std::uint32_t seed = internal::test::testSeed();
    std::mt19937 random(seed);
    std::size_t largest = 0;
    for (int round = 0; round < 6; ++round) {
        const std::string id = round == 0 ? "C1A-99999" : ids[random() % ids.size()];
        const Found expected = plain.search(id);
        largest = std::max(largest, expected.size());
        ASSERT_FALSE(expected.empty()) << id;
        EXPECT_EQ(search(wires, id), expected) << id << ", seed " << seed;
        EXPECT_EQ(search({indexed[1], indexed[0]}, id), expected) << id << ", seed " << seed;
        EXPECT_EQ(search({wires[0], indexed[1]}, id), expected) << id << ", seed " << seed;
    }
    EXPECT_GT(largest, 2U);
    EXPECT_EQ(errors.text(), "");
}

// Some tables of random messages with few ids, so that chains are long and cross.
class RandomOrders {
  public:
    RandomOrders(std::mt19937& random, const TemporaryDirectory& directory, int round) {
        const std::size_t tables = 1 + random() % 3;
        const std::size_t ids = 2 + random() % 60;
        std::int32_t uniformId = 0;
        for (std::size_t n = 0; n < tables; ++n) {
            Layout layout = random() % 2 == 0 ? plainLayout() : orderIdsLayout();
            layout.messagesPerBlock = 1 + static_cast<std::int32_t>(random() % 6);
            paths.push_back(directory.file("random-" + std::to_string(round) + "-" + std::to_string(n)));
            Writer writer = Writer::create(paths.back(), layout);
            std::int64_t time = 0;
            for (std::size_t messages = random() % 40; messages > 0; --messages) {
                time += static_cast<std::int64_t>(random() % 3);
                append(writer, random, ids, ++uniformId, time);
            }
            writer.close();
        }
    }

    std::vector<std::string> paths;

  private:
    static void append(Writer& writer, std::mt19937& random, std::size_t ids, std::int32_t uniformId,
                       std::int64_t time) {
        std::string wire = "35=8\x01";
        std::vector<std::string> values;
        for (const char* tag : {"11=", "41=", "37="}) {
            values.emplace_back(random() % 3 == 0 ? "" : random() % 20 == 0 ? "NONE" : std::to_string(random() % ids));
            wire += values.back().empty() ? "" : tag + values.back() + "\x01";
        }
        // In a table with indexed fields a message is found by those, and a second "11" is in none.
        if (writer.layout().texts.empty() && random() % 10 == 0) {
            wire += "11=" + std::to_string(random() % ids) + "\x01";
        }
        Message message;
        message.uniformId = uniformId;
        message.id = uniformId;
        message.time = time;
        message.type = "8";
        if (!writer.layout().texts.empty()) {
            message.texts = {Text(values[0]), Text(values[1]), Text(values[2])};
        }
        message.wire = wire;
        writer.append(message);
    }
};

TEST_F(OrderSearchTest, RandomChainsAreFollowedToTheirEnds) {
    const std::uint32_t seed = internal::test::testSeed();
    std::mt19937 random(seed);
    std::size_t most = 0;
    for (int round = 0; round < 150 * internal::test::testEffort(); ++round) {
        const RandomOrders orders(random, directory, round);
        PlainSearch plain;
        for (const std::string& path : orders.paths) {
            plain.read(path);
        }
        for (const std::string& id : plain.allIds()) {
            const Found expected = plain.search(id);
            most = std::max(most, expected.size());
            ASSERT_EQ(sorted(search(orders.paths, id)), expected)
                << "id " << id << ", round " << round << ", seed " << seed;
        }
    }
    EXPECT_GT(most, 20U);
    EXPECT_EQ(errors.text(), "");
}

TEST_F(OrderSearchTest, MoreIdsThanFiltersAreAskedForAreFollowedToo) {
    Layout layout = orderIdsLayout();
    Writer writer = Writer::create(file("orders"), layout);
    constexpr std::int32_t LAST = 3000;
    for (std::int32_t n = LAST; n > 0; --n) {  // the newest id first, so that each search finds few
        const std::string id = std::to_string(n);
        const std::string original = std::to_string(n - 1);
        Message message;
        message.uniformId = LAST + 1 - n;
        message.id = n;
        message.type = "G";
        message.texts = {Text(id), Text(original), Text()};
        writer.append(message);
    }
    writer.close();
    EXPECT_EQ(search({file("orders")}, "1500").size(), static_cast<std::size_t>(LAST));
}

TEST_F(OrderSearchTest, TablesWithoutMessagesHoldNoOrder) {
    Writer::create(file("empty"), plainLayout()).close();
    makeOrders("orders", 20);
    EXPECT_TRUE(search({file("empty")}, "order-1").empty());
    EXPECT_EQ(search({file("empty"), file("orders"), file("empty")}, "order-1"), (Found{1, 2}));
}

TEST_F(OrderSearchTest, WhatIsStoredMeanwhileIsNotLookedAt) {
    makeOrders("orders", 3);
    std::vector<Reader> readers;
    readers.emplace_back(file("orders"));
    OrderSearch search(console, readers);
    Writer writer = Writer::open(file("orders"));
    writer.append(OrderMessage(4).message);
    search.search({{OrderIdKind::client, "order-2"}});
    ASSERT_NE(search.next(), nullptr);
    EXPECT_EQ(search.next(), nullptr) << "message 4 is of the same order";
}

}  // namespace

}  // namespace tabulo::tool::test
