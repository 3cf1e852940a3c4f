#include "tabulo/table_info.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <fstream>

#include "tabulo/session_info.h"
#include "tabulo/writer.h"
#include "tests/api/api_test.h"
#include "tests/support/child_process.h"
#include "tests/support/fault_platform.h"

namespace tabulo::test {
namespace {

using internal::test::FaultPlatform;
using internal::test::FileCall;

using ApiInspect = TableTest;

// Writes simple messages to a new table and closes it.
void makeTable(const std::filesystem::path& path, const Layout& layout, std::int32_t messages) {
    Writer writer = Writer::create(path, layout);
    writer.appendFrames(simpleFrames(layout, 1, messages));
    writer.close();
}

TEST_F(ApiInspect, TellsLayoutNamesAndSizesFromTheFileItself) {
    layout.summarisedTexts = 3;
    makeTable(path(), layout, 7);
    const TableInfo info = inspect(path());
    EXPECT_EQ(info.path, path());
    EXPECT_EQ(info.name, "orders");
    EXPECT_EQ(info.kind, TableKind::messages);
    EXPECT_EQ(info.layout, layout);
    EXPECT_TRUE(info.tags.empty());
    EXPECT_EQ(info.formatMajor, 5);
    EXPECT_EQ(info.formatMinor, 800);
    EXPECT_EQ(info.fileSize, static_cast<std::int64_t>(fileBytes().size()));
    // 140 bytes without names: "Symbol", "ClOrdID", "Price" and "OrderQty" take 5 more each than their length.
    EXPECT_EQ(info.headerSize, 140 + 11 + 12 + 10 + 13);
    EXPECT_TRUE(info.closedCleanly);
    EXPECT_FALSE(info.problem.has_value());
}

TEST_F(ApiInspect, CountsBlocksAndMessagesOfTablesOfEverySize) {
    for (std::int32_t messages = 0; messages <= 10; ++messages) {
        const std::filesystem::path file = directory.file("t" + std::to_string(messages));
        makeTable(file, layout, messages);
        const TableInfo info = inspect(file);
        SCOPED_TRACE(messages);
        EXPECT_EQ(info.closedBlocks, messages / 3);
        EXPECT_EQ(info.openMessages, messages % 3);
        EXPECT_EQ(info.messageCount, messages);
        EXPECT_EQ(info.firstTime, messages == 0 ? std::nullopt : std::optional<std::int64_t>(1000));
        EXPECT_EQ(info.lastTime, messages == 0 ? std::nullopt : std::optional<std::int64_t>(1000 * messages));
        EXPECT_EQ(info.lastUniformId, messages == 0 ? std::nullopt : std::optional(messages));
        EXPECT_EQ(info.lastIds[static_cast<std::size_t>(MessageClass::appTo)],
                  messages == 0 ? std::nullopt : std::optional(messages));
        EXPECT_EQ(info.lastIds[static_cast<std::size_t>(MessageClass::appFrom)], std::nullopt);
        EXPECT_EQ(info.lastGood,
                  messages == 0 ? std::nullopt : std::optional(SequencePoint{messages, std::int64_t{1000} * messages}));
        EXPECT_FALSE(info.problem.has_value());
    }
}

TEST_F(ApiInspect, TellsTheLastIdOfEachClassAndThePendingNumbers) {
    Writer writer = Writer::create(path(), layout);
    Message message{.uniformId = 10, .seqNum = -5, .id = 3, .time = 100};
    writer.append(message);
    message = {.uniformId = 11, .seqNum = 8, .prevSeqNum = -5, .id = 4, .time = 200};
    writer.append(message);
    message = {.uniformId = 12, .seqNum = 1, .id = 1073741823, .time = 300, .outOfSequence = true};
    writer.append(message);
    writer.close();
    const TableInfo info = inspect(path());
    EXPECT_EQ(info.lastIds,
              (std::array<std::optional<std::int32_t>, 5>{std::nullopt, 4, std::nullopt, 1073741823, std::nullopt}));
    EXPECT_EQ(info.lastUniformId, 12);
    EXPECT_EQ(info.lastGood, (SequencePoint{8, 200}));
    EXPECT_EQ(info.firstPending, (SequencePoint{-5, 200}));
    EXPECT_EQ(info.lastPending, (SequencePoint{-5, 100}));
}

TEST_F(ApiInspect, SeesWhatAWriterHasStoredBehindTheHeader) {
    Writer writer = Writer::create(path(), layout);
    for (std::int32_t n = 1; n <= 8; ++n) {
        writer.append(SimpleMessage(n).message);
        const TableInfo info = inspect(path());
        EXPECT_EQ(info.messageCount, n);
        EXPECT_EQ(info.lastUniformId, n);
        EXPECT_EQ(info.lastTime, 1000 * n);
        EXPECT_EQ(info.closedCleanly, n % 3 == 0) << "the header is saved with every third message only";
        EXPECT_FALSE(info.problem.has_value());
    }
}

TEST_F(ApiInspect, WritesNothingAndTakesNoLock) {
    makeTable(path(), layout, 4);
    internal::test::appendFile(path().string(), internal::test::pattern(100));
    const Bytes before = fileBytes();
    const auto time = std::filesystem::last_write_time(path());
    static_cast<void>(inspect(path()));
    EXPECT_EQ(difference(fileBytes(), before), "");
    EXPECT_EQ(std::filesystem::last_write_time(path()), time);
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(directory.path()), {}), 1);
}

