// Which messages a watch delivers, in which order, and from where on.
#include <limits>

#include "tests/support/message_takers.h"
#include "tests/watcher/watched_tables.h"

namespace tabulo::internal::test {
namespace {

constexpr std::int32_t LOWEST = std::numeric_limits<std::int32_t>::min();
constexpr std::int32_t HIGHEST = std::numeric_limits<std::int32_t>::max();

class WatcherOrder : public WatcherTest {
  protected:
    // The deliveries of a watch over one table with messages of these ids.
    Events watchOne(const std::vector<std::int32_t>& ids, std::int32_t from) {
        const WatchedTablePtr table = filled("orders", ids);
        const WatcherPtr watcher = watch({table.get()});
        record.clear();
        EXPECT_EQ(record.run(watcher.get(), {from}), NO_ERROR);
        return record.deliveries();
    }
    // The deliveries of a watch over two tables.
    Events watchTwo(const std::vector<std::int32_t>& first, const std::vector<std::int32_t>& second,
                    const std::vector<std::int32_t>& from) {
        const WatchedTablePtr one = filled("one", first);
        const WatchedTablePtr two = filled("two", second);
        const WatcherPtr watcher = watch({one.get(), two.get()});
        record.clear();
        EXPECT_EQ(record.run(watcher.get(), from), NO_ERROR);
        return record.deliveries();
    }
};

TEST_F(WatcherOrder, TwoTablesAreDeliveredInTheOrderOfTheirUniformIds) {
    EXPECT_EQ(watchTwo({1, 3}, {2, 4}, {1, 1}), (Events{"1@0", "2@1", "3@0", "4@1"}));
    EXPECT_EQ(record.events.back(), "idle") << "behind the last message comes a call without one";
}

TEST_F(WatcherOrder, TheFirstTableWinsATie) {
    EXPECT_EQ(watchTwo({5}, {5, 6}, {1, 1}), (Events{"5@0", "5@1", "6@1"}));
    EXPECT_EQ(watchTwo({5, 6}, {5}, {1, 1}), (Events{"5@0", "5@1", "6@0"}));
}

TEST_F(WatcherOrder, IdsAreComparedWithTheirSign) {
    EXPECT_EQ(watchTwo({3}, {-7}, {LOWEST, LOWEST}), (Events{"-7@1", "3@0"}));
}

TEST_F(WatcherOrder, AGapIsAcceptedAndTheMessageBehindItDeliveredOnce) {
    EXPECT_EQ(watchOne({1, 2, 4}, 1), (Events{"1@0", "2@0", "4@0"}));
    EXPECT_EQ(record.events, (Events{"1@0", "2@0", "4@0", "idle"})) << "the pass that finds a gap calls nobody";
}

TEST_F(WatcherOrder, IdsThatFallAreDeliveredInTheOrderOfTheFile) {
    EXPECT_EQ(watchOne({5, 3, 4}, 1), (Events{"5@0", "3@0", "4@0"}));
}

TEST_F(WatcherOrder, TheLowestIdBehindTheHighestIsAGapLikeAnyOther) {
    EXPECT_EQ(watchOne({HIGHEST, LOWEST}, LOWEST),
              (Events{std::to_string(HIGHEST) + "@0", std::to_string(LOWEST) + "@0"}));
}

TEST_F(WatcherOrder, EachTableIsFollowedFromItsOwnStartingId) {
    EXPECT_EQ(watchTwo({1, 3, 5}, {2, 4, 6}, {3, 6}), (Events{"3@0", "5@0", "6@1"}));
}

TEST_F(WatcherOrder, AStartingIdThatNoMessageHasBeginsAtTheNextOne) {
    EXPECT_EQ(watchOne({1, 2, 8, 9}, 5), (Events{"8@0", "9@0"}));
}

TEST_F(WatcherOrder, AStartingIdAboveAllMessagesDeliversNothingThatIsThere) {
    EXPECT_EQ(watchOne({1, 2, 3, 4}, 5), Events{});
}

TEST_F(WatcherOrder, MinusOneStandsForOne) {
    EXPECT_EQ(watchOne({-3, 0, 1, 2}, -1), (Events{"1@0", "2@0"}));
}

TEST_F(WatcherOrder, MinusOneStandsForOneAlsoForMessagesBehindTheFirst) {
    EXPECT_EQ(watchOne({1, -1, 0, 2}, -1), (Events{"1@0", "2@0"}));
}

TEST_F(WatcherOrder, OtherNegativeStartingIdsAndZeroAreTakenAsTheyAre) {
    EXPECT_EQ(watchOne({-3, -2, 0, 1}, -2), (Events{"-2@0", "0@0", "1@0"}));
    EXPECT_EQ(watchOne({-3, -2, 0, 1}, 0), (Events{"0@0", "1@0"}));
}

TEST_F(WatcherOrder, MessagesBelowTheStartingIdAreConsumedSilently) {
    EXPECT_EQ(watchOne({5, 3, 4, 6}, 5), (Events{"5@0", "6@0"}));
}

TEST_F(WatcherOrder, ClosedBlocksBelowTheStartingIdArePassed) {
    std::vector<std::int32_t> ids;
    for (std::int32_t id = 1; id <= 20; ++id) {
        ids.push_back(id);
    }
    for (const std::int32_t from : {3, 4, 9, 10, 18, 19, 20}) {
        Events expected;
        for (std::int32_t id = from; id <= 20; ++id) {
            expected.push_back(std::to_string(id) + "@0");
        }
        EXPECT_EQ(watchOne(ids, from), expected) << "from " << from;
    }
}

TEST_F(WatcherOrder, TheSameHandleTwiceDeliversEveryMessageForEachPlace) {
    const WatchedTablePtr table = filled("orders", {1, 2, 3, 4});
    const WatcherPtr watcher = watch({table.get(), table.get()});
    EXPECT_EQ(record.run(watcher.get(), {1, 3}), NO_ERROR);
    // 1, 2, 3 of both; the tie goes to the first place each time.
    EXPECT_EQ(record.deliveries(), (Events{"1@0", "2@0", "3@0", "3@1", "4@0", "4@1"}));
}

TEST_F(WatcherOrder, EveryFieldOfAMessageIsDelivered) {
    shape.configuredStrings = 12;
    shape.configuredNumbers = 16;
    const WatchedTablePtr writer = open("wide", OpenMode::create);
    Message message;
    MessageMetadata& metadata = message.metadata;
    metadata.uniformId = 11;
    metadata.seqNum = 12;
    metadata.prevSeqNum = 13;
    metadata.connMsgId = 14;
    metadata.timestamp = std::int64_t{15} << 40;
    metadata.msgType = {'A', 'B', 'C', 'D', 'E'};
    metadata.isPossDupFlag = 1;
    metadata.isOutOfSequence = 1;
    for (std::size_t i = 0; i < 16; ++i) {
        message.strings.push_back(i == 5 ? std::nullopt : std::optional("text " + std::to_string(i)));
        message.numbers.push_back(i % 2 == 0 ? numericValue_ofDouble(0.5 * static_cast<double>(i))
                                             : numericValue_ofLong(-7));
    }
    message.numbers[3] = {};
    ASSERT_EQ(writeMessage(writer.get(), message), NO_ERROR);
    const WatchedTablePtr reader = open("wide", OpenMode::read);
    const WatcherPtr watcher = watch({reader.get()});
    ASSERT_EQ(record.run(watcher.get(), {1}), NO_ERROR);
    ASSERT_EQ(record.received.size(), 1U);
    const Received& received = record.received[0];
    EXPECT_EQ(received.metadata.uniformId, 11);
    EXPECT_EQ(received.metadata.seqNum, 12);
    EXPECT_EQ(received.metadata.prevSeqNum, 13);
    EXPECT_EQ(received.metadata.connMsgId, 14);
    EXPECT_EQ(received.metadata.timestamp, std::int64_t{15} << 40);
    EXPECT_STREQ(received.metadata.msgType.data(), "ABCDE");
    EXPECT_EQ(received.metadata.isPossDupFlag, 1);
    EXPECT_EQ(received.metadata.isOutOfSequence, 1);
    ASSERT_EQ(received.strings.size(), 16U);
    ASSERT_EQ(received.numbers.size(), 16U);
    for (std::size_t i = 0; i < 16; ++i) {
        EXPECT_EQ(received.strings[i], message.strings[i]) << "text " << i;
        EXPECT_EQ(received.numbers[i].type, message.numbers[i].type) << "number " << i;
        EXPECT_EQ(received.numbers[i].longValue, message.numbers[i].longValue) << "number " << i;
    }
}

TEST_F(WatcherOrder, TextsAreCopiesThatDoNotStandInAReadersBuffer) {
    const WatchedTablePtr writer = open("orders", OpenMode::create);
    ASSERT_EQ(storeMessage(writer.get(), 1, "some text"), NO_ERROR);
    const WatcherPtr watcher = watch({writer.get()});
    const std::vector<std::uint8_t>& buffer = watcher->readers[0]->buffer;
    int texts = 0;
    bool inBuffer = false;
    const auto look = [&](const MessageView& message, std::int32_t) {
        for (const StringField& field : message.texts) {
            const auto* text = reinterpret_cast<const std::uint8_t*>(field.text);
            texts += text != nullptr ? 1 : 0;
            inBuffer = inBuffer || (text >= buffer.data() && text < buffer.data() + buffer.size());
        }
        return true;
    };
    const std::int32_t from = 1;
    ASSERT_EQ(messageWatcher_startWatching(watcher.get(), 1, &from, watchListenerOf(&look)), NO_ERROR);
    EXPECT_EQ(texts, 1);
    EXPECT_FALSE(inBuffer) << "the text is the reader's own, which the next refill overwrites";
}

TEST_F(WatcherOrder, AWatchThatEndedCanBeStartedAgainAndPositionsItsReadersAnew) {
    const WatchedTablePtr table = filled("orders", {1, 2, 3});
    const WatcherPtr watcher = watch({table.get()});
    ASSERT_EQ(record.run(watcher.get(), {1}), NO_ERROR);
    record.clear();
    ASSERT_EQ(record.run(watcher.get(), {2}), NO_ERROR);
    EXPECT_EQ(record.events, (Events{"2@0", "3@0", "idle"}));
}

TEST_F(WatcherOrder, AStopAndARestartFromTheLastReceivedIdPlusOneLoseAndRepeatNothing) {
    const WatchedTablePtr one = filled("one", {1, 3, 5, 7, 9});
    const WatchedTablePtr two = filled("two", {2, 4, 6, 8, 10});
    const WatcherPtr watcher = watch({one.get(), two.get()});
    std::int32_t from = 1;
    record.onIdle = [](int) -> ErrorCode {
        ADD_FAILURE() << "the watch goes on behind a stop";
        return OUT_OF_MEMORY_ERROR;
    };
    record.onMessage = [&](const Received& received) {
        from = received.metadata.uniformId + 1;
        if (from == 4 || from == 5 || from == 11) {
            record.stop();
        }
        return NO_ERROR;
    };
    for (int start = 0; start < 3; ++start) {
        ASSERT_EQ(record.run(watcher.get(), {from, from}), NO_ERROR);
    }
    EXPECT_EQ(record.events, (Events{"1@0", "2@1", "3@0", "4@1", "5@0", "6@1", "7@0", "8@1", "9@0", "10@1"}));
}

TEST_F(WatcherOrder, AMessageThatWasLookedAtBeforeAStopIsForgottenByTheNextStart) {
    const WatchedTablePtr one = filled("one", {1, 3});
    const WatchedTablePtr two = filled("two", {2, 4});
    const WatcherPtr watcher = watch({one.get(), two.get()});
    for (const std::int32_t from : {4, 1}) {
        record.clear();
        record.onMessage = [&](const Received&) {
            record.stop();  // the second table's message was compared with this one
            return NO_ERROR;
        };
        ASSERT_EQ(record.run(watcher.get(), {1, 1}), NO_ERROR);
        ASSERT_EQ(record.events, Events{"1@0"});
        record.clear();
        record.onMessage = nullptr;
        ASSERT_EQ(record.run(watcher.get(), {1, from}), NO_ERROR);
        EXPECT_EQ(record.deliveries(),
                  from == 4 ? (Events{"1@0", "3@0", "4@1"}) : (Events{"1@0", "2@1", "3@0", "4@1"}));
    }
}

TEST_F(WatcherOrder, AWritersOwnHandleCanBeWatched) {
    const WatchedTablePtr writer = open("orders", OpenMode::create);
    const WatcherPtr watcher = watch({writer.get()});
    record.onIdle = [&](int call) {
        if (call > 7) {
            record.stop();
            return NO_ERROR;
        }
        return storeMessage(writer.get(), call);
    };
    ASSERT_EQ(record.run(watcher.get(), {1}), NO_ERROR);
    EXPECT_EQ(record.deliveries(), (Events{"1@0", "2@0", "3@0", "4@0", "5@0", "6@0", "7@0"}));
}

}  // namespace
}  // namespace tabulo::internal::test
