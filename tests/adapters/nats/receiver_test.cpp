// What a receiver does with a copy and a stream that do not fit together.
#include <fstream>

#include "adapters/nats/copy_table.h"
#include "tabulo/reader.h"
#include "tabulo/writer.h"
#include "tests/adapters/nats/shipping_test.h"
#include "tests/support/bytes.h"

namespace tabulo::shipping::test {

namespace {

using tabulo::test::readFile;

class ReceiverTest : public ShippingTest {
  protected:
    // The files beside a copy that keep what was cut off it.
    std::vector<std::filesystem::path> saved() const {
        std::vector<std::filesystem::path> found;
        for (const auto& entry : std::filesystem::directory_iterator(copies)) {
            if (entry.path().filename().string().find(".cut-") != std::string::npos) {
                found.push_back(entry.path());
            }
        }
        std::sort(found.begin(), found.end());
        return found;
    }
    // The stream takes the messages 5 to 8 of a table back; their copy was made before.
    void rewind() {
        store("orders", 1, 8);
        ship();
        receive();
        std::filesystem::remove(source("orders"));
        store("orders", 1, 4);
        EXPECT_EQ(ship({.acceptRewind = true}), std::vector<std::string>());
    }
};

TEST_F(ReceiverTest, WhatARewindCutsOffIsKeptByteForByteUnderANameThatNoFileHas) {
    rewind();
    const auto before = readFile(copy("orders").string());
    const std::int64_t end = Reader(source("orders")).end().offset;
    const auto taken = copies / ("orders.cut-" + std::to_string(end));
    std::ofstream(taken) << "of another day";
    EXPECT_EQ(receive(), std::vector<std::string>());
    EXPECT_EQ(copyFault("orders"), "");
    ASSERT_EQ(saved().size(), 2U);
    EXPECT_EQ(std::filesystem::file_size(taken), 14U) << "a file that was there was overwritten";
    const auto piece = readFile((taken.string() + "-1"));
    ASSERT_EQ(piece.size() + static_cast<std::size_t>(end), before.size());
    EXPECT_TRUE(std::equal(piece.begin(), piece.end(), before.begin() + end));
}

TEST_F(ReceiverTest, ARewindThatWasAppliedBeforeCutsNothingMore) {
    rewind();
    receive();
    store("orders", 20, 23);
    ship();
    ASSERT_TRUE(std::filesystem::remove(copies / ".tabulo-receive"));
    EXPECT_EQ(receive(), std::vector<std::string>());
    EXPECT_EQ(copyFault("orders"), "");
    EXPECT_EQ(saved().size(), 1U);
}

TEST_F(ReceiverTest, ASecondReceiverOfAFolderTakesNothingAndSaysWho) {
    store("orders", 1, 4);
    ship();
    receive();
    store("orders", 5, 6);
    ship();
    const auto before = readFile(copy("orders").string());
    {
        const Writer other = Writer::open(copy("orders"));
        const std::vector<std::string> warned = receive();
        ASSERT_EQ(warned.size(), 1U);
        EXPECT_NE(warned[0].find("FILE_OPEN_ERROR"), std::string::npos) << warned[0];
    }
    EXPECT_EQ(readFile(copy("orders").string()).size(), before.size());
    EXPECT_EQ(receive(), std::vector<std::string>()) << "it goes on when the other one has ended";
    EXPECT_EQ(copyFault("orders"), "");
}

TEST_F(ReceiverTest, ARewindAmidThePartsOfAMessageLeavesNothingOfIt) {
    limit = 1000;
    store("orders", 1, 2);
    ship();
    const std::size_t whole = log.records.size();
    Writer writer = Writer::open(source("orders"));
    writer.append({.uniformId = 3, .type = "D", .wire = std::string(3000, 'w')});
    writer.close();
    ship();
    // Only the first two parts reach the stream; then the source is what it was before.
    std::size_t parts = 0;
    std::size_t kept = whole;
    for (; kept < log.records.size() && parts < 2; ++kept) {
        parts += log.records[kept].subject.starts_with("ENG1.orders.APP_TO.") ? 1U : 0U;
    }
    log.records.resize(kept);
    ASSERT_EQ(parts, 2U);
    receive();
    std::filesystem::remove(source("orders"));
    store("orders", 1, 2);
    ship({.acceptRewind = true});
    store("orders", 4, 5);
    EXPECT_EQ(ship({.acceptRewind = true}), std::vector<std::string>());
    EXPECT_EQ(receive(), std::vector<std::string>());
    EXPECT_EQ(copyFault("orders"), "");
}

class CopyTableTest : public ShippingTest {
  protected:
    CopyTableTest() { Writer::create(path, layout).close(); }

    const std::filesystem::path path = directory.file("orders");
    const std::vector<std::byte> bytes = std::vector<std::byte>(10);
    CopyTable table{path, 1, {[](const auto&) {}, [](const auto&) {}}};
};

TEST_F(CopyTableTest, AFrameFarBehindTheEndIsNotAppended) {
    for (const std::int64_t offset : {std::int64_t{100'000}, INT64_MAX - 4, INT64_MAX}) {
        const Record record{.table = "orders", .offset = offset, .whole = 10, .payload = bytes};
        EXPECT_THROW(table.apply(record), CopyBehind) << offset;
    }
}

TEST_F(CopyTableTest, APartOfAnEnormousFrameTakesNoMemoryForTheRest) {
    const std::int64_t end = Writer::open(path).end().offset;
    Record record{.table = "orders", .offset = end, .whole = INT64_MAX, .payload = bytes};
    table.apply(record);
    record.at = INT64_MAX - 10;  // the last one, and none between
    EXPECT_THROW(table.apply(record), CopyBehind);
}

}  // namespace

}  // namespace tabulo::shipping::test