TEST_F(ApiInspect, TellsTheTagsOfASessionInfoTable) {
    const std::vector<std::int32_t> tags = {5, 1, 9};
    SessionInfo::create(path(), tags).close();
    TableInfo info = inspect(path());
    EXPECT_EQ(info.kind, TableKind::sessionInfo);
    EXPECT_EQ(info.tags, tags);
    EXPECT_EQ(info.fileSize, 44 + 3 * 4);
    EXPECT_TRUE(info.closedCleanly);
    SessionInfo::openForWriting(path()).write(9, 1);
    EXPECT_TRUE(inspect(path()).closedCleanly);
    internal::test::appendFile(path().string(), internal::test::pattern(1));
    EXPECT_FALSE(inspect(path()).closedCleanly);
}

TEST_F(ApiInspect, TellsOfDamageBehindTheHeaderAndOfWhatStandsInFrontOfIt) {
    makeTable(path(), layout, 8);
    const TableInfo sound = inspect(path());
    const Bytes bytes = fileBytes();
    // The first block's footer ends with its length: another one there, so that the two disagree.
    std::uint64_t length = 0;
    std::memcpy(&length, bytes.data() + sound.headerSize, sizeof(length));
    const std::size_t trailing = static_cast<std::size_t>(sound.headerSize) + length - 8;
    internal::test::patchFile(path().string(), trailing, internal::test::pattern(8, 1));
    const TableInfo info = inspect(path());
    ASSERT_TRUE(info.problem.has_value());
    EXPECT_EQ(info.problem->code(), Code::headerCorrupted);
    EXPECT_EQ(info.problem->path(), path());
    EXPECT_TRUE(info.problem->offset().has_value());
    EXPECT_EQ(info.layout, layout);
    EXPECT_EQ(info.fileSize, sound.fileSize);
}

TEST_F(ApiInspect, TellsOfDamageInTheOpenBlock) {
    makeTable(path(), layout, 5);
    const std::int64_t end = static_cast<std::int64_t>(fileBytes().size());
    internal::test::appendFile(path().string(), internal::test::pattern(100, 5));
    const TableInfo info = inspect(path());
    ASSERT_TRUE(info.problem.has_value());
    EXPECT_EQ(info.problem->code(), Code::consistency);
    EXPECT_EQ(info.problem->offset(), end);
    EXPECT_EQ(info.messageCount, 5);
    EXPECT_EQ(info.lastUniformId, 5);
    EXPECT_EQ(info.lastTime, 5000);
    EXPECT_FALSE(info.closedCleanly);
}

TEST_F(ApiInspect, TellsAllThereIsToTellOrTheReadThatTheSystemRefuses) {
    for (const std::int32_t messages : {7, 9}) {
        std::filesystem::remove(path());
        makeTable(path(), layout, messages);
        FaultPlatform platform;
        EXPECT_FALSE(inspect(path()).problem.has_value());
        const int reads = platform.count(FileCall::readAt);
        for (int n = 1; n <= reads; ++n) {
            SCOPED_TRACE("read " + std::to_string(n) + " of " + std::to_string(reads));
            platform.clear();
            platform.failNth(FileCall::readAt, n, EIO);
            try {
                const TableInfo info = inspect(path());
                if (info.problem.has_value()) {
                    EXPECT_EQ(info.problem->code(), Code::fileRead);
                    continue;
                }
                EXPECT_EQ(info.messageCount, messages);
                EXPECT_EQ(info.firstTime, 1000);
                EXPECT_EQ(info.lastTime, 1000 * messages);
                EXPECT_EQ(info.lastUniformId, messages);
            } catch (const Error& error) {
                EXPECT_EQ(error.code(), Code::fileRead);
                EXPECT_EQ(n, 1) << "all but the read that tells what kind of table it is";
            }
        }
    }
}

