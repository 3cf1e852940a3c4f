// What becomes of records that are on their way while another shipper begins.
#include "tests/adapters/nats/shipping_test.h"

namespace tabulo::shipping::test {

namespace {

using Fence = ShippingTest;

TEST_F(Fence, ASecondShipperEndsAndNamesTheFirst) {
    store("orders", 1, 3);
    MemoryStream stream(log);
    ShipOptions options{.tables = {source("orders")}, .once = true};
    const Words none{[](const auto&) {}, [](const auto&) {}};
    Shipper first(stream, options, none);
    int published = 0;
    log.beforePublish = [&] {
        published += 1;
        if (published == 3) {  // in the middle of the first
            MemoryStream other(log);
            EXPECT_THROW(Shipper(other, options, none).run(), Superseded);
        } else if (published == 4) {
            options.takeover = true;
            MemoryStream other(log);
            Shipper(other, options, none).run();
        }
    };
    EXPECT_THROW(first.run(), Unreachable) << "its records were taken behind those of another one";
    EXPECT_THROW(first.run(), Superseded);
    EXPECT_EQ(streamFault(), "");
    EXPECT_EQ(receive(), std::vector<std::string>());
    EXPECT_EQ(copyFault("orders"), "");
}

TEST_F(Fence, WhatIsOnItsWayWhenAnotherShipperBeginsIsLeftOutByEverybody) {
    store("orders", 1, 12);
    const Words none{[](const auto&) {}, [](const auto&) {}};
    // Of one that is killed with ten messages on their way, of which the stream has none yet.
    ShipOptions options{.tables = {source("orders")}, .once = true};
    {
        MemoryStream stream(log);
        Shipper killed(stream, options, none);
        int published = 0;
        log.beforePublish = [&] {
            published += 1;
            if (published == 13) {
                throw Unreachable("killed");
            }
        };
        EXPECT_THROW(killed.run(), Unreachable);
    }
    log.beforePublish = {};
    log.answers.clear();
    ASSERT_GE(log.late.size(), 10U);
    // The first record of the fence comes in front of them: one is refused, and the others could be taken.
    log.beforeAppended = [&](std::uint64_t number) {
        // What it knows of the fence it has at first from the stream, then from its note alone.
        for (int part = 0; number == 1 && part < 2; ++part) {
            log.takeLate(3);
            said.clear();
            EXPECT_EQ(receive(), std::vector<std::string>());
            EXPECT_TRUE(said.empty()) << "what comes behind a fence was taken: " << said[0];
        }
    };
    EXPECT_EQ(ship(), std::vector<std::string>());
    log.beforeAppended = {};
    EXPECT_EQ(log.countOf("ENG1.orders.APP_TO."), 12U);
    EXPECT_GT(log.countOf(""), log.countOf("ENG1.")) << "nothing came behind the fence: the test shows nothing";
    EXPECT_EQ(streamFault(), "") << "something that came behind the fence stands there still";
    EXPECT_EQ(receive(), std::vector<std::string>());
    EXPECT_EQ(copyFault("orders"), "");
}

TEST_F(Fence, AnotherShippersRecordsInTheMiddleOfAFenceCountBehindItsOwnerRecord) {
    store("orders", 1, 3);
    ship();
    store("orders", 4, 6);
    // The newest owner seems to have been killed, so that the next one needs a fence.
    const Owner killed = Owner::here();
    const std::string text = killed.text();
    MemoryStream(log).append({"ENG1.=owner", {}, bytesOf(text)}, 1);
    log.beforeAppended = [&](std::uint64_t number) {
        if (number == 7) {
            log.beforeAppended = {};
            ship();
        }
    };
    EXPECT_EQ(ship(), std::vector<std::string>());
    EXPECT_EQ(log.countOf("ENG1.orders.APP_TO."), 6U);
    EXPECT_EQ(log.countOf(""), log.countOf("ENG1.")) << "what another shipper had published was deleted";
    EXPECT_EQ(receive(), std::vector<std::string>());
    EXPECT_EQ(copyFault("orders"), "");
}

TEST_F(Fence, AnOwnerOfWhomTheStreamTellsNothingAnyMoreIsTakenForKilled) {
    store("orders", 1, 3);
    ship();
    log.records[0].subject.clear();  // by a limit of the stream
    log.records.back().subject.clear();
    ship();
    EXPECT_EQ(log.countOf("ENG1.=fence"), LogStream::MOST_IN_FLIGHT);
}

TEST_F(Fence, AShipperThatHasEndedWellLeavesNothingToFenceOff) {
    store("orders", 1, 3);
    ship();
    store("orders", 4, 5);
    ship();
    EXPECT_EQ(log.countOf("ENG1.=fence"), 0U);
    EXPECT_EQ(log.countOf("ENG1.=owner"), 4U) << "two that begin, and two that end";
    EXPECT_TRUE(said.empty()) << said[0];
}

}  // namespace

}  // namespace tabulo::shipping::test
