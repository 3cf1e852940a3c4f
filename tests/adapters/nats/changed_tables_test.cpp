// Tables that become others while they are shipped, or that cannot be shipped beside others that can.
#include <filesystem>
#include <fstream>

#include "tabulo/session_info.h"
#include "tabulo/writer.h"
#include "tests/adapters/nats/shipping_test.h"

namespace tabulo::shipping::test {

namespace {

using Lines = std::vector<std::string>;

class ChangedTables : public ShippingTest {
  protected:
    // Ships these tables for so many looks, and does something before some of them; what was warned about.
    Lines shipFor(int looks, ShipOptions options, const std::function<void(int)>& before) {
        Lines warned;
        MemoryStream stream(log);
        int look = 0;
        options.isStopped = [&] {
            look += 1;
            before(look);
            return look > looks;
        };
        Shipper(stream, options, {[](const auto&) {}, [&](const std::string& line) { warned.push_back(line); }}).run();
        return warned;
    }
    void storeSized(bool isEmptied, std::int32_t first, std::int32_t last, std::size_t size) const {
        const bool isNew = !std::filesystem::exists(source("orders"));
        Writer writer = isNew ? Writer::create(source("orders"), layout) : Writer::open(source("orders"));
        if (isEmptied) {
            writer.drop();
        }
        const std::string wire(size, isEmptied ? 'v' : 'w');
        for (std::int32_t id = first; id <= last; ++id) {
            writer.append({.uniformId = id, .type = "D", .wire = wire});
        }
        writer.close();
    }
};

// The message behind the shipper's place begins there, or in the midst of another one.
TEST_F(ChangedTables, OneThatIsEmptiedAndFilledToAboutTheSamePlaceIsShippedAtOnce) {
    for (const std::size_t size : {40U, 41U, 44U, 56U}) {
        SCOPED_TRACE("messages of " + std::to_string(size) + " bytes");
        std::filesystem::remove(source("orders"));
        log = {};
        storeSized(false, 1, 3, 40);
        std::size_t shippedBeforeMore = 0;
        const Lines warned = shipFor(40, {.tables = {source("orders")}}, [&](int look) {
            if (look == 5) {
                storeSized(true, 21, 23, size);
            } else if (look == 30) {
                shippedBeforeMore = log.countOf("ENG1.orders.APP_TO.") + log.countOf("ENG1.orders.=none.");
                storeSized(false, 24, 24, size);
            }
        });
        EXPECT_EQ(warned, Lines());
        EXPECT_EQ(shippedBeforeMore, 6U) << "whether or not anything more is appended";
        std::filesystem::remove_all(copies);
        EXPECT_EQ(receive(), Lines());
        EXPECT_EQ(copyFault("orders"), "");
    }
}

TEST_F(ChangedTables, OneThatIsEmptiedAndFilledToTheSamePlaceIsShippedBeforeTheValuesThatCountIt) {
    store("orders", 11, 13);
    const std::vector<std::int32_t> tags = {1};
    SessionInfo session = SessionInfo::create(source("session"), tags);
    session.write(1, 13);
    static_cast<void>(shipFor(40, {.tables = {source("orders"), source("session")}}, [&](int look) {
        if (look == 10) {
            Writer writer = Writer::open(source("orders"));
            writer.drop();
            writer.close();
            store("orders", 21, 23);
            session.write(1, 23);
        }
    }));
    std::size_t messages = 0;
    std::size_t values = 0;
    for (const Stored& stored : log.records) {
        messages += stored.subject.starts_with("ENG1.orders.APP_TO.") ? 1U : 0U;
        if (stored.subject == "ENG1.session.=session") {
            values += 1;
            EXPECT_EQ(messages, 3 * values) << "in front of values number " << values;
        }
    }
    EXPECT_EQ(values, 2U);
}

TEST_F(ChangedTables, ANewOneThatIsStillBeingMadeIsShippedOnceItIs) {
    store("orders", 1, 3);
    std::ofstream(source("reports")).flush();  // it is there, and has no header yet
    bool isGiven = false;
    ShipOptions options{.tables = {source("orders")}};
    options.newTables = [&]() -> std::vector<std::filesystem::path> {  // each one is given once
        return std::exchange(isGiven, true) ? std::vector<std::filesystem::path>() : std::vector{source("reports")};
    };
    const Lines warned = shipFor(70, options, [&](int look) {
        if (look == 15) {
            EXPECT_TRUE(isGiven);
            std::filesystem::remove(source("reports"));
            store("reports", 4, 6);
        }
    });
    EXPECT_EQ(warned, Lines());
    EXPECT_EQ(log.countOf("ENG1.reports.APP_TO."), 3U);
}

TEST_F(ChangedTables, AForeignRecordOfAMissingOneLetsTheOthersBeShipped) {
    store("orders", 1, 3);
    store("reports", 4, 5);
    ship();
    log.records.push_back(
        {.sequence = log.records.size() + 1, .subject = "ENG1.reports.APP_TO.D", .headers = {}, .payload = {}});
    std::filesystem::remove(source("reports"));
    store("orders", 6, 6);
    EXPECT_EQ(ship().size(), 1U);
    EXPECT_EQ(log.countOf("ENG1.orders.APP_TO."), 4U);
}

TEST_F(ChangedTables, SessionValuesWaitForOneThatCannotBeReadAndNotForAFileThatIsNone) {
    store("orders", 1, 3);
    store("reports", 4, 6);
    const std::vector<std::int32_t> tags = {1};
    SessionInfo session = SessionInfo::create(source("session"), tags);
    session.write(1, 6);
    session.close();
    std::filesystem::copy(source("reports"), directory.file("kept"));
    {
        std::fstream file(source("reports"), std::ios::in | std::ios::out | std::ios::binary);
        file.seekp(20);
        file.put('x');
    }
    EXPECT_FALSE(ship().empty());
    EXPECT_EQ(log.countOf("ENG1.session."), 0U) << "the values count the messages 4 to 6, which the stream has not got";
    std::filesystem::copy(directory.file("kept"), source("reports"), std::filesystem::copy_options::overwrite_existing);
    std::ofstream(source("notes")) << std::string(10'000, 'n');
    EXPECT_FALSE(ship().empty());
    EXPECT_EQ(log.countOf("ENG1.session."), 1U);
}

// Whatever else is on a table's subjects is told, and no table is the worse for it.
TEST_F(ChangedTables, HostileRecordsAreToldAndNoMore) {
    store("orders", 1, 3);
    ship();
    const auto add = [&](const std::string& subject, const std::string& table, const std::string& payload) {
        Stored stored{.sequence = log.records.size() + 1, .subject = subject, .headers = {}, .payload = {}};
        if (!table.empty()) {
            stored.headers = {{"Tabulo-Table", table}, {"Tabulo-Place", "1/0"}};
        }
        const auto bytes = std::as_bytes(std::span(payload));
        stored.payload.assign(bytes.begin(), bytes.end());
        log.records.push_back(std::move(stored));
    };
    int n = 0;
    for (const char* payload : {"", "1 2\n1 3\n", "-1 5\n", "0 0\n", "2147483647 1\n"}) {
        const std::string name = "S" + std::to_string(++n);
        add("ENG1." + name + ".=session", name, payload);
    }
    for (const char* payload : {"texts a a\nnumbers\nmessagesPerBlock 64\nbuiltInTexts 8\n",
                                "texts\nnumbers\nmessagesPerBlock -1\nbuiltInTexts 8\n",
                                "texts\nnumbers\nmessagesPerBlock 2147483647\nbuiltInTexts 8\n",
                                "texts %\nnumbers %\nmessagesPerBlock 64\nbuiltInTexts 8\n"}) {
        const std::string name = "L" + std::to_string(++n);
        add("ENG1." + name + ".=layout", name, payload);
    }
    add("ENG1.=layout", "x", "");
    add("ENG1.=rewind", "", "");
    for (const bool isNoted : {true, false}) {
        if (!isNoted) {
            std::filesystem::remove(copies / ".tabulo-receive");
        }
        EXPECT_GE(receive().size(), 6U);
        EXPECT_EQ(copyFault("orders"), "");
    }
}

}  // namespace

}  // namespace tabulo::shipping::test