TEST_F(ApiInspect, DoesNotBelieveAHeaderWhoseNumbersCannotBe) {
    makeTable(path(), layout, 8);
    const TableInfo sound = inspect(path());
    const std::size_t tail = static_cast<std::size_t>(sound.headerSize) - 88;
    for (const char* count : {"00 00 00 00", "ff ff ff 7f"}) {
        internal::test::patchFile(path().string(), tail + 24, internal::test::fromHex(count));
        EXPECT_EQ(inspect(path()).messageCount, 8) << count;
    }
    internal::test::patchFile(path().string(), tail + 8, internal::test::fromHex("ff ff ff ff ff ff ff ff"));
    EXPECT_EQ(inspect(path()).messageCount, 8);
    internal::test::patchFile(path().string(), tail + 8, internal::test::fromHex("00 00 00 00 00 00 00 00"));
    EXPECT_EQ(inspect(path()).messageCount, 8);
}

TEST_F(ApiInspect, TellsWhatAHeaderSaysThatNobodyCanOpen) {
    makeTable(path(), layout, 8);
    const std::size_t tail = static_cast<std::size_t>(inspect(path()).headerSize) - 88;
    internal::test::patchFile(path().string(), tail + 24, internal::test::fromHex("ff ff ff ff"));
    const TableInfo info = inspect(path());
    EXPECT_EQ(info.layout, layout);
    EXPECT_FALSE(info.closedCleanly);
    ASSERT_TRUE(info.problem.has_value());
    EXPECT_EQ(info.problem->code(), Code::headerCorrupted);
}

TEST_F(ApiInspect, RefusesWhatIsNoTableWithTheReason) {
    EXPECT_TABULO_ERROR(fileOpen, static_cast<void>(inspect(path())));
    EXPECT_TABULO_ERROR(fileOpen, static_cast<void>(inspect(directory.path())));
    EXPECT_TABULO_ERROR(wrongParameter, static_cast<void>(inspect("")));
    const auto refusal = [&](const Bytes& bytes) {
        internal::test::writeFile(path().string(), bytes);
        return std::string(errorOf([&] { static_cast<void>(inspect(path())); }).name());
    };
    EXPECT_EQ(refusal({}), "FILE_SIZE_ERROR");
    EXPECT_EQ(refusal(internal::test::fromText("KestrovaDb")), "FILE_SIZE_ERROR");
    EXPECT_EQ(refusal(internal::test::fromText("%PDF-1.4 is another kind of file")), "SIGNATURE_ERROR");
    makeTable(directory.file("sound"), layout, 4);
    const Bytes sound = readFile(directory.file("sound"));
    Bytes bytes = sound;
    bytes[10] = 2;
    EXPECT_EQ(refusal(bytes), "BYTE_ORDER_ERROR");
    bytes = sound;
    bytes[11] = 6;
    EXPECT_EQ(refusal(bytes), "VERSION_ERROR");
    bytes = sound;
    bytes[23] = 'm';
    EXPECT_EQ(refusal(bytes), "TABLE_TYPE_ERROR");
    bytes = sound;
    bytes[36] = 0;  // messagesPerBlock
    EXPECT_EQ(refusal(bytes), "HEADER_CORRUPTED_ERROR");
    bytes = sound;
    bytes[15] += 1;  // headerSize
    EXPECT_EQ(refusal(bytes), "HEADER_CORRUPTED_ERROR");
    for (std::size_t length = 20; length < static_cast<std::size_t>(inspect(directory.file("sound")).headerSize);
         ++length) {
        EXPECT_EQ(refusal(Bytes(sound.begin(), sound.begin() + static_cast<std::ptrdiff_t>(length))),
                  "STREAM_NOT_ENOUGH_DATA_ERROR")
            << length;
    }
}

TEST_F(ApiInspect, ReadsATableWhoseNamesAreStoredAsNoBindingStoresThem) {
    Writer writer = Writer::create(path(), {.texts = {"Symbol"}});
    for (int i = 0; i < 3; ++i) {
        writer.append(Message{});
    }
    writer.close();
    Bytes bytes = fileBytes();
    const std::size_t name = 19 + 33 + 4;
    bytes[name + 6] = 'X';  // in place of the zero byte at its end
    internal::test::writeFile(path().string(), bytes);
    EXPECT_EQ(inspect(path()).layout.texts, std::vector<std::string>{"SymbolX"});
    bytes[name + 2] = 0;
    internal::test::writeFile(path().string(), bytes);
    const TableInfo info = inspect(path());
    EXPECT_EQ(info.layout.texts, std::vector<std::string>{std::string("Sy\0bolX", 7)});
    EXPECT_EQ(info.messageCount, 3);
}

