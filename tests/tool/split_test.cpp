#include <gtest/gtest.h>

#include "tabulo/writer.h"
#include "tests/tool/rescue_test.h"

namespace tabulo::tool::test {
namespace {

using internal::test::patchFile;

class SplitVerbTest : public RescueTest {
  protected:
    // A table with messages at these times (milliseconds), with uniform ids from 1 on.
    void makeAt(const std::vector<std::int64_t>& times) const {
        Writer writer = Writer::create(file("orders"), ordersLayout());
        for (std::size_t i = 0; i < times.size(); ++i) {
            OrderMessage order(static_cast<std::int32_t>(i) + 1);
            order.message.time = times[i];
            writer.append(order.message);
        }
        writer.close();
    }
};

constexpr std::int64_t HOUR = 3600 * 1000;
constexpr std::int64_t NOON = 1795176000000;  // 2026-11-20T12:00:00Z

TEST_F(SplitVerbTest, SoManyMessagesEachMakeTablesInTheirOrder) {
    const std::string path = makeOrders("orders", 23);
    for (const std::int32_t each : {1, 4, 7, 22, 23, 24}) {
        const ProgramResult result =
            run({"split", "orders", "--by", "messages=" + std::to_string(each), "--to", "parts"});
        EXPECT_EQ(result.status, 0) << result.errors;
        std::vector<Bytes> frames;
        for (const std::string& name : namesIn(file("parts"))) {
            EXPECT_EQ(damageOf(file("parts/" + name)), "") << name;
            const std::vector<Bytes> part = framesOf(file("parts/" + name));
            EXPECT_EQ(part.size(), std::min<std::size_t>(static_cast<std::size_t>(each), 23 - frames.size())) << name;
            frames.insert(frames.end(), part.begin(), part.end());
        }
        EXPECT_EQ(frames, framesOf(path)) << each;
        std::filesystem::remove_all(file("parts"));
    }
}

TEST_F(SplitVerbTest, DaysAreThoseOfTheZoneAlsoWhenTimesGoBack) {
    makeAt({NOON, NOON + 11 * HOUR, NOON + 13 * HOUR, NOON + 1, NOON + 30 * HOUR});
    ProgramResult result = run({"split", "orders", "--by", "day", "--to", "utc", "--time-unit", "ms"});
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_EQ(result.output,
              "TABLE              MESSAGES  FIRST UID  LAST UID  FROM                     TO\n"
              "orders-2026-11-20         3          1         4  2026-11-20 12:00:00.000  2026-11-20 23:00:00.000\n"
              "orders-2026-11-21         2          3         5  2026-11-21 01:00:00.000  2026-11-21 18:00:00.000\n");
    EXPECT_EQ(idsOf(file("utc/orders-2026-11-20")), (std::vector<std::int32_t>{1, 2, 4}));
    EXPECT_EQ(idsOf(file("utc/orders-2026-11-21")), (std::vector<std::int32_t>{3, 5}));
    result = run({"split", "orders", "--by", "day", "--to", "tokyo", "--tz", "Asia/Tokyo", "-o", "ndjson"});
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_EQ(namesIn(file("tokyo")),
              (std::vector<std::string>{"orders-2026-11-20", "orders-2026-11-21", "orders-2026-11-22"}));
    EXPECT_TRUE(result.output.starts_with(
        "{\"table\":\"orders-2026-11-20\",\"path\":\"tokyo/orders-2026-11-20\",\"messages\":2,\"firstUid\":1,"
        "\"lastUid\":4,\"firstTime\":\"2026-11-20T12:00:00.000Z\",\"firstTimeRaw\":\"1795176000000\","
        "\"lastTime\":\"2026-11-20T12:00:00.001Z\",\"lastTimeRaw\":\"1795176000001\"}\n"))
        << result.output;
}

TEST_F(SplitVerbTest, MoreTablesThanAreOpenAtATimeTakeTurns) {
    std::vector<std::int64_t> times;
    for (std::int64_t n = 0; n < 400; ++n) {
        times.push_back(NOON + n * 7 % 40 * HOUR);  // hour after hour, again and again
    }
    makeAt(times);
    const ProgramResult result = run({"split", "orders", "--by", "hour", "--to", "hours"});
    EXPECT_EQ(result.status, 0) << result.errors;
    const std::vector<std::string> names = namesIn(file("hours"));
    ASSERT_EQ(names.size(), 40U);
    EXPECT_EQ(names[0], "orders-2026-11-20T12");
    EXPECT_EQ(names[39], "orders-2026-11-22T03");
    for (std::size_t hour = 0; hour < names.size(); ++hour) {
        std::vector<std::int32_t> expected;
        for (std::size_t n = 0; n < times.size(); ++n) {
            if (times[n] == NOON + static_cast<std::int64_t>(hour) * HOUR) {
                expected.push_back(static_cast<std::int32_t>(n) + 1);
            }
        }
        EXPECT_EQ(idsOf(file("hours/" + names[hour])), expected) << names[hour];
    }
}

TEST_F(SplitVerbTest, WhatCannotBeSplitIsRefusedAndNothingIsMade) {
    makeOrders("orders", 23);
    makeOrders("empty", 0);
    makeSession("session");
    std::filesystem::create_directory(file("taken"));
    makeFile("taken/.keep", "");
    const std::string damaged = makeOrders("damaged", 23);
    const Position place = *Reader(damaged).positionOf(9);
    patchFile(damaged, static_cast<std::size_t>(place.offset), Bytes(4, 0xFF));
    const auto before = contents();
    const auto names = namesIn(directory.path());
    EXPECT_EQ(run({"split", "orders", "--by", "day", "--to", "taken"}).status, 1);
    EXPECT_EQ(run({"split", "orders", "--by", "day", "--to", "orders"}).status, 1);
    EXPECT_EQ(run({"split", "orders", "--by", "day", "--to", "no/where"}).status, 1);
    for (const char* by : {"week", "messages", "messages=", "messages=0", "messages=-1", "messages=1x", ""}) {
        EXPECT_EQ(run({"split", "orders", "--by", by, "--to", "x"}).status, 2) << by;
    }
    EXPECT_EQ(run({"split", "orders", "--by", "day", "--to", "x", "--tz", "Mars/Olympus"}).status, 2);
    EXPECT_EQ(run({"split", "orders", "--to", "x"}).status, 2);
    EXPECT_EQ(run({"split", "missing", "--by", "day", "--to", "x"}).status, 1);
    EXPECT_EQ(run({"split", ".", "--by", "day", "--to", "x"}).status, 1);
    EXPECT_EQ(run({"split", "empty", "--by", "day", "--to", "x"}).status, 1);
    EXPECT_EQ(run({"split", "session", "--by", "day", "--to", "x"}).status, 1);
    EXPECT_EQ(run({"split", "damaged", "--by", "day", "--to", "x"}).status, 1);
    EXPECT_EQ(contents(), before);
    EXPECT_EQ(namesIn(directory.path()), names);
}

TEST_F(SplitVerbTest, TimesWithoutAKnownUnitNeedOne) {
    makeAt({1, 2, 3});
    const ProgramResult result = run({"split", "orders", "--by", "day", "--to", "x"});
    EXPECT_EQ(result.status, 2);
    EXPECT_NE(result.errors.find("--time-unit"), std::string::npos) << result.errors;
    EXPECT_EQ(run({"split", "orders", "--by", "messages=2", "--to", "parts"}).status, 0);
    EXPECT_EQ(run({"split", "orders", "--by", "day", "--to", "x", "--time-unit", "s"}).status, 0);
    EXPECT_EQ(namesIn(file("x")), std::vector<std::string>{"orders-1970-01-01"});
}

TEST_F(SplitVerbTest, AFullDiskOrAnInterruptLeavesNothingBehind) {
    makeOrders("orders", 20000, 1, 100);
    const std::vector<std::string> arguments = {"split", "orders", "--by", "messages=1500", "--to", "parts"};
    for (const std::uint64_t size : {10U, 1000U, 100000U}) {
        const FileSizeLimit limit(size);
        EXPECT_EQ(run(arguments).status, 1) << size;
        EXPECT_EQ(namesIn(directory.path()), std::vector<std::string>{"orders"}) << size;
    }
    for (int round = 0; round < 10; ++round) {
        const ProgramResult result =
            runCommand(arguments, signalled(directory.path(), SIGINT, std::chrono::milliseconds(4) * round));
        if (result.status == 0) {
            EXPECT_EQ(namesIn(file("parts")).size(), 14U);
            std::filesystem::remove_all(file("parts"));
        }
        ASSERT_EQ(namesIn(directory.path()), std::vector<std::string>{"orders"}) << "round " << round;
    }
}

}  // namespace
}  // namespace tabulo::tool::test
