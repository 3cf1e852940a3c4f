// From the tables of one folder through a log to those of another one.
#include <fstream>
#include <random>
#include <thread>

#include "adapters/nats/session_source.h"
#include "tabulo/reader.h"
#include "tabulo/session_info.h"
#include "tabulo/writer.h"
#include "tests/adapters/nats/shipping_test.h"
#include "tests/support/test_run.h"

namespace tabulo::shipping::test {

namespace {

using RoundTrip = ShippingTest;

TEST_F(RoundTrip, ACopyIsByteForByteItsSource) {
    store("orders", 1, 10);
    store("reports", 11, 12);
    EXPECT_EQ(ship(), std::vector<std::string>());
    EXPECT_EQ(receive(), std::vector<std::string>());
    EXPECT_EQ(copyFault("orders"), "");
    EXPECT_EQ(copyFault("reports"), "");
}

TEST_F(RoundTrip, GoesOnBehindWhatTheStreamHolds) {
    for (std::int32_t n = 1; n <= 12; ++n) {
        store("orders", n, n);
        EXPECT_EQ(ship(), std::vector<std::string>());
        EXPECT_EQ(log.countOf("ENG1.orders.APP_TO."), static_cast<std::size_t>(n));
        EXPECT_EQ(receive(), std::vector<std::string>());
        EXPECT_EQ(copyFault("orders"), "");
    }
}

TEST_F(RoundTrip, AReceiverNeedsNoNote) {
    store("orders", 1, 7);
    ship();
    receive();
    store("orders", 8, 11);
    ship();
    ASSERT_TRUE(std::filesystem::remove(copies / ".tabulo-receive"));
    EXPECT_EQ(receive(), std::vector<std::string>());
    EXPECT_EQ(copyFault("orders"), "");
}

TEST_F(RoundTrip, ALargeMessageGoesOverInParts) {
    limit = 1000;
    const std::string wire(5000, 'w');
    Writer writer = Writer::create(source("orders"), layout);
    writer.append({.uniformId = 1, .type = "D", .wire = wire});
    writer.append({.uniformId = 2, .type = "D"});
    writer.close();
    EXPECT_EQ(ship(), std::vector<std::string>());
    EXPECT_EQ(log.countOf("ENG1.orders.APP_TO."), 7U);
    EXPECT_EQ(receive(), std::vector<std::string>());
    EXPECT_EQ(copyFault("orders"), "");
}

TEST_F(RoundTrip, SessionValuesComeBehindTheMessages) {
    store("orders", 1, 5);
    const std::vector<std::int32_t> tags = {3, 1};
    SessionInfo session = SessionInfo::create(source("session"), tags);
    session.write(3, 5);
    EXPECT_EQ(ship(), std::vector<std::string>());
    EXPECT_EQ(log.records[log.records.size() - 2].subject, "ENG1.session.=session") << "in front of the end";
    EXPECT_EQ(receive(), std::vector<std::string>());
    session.write(1, -8);
    session.close();
    ship();
    receive();
    EXPECT_EQ(copyFault("session"), "");
}

TEST_F(RoundTrip, ReceivedSessionValuesAreNeverAheadOfTheMessages) {
    store("orders", 1, 3);
    const std::vector<std::int32_t> tags = {1};
    SessionInfo session = SessionInfo::create(source("session"), tags);
    session.write(1, 3);
    ship();
    store("orders", 4, 4);
    ship();
    bool isSeen = false;
    log.beforeRead = [&](std::uint64_t sequence) {
        if (sequence > 1 && log.records[sequence - 2].subject == "ENG1.session.=session") {
            isSeen = true;
            EXPECT_EQ(Reader(copy("orders")).lastUniformId(), 3);
            EXPECT_EQ(SessionInfo::open(copy("session")).read(1), 3);
        }
    };
    EXPECT_EQ(receive(), std::vector<std::string>());
    EXPECT_TRUE(isSeen);
}

TEST_F(RoundTrip, ShippingOnceEndsBesideAnEngineThatNeverDoes) {
    store("orders", 1, 2);
    const std::vector<std::int32_t> tags = {1};
    SessionInfo session = SessionInfo::create(source("session"), tags);
    session.write(1, 2);
    std::int32_t next = 3;
    log.beforePublish = [&] {
        if (next < 200) {
            store("orders", next, next);
            session.write(1, next);
            next += 1;
            std::this_thread::sleep_for(std::chrono::milliseconds(25));  // so that sessions would be looked at again
        }
    };
    EXPECT_EQ(ship(), std::vector<std::string>());
    EXPECT_LT(next, 20) << "it has shipped what came behind its start, as long as that came";
}

TEST_F(RoundTrip, ASessionInfoTableThatStaysUnreadableIsToldOnceAndAgainWhenItWasReadable) {
    const std::vector<std::int32_t> tags = {1};
    SessionSource session(source("session"));
    const auto look = [&](std::int64_t patience) { return session.look(std::chrono::milliseconds(patience)); };
    EXPECT_FALSE(look(1000)) << "a file that takes another one's place is away for a moment";
    EXPECT_THROW(look(0), Error);
    EXPECT_FALSE(look(0)) << "told twice";
    SessionInfo::create(source("session"), tags).write(1, 7);
    EXPECT_TRUE(look(0));
    std::filesystem::remove(source("session"));
    EXPECT_FALSE(look(1000));
    EXPECT_THROW(look(0), Error);
}

TEST_F(RoundTrip, ATableThatWasEmptiedUnseenIsToldWithItsIds) {
    store("orders", 1, 5);
    ship();
    std::filesystem::remove(source("orders"));
    store("orders", 6, 7);
    const std::vector<std::string> warned = ship();
    ASSERT_EQ(warned.size(), 1U);
    EXPECT_NE(warned[0].find("behind the uniform id 5"), std::string::npos) << warned[0];
    EXPECT_EQ(log.countOf("ENG1.orders.APP_TO."), 5U);

    EXPECT_EQ(ship({.allowGap = true}), std::vector<std::string>());
    EXPECT_EQ(log.countOf("ENG1.orders.=gap"), 1U);
    EXPECT_EQ(receive(), std::vector<std::string>());
    EXPECT_EQ(copyFault("orders"), "");
}

TEST_F(RoundTrip, ATableWithOtherFieldsTakesTheCopysPlace) {
    store("orders", 1, 5);
    ship();
    receive();
    std::filesystem::remove(source("orders"));
    layout = {.texts = {"Other"}, .numbers = {}, .messagesPerBlock = 2};
    Writer::create(source("orders"), layout).close();
    EXPECT_EQ(ship({.allowGap = true}), std::vector<std::string>());
    EXPECT_EQ(receive(), std::vector<std::string>());
    EXPECT_EQ(copyFault("orders"), "");
}

TEST_F(RoundTrip, AMissingTableIsTold) {
    store("orders", 1, 5);
    store("reports", 6, 7);
    ship();
    std::filesystem::remove(source("orders"));
    const std::vector<std::string> warned = ship();
    ASSERT_EQ(warned.size(), 1U);
    EXPECT_NE(warned[0].find("orders is in the stream"), std::string::npos) << warned[0];
    EXPECT_EQ(ship({.allowGap = true}), std::vector<std::string>());
    EXPECT_EQ(ship(), std::vector<std::string>()) << "a gap that is recorded is told once";
}

TEST_F(RoundTrip, AStreamAheadOfItsSourceStopsUntilThatIsAccepted) {
    store("orders", 1, 8);
    ship();
    receive();
    std::filesystem::remove(source("orders"));
    store("orders", 1, 4);
    store("orders", 20, 21);
    const std::vector<std::string> warned = ship();
    ASSERT_EQ(warned.size(), 1U);
    EXPECT_NE(warned[0].find("uniform ids from 5 to 8"), std::string::npos) << warned[0];
    EXPECT_EQ(log.countOf("ENG1.orders.APP_TO."), 8U);

    EXPECT_EQ(ship({.acceptRewind = true}), std::vector<std::string>());
    EXPECT_EQ(receive(), std::vector<std::string>());
    EXPECT_EQ(copyFault("orders"), "");
    std::size_t saved = 0;
    for (const auto& entry : std::filesystem::directory_iterator(copies)) {
        saved += entry.path().filename().string().starts_with("orders.cut-") ? 1U : 0U;
    }
    EXPECT_EQ(saved, 1U);
}

TEST_F(RoundTrip, ACopyThatSomebodyElseWroteToIsNotGoneOnWith) {
    store("orders", 1, 4);
    store("reports", 5, 6);
    ship();
    receive();
    Writer writer = Writer::open(copy("orders"));
    writer.appendFrames(tabulo::test::simpleFrames(writer.layout(), 90, 90));
    writer.close();
    store("orders", 7, 8);
    store("reports", 9, 9);
    ship();
    const std::vector<std::string> warned = receive();
    ASSERT_EQ(warned.size(), 1U);
    EXPECT_NE(warned[0].find("somebody else"), std::string::npos) << warned[0];
    EXPECT_EQ(copyFault("reports"), "");
}

TEST_F(RoundTrip, WhatTheStreamHasLostIsToldWithItsIds) {
    store("orders", 1, 4);
    ship();
    receive();
    store("orders", 5, 8);
    store("reports", 9, 9);
    ship();
    log.first = log.records.size() - 3;  // with the last messages alone
    const std::vector<std::string> warned = receive();
    ASSERT_EQ(warned.size(), 2U) << "the layout of the other table is gone too";
    EXPECT_NE(warned[0].find("up to the uniform id 4"), std::string::npos) << warned[0];
    EXPECT_NE(warned[0].find("goes on with 7"), std::string::npos) << warned[0];
    EXPECT_EQ(receive(), warned) << "it is told again as long as it is so";
}

TEST_F(RoundTrip, ForeignRecordsAreToldAndLeftOut) {
    store("orders", 1, 3);
    ship();
    log.records.push_back(
        {.sequence = log.records.size() + 1, .subject = "ENG1.orders.APP_TO.D", .headers = {}, .payload = {}});
    store("orders", 4, 5);
    const std::vector<std::string> refused = ship();
    ASSERT_EQ(refused.size(), 1U) << "its newest record tells no place";
    const std::vector<std::string> warned = receive();
    EXPECT_EQ(warned.size(), 1U);
}

TEST_F(RoundTrip, AnAppendedRecordWithADamagedFrameEndsItsTableAlone) {
    store("orders", 1, 3);
    store("reports", 4, 5);
    ship();
    for (Stored& record : log.records) {
        if (record.subject == "ENG1.orders.APP_TO.D") {
            record.payload[0] ^= std::byte{1};
        }
    }
    EXPECT_EQ(receive().size(), 1U);
    EXPECT_EQ(copyFault("reports"), "");
}

TEST_F(RoundTrip, AFolderIsOfOneStream) {
    store("orders", 1, 3);
    ship();
    receive();
    MemoryStream other(log, "ENG2");
    Receiver receiver(other, {.folder = copies, .once = true, .isStopped = {}}, {});
    EXPECT_THROW(receiver.run(), Refused);
}

class RandomShipping : public RoundTrip, public ::testing::WithParamInterface<int> {};

// Messages come to tables at random, tables are emptied, what is published fails, and the receiver is ended in the
// middle: by its folder as it stood at some moment.
TEST_P(RandomShipping, EndsWithTheSameTables) {
    const std::uint32_t begun = internal::test::testSeed() + static_cast<std::uint32_t>(GetParam());
    SCOPED_TRACE(std::string(internal::test::TEST_SEED_VARIABLE) + "=" +
                 std::to_string(begun - static_cast<std::uint32_t>(GetParam())));
    std::mt19937 chance(begun);
    seed = begun;
    percent = 3;
    limit = 120;
    std::int32_t next = 1;
    for (int round = 0; round < 12; ++round) {
        for (const char* table : {"orders", "reports"}) {
            const auto count = static_cast<std::int32_t>(chance() % 7);
            if (count > 0) {
                store(table, next, next + count - 1);
                next += count;
            }
        }
        if (chance() % 5 == 0) {
            Writer writer = Writer::openOrCreate(source("orders"), layout);
            writer.drop();
            writer.close();
        }
        ship({.allowGap = true});
        if (chance() % 3 == 0) {
            const auto backup = directory.file("backup");
            std::filesystem::remove_all(backup);
            std::filesystem::create_directories(copies);
            std::filesystem::copy(copies, backup);
            receive();
            if (chance() % 2 == 0) {  // the copies go back by some rounds, or by the note alone
                std::filesystem::remove_all(copies);
                std::filesystem::copy(backup, copies);
            } else if (std::filesystem::exists(std::filesystem::path(backup) / ".tabulo-receive")) {
                std::filesystem::copy_file(std::filesystem::path(backup) / ".tabulo-receive",
                                           copies / ".tabulo-receive",
                                           std::filesystem::copy_options::overwrite_existing);
            }
        }
    }
    EXPECT_EQ(streamFault(), "");
    const std::vector<std::string> warned = receive();
    EXPECT_EQ(warned, std::vector<std::string>());
    for (const auto& entry : std::filesystem::directory_iterator(sources)) {
        EXPECT_EQ(copyFault(entry.path().filename().string()), "") << entry.path().filename();
    }
}

INSTANTIATE_TEST_SUITE_P(Parts, RandomShipping, ::testing::Range(0, 20));

}  // namespace

}  // namespace tabulo::shipping::test
