#include <gtest/gtest.h>

#include <random>

#include "tabulo/writer.h"
#include "tests/api/damaged_table.h"
#include "tests/support/test_run.h"
#include "tests/tool/rescue_test.h"

namespace tabulo::tool::test {
namespace {

using internal::test::appendFile;
using internal::test::patchFile;
using internal::test::writeFile;

class RecoverVerbTest : public RescueTest {
  protected:
    // Zeroes message n of a table, counted from 1.
    static Position destroy(const std::string& path, std::int64_t n) {
        Reader reader(path);
        const Position place = *reader.positionOf(n - 1);
        const Position next = *reader.positionOf(n);
        patchFile(path, static_cast<std::size_t>(place.offset),
                  Bytes(static_cast<std::size_t>(next.offset - place.offset), 0));
        return place;
    }
};

TEST_F(RecoverVerbTest, EveryMessageOfASoundTableMakesTheSameTable) {
    const std::string path = makeOrders("orders", 23);
    const ProgramResult result = run({"recover", "orders", "--to", "new"});
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_EQ(result.output,
              "orders: 23 whole messages, uniform ids 1 to 23; nothing lost\n"
              "new: written, closed, opened again and verified: 23 messages\n");
    EXPECT_EQ(internal::test::difference(readFile(file("new")), readFile(path)), "");
    EXPECT_EQ(namesIn(directory.path()), (std::vector<std::string>{"new", "orders"}));
}

TEST_F(RecoverVerbTest, WhatStandsBehindDamageIsRecoveredAndTheGapIsNamed) {
    const std::string path = makeOrders("orders", 23);
    const Position place = destroy(path, 6);
    const Bytes damaged = readFile(path);
    ProgramResult result = run({"recover", "orders", "--dry-run"});
    const std::string gap = "orders: lost at " + std::to_string(place.offset) + ": ";
    EXPECT_EQ(result.status, 3);
    EXPECT_TRUE(result.output.starts_with(gap)) << result.output;
    EXPECT_NE(result.output.find(" bytes, between uniform id 5 and uniform id 7\n"), std::string::npos);
    EXPECT_NE(result.output.find("orders: 22 whole messages, uniform ids 1 to 23; "), std::string::npos);
    EXPECT_NE(result.errors.find("hold no whole message and are lost"), std::string::npos) << result.errors;
    EXPECT_EQ(namesIn(directory.path()), std::vector<std::string>{"orders"});
    result = run({"recover", "orders", "--to", "new", "-o", "ndjson"});
    EXPECT_EQ(result.status, 3);
    EXPECT_TRUE(result.output.starts_with(
        "{\"record\":\"gap\",\"path\":\"orders\",\"offset\":" + std::to_string(place.offset) + ",\"length\":"))
        << result.output;
    EXPECT_NE(result.output.find(",\"uidBefore\":5,\"uidBehind\":7}\n{\"record\":\"table\",\"table\":\"orders\","
                                 "\"path\":\"orders\",\"to\":\"new\",\"messages\":22,\"fromCutFiles\":0,"
                                 "\"firstUid\":1,\"lastUid\":23,\"gaps\":1,\"gapBytes\":"),
              std::string::npos)
        << result.output;
    std::vector<std::int32_t> ids = range(1, 23);
    ids.erase(ids.begin() + 5);
    EXPECT_EQ(idsOf(file("new")), ids);
    EXPECT_EQ(damageOf(file("new")), "");
    EXPECT_EQ(internal::test::difference(readFile(path), damaged), "") << "the damaged table was changed";
}

TEST_F(RecoverVerbTest, WhatARecoveryHasCutOutIsFoundBesideTheTableOrGivenWithIt) {
    const std::string path = makeOrders("orders", 23);
    destroy(path, 22);
    Writer::open(path).close();  // recovers, and cuts out what stands behind
    const std::vector<std::string> names = namesIn(directory.path());
    ASSERT_EQ(names.size(), 2U) << "no file was cut out";
    std::vector<std::int32_t> ids = range(1, 23);
    ids.erase(ids.begin() + 21);
    ASSERT_LT(idsOf(path).size(), ids.size());
    ProgramResult result = run({"recover", "orders", "--to", "beside"});
    EXPECT_EQ(result.status, 3) << result.errors;
    EXPECT_EQ(idsOf(file("beside")), ids);
    EXPECT_NE(result.output.find(" of them from cut files; "), std::string::npos) << result.output;
    std::filesystem::create_directory(file("kept"));
    std::filesystem::rename(file(names[1]), file("kept/" + names[1]));
    result = run({"recover", "orders", "kept/" + names[1], "--to", "given"});
    EXPECT_EQ(result.status, 3) << result.errors;
    EXPECT_EQ(idsOf(file("given")), ids);
    result = run({"recover", "kept/" + names[1], "--to", "other"});
    EXPECT_EQ(result.status, 2) << "the table was not named";
}

TEST_F(RecoverVerbTest, ALostHeaderIsReplacedByTheLayoutOfAnotherTable) {
    const std::string path = makeOrders("orders", 23);
    makeOrders("other", 2);
    makeSession("session");
    const Bytes sound = readFile(path);
    for (const std::size_t lost : {std::size_t{1}, std::size_t{19}, std::size_t{186}}) {
        writeFile(path, sound);
        patchFile(path, 0, Bytes(lost, 0));
        ProgramResult result = run({"recover", "orders", "--to", "new"});
        EXPECT_EQ(result.status, 1);
        EXPECT_NE(result.errors.find("--layout-of OTHER"), std::string::npos) << result.errors;
        EXPECT_FALSE(std::filesystem::exists(file("new")));
        result = run({"recover", "orders", "--to", "new", "--layout-of", "other"});
        EXPECT_EQ(result.status, 0) << result.errors;
        EXPECT_EQ(internal::test::difference(readFile(file("new")), sound), "");
        std::filesystem::remove(file("new"));
    }
    EXPECT_EQ(run({"recover", "orders", "--to", "new", "--layout-of", "session"}).status, 1);
}

TEST_F(RecoverVerbTest, WhatCannotBeRecoveredIsRefusedAndNothingIsOverwritten) {
    makeOrders("orders", 5);
    makeOrders("more", 5);
    makeSession("session");
    makeFile("new", "mine");
    const auto before = contents();
    ProgramResult result = run({"recover", "orders", "--to", "new"});
    EXPECT_EQ(result.status, 1);
    EXPECT_NE(result.errors.find("new exists, and is not overwritten"), std::string::npos) << result.errors;
    EXPECT_EQ(run({"recover", "orders", "more", "--to", "x"}).status, 2);
    EXPECT_EQ(run({"recover", "orders"}).status, 2);
    EXPECT_EQ(run({"recover", ".", "--to", "x"}).status, 2);
    EXPECT_EQ(run({"recover", "missing", "--to", "x"}).status, 1);
    result = run({"recover", "session", "--to", "x"});
    EXPECT_EQ(result.status, 1);
    EXPECT_NE(result.errors.find("is a session info table"), std::string::npos) << result.errors;
    EXPECT_EQ(run({"recover", "orders", "--to", "nowhere/x"}).status, 1);
    EXPECT_EQ(contents(), before);
}

TEST_F(RecoverVerbTest, AMessageWhoseFlagsAreDamagedIsRecoveredAsItStands) {
    const Layout layout = tabulo::test::ordersLayout(5);
    const auto frames = tabulo::test::eachFrame(layout, 7);
    tabulo::test::writeTable(file("orders"), layout, frames);
    Bytes image = readFile(file("orders"));
    for (const tabulo::test::Stretch& frame : tabulo::test::TablePlan(layout, frames).frames) {
        image[frame.begin + 33] = 7;
        image[frame.begin + 34] = 0xFF;
    }
    writeFile(file("orders"), image);
    const ProgramResult result = run({"recover", "orders", "--to", "new"});
    EXPECT_EQ(result.status, 0) << result.output << result.errors;
    EXPECT_EQ(framesOf(file("new")), framesOf(file("orders")));
}

TEST_F(RecoverVerbTest, AFullDiskLeavesNothingBehind) {
    makeOrders("orders", 400);
    const auto before = contents();
    for (const std::uint64_t size : {10U, 1000U, 100000U}) {
        const FileSizeLimit limit(size);
        const ProgramResult result = run({"recover", "orders", "--to", "new"});
        EXPECT_EQ(result.status, 1) << size;
        EXPECT_NE(result.errors, "") << size;
    }
    EXPECT_EQ(contents(), before);
}

TEST_F(RecoverVerbTest, AnInterruptLeavesTheWholeTableOrNothing) {
    makeOrders("orders", 20000, 1, 100);
    const auto before = contents();
    for (int round = 0; round < 12; ++round) {
        const ProgramResult result =
            runCommand({"recover", "orders", "--to", "new"},
                       signalled(directory.path(), SIGINT, std::chrono::milliseconds(4) * round));
        if (result.status == 0) {
            EXPECT_EQ(idsOf(file("new")).size(), 20000U);
            std::filesystem::remove(file("new"));
        } else {  // 256 + SIGINT: before the command was ready for it
            EXPECT_TRUE(result.status == 130 || result.status == 256 + SIGINT) << result.status << result.errors;
            EXPECT_EQ(result.errors, "");
        }
        ASSERT_EQ(namesIn(directory.path()), std::vector<std::string>{"orders"}) << "round " << round;
    }
    EXPECT_EQ(contents(), before);
}

TEST_F(RecoverVerbTest, EveryWholeMessageIsRecoveredFromRandomDamage) {
    const std::uint32_t seed = internal::test::testSeed();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    const Layout layout = tabulo::test::ordersLayout(5);
    const auto frames = tabulo::test::eachFrame(layout, 33);
    const tabulo::test::TablePlan plan(layout, frames);
    tabulo::test::writeTable(file("orders"), layout, frames);
    const Bytes sound = readFile(file("orders"));
    for (int round = 0; round < 150 * internal::test::testEffort() && !HasFailure(); ++round) {
        Bytes image = sound;
        for (std::size_t i = 1 + random() % 3; i > 0; --i) {
            tabulo::test::damageAtRandom(&image, plan.headerEnd, &random);
        }
        writeFile(file("orders"), image);
        std::vector<Bytes> whole;
        for (const tabulo::test::Stretch& frame : plan.frames) {
            const auto at = [&](const Bytes& bytes, std::size_t place) {
                return bytes.begin() + static_cast<std::ptrdiff_t>(place);
            };
            if (std::equal(at(image, frame.begin), at(image, frame.end), at(sound, frame.begin))) {
                whole.emplace_back(at(image, frame.begin), at(image, frame.end));
            }
        }
        const ProgramResult result = run({"recover", "orders", "--to", "new"});
        const std::string text = "round " + std::to_string(round) + "\n" + result.output + result.errors;
        ASSERT_TRUE(result.status == 0 || result.status == 3) << text;
        EXPECT_EQ(damageOf(file("new")), "") << text;
        // A message whose own values were changed is whole, too: those that were not must come in their order.
        const std::vector<Bytes> found = framesOf(file("new"));
        auto next = found.begin();
        for (const Bytes& frame : whole) {
            next = std::find(next, found.end(), frame);
            ASSERT_TRUE(next != found.end()) << text;
            ++next;
        }
        EXPECT_LE(found.size(), frames.size()) << text;
        EXPECT_TRUE(result.status == 3 || found.size() == frames.size()) << text;
        std::filesystem::remove(file("new"));
    }
}

}  // namespace
}  // namespace tabulo::tool::test
