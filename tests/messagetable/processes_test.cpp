// Readers and writers in processes of their own, and writers that are killed.
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <functional>
#include <iostream>
#include <random>
#include <system_error>

#include "messagetable/message_lookup.h"
#include "query/message_read.h"
#include "tests/messagetable/table_image.h"
#include "tests/messagetable/walk_record.h"
#include "tests/support/child_process.h"

namespace tabulo::internal::test {
namespace {

using namespace std::chrono_literals;

// Memory that a process and the children it forks share; what a killed child has put there stays.
struct SharedState {
    std::atomic<std::int32_t> acknowledged = 0;  // messages 1 to this one were written with NO_ERROR
    std::atomic<std::int32_t> readyReaders = 0;
    std::atomic<bool> stop = false;
};
static_assert(std::atomic<std::int32_t>::is_always_lock_free && std::atomic<bool>::is_always_lock_free);

class SharedPage {
  public:
    SharedPage() {
        memory_ = ::mmap(nullptr, sizeof(SharedState), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
        if (memory_ == MAP_FAILED) {
            throw std::system_error(errno, std::generic_category(), "mmap");
        }
        new (memory_) SharedState;
    }
    ~SharedPage() { ::munmap(memory_, sizeof(SharedState)); }
    SharedPage(const SharedPage&) = delete;
    SharedPage& operator=(const SharedPage&) = delete;

    SharedState* operator->() const { return static_cast<SharedState*>(memory_); }

  private:
    void* memory_;
};

bool waitUntil(const std::function<bool()>& condition) {
    const auto deadline = std::chrono::steady_clock::now() + 20s;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
        ::usleep(100);
    }
    return true;
}

// How a message of these tests looks: simple, or with a text so large that a kill can hit the middle of its write.
struct Traffic {
    TableShape shape;
    std::size_t textSize = 0;

    Message message(std::int32_t n) const {
        Message message = simpleMessage(n, shape);
        if (textSize > 0) {
            message.strings[2] = std::string(textSize, static_cast<char>('a' + n % 26));
        }
        return message;
    }
    std::vector<Message> messages(std::int32_t first, std::int32_t last) const {
        std::vector<Message> all;
        for (std::int32_t n = first; n <= last; ++n) {
            all.push_back(message(n));
        }
        return all;
    }
};

class Processes : public TableImageTest {
  protected:
    // Writes messages behind those that are there until it is killed or has written `last`; every one is acknowledged
    // in the shared page as soon as its write has returned. The table is closed and opened again now and then. For a
    // child.
    int writeOn(const Traffic& traffic, std::int32_t last) const {
        for (;;) {
            const MessageTablePtr writer = createTable(directory.root(), traffic.shape);
            std::int32_t n = 0;
            if (mt_open(writer.get(), OpenMode::write) != NO_ERROR ||
                mt_getLastUniformMessageId(writer.get(), &n) != NO_ERROR) {
                return 1;
            }
            for (int i = 0; i < 60; ++i) {
                if (n == last) {
                    return mt_close(writer.get());
                }
                n += 1;
                if (writeMessage(writer.get(), traffic.message(n)) != NO_ERROR) {
                    return 2;
                }
                page->acknowledged.store(n);
            }
            if (mt_close(writer.get()) != NO_ERROR) {
                return 3;
            }
        }
    }
    // Follows the writer until it is told to stop. For a child: 0 when every acknowledged message was seen.
    int follow() const {
        const MessageTablePtr reader = createTable(directory.root(), shape);
        if (mt_open(reader.get(), OpenMode::read) != NO_ERROR) {
            return 10;
        }
        page->readyReaders += 1;
        for (std::int32_t pass = 0;; ++pass) {
            const bool stop = page->stop.load();
            const std::int32_t acknowledged = page->acknowledged.load();
            std::int32_t last = 0;
            if (mt_getLastUniformMessageId(reader.get(), &last) != NO_ERROR) {
                return 11;
            }
            if (last < acknowledged) {
                return 12;
            }
            const int seen = pass % 4 == 0 || stop ? seesAll(reader.get(), acknowledged) : 0;
            if (seen != 0 || stop) {
                return seen;
            }
        }
    }
    // 0 when walks in both directions and a read by id find the acknowledged messages.
    int seesAll(MessageTable* reader, std::int32_t acknowledged) const {
        const ReadMessages forward = readAll(reader);
        if (forward.code != NO_ERROR) {
            return 13;
        }
        const auto count = static_cast<std::int32_t>(forward.messages.size());
        if (count < acknowledged) {
            return 14;
        }
        if (forward.messages != simpleMessages(1, count, shape)) {
            return 15;
        }
        const ReadMessages backward = readAllBackward(reader);
        if (backward.code != NO_ERROR) {
            return 16;
        }
        if (static_cast<std::int32_t>(backward.messages.size()) < acknowledged) {
            return 17;
        }
        WalkRecord record;
        const MessageListener listener{&record, record.visitor().onMessage, [](void*, ErrorCode code) { return code; }};
        if (acknowledged == 0 || mt_readMessages(reader, &acknowledged, 1, &listener, true) != NO_ERROR) {
            return acknowledged == 0 ? 0 : 18;
        }
        return record.messages == std::vector<Message>{simpleMessage(acknowledged, shape)} ? 0 : 19;
    }

