// What our store and log do beyond what every store does.
#include <sys/resource.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <map>
#include <random>
#include <set>
#include <thread>

#include "tests/adapters/quickfix/store_test.h"

namespace tabulo {
namespace quickfix {
namespace test {

namespace {

std::string textOf(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

void write(const std::string& path, const std::string& bytes) {
    std::ofstream(path, std::ios::binary) << bytes;
}

// Writes beyond this many bytes of a file fail as on a full disk, as long as the object lives.
class FullDisk {
  public:
    explicit FullDisk(rlim_t bytes) {
        std::signal(SIGXFSZ, SIG_IGN);
        ::getrlimit(RLIMIT_FSIZE, &before_);
        const rlimit limit = {bytes, before_.rlim_max};
        ::setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~FullDisk() { ::setrlimit(RLIMIT_FSIZE, &before_); }

  private:
    rlimit before_;
};

// A log that remembers what it was given.
class Remembering : public FIX::Log, public FIX::LogFactory {
  public:
    FIX::Log* create() override { return this; }
    FIX::Log* create(const FIX::SessionID&) override { return this; }
    void destroy(FIX::Log*) override { lines.push_back("destroyed"); }
    void clear() override { lines.push_back("clear"); }
    void backup() override { lines.push_back("backup"); }
    void onIncoming(const std::string& wire) override { lines.push_back("in " + std::to_string(wire.size())); }
    void onOutgoing(const std::string& wire) override { lines.push_back("out " + std::to_string(wire.size())); }
    void onEvent(const std::string& text) override { lines.push_back("event " + text); }

    Texts lines;
};

class TabuloStore : public ::testing::Test {
  protected:
    TabuloStore() { open(); }
    ~TabuloStore() override { close(); }

    void open(const std::string& lines = "") {
        close();
        factory.reset(new TabuloStoreFactory(settingsWith(folder.path(), lines)));
        logs.reset(new TabuloLogFactory(*factory, &others));
        store = factory->create(session());
        log = logs->create(session());
    }
    void close() {
        if (store != nullptr) {
            logs->destroy(log);
            factory->destroy(store);
        }
        store = nullptr;
    }
    Texts get(int first, int last) {
        Texts found;
        store->get(first, last, found);
        return found;
    }
    // The store of a process that was killed now: it is opened on what the files hold.
    std::unique_ptr<OpenStore> afterAKill() {
        write(copy.file("FIX.4.4-CLIENT-EXCHANGE"), textOf(table));
        write(copy.file("FIX.4.4-CLIENT-EXCHANGE.session"), textOf(table + ".session"));
        return std::unique_ptr<OpenStore>(new OpenStore(
            std::unique_ptr<FIX::MessageStoreFactory>(new TabuloStoreFactory(settingsWith(copy.path())))));
    }

    const Folder folder;
    const Folder copy;
    const std::string table = folder.file("FIX.4.4-CLIENT-EXCHANGE");
    Remembering others;
    std::unique_ptr<TabuloStoreFactory> factory;
    std::unique_ptr<TabuloLogFactory> logs;
    FIX::MessageStore* store = nullptr;
    FIX::Log* log = nullptr;
};

TEST_F(TabuloStore, KeepsWhatWasSentReceivedAndSentAgainWithClassTypeNumberAndFields) {
    const std::string logon = wireOf("A", 1);
    store->set(1, logon);
    log->onOutgoing(logon);
    log->onIncoming(wireOf("A", 1));
    store->incrNextTargetMsgSeqNum();
    store->set(2, order(2));
    log->onOutgoing(order(2));
    log->onIncoming(wireOf("8", 3, "11=ORDER-2|37=7|"));
    log->onIncoming(wireOf("2", 2, "7=1|16=0|"));
    log->onOutgoing(wireOf("D", 2, "43=Y|11=ORDER-2|"));
    log->onOutgoing(wireOf("4", 3, "43=Y|123=Y|36=5|"));
    EXPECT_EQ(storedIn(table),
              Texts({"ADMIN_TO A 1", "ADMIN_FROM A 1", "APP_TO D 2 ORDER-2 MSFT", "APP_FROM 8 3 ORDER-2 7 out",
                     "ADMIN_FROM 2 2", "RESENT D 2 ORDER-2 dup", "RESENT 4 3 dup"}));
    EXPECT_EQ(get(1, 9), Texts({logon, order(2)})) << "only what was set is given";
}

TEST_F(TabuloStore, TheSameTextIsSentAgainWhenItComesASecondTime) {
    store->set(1, order(1));
    log->onOutgoing(order(1));
    log->onOutgoing(order(1));
    EXPECT_EQ(storedIn(table), Texts({"APP_TO D 1 ORDER-1 MSFT", "RESENT D 1 ORDER-1 MSFT"}));
}

TEST_F(TabuloStore, HeartbeatsThatAreReceivedAreKeptWhenThatIsAsked) {
    log->onIncoming(wireOf("0", 1));
    EXPECT_EQ(storedIn(table), Texts());
    open("TabuloLogHeartbeats=Y\n");
    log->onIncoming(wireOf("0", 1));
    store->set(1, wireOf("0", 1));
    EXPECT_EQ(storedIn(table), Texts({"ADMIN_FROM 0 1", "ADMIN_TO 0 1"}));
}

TEST_F(TabuloStore, KeepsTheBytesOfWhatIsNoMessage) {
    for (const std::string& garbage : {std::string("GET / HTTP/1.1\r\n"), std::string(1, '\0'), std::string(),
                                       wireOf("TOOLONG", 1), std::string("35=\x01")}) {
        log->onIncoming(garbage);
    }
    EXPECT_EQ(storedIn(table),
              Texts({"ADMIN_FROM  0", "ADMIN_FROM  0", "ADMIN_FROM  0", "ADMIN_FROM  1", "ADMIN_FROM  0"}));
}

TEST_F(TabuloStore, KeepsAZeroByteInTheMiddleOfAMessage) {
    const std::string wire = wireOf("D", 1, "95=4|96=a" + std::string(1, '\0') + "bc|");
    store->set(1, wire);
    EXPECT_EQ(get(1, 1), Texts({wire}));
}

TEST_F(TabuloStore, HandsEverythingOnToTheOtherLog) {
    others.lines.clear();
    log->onEvent("Created session");
    log->clear();
    log->backup();
    log->onIncoming("12345");
    log->onOutgoing("123");
    FIX::Log* const global = logs->create();
    global->onIncoming("1");
    logs->destroy(global);
    EXPECT_EQ(others.lines, Texts({"event Created session", "clear", "backup", "in 5", "out 3", "in 1", "destroyed"}));
    EXPECT_EQ(storedIn(table).size(), 2U) << "the log of no session has no table";
}

TEST_F(TabuloStore, AKillBetweenStoringAndCountingLeavesTheNumberBehindTheStoredOne) {
    store->set(1, order(1));
    EXPECT_EQ((*afterAKill())->getNextSenderMsgSeqNum(), 2);
    store->incrNextSenderMsgSeqNum();
    EXPECT_EQ((*afterAKill())->getNextSenderMsgSeqNum(), 2);
    store->set(2, order(2));
    log->onIncoming(wireOf("8", 9));
    store->incrNextTargetMsgSeqNum();
    const auto again = afterAKill();
    EXPECT_EQ((*again)->getNextSenderMsgSeqNum(), 3) << "counting a received message hid what was stored before";
    EXPECT_EQ((*again)->getNextTargetMsgSeqNum(), 2);
    EXPECT_EQ(again->get(1, 9), Texts({order(1), order(2)}));
}

TEST_F(TabuloStore, WhatWasLoweredOrResetStaysSoAfterAKill) {
    for (int number = 1; number <= 5; ++number) {
        store->set(number, order(number));
        store->incrNextSenderMsgSeqNum();
    }
    store->setNextSenderMsgSeqNum(2);
    EXPECT_EQ((*afterAKill())->getNextSenderMsgSeqNum(), 2);
    store->set(2, order(2, "ANOTHER"));
    {
        const auto lowered = afterAKill();
        EXPECT_EQ((*lowered)->getNextSenderMsgSeqNum(), 3);
        EXPECT_EQ(lowered->get(1, 9), Texts({order(1), order(2, "ANOTHER"), order(3), order(4), order(5)}));
    }
    store->reset();
    const auto reset = afterAKill();
    EXPECT_EQ((*reset)->getNextSenderMsgSeqNum(), 1);
    EXPECT_EQ(reset->get(1, 9), Texts());
    EXPECT_EQ(storedIn(table).size(), 6U) << "a reset keeps the history";
}

TEST_F(TabuloStore, AFailedStoreSaysWhichFileAndWhyAndGoesOnWhenThereIsSpace) {
    store->set(1, order(1));
    store->incrNextSenderMsgSeqNum();
    {
        const FullDisk full(textOf(table).size() + 5);
        try {
            store->set(2, order(2));
            FAIL() << "a message that is not in the file counts as stored";
        } catch (const FIX::IOException& error) {
            EXPECT_NE(std::string(error.what()).find(table), std::string::npos) << error.what();
            EXPECT_NE(std::string(error.what()).find("large"), std::string::npos) << error.what();
        }
        EXPECT_THROW(store->set(2, order(2)), FIX::IOException);
    }
    store->set(2, order(2));
    store->incrNextSenderMsgSeqNum();
    EXPECT_EQ(get(1, 9), Texts({order(1), order(2)}));
    EXPECT_EQ(store->getNextSenderMsgSeqNum(), 3);
}

TEST_F(TabuloStore, AReceivedMessageIsNotCountedBeforeItIsStored) {
    others.lines.clear();
    {
        const FullDisk full(textOf(table).size() + 5);
        log->onIncoming(order(1));
        ASSERT_EQ(others.lines.size(), 2U);
        EXPECT_EQ(others.lines[0].find("event a received message could not be stored"), 0U) << others.lines[0];
        EXPECT_THROW(store->set(1, order(1)), FIX::IOException);
        EXPECT_THROW(store->incrNextTargetMsgSeqNum(), FIX::IOException)
            << "a message of another thread has used the failure up";
        log->onIncoming(order(2));  // to a table that has failed and is opened again
        EXPECT_THROW(store->incrNextTargetMsgSeqNum(), FIX::IOException);
    }
    EXPECT_EQ(store->getNextTargetMsgSeqNum(), 1);
    store->incrNextTargetMsgSeqNum();
    EXPECT_EQ(storedIn(table), Texts({"APP_FROM D 1 ORDER-1 MSFT", "APP_FROM D 2 ORDER-2 MSFT out"}))
        << "what is counted is stored";
    EXPECT_EQ(store->getNextTargetMsgSeqNum(), 2);
}

TEST_F(TabuloStore, AFailedReceiveFailsTheNextOperationAlsoWhenThereIsSpaceAgainAndNoFurtherOne) {
    {
        const FullDisk full(textOf(table).size() + 5);
        log->onIncoming(wireOf("5", 99));  // which nothing is counted for
    }
    EXPECT_THROW(store->set(1, wireOf("A", 1)), FIX::IOException);
    store->set(1, wireOf("A", 1));
    EXPECT_EQ(storedIn(table), Texts({"ADMIN_FROM 5 99 out", "ADMIN_TO A 1"}));
}

TEST_F(TabuloStore, AKillInTheMiddleOfARollLeavesTheNewSeriesWithItsNumbers) {
    store->set(1, order(1));
    store->incrNextSenderMsgSeqNum();
    store->setNextTargetMsgSeqNum(5);
    store->reset();
    // As it is behind the reset's write, when the table was renamed and nothing else has been done.
    write(copy.file("FIX.4.4-CLIENT-EXCHANGE.session"), textOf(table + ".session"));
    const auto opened = [&] {
        return std::unique_ptr<OpenStore>(new OpenStore(
            std::unique_ptr<FIX::MessageStoreFactory>(new TabuloStoreFactory(settingsWith(copy.path())))));
    };
    {
        const auto after = opened();
        EXPECT_EQ((*after)->getNextSenderMsgSeqNum(), 1);
        EXPECT_EQ((*after)->getNextTargetMsgSeqNum(), 1);
        for (int number = 1; number <= 3; ++number) {  // beyond the place that was recorded; and none is counted
            (*after)->set(number, order(number, "NEW"));
        }
    }
    const auto again = opened();
    EXPECT_EQ((*again)->getNextSenderMsgSeqNum(), 4) << "the number of a stored message is given out again";
    EXPECT_EQ(again->get(1, 9), Texts({order(1, "NEW"), order(2, "NEW"), order(3, "NEW")}));
}

TEST_F(TabuloStore, ATableIsOfOneFactoryAtATime) {
    TabuloStoreFactory other(settingsWith(folder.path()));
    EXPECT_THROW(other.create(session()), FIX::ConfigError);
    close();
    other.destroy(other.create(session()));
}

TEST_F(TabuloStore, SettingsThatMeanNothingAreRefusedWithWhatIsAllowed) {
    close();
    for (const char* line : {"TabuloStringFields=Nonsense\n", "TabuloStringFields=11,11\n", "TabuloNumericFields=11\n",
                             "TabuloLogHeartbeats=maybe\n", "TabuloSync=sometimes\n", "TabuloSync=every 0\n",
                             "TabuloRoll=weekly\n", "TabuloRoll=keep -1\n", "TabuloStringFields=11,,55\n"}) {
        TabuloStoreFactory other(settingsWith(folder.path(), line));
        try {
            other.create(session());
            ADD_FAILURE() << line << " was taken";
        } catch (const FIX::ConfigError& error) {
            const std::string name = std::string(line).substr(0, std::string(line).find('='));
            EXPECT_NE(std::string(error.what()).find(name), std::string::npos) << error.what();
        }
    }
}

TEST_F(TabuloStore, FieldsAreNamedByNumberOrByName) {
    const Folder another;
    TabuloStoreFactory other(
        settingsWith(another.path(), "TabuloStringFields=Symbol, 20001\nTabuloNumericFields=OrderQty\n"));
    FIX::MessageStore* const made = other.create(session());
    made->set(1, wireOf("D", 1, "11=A|55=IBM|20001=mine|38=5|"));
    other.destroy(made);
    EXPECT_EQ(storedIn(another.file("FIX.4.4-CLIENT-EXCHANGE")), Texts({"APP_TO D 1 IBM mine"}));
}

TEST_F(TabuloStore, ARolledTableIsPutAsideAndTheNewestStay) {
    open("TabuloRoll=keep 2\n");
    for (int round = 1; round <= 4; ++round) {
        store->set(1, order(1, "ROUND-" + std::to_string(round)));
        store->incrNextSenderMsgSeqNum();
        store->reset();
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    EXPECT_EQ(storedIn(table), Texts());
    FILE* const list = ::popen(("ls " + table + ".2*").c_str(), "r");
    Texts names;
    for (char line[300]; std::fgets(line, sizeof line, list) != nullptr;) {
        names.emplace_back(line, std::string(line).size() - 1);
    }
    ::pclose(list);
    ASSERT_EQ(names.size(), 2U);
    EXPECT_EQ(storedIn(names[0]), Texts({"APP_TO D 1 ROUND-3 MSFT"}));
    EXPECT_EQ(storedIn(names[1]), Texts({"APP_TO D 1 ROUND-4 MSFT"}));
    store->set(1, order(1));
    open("TabuloRoll=keep 2\n");
    EXPECT_EQ(get(1, 1), Texts({order(1)}));
    EXPECT_EQ(store->getNextSenderMsgSeqNum(), 2);
}

TEST_F(TabuloStore, SessionsInSeveralThreadsShareOneSequenceOfIds) {
    const std::string lines = "[SESSION]\nBeginString=FIX.4.4\nSenderCompID=CLIENT\nTargetCompID=";
    const Folder shared;
    std::istringstream text("[DEFAULT]\nConnectionType=initiator\nTabuloStorePath=" + shared.path() + "\n" + lines +
                            "A\n" + lines + "B\n" + lines + "C\n");
    TabuloStoreFactory several{FIX::SessionSettings(text)};
    std::vector<std::thread> threads;
    for (const char* target : {"A", "B", "C"}) {
        threads.emplace_back([&several, target] {
            FIX::MessageStore* const made = several.create(FIX::SessionID("FIX.4.4", "CLIENT", target));
            for (int number = 1; number <= 500; ++number) {
                made->set(number, order(number));
                made->incrNextSenderMsgSeqNum();
            }
            several.destroy(made);
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    std::set<int> all;
    for (const char* target : {"A", "B", "C"}) {
        const std::vector<int> ids = uniformIdsIn(shared.file(std::string("FIX.4.4-CLIENT-") + target));
        EXPECT_EQ(ids.size(), 500U);
        EXPECT_TRUE(std::is_sorted(ids.begin(), ids.end()));
        all.insert(ids.begin(), ids.end());
    }
    EXPECT_EQ(all.size(), 1500U) << "two messages have one id";
}

TEST_F(TabuloStore, GivesWhatAModelOfNumbersGives) {
    const char* const given = std::getenv("TABULO_TEST_SEED");
    const unsigned seed =
        given == nullptr ? std::random_device()() : static_cast<unsigned>(std::strtoul(given, nullptr, 10));
    SCOPED_TRACE("TABULO_TEST_SEED=" + std::to_string(seed));
    std::mt19937 chance(seed);
    std::map<int, std::string> model;
    int text = 0;
    for (int step = 0; step < 4000; ++step) {
        const unsigned long what = chance() % 100;
        const int number = static_cast<int>(chance() % 300) + 1;
        if (what < 85) {
            model[number] = order(number, "TEXT-" + std::to_string(++text));
            store->set(number, model[number]);
        } else if (what < 90) {
            log->onIncoming(order(number));
        } else if (what < 99) {
            const int last = number + static_cast<int>(chance() % 50);
            Texts expected;
            for (auto each = model.lower_bound(number); each != model.end() && each->first <= last; ++each) {
                expected.push_back(each->second);
            }
            ASSERT_EQ(get(number, last), expected) << "from " << number << " to " << last << " in step " << step;
        } else if (chance() % 5 == 0) {
            store->reset();
            model.clear();
        } else {
            open();
        }
    }
}

}  // namespace

}  // namespace test
}  // namespace quickfix
}  // namespace tabulo