using ApiCutFiles = TableTest;

TEST_F(ApiCutFiles, AreFoundByTheirNamesInTheOrderOfTheirOffsets) {
    const std::vector<std::string> expected = {"orders.cut-0", "orders.cut-90", "orders.cut-90-1", "orders.cut-90-12",
                                               "orders.cut-4096"};
    for (const std::string& name : expected) {
        std::ofstream(directory.file(name)).close();
    }
    for (const char* name : {"orders", "orders.cut-", "orders.cut-x", "orders.cut-1x", "orders.cut-1-", "orders.cut--1",
                             "orders2.cut-1", "xorders.cut-1", "orders.cut-99999999999999999999", "orders.cut-1-2-3"}) {
        std::ofstream(directory.file(name)).close();
    }
    std::vector<std::filesystem::path> paths;
    for (const std::string& name : expected) {
        paths.emplace_back(directory.file(name));
    }
    EXPECT_EQ(cutFilesOf(path()), paths);
    const Error error = errorOf([&] { (void)cutFilesOf(directory.file("no/orders")); });
    EXPECT_EQ(error.code(), Code::fileOpen);
    EXPECT_EQ(error.path(), directory.file("no"));
    EXPECT_EQ(error.systemText(), "No such file or directory");
}

class ApiOpenForWriting : public TableTest {
  protected:
    // Only a process that sees all processes can say "no".
    static bool canSayNo() {
        return std::filesystem::read_symlink("/proc/self/ns/pid") == "pid:[4026531836]" &&
               std::filesystem::exists("/proc/locks");
    }
};

TEST_F(ApiOpenForWriting, IsToldOfAWriterInThisProcess) {
    {
        const Writer writer = Writer::create(path(), layout);
        EXPECT_EQ(isOpenForWriting(path()), OpenForWriting::yes);
        EXPECT_EQ(inspect(path()).openForWriting, OpenForWriting::yes);
    }
    if (canSayNo()) {
        EXPECT_EQ(isOpenForWriting(path()), OpenForWriting::no);
    }
}

TEST_F(ApiOpenForWriting, IsToldOfAWriterInAnotherProcessUntilThatEndsHoweverItEnds) {
    for (const bool killed : {false, true}) {
        const internal::test::ProcessSignal opened;
        const internal::test::ProcessSignal end;
        internal::test::ChildProcess child([&] {
            Writer writer = Writer::openOrCreate(path(), layout);
            writer.append(SimpleMessage(1).message);
            opened.raise();
            return end.await() ? 0 : 1;
        });
        ASSERT_TRUE(opened.await());
        EXPECT_EQ(inspect(path()).openForWriting, OpenForWriting::yes);
        if (killed) {
            child.kill();
        } else {
            end.raise();
            EXPECT_EQ(child.wait(), 0);
        }
        if (canSayNo()) {
            EXPECT_EQ(inspect(path()).openForWriting, OpenForWriting::no);
        }
    }
}

TEST_F(ApiOpenForWriting, IsNotSaidOfReaders) {
    makeTable(path(), layout, 3);
    const SessionInfo session = [&] {
        const std::vector<std::int32_t> tags = {1};
        SessionInfo::create(directory.file("session"), tags).close();
        return SessionInfo::open(directory.file("session"));
    }();
    EXPECT_NE(isOpenForWriting(directory.file("session")), OpenForWriting::yes);
    EXPECT_NE(isOpenForWriting(path()), OpenForWriting::yes);
}

TEST_F(ApiOpenForWriting, NeverRefusesAWriterThatStarts) {
    makeTable(path(), layout, 1);
    const internal::test::ProcessSignal end;
    internal::test::ChildProcess prober([&] {
        for (;;) {
            static_cast<void>(inspect(path()));
        }
        return 0;
    });
    for (int i = 0; i < 500; ++i) {
        Writer::open(path()).close();
    }
    prober.kill();
}

TEST_F(ApiOpenForWriting, IsRefusedForAFileThatIsNotThere) {
    const Error error = errorOf([&] { static_cast<void>(isOpenForWriting(path())); });
    EXPECT_EQ(error.code(), Code::fileOpen);
    EXPECT_EQ(error.systemText(), "No such file or directory");
}

TEST(ApiLayout, IsTheSameWhetherItsDefaultIsWrittenOutOrNot) {
    Layout one{.texts = {"A"}};
    Layout other = one;
    other.summarisedTexts = 3;
    EXPECT_EQ(one, other);
    other.summarisedTexts = 2;
    EXPECT_FALSE(one == other);
}

}  // namespace
}  // namespace tabulo::test