    SharedPage page;
};

// The results of follow() and writeOn().
const char* meaning(int result) {
    switch (result) {
        case 0:
            return "everything was seen";
        case 1:
            return "the table could not be opened for writing";
        case 2:
            return "a message could not be written";
        case 10:
            return "the table could not be opened for reading";
        case 12:
            return "a lookup did not see an acknowledged message";
        case 14:
            return "a walk did not see an acknowledged message";
        case 15:
            return "a walk delivered other messages than were written";
        case 17:
            return "a backward walk did not see an acknowledged message";
        case 19:
            return "an acknowledged message was not found by its id";
        default:
            return "see the test's source";
    }
}

class ReaderBesideWriter : public Processes, public ::testing::WithParamInterface<std::int32_t> {};

TEST_P(ReaderBesideWriter, SeesEveryAcknowledgedMessage) {
    shape.messagesPerBlock = GetParam();
    const Traffic traffic{shape};
    open(OpenMode::create);
    ASSERT_EQ(closeTable(table), NO_ERROR);
    ChildProcess first([&] { return follow(); });
    ChildProcess second([&] { return follow(); });
    ASSERT_TRUE(waitUntil([&] { return page->readyReaders.load() == 2; })) << "the readers did not open the table";
    ChildProcess writer([&] { return writeOn(traffic, 1500); });
    const int written = writer.wait();
    page->stop.store(true);
    EXPECT_EQ(written, 0) << meaning(written);
    EXPECT_EQ(page->acknowledged.load(), 1500);
    for (ChildProcess* reader : {&first, &second}) {
        const int seen = reader->wait();
        EXPECT_EQ(seen, 0) << meaning(seen);
    }
    EXPECT_EQ(difference(fileBytes(), closedImage(shape, simpleMessages(1, 1500, shape))), "");
}

INSTANTIATE_TEST_SUITE_P(BlocksOf, ReaderBesideWriter, ::testing::Values(1, 7, 1000));

TEST_F(Processes, ASecondWriterIsRefusedWithoutTouchingTheFile) {
    const ProcessSignal hasWritten;
    const ProcessSignal mayGoOn;
    ChildProcess writer([&] {
        const MessageTablePtr held = createTable(directory.root(), shape);
        if (mt_open(held.get(), OpenMode::write) != NO_ERROR || writeSimpleMessages(held.get(), 1, 6, shape) != 0) {
            return 1;
        }
        hasWritten.raise();
        if (!mayGoOn.await()) {
            return 2;
        }
        return writeSimpleMessages(held.get(), 7, 9, shape) == NO_ERROR ? mt_close(held.get()) : 3;
    });
    ASSERT_TRUE(hasWritten.await());
    // The file's tail is stale: a writer that came in would recover it.
    struct stat before {};
    ASSERT_EQ(::stat(path().c_str(), &before), 0);
    for (const OpenMode mode : {OpenMode::write, OpenMode::create}) {
        table = createTable(directory.root(), shape);
        EXPECT_EQ(mt_open(table.get(), mode), FILE_OPEN_ERROR) << "mode " << openMode_number(mode);
        EXPECT_EQ(mt_close(table.get()), NO_ERROR);
        table.reset();
    }
    struct stat after {};
    ASSERT_EQ(::stat(path().c_str(), &after), 0);
    EXPECT_EQ(after.st_ino, before.st_ino);
    EXPECT_EQ(after.st_mtim.tv_sec, before.st_mtim.tv_sec);
    EXPECT_EQ(after.st_mtim.tv_nsec, before.st_mtim.tv_nsec) << "the file was written";
    EXPECT_EQ(difference(fileBytes(), unclosedImage(shape, simpleMessages(1, 6, shape))), "");
    EXPECT_EQ(messagesIn(directory.root(), shape), simpleMessages(1, 6, shape)) << "a reader comes in";
    mayGoOn.raise();
    EXPECT_EQ(writer.wait(), 0);
    EXPECT_EQ(difference(fileBytes(), closedImage(shape, simpleMessages(1, 9, shape))), "");
    open(OpenMode::write);
    EXPECT_NE(table, nullptr) << "the lock has gone with its holder";
}

TEST_F(Processes, AKilledWriterLeavesItsLockToTheNextOne) {
    ChildProcess writer([&] { return writeOn({shape}, 1'000'000); });
    ASSERT_TRUE(waitUntil([&] { return page->acknowledged.load() >= 10; })) << "the writer does not write";
    table = createTable(directory.root(), shape);
    EXPECT_EQ(mt_open(table.get(), OpenMode::read), NO_ERROR);
    writer.kill();
    EXPECT_EQ(mt_open(table.get(), OpenMode::write), NO_ERROR);
    EXPECT_GE(table->records.dataInfo.messageCount, page->acknowledged.load());
}

// One table whose writers are killed again and again.
class KilledWriter : public Processes {
  protected:
    void killOnce(const Traffic& traffic, std::mt19937* random) {
        const std::int32_t before = page->acknowledged.load();
        ChildProcess writer([&] { return writeOn(traffic, 10'000'000); });
        if ((*random)() % 4 != 0) {
            ASSERT_TRUE(waitUntil([&] { return page->acknowledged.load() > before; })) << "the writer does not write";
        }
        // Else the kill may come while the table is opened and recovered.
        const auto end = std::chrono::steady_clock::now() + std::chrono::microseconds((*random)() % 2000);
        while (std::chrono::steady_clock::now() < end) {
        }
        const int result = writer.kill();
        ASSERT_EQ(result, 256 + 9) << "the writer ended by itself: " << meaning(result);
    }
    // Everything acknowledged is there, and at most the one message whose acknowledgement was cut off.
    void expectNothingLost(const Traffic& traffic) {
        const std::int32_t acknowledged = page->acknowledged.load();
        if (acknowledged > 0) {
            const MessageTablePtr reader = openTable(directory.root(), OpenMode::read, traffic.shape);
            ASSERT_NE(reader, nullptr);
            std::int32_t last = 0;
            ASSERT_EQ(mt_getLastUniformMessageId(reader.get(), &last), NO_ERROR);
            ASSERT_GE(last, acknowledged) << "seen by a reader, before any recovery";
        }
        table = createTable(directory.root(), traffic.shape);
        ASSERT_EQ(mt_open(table.get(), OpenMode::write), NO_ERROR) << "the table must open";
        const std::int32_t count = table->records.dataInfo.messageCount;
        ASSERT_GE(count, acknowledged) << "an acknowledged message is lost";
        ASSERT_LE(count, acknowledged + 1) << "a message that nobody wrote";
        // What stands before the last open block was looked at after an earlier kill, and is again in the end.
        WalkRecord record;
        ASSERT_EQ(walkForward(table.get(), &record, openBlock), NO_ERROR);
        ASSERT_TRUE(record.messages == traffic.messages(beforeOpenBlock + 1, count))
            << "the messages are not those that were written";
        openBlock = mt_openBlockStart(table.get());
        beforeOpenBlock = count - table->writer->summary.messageCount;
        ASSERT_TRUE(others().empty()) << "a killed writer is no damage: " << others().begin()->first;
        ASSERT_EQ(warningsOf("mtX_recover"), std::vector<std::string>{});
        page->acknowledged.store(count);
    }
    void startAnew() {
        table.reset();
        std::filesystem::remove(path());
        page->acknowledged.store(0);
        openBlock = -1;
        beforeOpenBlock = 0;
    }

