#include <gtest/gtest.h>

#include <random>

#include "tabulo/session_info.h"
#include "tabulo/writer.h"
#include "tests/support/test_run.h"
#include "tests/tool/rescue_test.h"

namespace tabulo::tool::test {
namespace {

using internal::test::difference;
using internal::test::patchFile;
using internal::test::writeFile;

class BackupVerbTest : public RescueTest {
  protected:
    // Appends order messages to a table; closes it, or leaves it as a writer at work does.
    Writer appendOrders(const std::string& path, std::int32_t first, std::int32_t last) const {
        Writer writer = Writer::openOrCreate(path, ordersLayout());
        for (std::int32_t n = first; n <= last; ++n) {
            writer.append(OrderMessage(n).message);
        }
        return writer;
    }
    // The copy of a table is refused as it is now, and stays as it was.
    void expectRefused(const std::string& why) const {
        const Bytes before = readFile(file("copies/orders"));
        const ProgramResult result = run({"backup", "orders", "--to", "copies"});
        EXPECT_EQ(result.status, 1) << result.output;
        EXPECT_NE(result.errors.find(why), std::string::npos) << result.errors;
        EXPECT_EQ(difference(readFile(file("copies/orders")), before), "");
        EXPECT_EQ(namesIn(file("copies")), std::vector<std::string>{"orders"});
    }
};

TEST_F(BackupVerbTest, ACopyIsByteForByteTheClosedTableAndARepeatAddsWhatIsNew) {
    makeSession("session");
    for (std::int32_t last = 0; last <= 14; ++last) {
        Writer writer = appendOrders(file("orders"), std::max(last, 1), last);  // stays open
        const std::string size =
            last == 0 ? "" : std::to_string(std::filesystem::file_size(file("orders")));  // the same when it is closed
        const ProgramResult result = run({"backup", "orders", "session", "--to", "copies", "-o", "ndjson"});
        EXPECT_EQ(result.status, 0) << result.errors;
        EXPECT_EQ(result.errors, "");
        if (last > 0) {
            EXPECT_EQ(result.output,
                      "{\"table\":\"orders\",\"path\":\"orders\",\"kind\":\"messages\",\"to\":\"copies/orders\","
                      "\"messages\":" +
                          std::to_string(last) + ",\"added\":1,\"lastUid\":" + std::to_string(last) +
                          ",\"bytes\":" + size +
                          "}\n{\"table\":\"session\",\"path\":\"session\",\"kind\":\"session\",\"to\":"
                          "\"copies/session\",\"messages\":null,\"added\":null,\"lastUid\":null,\"bytes\":80}\n");
        }
        writer.close();
        EXPECT_EQ(difference(readFile(file("copies/orders")), readFile(file("orders"))), "") << last;
        EXPECT_EQ(difference(readFile(file("copies/session")), readFile(file("session"))), "");
        EXPECT_EQ(namesIn(file("copies")), (std::vector<std::string>{"orders", "session"}));
    }
    const ProgramResult result = run({"backup", ".", "--to", "copies"});
    EXPECT_EQ(result.output,
              "TABLE    KIND      MESSAGES  ADDED  LAST UID      SIZE\n"
              "orders   messages        14      0        14  " +
                  result.output.substr(std::min(result.output.size(), std::size_t{101}), 8) +
                  "\nsession  session          -      -         -      80 B\n");
    SessionInfo::openForWriting(file("session")).write(1, 18);
    EXPECT_EQ(run({"backup", ".", "--to", "copies"}).status, 0);
    EXPECT_EQ(SessionInfo::open(file("copies/session")).read(1), 18);
}

TEST_F(BackupVerbTest, ATableThatWasDroppedOrCutSinceIsRefused) {
    const auto fill = [&](std::vector<std::int32_t> numbers) {
        std::filesystem::remove(file("orders"));
        Writer writer = Writer::create(file("orders"), ordersLayout());
        for (const std::int32_t n : numbers) {
            writer.append(OrderMessage(n).message);
        }
        writer.close();
    };
    fill(range(10, 20));
    ASSERT_EQ(run({"backup", "orders", "--to", "copies"}).status, 0);
    fill({});
    expectRefused("dropped or cut");
    fill(range(10, 19));  // cut
    expectRefused("dropped or cut");
    fill(range(30, 60));  // filled again
    expectRefused("dropped or cut");
    std::vector<std::int32_t> sameFirst = range(30, 60);
    sameFirst[0] = 10;
    fill(sameFirst);
    expectRefused("dropped or cut");
    std::vector<std::int32_t> sameLast = range(10, 20);
    sameLast[10] = 22;  // of the same size
    fill(sameLast);
    expectRefused("dropped or cut");
    std::filesystem::remove(file("orders"));
    makeOrders("orders", 30, 10, 5);
    expectRefused("different layouts");
    std::filesystem::remove(file("orders"));
    makeOrders("orders", 30, 10);
    EXPECT_EQ(run({"backup", "orders", "--to", "copies"}).status, 0) << "the same messages and more are no drop";
    EXPECT_EQ(idsOf(file("copies/orders")), range(10, 30));
}

TEST_F(BackupVerbTest, WhatAKilledRunHasLeftIsGoneOnWithWhereverItEnds) {
    const std::string path = makeOrders("orders", 10);
    const Bytes whole = readFile(path);
    std::filesystem::create_directory(file("copies"));
    for (std::size_t size = 0; size <= whole.size(); size += 397) {
        Bytes left = whole;
        left.resize(size);
        writeFile(file("copies/.orders.unfinished"), left);
        const ProgramResult result = run({"backup", "orders", "--to", "copies"});
        ASSERT_EQ(result.status, 0) << size << ": " << result.errors;
        ASSERT_EQ(difference(readFile(file("copies/orders")), whole), "") << size;
        ASSERT_EQ(namesIn(file("copies")), std::vector<std::string>{"orders"}) << size;
        std::filesystem::remove(file("copies/orders"));
    }
    makeOrders("other", 10, 5);
    std::filesystem::rename(file("other"), file("copies/.orders.unfinished"));
    EXPECT_EQ(run({"backup", "orders", "--to", "copies"}).status, 0);
    EXPECT_EQ(difference(readFile(file("copies/orders")), whole), "") << "what is left of another table is of no use";
}

TEST_F(BackupVerbTest, ATableThatAKilledWriterHasLeftIsCopiedAsItWillBeRecovered) {
    const Bytes whole = readFile(makeOrders("orders", 9));
    std::vector<std::pair<std::size_t, std::size_t>> blocks;
    Reader reader(file("orders"));
    for (const BlockRecord& block : reader.blocks()) {
        blocks.emplace_back(block.offset, block.offset + block.length);
    }
    std::filesystem::remove(file("orders"));
    const std::size_t header = std::filesystem::file_size(makeOrders("empty", 0));
    for (std::size_t size = header; size <= whole.size(); size += 211) {
        Bytes left = whole;
        left.resize(size);
        std::copy_n(readFile(file("empty")).begin(), header, left.begin());  // the header of a table at work
        for (const auto& [begin, end] : blocks) {
            if (begin + 8 <= size && end > size) {  // the length is written behind the footer
                std::fill_n(left.begin() + static_cast<std::ptrdiff_t>(begin), 8, std::uint8_t{0});
            }
        }
        writeFile(file("orders"), left);
        for (int repeat = 0; repeat < 2; ++repeat) {
            const ProgramResult result = run({"backup", "orders", "--to", "copies"});
            ASSERT_EQ(result.status, 0) << size << ": " << result.errors;
        }
        const ProgramResult split = run({"split", "orders", "--by", "messages=100", "--to", "parts"});
        Writer::open(file("orders")).close();
        ASSERT_EQ(difference(readFile(file("copies/orders")), readFile(file("orders"))), "") << size;
        if (idsOf(file("orders")).empty()) {
            EXPECT_EQ(split.status, 1) << size;
        } else {
            EXPECT_EQ(split.status, 0) << size << split.errors;
            EXPECT_EQ(difference(readFile(file("parts/orders-0001")), readFile(file("orders"))), "") << size;
        }
        std::filesystem::remove_all(file("copies"));
        std::filesystem::remove_all(file("parts"));
    }
}

TEST_F(BackupVerbTest, ADamagedTableIsCopiedInFrontOfTheDamage) {
    const std::string path = makeOrders("orders", 23);
    makeOrders("front", 5);
    const Position place = *Reader(path).positionOf(5);
    patchFile(path, static_cast<std::size_t>(place.offset), Bytes(4, 0xFF));
    for (int repeat = 0; repeat < 2; ++repeat) {
        const ProgramResult result = run({"backup", "orders", "--to", "copies"});
        EXPECT_EQ(result.status, 3) << result.errors;
        EXPECT_NE(result.errors.find("only what stands in front of the damage was copied"), std::string::npos);
        EXPECT_EQ(difference(readFile(file("copies/orders")), readFile(file("front"))), "");
    }
}

TEST_F(BackupVerbTest, WhatCannotBeCopiedIsRefusedAndChangesNothing) {
    makeOrders("orders", 5);
    makeSession("session");
    makeFile("notes.txt", "no table");
    std::filesystem::create_directory(file("other"));
    makeOrders("other/orders", 6);
    std::filesystem::create_directory(file("taken"));
    makeFile("taken/orders", "mine");
    makeOrders("taken/session", 1);
    const auto before = contents();
    EXPECT_EQ(run({"backup", "orders", "--to", "taken"}).status, 1);
    EXPECT_EQ(run({"backup", "session", "--to", "taken"}).status, 1);
    EXPECT_EQ(run({"backup", "orders", "other/orders", "--to", "copies"}).status, 2) << "two of one name";
    EXPECT_EQ(run({"backup", "orders", "--to", "."}).status, 2) << "its own copy";
    EXPECT_EQ(run({"backup", "orders", "--to", "notes.txt"}).status, 1);
    EXPECT_EQ(run({"backup", "orders", "--to", "no/where"}).status, 1);
    EXPECT_EQ(run({"backup", "notes.txt", "--to", "copies"}).status, 1);
    EXPECT_EQ(run({"backup", "missing", "--to", "copies"}).status, 1);
    EXPECT_EQ(run({"backup", "orders"}).status, 2);
    EXPECT_FALSE(std::filesystem::exists(file("copies"))) << "a folder was made for nothing";
    EXPECT_EQ(contents(), before);
    EXPECT_EQ(run({"backup", ".", "--to", "copies"}).status, 3) << "a foreign file in a folder is left out";
    EXPECT_EQ(namesIn(file("copies")), (std::vector<std::string>{"orders", "session"}));
}

TEST_F(BackupVerbTest, ACopyThatAnotherRunIsAtWorkOnIsLeftAlone) {
    makeOrders("orders", 23);
    std::filesystem::create_directory(file("copies"));
    for (const char* name : {"copies/.orders.unfinished", "copies/orders"}) {
        const Writer other = appendOrders(file(name), 1, 9);
        const ProgramResult result = run({"backup", "orders", "--to", "copies"});
        EXPECT_EQ(result.status, 1);
        EXPECT_NE(result.errors.find("is being written by another process"), std::string::npos) << result.errors;
        EXPECT_EQ(idsOf(file(name)), range(1, 9));
    }
    const ProgramResult result = run({"backup", "orders", "--to", "copies"});
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_EQ(idsOf(file("copies/orders")), range(1, 23));
    EXPECT_EQ(namesIn(file("copies")), std::vector<std::string>{"orders"});
}

TEST_F(BackupVerbTest, AFullDiskLeavesNoHalfCopyAndALaterRunGoesOn) {
    makeOrders("orders", 400);
    for (const std::uint64_t size : {10U, 1000U, 100000U}) {
        const FileSizeLimit limit(size);
        EXPECT_EQ(run({"backup", "orders", "--to", "copies"}).status, 1) << size;
        EXPECT_FALSE(std::filesystem::exists(file("copies"))) << size;
    }
    ASSERT_EQ(run({"backup", "orders", "--to", "copies"}).status, 0);
    appendOrders(file("orders"), 401, 900).close();
    const std::uintmax_t size = std::filesystem::file_size(file("copies/orders"));
    for (const std::uint64_t more : {1U, 100U, 2000U, 100000U}) {
        {
            const FileSizeLimit limit(size + more);
            EXPECT_EQ(run({"backup", "orders", "--to", "copies"}).status, 1) << more;
        }
        EXPECT_EQ(damageOf(file("copies/orders")), "") << more;
        const std::size_t messages = idsOf(file("copies/orders")).size();
        EXPECT_EQ(idsOf(file("copies/orders")), range(1, static_cast<std::int32_t>(messages)));
        EXPECT_GE(messages, 400U);
    }
    EXPECT_EQ(run({"backup", "orders", "--to", "copies"}).status, 0);
    EXPECT_EQ(difference(readFile(file("copies/orders")), readFile(file("orders"))), "");
}

TEST_F(BackupVerbTest, AnInterruptLeavesWholeCopiesOnly) {
    makeOrders("orders", 20000, 1, 100);
    for (int round = 0; round < 10; ++round) {
        const ProgramResult result =
            runCommand({"backup", "orders", "--to", "copies"},
                       signalled(directory.path(), SIGINT, std::chrono::milliseconds(3) * round));
        const bool ended = result.status == 0 || result.status == 130 || result.status == 256 + SIGINT;
        EXPECT_TRUE(ended) << result.status << result.errors;
        if (result.status != 256 + SIGINT && std::filesystem::exists(file("copies"))) {
            ASSERT_EQ(namesIn(file("copies")), std::vector<std::string>{"orders"}) << "round " << round;
            ASSERT_EQ(idsOf(file("copies/orders")).size(), 20000U);
        }
        std::filesystem::remove_all(file("copies"));
    }
}

// A process that stores messages as fast as it can, and the number of each in a session info table behind it.
int writeOrders(const std::string& orders, const std::string& session, const internal::test::ProcessSignal& begun) {
    Writer writer = Writer::openOrCreate(orders, ordersLayout(40));
    SessionInfo values = SessionInfo::openOrCreate(session, std::vector<std::int32_t>{1});
    for (std::int32_t n = 1;; ++n) {
        writer.append(OrderMessage(n).message);
        values.write(1, n);
        if (n == 100) {
            begun.raise();
        }
    }
}

// Runs several times, so that none takes long.
class BackupBesideAWriterTest : public BackupVerbTest, public ::testing::WithParamInterface<int> {
  protected:
    void expectWholeCopy(const std::string& text) const {
        const std::string copy = file("copies/orders");
        EXPECT_EQ(damageOf(copy), "") << text;
        const std::vector<std::int32_t> ids = idsOf(copy);
        EXPECT_EQ(ids, range(1, static_cast<std::int32_t>(ids.size()))) << text;
        if (std::filesystem::exists(file("copies/session"))) {
            EXPECT_LE(SessionInfo::open(file("copies/session")).read(1), static_cast<std::int64_t>(ids.size())) << text;
        }
    }
    void runKilled(std::mt19937* random) const {
        const std::chrono::microseconds after((*random)() % 12000);
        static_cast<void>(
            runCommand({"backup", "orders", "session", "--to", "copies"}, signalled(directory.path(), SIGKILL, after)));
    }
};

TEST_P(BackupBesideAWriterTest, BackupsAndWritersThatAreKilledAtRandomLeaveCopiesThatVerify) {
    const std::uint32_t seed = internal::test::testSeed();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed + static_cast<std::uint32_t>(GetParam()));
    for (int round = 0; round < 10 * internal::test::testEffort() && !HasFailure(); ++round) {
        const std::string text = "round " + std::to_string(round);
        const internal::test::ProcessSignal begun;
        internal::test::ChildProcess writer([&] { return writeOrders(file("orders"), file("session"), begun); });
        ASSERT_TRUE(begun.await());
        for (std::size_t i = random() % 4; i > 0; --i) {
            runKilled(&random);
            if (std::filesystem::exists(file("copies/orders"))) {
                expectWholeCopy(text);
            }
        }
        const bool isWriterKilledBefore = random() % 2 == 0;
        if (isWriterKilledBefore) {
            writer.kill();
        }
        ProgramResult result = run({"backup", "orders", "session", "--to", "copies"});
        EXPECT_EQ(result.status, 0) << text << ": " << result.errors;
        expectWholeCopy(text);
        if (!isWriterKilledBefore) {
            runKilled(&random);
            expectWholeCopy(text);
            writer.kill();
        }
        Writer::open(file("orders")).close();
        result = run({"backup", "orders", "session", "--to", "copies"});
        EXPECT_EQ(result.status, 0) << text << ": " << result.errors;
        EXPECT_EQ(difference(readFile(file("copies/orders")), readFile(file("orders"))), "") << text;
        EXPECT_EQ(difference(readFile(file("copies/session")), readFile(file("session"))), "") << text;
        EXPECT_EQ(namesIn(file("copies")), (std::vector<std::string>{"orders", "session"})) << text;
        for (const char* name : {"orders", "session", "copies"}) {
            std::filesystem::remove_all(file(name));
        }
    }
}

INSTANTIATE_TEST_SUITE_P(TenTimes, BackupBesideAWriterTest, ::testing::Range(1, 6));

}  // namespace
}  // namespace tabulo::tool::test
