// What one table's reader does when its file is cut or dropped under it.
#include <filesystem>

#include "tests/watcher/read_hook.h"
#include "tests/watcher/table_reader_fixture.h"

namespace tabulo::internal::test {
namespace {

// What recovery leaves behind a writer that was killed: the half frame is cut away, another one stands in its place.
class ReplacedFrame : public TableReaderTest {
  protected:
    // Message 2 is half there with a wire message of `before` bytes, and is then replaced by one with `after` bytes.
    void replace(std::size_t before, std::size_t halfSize, std::size_t after) {
        const Bytes first = written(2, {"", std::string(before, 'b')});
        const std::size_t frames = headerSize + LENGTH_WORD + FRAME;
        const Bytes second = written(2, {"", std::string(after, 'a')});
        writeFile(path(), part(first, 0, frames + halfSize));
        openReader();
        record.onIdle = [&, this](int call) {
            if (call == 3) {
                std::filesystem::resize_file(path(), frames);
                appendFile(path(), part(second, frames, second.size()));
            } else if (call == 6) {
                record.stop();
            }
            return NO_ERROR;
        };
        ASSERT_EQ(watchOrders(), NO_ERROR);
        EXPECT_EQ(record.events, (Events{"1@0", "idle", "idle", "idle", "2@0", "idle", "idle", "idle"}));
        ASSERT_EQ(record.received.size(), 2U);
        EXPECT_EQ(record.received[1].wire(), std::string(after, 'a')) << "stale bytes are delivered";
    }
};

TEST_F(ReplacedFrame, AShorterFrameThatEndsBeforeTheHalfOneDidIsDelivered) {
    replace(600, 500, 10);
}

TEST_F(ReplacedFrame, AFrameThatEndsWhereTheHalfOneDidIsDelivered) {
    replace(600, FRAME + 10, 10);
}

TEST_F(ReplacedFrame, AFrameThatEndsOneByteBehindTheHalfOneIsDelivered) {
    replace(600, FRAME + 9, 10);
}

TEST_F(ReplacedFrame, ALongerFrameIsDelivered) {
    replace(600, 300, 5000);
}

TEST_F(TableReaderTest, AFrameThatIsReplacedWhileItIsReadIsNotMixedWithTheOneBefore) {
    const std::string before(600, 'b');
    const std::string after(600, 'a');
    const Bytes first = written(2, {"", before});
    const std::size_t frames = headerSize + LENGTH_WORD + FRAME;
    const Bytes second = written(2, {"", after});
    writeFile(path(), part(first, 0, frames + 300));
    openReader();
    bool armed = false;
    // A recovery cuts the half frame behind the read that brought it, and a new writer stores another one there.
    const ReadHook hook([&](std::size_t bytes) {
        if (armed && bytes == 300) {
            armed = false;
            std::filesystem::resize_file(path(), frames);
            appendFile(path(), part(second, frames, second.size()));
        }
    });
    record.onIdle = [&](int call) {
        armed = call == 2;
        if (call == 5) {
            record.stop();
        }
        return NO_ERROR;
    };
    EXPECT_EQ(watchOrders(), NO_ERROR);
    EXPECT_EQ(record.deliveries(), numbered(1, 2));
    ASSERT_EQ(record.received.size(), 2U);
    EXPECT_EQ(record.received[1].wire(), after) << "bytes of two moments are delivered as one message";
}

TEST_F(TableReaderTest, AHalfFrameThatIsCutAwayIsForgotten) {
    const Bytes whole = written(2);
    writeFile(path(), part(whole, 0, whole.size() - 1));
    openReader();
    record.onIdle = [&](int call) {
        if (call == 2) {
            std::filesystem::resize_file(path(), whole.size() - FRAME);
        } else if (call == 4) {
            appendFile(path(), part(whole, whole.size() - FRAME, whole.size()));
        } else if (call == 6) {
            record.stop();
        }
        return NO_ERROR;
    };
    ASSERT_EQ(watchOrders(), NO_ERROR);
    EXPECT_EQ(record.events, (Events{"1@0", "idle", "idle", "idle", "idle", "2@0", "idle", "idle"}));
}

TEST_F(TableReaderTest, ATableThatIsDroppedIsFollowedFromItsBeginning) {
    const WatchedTablePtr writer = open("orders", OpenMode::create);
    for (std::int32_t id = 1; id <= 8; ++id) {
        ASSERT_EQ(storeMessage(writer.get(), id), NO_ERROR);
    }
    openReader();
    record.onIdle = [&](int call) {
        if (call == 1) {
            return mt_drop(writer.get());
        }
        if (call == 3) {
            EXPECT_EQ(storeMessage(writer.get(), 9), NO_ERROR);
            return storeMessage(writer.get(), 10);
        }
        if (call == 5) {
            for (std::int32_t id = 11; id <= 14; ++id) {
                EXPECT_EQ(storeMessage(writer.get(), id), NO_ERROR);
            }
        }
        if (call == 7) {
            record.stop();
        }
        return static_cast<ErrorCode>(NO_ERROR);
    };
    ASSERT_EQ(watchOrders(), NO_ERROR);
    EXPECT_EQ(record.deliveries(), numbered(1, 14)) << "ends of blocks are counted from the new beginning";
}

TEST_F(TableReaderTest, ATableThatIsDroppedAndShorterAgainByTheNextPassIsFollowedFromItsBeginning) {
    const WatchedTablePtr writer = open("orders", OpenMode::create);
    for (std::int32_t id = 1; id <= 5; ++id) {
        ASSERT_EQ(storeMessage(writer.get(), id), NO_ERROR);
    }
    openReader();
    record.onIdle = [&](int call) {
        if (call == 1) {
            EXPECT_EQ(mt_drop(writer.get()), NO_ERROR);
            return storeMessage(writer.get(), 6);
        }
        if (call == 4) {
            record.stop();
        }
        return static_cast<ErrorCode>(NO_ERROR);
    };
    ASSERT_EQ(watchOrders(), NO_ERROR);
    EXPECT_EQ(record.deliveries(), numbered(1, 6));
}

TEST_F(TableReaderTest, AHalfFrameInTheBufferIsForgottenWhenTheTableIsDropped) {
    const Bytes whole = written(2, {"", std::string(3000, 'x')});
    writeFile(path(), part(whole, 0, whole.size() - 1));
    openReader();
    record.onIdle = [&](int call) {
        if (call == 2) {
            const Bytes fresh = written(0);
            EXPECT_EQ(fresh.size(), headerSize);
        } else if (call == 4) {
            appendFile(path(), part(whole, headerSize, whole.size()));
        } else if (call == 6) {
            record.stop();
        }
        return NO_ERROR;
    };
    ASSERT_EQ(watchOrders(), NO_ERROR);
    EXPECT_EQ(record.deliveries(), (Events{"1@0", "1@0", "2@0"}));
}

}  // namespace
}  // namespace tabulo::internal::test
