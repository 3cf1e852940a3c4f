// What is no longer there: records that limits have deleted, streams that were made anew, copies that are shorter than
// the note says. A receiver lacks nothing without a word.
#include <filesystem>
#include <fstream>

#include "adapters/nats/text_lines.h"
#include "tabulo/writer.h"
#include "tests/adapters/nats/shipping_test.h"

namespace tabulo::shipping::test {

namespace {

using Lines = std::vector<std::string>;

class LostRecords : public ShippingTest {
  protected:
    // A table whose content in the stream is not its first one, all of which has been received.
    void shipASecondContent() {
        store("orders", 1, 3);
        ship();
        receive();
        Writer writer = Writer::open(source("orders"));
        writer.drop();
        writer.close();
        store("orders", 4, 5);
        ship({.allowGap = true});
        EXPECT_EQ(receive(), Lines());
        ASSERT_EQ(copyFault("orders"), "");
    }
    // As if the shipper went on: its last owner record is not there.
    void forgetTheEnd() {
        while (!log.records.back().subject.starts_with("ENG1.orders.")) {
            log.records.pop_back();
        }
    }
    // Receives once, for so many looks at most; whether it has ended by itself.
    bool receivingEnds(Lines* warned) {
        int looks = 0;
        MemoryStream stream(log);
        Receiver(stream, {.folder = copies, .once = true, .isStopped = [&] { return ++looks > 10'000; }},
                 {[](const auto&) {}, [&](const std::string& line) { warned->push_back(line); }})
            .run();
        return looks <= 10'000;
    }
};

TEST_F(LostRecords, OfAWholeTableLetItBeReceivedOn) {
    shipASecondContent();
    log.first = log.records.size();  // the newest owner record is left
    for (std::int32_t first = 6; first <= 10; first += 4) {
        store("orders", first, first + 3);
        EXPECT_EQ(ship(), Lines());
        EXPECT_EQ(receive(), Lines());
        EXPECT_EQ(copyFault("orders"), "") << "the messages from " << first << " on were left out without a word";
    }
}

TEST_F(LostRecords, AStreamThatWasMadeAnewIsReceivedFromItsBeginning) {
    shipASecondContent();
    const std::size_t before = log.records.size();
    log.records.clear();
    log.late.clear();
    log.made += 1;
    store("orders", 6, 30);
    ship();
    ASSERT_GT(log.records.size(), before) << "the note is in front of the new stream's end";
    EXPECT_EQ(receive(), Lines());
    EXPECT_EQ(copyFault("orders"), "");
}

TEST_F(LostRecords, OfAnOwnerBehindAFenceAreTold) {
    store("orders", 1, 3);
    ship();
    MemoryStream(log).append({"ENG1.=fence", {}, bytesOf("behind 1\n")}, 1);
    EXPECT_EQ(receive(), Lines()) << "it is ended in the midst of the fence";
    store("orders", 4, 5);
    ship();
    store("orders", 6, 8);
    ship();
    forgetTheEnd();
    log.first = log.records.size() - 2;
    EXPECT_EQ(receive().size(), 1U) << "the messages 4 and 5 are missing";
}

TEST_F(LostRecords, OfAnOwnerThatACursorHasNotGivenAreLookedFor) {
    store("orders", 1, 3);
    ship();
    for (const bool isNewest : {false, true}) {
        MemoryStream(log).append({"ENG1.=fence", {}, bytesOf("behind 1\n")}, 1);
        const std::size_t owner = log.records.size() + 2;  // behind one more fence
        if (!isNewest) {
            store("orders", 4, 5);
        }
        ship();
        ASSERT_EQ(log.records.at(owner - 1).subject, "ENG1.=owner");
        log.leftOutOnce = {owner};
        EXPECT_EQ(receive(), Lines());
        EXPECT_EQ(copyFault("orders"), "") << "what stands behind the owner was left out without a word";
    }
}

TEST_F(LostRecords, OfACopyThatIsShorterThanTheNoteSaysAreFetchedAgain) {
    store("orders", 1, 4);
    ship();
    receive();
    std::filesystem::copy(copy("orders"), directory.file("older"));
    store("orders", 5, 8);
    ship();
    receive();
    ASSERT_EQ(copyFault("orders"), "");
    std::filesystem::copy(directory.file("older"), copy("orders"), std::filesystem::copy_options::overwrite_existing);
    EXPECT_EQ(receive(), Lines());
    EXPECT_EQ(copyFault("orders"), "") << "as it was before a loss of power";
    std::filesystem::remove(copy("orders"));
    EXPECT_EQ(receive(), Lines());
    EXPECT_EQ(copyFault("orders"), "") << "moved away";
    std::filesystem::remove(copy("orders"));
    log.first = log.records.size();
    EXPECT_EQ(receive().size(), 1U) << "the stream has not got it any more";
    store("reports", 1, 2);
    ship();
    EXPECT_EQ(receive(), Lines()) << "which is told once";
    EXPECT_EQ(copyFault("reports"), "");
}

TEST_F(LostRecords, OfAMessageOfWhichOnePartHasComeAreNone) {
    limit = 1000;
    store("orders", 1, 2);
    ship();
    receive();
    const std::size_t before = log.records.size();
    Writer writer = Writer::open(source("orders"));
    writer.append({.uniformId = 3, .type = "D", .wire = std::string(3000, 'w')});
    writer.close();
    ship();
    log.first = before + 1;  // the layout, by which a copy could be compared, is gone
    const std::vector<Stored> all = log.records;
    std::size_t end = before;
    for (std::size_t parts = 0; end < all.size() && parts < 2; ++end) {
        parts += all[end].subject.starts_with("ENG1.orders.APP_TO.") ? 1U : 0U;
    }
    log.records.resize(end);
    EXPECT_EQ(receive(), Lines()) << "it ends between two parts";
    log.records = all;
    EXPECT_EQ(receive(), Lines());
    EXPECT_EQ(copyFault("orders"), "");
}

TEST_F(LostRecords, OfAllThatTheNoteHasNotSeenEndReceivingOnce) {
    store("orders", 1, 4);
    ship();
    receive();
    store("orders", 5, 5);
    ship();
    log.first = log.records.size() + 1;
    Lines warned;
    EXPECT_TRUE(receivingEnds(&warned)) << "nothing will ever come";
}

TEST_F(LostRecords, AreNoneWhereTheNewestOneIsRefused) {
    store("orders", 1, 4);
    ship();
    receive();
    store("orders", 5, 5);
    ship();
    forgetTheEnd();
    const Writer other = Writer::open(copy("orders"));
    Lines warned;
    EXPECT_TRUE(receivingEnds(&warned));
    EXPECT_EQ(warned.size(), 1U);
}

TEST_F(LostRecords, OfTheNoteLetNothingBeCutOffAgain) {
    store("orders", 1, 8);
    ship();
    receive();
    std::filesystem::remove(source("orders"));
    store("orders", 1, 4);
    ship({.acceptRewind = true});
    store("orders", 20, 23);
    ship();
    receive();
    std::filesystem::remove(copies / ".tabulo-receive");
    said.clear();
    EXPECT_EQ(receive(), Lines());
    EXPECT_EQ(copyFault("orders"), "");
    EXPECT_EQ(said, Lines());
}

TEST_F(LostRecords, AreNotWhatAReceiverIsBehindBeforeItHasTakenOne) {
    store("orders", 1, 40);
    ship();
    MemoryStream stream(log);
    std::string answer;
    const auto ask = [&] {
        if (answer.empty()) {
            answer = MemoryStream(log).ask("_TABULO.ENG1.lag", {}, false).back();
        }
        return false;
    };
    Receiver(stream, {.folder = copies, .once = true, .isStopped = ask}, {[](const auto&) {}, [](const auto&) {}})
        .run();
    EXPECT_NE(answer.find("messages " + std::to_string(log.records.size())), std::string::npos) << answer;
}

}  // namespace

}  // namespace tabulo::shipping::test
