// How one table's reader follows its file: half frames, ends of blocks, the buffer.
#include "watcher/table_reader.h"

#include <algorithm>

#include "messagetable/message_lookup.h"
#include "messagetable/table_walk.h"
#include "tests/support/fault_platform.h"
#include "tests/support/message_takers.h"
#include "tests/watcher/table_reader_fixture.h"

namespace tabulo::internal::test {
namespace {

TEST_F(TableReaderTest, HalfAFrameDoesNotSpinAndIsDeliveredOnceItIsComplete) {
    const Bytes whole = written(2);
    const std::size_t half = whole.size() - FRAME / 2;
    writeFile(path(), part(whole, 0, half));
    openReader();
    FaultPlatform platform;
    int readsPerPass = 0;
    record.onIdle = [&](int call) {
        if (call > 1 && call <= 5) {
            readsPerPass = std::max(readsPerPass, platform.count(FileCall::readAt));
        }
        if (call == 5) {
            appendFile(path(), part(whole, half, whole.size()));
        } else if (call == 8) {
            record.stop();
        }
        platform.clear();
        return NO_ERROR;
    };
    ASSERT_EQ(watchOrders(), NO_ERROR);
    EXPECT_EQ(record.events, (Events{"1@0", "idle", "idle", "idle", "idle", "idle", "2@0", "idle", "idle", "idle"}));
    // One refill: the bytes, and the end of the file behind them.
    EXPECT_LE(readsPerPass, 2) << "a pass over half a frame reads again although nothing came";
}

TEST_F(TableReaderTest, AFrameThatComesByteByByteIsDeliveredOnce) {
    const Bytes whole = written(3);
    std::size_t size = headerSize;
    writeFile(path(), part(whole, 0, size));
    openReader();
    record.onIdle = [&](int) {
        if (size == whole.size()) {
            record.stop();
        } else {
            appendFile(path(), part(whole, size, size + 1));
            size += 1;
        }
        return NO_ERROR;
    };
    ASSERT_EQ(watchOrders(), NO_ERROR);
    EXPECT_EQ(record.deliveries(), numbered(1, 3));
}

TEST_F(TableReaderTest, FramesMuchLargerThanTheBufferAreDelivered) {
    std::vector<std::string> wires;
    for (const std::size_t size : {0U, 16329U, 16330U, 40000U, 0U, 1000000U, 1U, 16384U, 32768U, 100U}) {
        wires.push_back(std::string(size, static_cast<char>('a' + wires.size())));
    }
    const WatchedTablePtr writer = open("orders", OpenMode::create);
    openReader();
    std::size_t next = 0;
    // Half of the messages are there at the start, the others come one by one.
    for (; next < 5; ++next) {
        ASSERT_EQ(storeMessage(writer.get(), static_cast<std::int32_t>(next) + 1, wires[next]), NO_ERROR);
    }
    record.onIdle = [&](int) {
        if (next == wires.size()) {
            record.stop();
            return NO_ERROR;
        }
        const std::size_t number = next++;
        return storeMessage(writer.get(), static_cast<std::int32_t>(number) + 1, wires[number]);
    };
    ASSERT_EQ(watchOrders(), NO_ERROR);
    ASSERT_EQ(record.deliveries(), numbered(1, 10));
    for (std::size_t i = 0; i < wires.size(); ++i) {
        EXPECT_EQ(record.received[i].wire() == "absent" ? "" : record.received[i].wire(), wires[i]) << "message " << i;
    }
}

TEST_F(TableReaderTest, AFooterOf18012BytesIsSteppedOver) {
    shape.configuredStrings = 12;
    shape.configuredNumbers = 16;
    const WatchedTablePtr writer = open("orders", OpenMode::create);
    ASSERT_EQ(mt_storage(writer.get())->footerSize, 18012)
        << "the widest table's footer is larger than a reader's first buffer";
    for (std::int32_t id = 1; id <= 7; ++id) {
        ASSERT_EQ(storeMessage(writer.get(), id), NO_ERROR);
    }
    openReader();
    std::int32_t next = 8;
    record.onIdle = [&](int) {
        if (next > 20) {
            record.stop();
            return NO_ERROR;
        }
        return storeMessage(writer.get(), next++);
    };
    ASSERT_EQ(watchOrders(), NO_ERROR);
    EXPECT_EQ(record.deliveries(), numbered(1, 20));
}

TEST_F(TableReaderTest, TheLastMessageOfABlockDoesNotWaitForTheFooter) {
    const Bytes whole = written(4);
    const std::size_t framesEnd = headerSize + LENGTH_WORD + 3 * FRAME;
    const std::size_t blockEnd = framesEnd + footerSize;
    ASSERT_EQ(whole.size(), blockEnd + LENGTH_WORD + FRAME);
    Bytes open = part(whole, 0, framesEnd);
    const Bytes zero(LENGTH_WORD, 0);
    std::copy(zero.begin(), zero.end(), open.begin() + static_cast<std::ptrdiff_t>(headerSize));
    // The header's tail as it is while the first block is open.
    const Bytes fresh = written(0);
    std::copy_n(fresh.begin(), headerSize, open.begin());
    writeFile(path(), open);
    openReader();
    record.onIdle = [&](int call) {
        const std::size_t steps[] = {framesEnd,    framesEnd + 1,    blockEnd - 1,
                                     blockEnd,     blockEnd + 1,     blockEnd + LENGTH_WORD,
                                     blockEnd + 9, whole.size() - 1, whole.size()};
        if (call == 10) {
            record.stop();
        } else if (call < 9) {
            appendFile(path(), part(whole, steps[call - 1], steps[call]));
        }
        return NO_ERROR;
    };
    ASSERT_EQ(watchOrders(), NO_ERROR);
    Events expected = numbered(1, 3);
    expected.insert(expected.end(), 8, "idle");
    expected.push_back("4@0");
    expected.insert(expected.end(), 2, "idle");
    EXPECT_EQ(record.events, expected);
}

TEST_F(TableReaderTest, AFileThatIsCutAnywhereAndCompletedDeliversEveryMessageOnce) {
    shape.messagesPerBlock = 2;
    const Bytes fresh = written(0);
    const Bytes whole = written(5);
    const std::size_t blockSize = LENGTH_WORD + 2 * FRAME + footerSize;
    std::vector<std::size_t> cuts;
    for (std::size_t cut = headerSize; cut <= whole.size(); ++cut) {
        const std::size_t inBlock = (cut - headerSize) % blockSize;
        const std::size_t intoFooter = inBlock - std::min(inBlock, LENGTH_WORD + 2 * FRAME);
        // Every byte outside of the footers; inside, where reading cannot tell them apart, some.
        if (intoFooter < 3 || intoFooter > footerSize - 3 || intoFooter % 211 == 0) {
            cuts.push_back(cut);
        }
    }
    for (const std::size_t cut : cuts) {
        Bytes bytes = part(whole, 0, cut);
        std::copy(fresh.begin(), fresh.begin() + static_cast<std::ptrdiff_t>(headerSize), bytes.begin());
        // A block's length is written when its footer is complete.
        const std::size_t openBlock = headerSize + (cut - headerSize) / blockSize * blockSize;
        std::fill(bytes.begin() + static_cast<std::ptrdiff_t>(openBlock),
                  bytes.begin() + static_cast<std::ptrdiff_t>(std::min(openBlock + LENGTH_WORD, cut)), 0);
        writeFile(path(), bytes);
        openReader();
        record.clear();
        record.onIdle = [&](int call) {
            if (call == 2) {
                appendFile(path(), part(whole, cut, whole.size()));
                patchFile(path(), 0, part(whole, 0, cut));
            } else if (call == 4) {
                record.stop();
            }
            return NO_ERROR;
        };
        ASSERT_EQ(watchOrders(), NO_ERROR) << "cut at byte " << cut;
        ASSERT_EQ(record.deliveries(), numbered(1, 5)) << "cut at byte " << cut;
    }
    EXPECT_GT(cuts.size(), 200U);
}

TEST_F(TableReaderTest, ADamagedLengthGrowsTheBufferOnlyWhileBytesCome) {
    // A frame that claims a text of 2 GB, and other bytes behind it.
    Bytes damaged(FRAME, 0);
    // A text that fits into the frame: the whole can be one that is being appended.
    const Bytes hugeFrame{0xff, 0xff, 0xff, 0x7f};
    const Bytes hugeText{0x00, 0x00, 0xff, 0x7f};
    std::copy(hugeFrame.begin(), hugeFrame.end(), damaged.begin());
    std::copy(hugeText.begin(), hugeText.end(), damaged.begin() + 35);
    for (const std::size_t behind : {std::size_t{0}, std::size_t{10000}, std::size_t{100000}}) {
        written(1);
        appendFile(path(), damaged);
        appendFile(path(), pattern(behind));
        openReader();
        record.clear();
        std::size_t early = 0;
        record.onIdle = [&](int call) {
            if (call == 1) {
                early = bufferSize();
            } else if (call == 50) {
                record.stop();
            }
            return NO_ERROR;
        };
        ASSERT_EQ(watchOrders(), NO_ERROR);
        EXPECT_EQ(record.deliveries(), numbered(1, 1));
        EXPECT_EQ(record.idleCalls, 50) << "a watch that waits for the rest of a frame can be stopped";
        EXPECT_EQ(bufferSize(), early) << "it grows although no byte came";
        // Doubled when more than half of it is pending.
        const std::size_t most = 4 * (damaged.size() + behind);
        EXPECT_LE(bufferSize(), std::max<std::size_t>(most, TABLE_READER_BUFFER)) << behind << " bytes are behind";
    }
}

TEST_F(TableReaderTest, LookupsReadsAndOtherWatchesOfTheSameHandleDisturbNothing) {
    const WatchedTablePtr writer = open("orders", OpenMode::create);
    openReader();
    for (std::int32_t id = 1; id <= 5; ++id) {
        ASSERT_EQ(storeMessage(writer.get(), id, std::string(400, 'x')), NO_ERROR);
    }
    const WatcherPtr other = watch({reader.get()});
    std::int32_t last = 5;
    const auto walkOn = [](const MessageView&) { return Visit::goOn; };
    const auto stopAtOnce = [](const MessageView&, std::int32_t) { return false; };
    const auto disturb = [&] {
        std::int32_t id = 0;
        EXPECT_EQ(mt_getLastUniformMessageId(reader.get(), &id), NO_ERROR);
        EXPECT_EQ(id, last);
        const BlockReaderPtr frames(mfr_createReader(reader->storage.get(), reader->header.layout));
        EXPECT_EQ(mfr_readForward(frames.get(), reader->storage->headerSize, visitorOf(&walkOn)), NO_ERROR);
        const std::int32_t from[] = {id - 1};
        EXPECT_EQ(messageWatcher_startWatching(other.get(), 1, from, watchListenerOf(&stopAtOnce)), NO_ERROR);
    };
    record.onMessage = [&](const Received&) {
        disturb();
        return NO_ERROR;
    };
    record.onIdle = [&](int) {
        if (last == 25) {
            record.stop();
            return NO_ERROR;
        }
        last += 1;
        const ErrorCode code = storeMessage(writer.get(), last, std::string(400, 'x'));
        disturb();
        return code;
    };
    ASSERT_EQ(watchOrders(), NO_ERROR);
    EXPECT_EQ(record.deliveries(), numbered(1, 25));
}

}  // namespace
}  // namespace tabulo::internal::test
