// What a watcher that follows a table reads of it: what is new, and nothing of before.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "tests/watcher/read_hook.h"
#include "tests/watcher/watched_tables.h"

namespace tabulo::internal::test {
namespace {

// Messages that are stored between two looks of the watcher.
struct Round {
    std::int32_t count = 0;
    std::size_t stored = 0;  // bytes that the file has grown by
    std::size_t read = 0;
};

class WatcherCosts : public WatcherTest {
  protected:
    void SetUp() override {
        shape = {1000, 1, 1};
        writer = open("orders", OpenMode::create);
        reader = open("orders", OpenMode::read);
        watcher = watch({reader.get()});
    }
    std::size_t footer() const { return static_cast<std::size_t>(mt_storage(writer.get())->footerSize); }
    std::size_t size() const {
        return static_cast<std::size_t>(tableFileCachedSize(tableStorage_master(writer->storage.get())));
    }
    void store(Round* round) {
        const std::size_t before = size();
        for (std::int32_t i = 0; i < round->count; ++i) {
            ASSERT_EQ(storeMessage(writer.get(), ++last, wire), NO_ERROR);
        }
        round->stored = size() - before;
    }
    // Watches a table that grows by each round as soon as the watcher has found nothing more; fills the rounds.
    void follow(std::vector<Round>* rounds) {
        std::size_t bytes = 0;
        std::size_t before = 0;
        record.onIdle = [&](int call) {
            const auto done = static_cast<std::size_t>(call) - 1;
            if (done > 0) {
                (*rounds)[done - 1].read = bytes - before;
            }
            before = bytes;
            if (done == rounds->size()) {
                record.stop();
            } else {
                store(&(*rounds)[done]);
            }
            return NO_ERROR;
        };
        const ReadHook hook([&](std::size_t count) { bytes += count; });
        ASSERT_EQ(record.run(watcher.get(), {1}), NO_ERROR);
        EXPECT_EQ(record.received.size(), static_cast<std::size_t>(last)) << "messages were lost, or came twice";
    }

    const std::string wire = std::string(300, 'x');
    WatchedTablePtr writer;
    WatchedTablePtr reader;
    WatcherPtr watcher;
    std::int32_t last = 0;
};

TEST_F(WatcherCosts, EachByteIsReadOnceWhileABlockFills) {
    std::vector<Round> rounds(999, Round{1});
    follow(&rounds);
    for (std::size_t i = 0; i < rounds.size(); ++i) {
        ASSERT_EQ(rounds[i].read, rounds[i].stored) << "for message " << i + 1;
    }
}

TEST_F(WatcherCosts, AFooterIsReadAgainUntilAMessageFollowsIt) {
    std::vector<Round> rounds{{999}, {1}, {0}, {1}, {1}};
    store(&rounds[0]);
    rounds.erase(rounds.begin());
    follow(&rounds);
    EXPECT_EQ(rounds[0].read, rounds[0].stored + footer()) << "the message that closes the block, and its footer";
    EXPECT_EQ(rounds[1].read, footer()) << "nothing new";
    EXPECT_EQ(rounds[2].read, rounds[2].stored + footer()) << "the first message behind the footer";
    EXPECT_EQ(rounds[3].read, rounds[3].stored);
}

TEST_F(WatcherCosts, ABacklogIsReadWithAFrameMoreForEachBufferAtMost) {
    std::vector<Round> rounds{{700}, {299}, {2}, {998}, {5}, {2500}, {100}};
    follow(&rounds);
    const std::size_t largest = footer() + 8 + 55 + 3 * 4 + wire.size();  // what may be cut by a buffer's end
    for (const Round& round : rounds) {
        const std::size_t buffers = 1 + round.stored / (TABLE_READER_BUFFER - largest);
        EXPECT_GE(round.read, round.stored);
        EXPECT_LE(round.read, round.stored + buffers * largest) << round.count << " messages";
    }
}

}  // namespace
}  // namespace tabulo::internal::test
