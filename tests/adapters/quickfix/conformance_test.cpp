// What the engine's documents promise of any message store, asked of its own stores and of ours.
#include <ctime>
#include <thread>

#include "tests/adapters/quickfix/store_test.h"

namespace tabulo {
namespace quickfix {
namespace test {

namespace {

std::unique_ptr<FIX::MessageStoreFactory> memoryStore(const std::string&) {
    return std::unique_ptr<FIX::MessageStoreFactory>(new FIX::MemoryStoreFactory);
}

std::unique_ptr<FIX::MessageStoreFactory> fileStore(const std::string& folder) {
    return std::unique_ptr<FIX::MessageStoreFactory>(new FIX::FileStoreFactory(settingsWith(folder)));
}

std::unique_ptr<FIX::MessageStoreFactory> tabuloStore(const std::string& folder) {
    return std::unique_ptr<FIX::MessageStoreFactory>(new TabuloStoreFactory(settingsWith(folder)));
}

struct Kind {
    const char* name;
    std::unique_ptr<FIX::MessageStoreFactory> (*make)(const std::string& folder);
    bool keeps;    // what it has when it is opened again
    bool forgets;  // messages of before a reset: the file store throws when it is asked for one of them
};

void PrintTo(const Kind& kind, std::ostream* out) {
    *out << kind.name;
}

class StoreConformance : public ::testing::TestWithParam<Kind> {
  protected:
    std::unique_ptr<OpenStore> open() {
        return std::unique_ptr<OpenStore>(new OpenStore(GetParam().make(folder.path())));
    }
    const Folder folder;
};

TEST_P(StoreConformance, ANewStoreCountsFromOneAndHoldsNothing) {
    const auto store = open();
    EXPECT_EQ((*store)->getNextSenderMsgSeqNum(), 1);
    EXPECT_EQ((*store)->getNextTargetMsgSeqNum(), 1);
    EXPECT_EQ(store->get(1, 10), Texts());
}

TEST_P(StoreConformance, WhatWasSetIsGivenInTheOrderOfItsNumbers) {
    const auto store = open();
    for (int number = 1; number <= 5; ++number) {
        EXPECT_TRUE((*store)->set(number, order(number)));
    }
    EXPECT_EQ(store->get(1, 5), Texts({order(1), order(2), order(3), order(4), order(5)}));
    EXPECT_EQ(store->get(2, 3), Texts({order(2), order(3)}));
    EXPECT_EQ(store->get(5, 5), Texts({order(5)}));
    EXPECT_EQ(store->get(4, 2), Texts());
    EXPECT_EQ(store->get(6, 9), Texts());
    EXPECT_EQ(store->get(3, 9), Texts({order(3), order(4), order(5)}));
}

TEST_P(StoreConformance, GetReplacesWhatStoodInTheList) {
    const auto store = open();
    (*store)->set(1, order(1));
    Texts found = {"of before"};
    (*store)->get(1, 1, found);
    EXPECT_EQ(found, Texts({order(1)}));
}

TEST_P(StoreConformance, AMissingNumberIsLeftOut) {
    const auto store = open();
    for (const int number : {1, 2, 5, 6}) {
        (*store)->set(number, order(number));
    }
    EXPECT_EQ(store->get(1, 6), Texts({order(1), order(2), order(5), order(6)}));
    EXPECT_EQ(store->get(2, 5), Texts({order(2), order(5)}));
}

TEST_P(StoreConformance, ANumberThatIsSetAgainHasItsNewestMessage) {
    const auto store = open();
    for (const int number : {1, 2, 3, 2, 4, 1}) {
        EXPECT_TRUE((*store)->set(number, order(number, "FIRST")));
    }
    (*store)->set(2, order(2, "SECOND"));
    (*store)->set(3, order(3, "SECOND"));
    (*store)->set(3, order(3, "THIRD"));
    EXPECT_EQ(store->get(1, 4), Texts({order(1, "FIRST"), order(2, "SECOND"), order(3, "THIRD"), order(4, "FIRST")}));
    EXPECT_EQ(store->get(3, 3), Texts({order(3, "THIRD")}));
}

TEST_P(StoreConformance, RangesWithoutNumbersGiveNothing) {
    const auto store = open();
    for (int number = 1; number <= 3; ++number) {
        (*store)->set(number, order(number));
    }
    EXPECT_EQ(store->get(-5, -1), Texts());
    EXPECT_EQ(store->get(-5, 0), Texts());
    EXPECT_EQ(store->get(0, 0), Texts());
    EXPECT_EQ(store->get(3, 1), Texts());
    EXPECT_EQ(store->get(4, 0), Texts());
    EXPECT_EQ(store->get(4, 100000), Texts());
}

TEST_P(StoreConformance, NumbersAreSetAndCounted) {
    const auto store = open();
    (*store)->incrNextSenderMsgSeqNum();
    (*store)->incrNextSenderMsgSeqNum();
    (*store)->incrNextTargetMsgSeqNum();
    EXPECT_EQ((*store)->getNextSenderMsgSeqNum(), 3);
    EXPECT_EQ((*store)->getNextTargetMsgSeqNum(), 2);
    (*store)->setNextSenderMsgSeqNum(1000);
    (*store)->setNextTargetMsgSeqNum(7);
    EXPECT_EQ((*store)->getNextSenderMsgSeqNum(), 1000);
    EXPECT_EQ((*store)->getNextTargetMsgSeqNum(), 7);
    (*store)->setNextSenderMsgSeqNum(10);
    (*store)->incrNextSenderMsgSeqNum();
    EXPECT_EQ((*store)->getNextSenderMsgSeqNum(), 11);
}

TEST_P(StoreConformance, AResetBeginsAnewWithoutMessages) {
    const auto store = open();
    (*store)->set(1, order(1));
    (*store)->set(2, order(2));
    (*store)->setNextSenderMsgSeqNum(3);
    (*store)->setNextTargetMsgSeqNum(9);
    (*store)->reset();
    EXPECT_EQ((*store)->getNextSenderMsgSeqNum(), 1);
    EXPECT_EQ((*store)->getNextTargetMsgSeqNum(), 1);
    if (GetParam().forgets) {
        EXPECT_EQ(store->get(1, 9), Texts());
    }
    (*store)->set(1, order(1, "ANOTHER"));
    EXPECT_EQ(store->get(1, 1), Texts({order(1, "ANOTHER")}));
}

TEST_P(StoreConformance, TheCreationTimeIsThatOfTheLastReset) {
    const auto store = open();
    const FIX::UtcTimeStamp first = (*store)->getCreationTime();
    const FIX::UtcTimeStamp now;
    EXPECT_LE(std::abs(now - first), 2);
    std::this_thread::sleep_for(std::chrono::milliseconds(1100));
    EXPECT_EQ((*store)->getCreationTime(), first);
    (*store)->reset();
    EXPECT_GE((*store)->getCreationTime() - first, 1);
}

TEST_P(StoreConformance, ARefreshKeepsWhatIsStored) {
    const auto store = open();
    (*store)->set(1, order(1));
    (*store)->setNextSenderMsgSeqNum(2);
    (*store)->setNextTargetMsgSeqNum(5);
    (*store)->refresh();
    EXPECT_EQ((*store)->getNextSenderMsgSeqNum(), 2);
    EXPECT_EQ((*store)->getNextTargetMsgSeqNum(), 5);
    EXPECT_EQ(store->get(1, 1), Texts({order(1)}));
}

TEST_P(StoreConformance, LargeAndBinaryMessagesComeBackAsTheyWere) {
    const auto store = open();
    const std::string binary = wireOf("D", 1, "95=4|96=a\xff\x80z|");
    const std::string large = wireOf("B", 2, "58=" + std::string(300000, 'x') + "|");
    (*store)->set(1, binary);
    (*store)->set(2, large);
    EXPECT_EQ(store->get(1, 2), Texts({binary, large}));
}

TEST_P(StoreConformance, IsTheSameWhenItIsOpenedAgain) {
    if (!GetParam().keeps) {
        return;
    }
    FIX::UtcTimeStamp created;
    {
        const auto store = open();
        created = (*store)->getCreationTime();
        for (int number = 1; number <= 3; ++number) {
            (*store)->set(number, order(number));
            (*store)->incrNextSenderMsgSeqNum();
        }
        (*store)->setNextTargetMsgSeqNum(8);
    }
    const auto store = open();
    EXPECT_EQ((*store)->getNextSenderMsgSeqNum(), 4);
    EXPECT_EQ((*store)->getNextTargetMsgSeqNum(), 8);
    EXPECT_EQ(store->get(1, 9), Texts({order(1), order(2), order(3)}));
    EXPECT_LE(std::abs((*store)->getCreationTime() - created), 1);
}

TEST_P(StoreConformance, StaysResetWhenItIsOpenedAgain) {
    if (!GetParam().keeps) {
        return;
    }
    {
        const auto store = open();
        (*store)->set(1, order(1));
        (*store)->incrNextSenderMsgSeqNum();
        (*store)->reset();
    }
    const auto store = open();
    EXPECT_EQ((*store)->getNextSenderMsgSeqNum(), 1);
    EXPECT_EQ(store->get(1, 9), Texts());
}

INSTANTIATE_TEST_SUITE_P(Stores, StoreConformance,
                         ::testing::Values(Kind{"memory", memoryStore, false, true},
                                           Kind{"file", fileStore, true, false},
                                           Kind{"tabulo", tabuloStore, true, true}),
                         [](const ::testing::TestParamInfo<Kind>& kind) { return std::string(kind.param.name); });

}  // namespace

}  // namespace test
}  // namespace quickfix
}  // namespace tabulo