    std::int64_t openBlock = -1;       // where the block that was open at the last look begins, -1 for the header's end
    std::int32_t beforeOpenBlock = 0;  // messages in front of it
};

TEST_F(KilledWriter, AtTwoHundredRandomMomentsNeverLosesAnAcknowledgedMessage) {
    const auto seed = std::random_device{}();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::cout << "seed " << seed << '\n';
    std::mt19937 random(seed);
    std::vector<Traffic> all;
    for (const std::int32_t messagesPerBlock : {1, 2, 3, 5, 1000, 1000, 1000}) {
        all.push_back({shape});
        all.back().shape.messagesPerBlock = messagesPerBlock;
    }
    all.push_back({widestShape(4)});
    all.push_back({shape, 300'000});
    all.push_back({shape, 9000});
    int kills = 0;
    std::int64_t messages = 0;
    std::size_t recovered = 0;
    for (const Traffic& traffic : all) {
        SCOPED_TRACE("blocks of " + std::to_string(traffic.shape.messagesPerBlock) + " messages, texts of " +
                     std::to_string(traffic.textSize) + " bytes");
        startAnew();
        for (int i = 0; i < 20; ++i) {
            killOnce(traffic, &random);
            ASSERT_FALSE(HasFatalFailure()) << "kill " << kills;
            expectNothingLost(traffic);
            ASSERT_FALSE(HasFatalFailure()) << "kill " << kills;
            kills += 1;
            // The next writer finds a table that was closed, or one that was not.
            ASSERT_EQ(random() % 2 == 0 ? mt_close(table.get()) : ErrorCode{NO_ERROR}, NO_ERROR);
            table.reset();
            recovered += recoveries();
            log.clear();
        }
        const std::int32_t count = page->acknowledged.load();
        messages += count;
        MessageTablePtr last = openTable(directory.root(), OpenMode::write, traffic.shape);
        ASSERT_EQ(closeTable(last), NO_ERROR);
        EXPECT_EQ(difference(fileBytes(), closedImage(traffic.shape, traffic.messages(1, count))), "")
            << "the file is not that of a writer that was never killed";
    }
    EXPECT_EQ(kills, 200);
    EXPECT_GE(messages, 200) << "the writers hardly wrote";
    EXPECT_GE(recovered, 50U) << "the kills hardly hit a writer at work";
}

}  // namespace
}  // namespace tabulo::internal::test
