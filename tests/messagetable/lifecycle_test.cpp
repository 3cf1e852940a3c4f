#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <filesystem>

#include "messagetable/message_lookup.h"
#include "tests/messagetable/table_image.h"
#include "tests/support/allocation_failure.h"
#include "tests/support/child_process.h"
#include "tests/support/debug_log.h"
#include "tests/support/fault_platform.h"

namespace tabulo::internal::test {
namespace {

std::string pointerText(const void* pointer) {
    char text[32];
    std::snprintf(text, sizeof(text), "%p", pointer);
    return text;
}

std::size_t openDescriptors() {
    const std::filesystem::directory_iterator all("/proc/self/fd");
    return static_cast<std::size_t>(std::distance(begin(all), end(all)));
}

// The part of each line in front of its message.
std::vector<std::string> functionsOf(const std::vector<std::string>& lines) {
    std::vector<std::string> found;
    for (const std::string& line : lines) {
        found.push_back(line.substr(0, line.find("(): ")));
    }
    return found;
}

// The code of opening the table for writing in another process.
ErrorCode openElsewhere(const std::string& root, const TableShape& shape) {
    return static_cast<ErrorCode>(runInChild([&] {
        const MessageTablePtr table = createTable(root, shape);
        return mt_open(table.get(), OpenMode::write);
    }));
}

// A file that is no table any more.
Bytes withoutSignature(Bytes bytes) {
    bytes[0] = 'X';
    return bytes;
}

class Lifecycle : public TableImageTest {
  protected:
    Bytes closed(std::int32_t last) const { return closedImage(shape, simpleMessages(1, last, shape)); }
};

TEST_F(Lifecycle, CreatingATableLogsItsConfigurationAndItself) {
    const DebugLog debug;
    KSVTboTableConfig* config = makeConfig(directory.root(), shape);
    table.reset(mt_create(config));
    ASSERT_NE(table, nullptr);
    const std::vector<std::string> lines = debug.lines();
    ASSERT_GE(lines.size(), 2U);
    EXPECT_EQ(lines.front(), debugLine("+ mt_create", "(KSVTboTableConfig*)config=" + pointerText(config)));
    EXPECT_EQ(lines.back(), debugLine("- mt_create", "returning " + pointerText(table.get()) + ", created = 1"));
    const std::vector<std::string> notes = {
        noteLine("+ tableStorage_create",
                 "owner=" + pointerText(table.get()) + ", (KSVTboTableConfig*)config=" + pointerText(config) + "."),
        noteLine("- tableStorage_create",
                 "self=" + pointerText(table->storage.get()) + ", self->config=" + pointerText(config))};
    EXPECT_EQ(log.all(), notes);
}

TEST_F(Lifecycle, WithoutAConfigurationThereIsNoTable) {
    const DebugLog debug;
    EXPECT_EQ(mt_create(nullptr), nullptr);
    const std::vector<std::string> expected = {
        debugLine("+ mt_create", "(KSVTboTableConfig*)config=" + pointerText(nullptr)),
        debugLine("- mt_create", "returning " + pointerText(nullptr) + ", created = 0")};
    EXPECT_EQ(debug.lines(), expected);
}

TEST_F(Lifecycle, AnImpossibleLayoutGivesNoTableAndTakesTheConfigurationAlong) {
    shape.messagesPerBlock = 0;
    const DebugLog debug;
    EXPECT_EQ(mt_create(makeConfig(directory.root(), shape)), nullptr) << "a block of no messages";
    EXPECT_EQ(debug.lines().back(), debugLine("- mt_create", "returning " + pointerText(nullptr) + ", created = 0"));
}

TEST_F(Lifecycle, TheConfigurationBelongsToTheStorage) {
    KSVTboTableConfig* config = makeConfig(directory.root(), shape);
    table.reset(mt_create(config));
    EXPECT_EQ(tableStorage_getConfig(table->storage.get()), config);
}

TEST_F(Lifecycle, ACreatedTableHasNoFilesAndNothingInItsBooks) {
    table = createTable(directory.root(), shape);
    EXPECT_FALSE(std::filesystem::exists(path()));
    EXPECT_FALSE(tableStorage_isActive(table->storage.get()));
    EXPECT_EQ(table->records.blockInfo.lastBlockEnd, 0U);
    EXPECT_EQ(table->records.dataInfo.dataEnd, 0U);
    EXPECT_EQ(table->records.dataInfo.messageCount, 0);
    EXPECT_EQ(table->records.staticIndexes, mthStaticIndexes{});
}

// The capture of the log would allocate, so this one goes without.
TEST(LifecycleWithoutMemory, CreatingATableGivesNoneAndLeaksNothing) {
    log_setFacility(nullptr);
    const TemporaryDirectory directory;
    std::int64_t n = 0;
    MessageTablePtr table;
    while (table == nullptr && n < 1000) {
        n += 1;
        KSVTboTableConfig* config = makeConfig(directory.root(), widestShape());
        const AllocationFailure failure(n);
        table.reset(mt_create(config));
    }
    EXPECT_GE(n, 5) << "a table, its storage, its frame writer and the filters were to be allocated";
    EXPECT_LT(n, 1000);
}

TEST_F(Lifecycle, WithoutATableEveryOperationIsRefused) {
    std::int32_t value = 0;
    const MessageMetadata metadata;
    EXPECT_EQ(mt_open(nullptr, OpenMode::write), NULL_POINTER_ERROR);
    EXPECT_EQ(mt_close(nullptr), NULL_POINTER_ERROR);
    EXPECT_EQ(mt_drop(nullptr), NULL_POINTER_ERROR);
    EXPECT_EQ(mt_truncateStorage(nullptr), NULL_POINTER_ERROR);
    EXPECT_EQ(mt_refresh(nullptr), NULL_POINTER_ERROR);
    EXPECT_EQ(mt_getLastUniformMessageId(nullptr, &value), NULL_POINTER_ERROR);
    EXPECT_EQ(mt_writeMessage(nullptr, {metadata, {}, {}}), NULL_POINTER_ERROR);
    mt_destroy(nullptr);
}

TEST_F(Lifecycle, AMissingFileIsCreatedInModes1And2AndRefusedInMode0) {
    for (const OpenMode mode : {OpenMode::write, OpenMode::create}) {
        open(mode);
        ASSERT_NE(table, nullptr);
        EXPECT_EQ(table->records.blockInfo.lastBlockEnd, 140U) << "the first block begins behind the header";
        EXPECT_EQ(table->records.dataInfo.dataEnd, 140U);
        EXPECT_EQ(fileBytes().size(), 140U);
        EXPECT_EQ(u64At(fileBytes(), 60), 0U) << "a new file stores 0";
        table.reset();
        std::filesystem::remove(path());
    }
    table = createTable(directory.root(), shape);
    EXPECT_EQ(mt_open(table.get(), OpenMode::read), FILE_OPEN_ERROR);
    EXPECT_FALSE(std::filesystem::exists(path()));
}

TEST_F(Lifecycle, CreateModeEmptiesAFileThatIsThere) {
    place(closed(6));
    open(OpenMode::create);
    ASSERT_NE(table, nullptr);
    EXPECT_EQ(fileBytes().size(), 140U);
    EXPECT_EQ(table->records.dataInfo.messageCount, 0);
    EXPECT_EQ(table->records.staticIndexes, mthStaticIndexes{});
    ASSERT_EQ(writeSimple(1, 6), NO_ERROR) << "a table made by mode 2 can be written";
    ASSERT_EQ(closeTable(table), NO_ERROR);
    EXPECT_EQ(difference(fileBytes(), closed(6)), "");
}

TEST_F(Lifecycle, CloseSavesTheTailAndKeepsTheFileAndItsLock) {
    open(OpenMode::create);
    ASSERT_EQ(writeSimple(1, 6), NO_ERROR);
    EXPECT_NE(difference(fileBytes(), closed(6)), "") << "the tail is not saved for each message";
    ASSERT_EQ(mt_close(table.get()), NO_ERROR);
    EXPECT_EQ(difference(fileBytes(), closed(6)), "");
    EXPECT_EQ(openElsewhere(directory.root(), shape), FILE_OPEN_ERROR) << "the lock goes with the table's destruction";
    ASSERT_EQ(writeSimple(7, 7), NO_ERROR);
    ASSERT_EQ(mt_close(table.get()), NO_ERROR);
    EXPECT_EQ(difference(fileBytes(), closed(7)), "");
    table.reset();
    EXPECT_EQ(openElsewhere(directory.root(), shape), NO_ERROR);
}

TEST_F(Lifecycle, CloseOfAReadOnlyTableWritesNothing) {
    const Bytes image = unclosedImage(shape, simpleMessages(1, 6, shape));
    place(image);
    FaultPlatform platform;
    open(OpenMode::read);
    std::int32_t last = 0;
    ASSERT_EQ(mt_getLastUniformMessageId(table.get(), &last), NO_ERROR);
    EXPECT_EQ(closeTable(table), NO_ERROR);
    EXPECT_EQ(platform.count(FileCall::writeAt), 0);
    EXPECT_EQ(platform.count(FileCall::truncate), 0);
    EXPECT_EQ(difference(fileBytes(), image), "");
}

TEST_F(Lifecycle, CloseOfATableThatWasNeverOpenedWritesNothing) {
    table = createTable(directory.root(), shape);
    EXPECT_EQ(mt_close(table.get()), NO_ERROR);
    EXPECT_FALSE(std::filesystem::exists(path()));
}

TEST_F(Lifecycle, CloseOfATableWhoseOpeningFailedWritesNothing) {
    const Bytes other = closed(6);
    place(other);
    shape.messagesPerBlock = 5;
    FaultPlatform platform;
    table = createTable(directory.root(), shape);
    ASSERT_EQ(mt_open(table.get(), OpenMode::write), CONFIG_MISMATCH_ERROR);
    EXPECT_EQ(mt_close(table.get()), NO_ERROR);
    EXPECT_EQ(platform.count(FileCall::writeAt), 0);
    EXPECT_EQ(difference(fileBytes(), other), "");
}

TEST_F(Lifecycle, CloseAfterASecondOpeningFailedWritesNothing) {
    open(OpenMode::write);
    ASSERT_EQ(writeSimple(1, 6), NO_ERROR);
    const Bytes other = withoutSignature(fileBytes());
    place(other);
    ASSERT_EQ(mt_open(table.get(), OpenMode::write), SIGNATURE_ERROR);
    EXPECT_EQ(mt_close(table.get()), NO_ERROR);
    EXPECT_EQ(difference(fileBytes(), other), "") << "the tail of a table that is gone was written into a foreign file";
}

TEST_F(Lifecycle, ACloseThatCannotSaveTheTailSaysWhyAndDropsTheFile) {
    open(OpenMode::write);
    ASSERT_EQ(writeSimple(1, 3), NO_ERROR);
    log.clear();
    {
        FaultPlatform platform;
        platform.failAll(FileCall::writeAt, ENOSPC);
        EXPECT_EQ(mt_close(table.get()), FILE_FLUSH_ERROR);
    }
    const std::vector<std::string> expected = {
        warningLine("tv_saveData", "Replica 0 closed due to file write error: I/O error: unable to flush a file")};
    EXPECT_EQ(log.warnings(), expected);
    EXPECT_FALSE(tableStorage_isActive(table->storage.get()));
    EXPECT_EQ(messagesIn(directory.root(), shape), simpleMessages(1, 3, shape)) << "the messages are in the file";
}

TEST_F(Lifecycle, DestroyingReleasesTheFileWithoutSavingTheTail) {
    open(OpenMode::write);
    ASSERT_EQ(writeSimple(1, 6), NO_ERROR);
    const Bytes before = fileBytes();
    const std::size_t descriptors = openDescriptors();
    log.clear();
    table.reset();
    EXPECT_EQ(difference(fileBytes(), before), "");
    EXPECT_EQ(openDescriptors(), descriptors - 1);
    EXPECT_EQ(openElsewhere(directory.root(), shape), NO_ERROR) << "the lock is still held";
    const std::vector<std::string> expected = {
        "Tabulo/C NOTE: + tableStorage_destroy", "Tabulo/C NOTE: + tableStorage_uninit",
        "Tabulo/C NOTE: - tableStorage_uninit", "Tabulo/C NOTE: - tableStorage_destroy"};
    EXPECT_EQ(functionsOf(log.all()), expected);
}

TEST_F(Lifecycle, DestroyingNamesTheFileWhoseCloseFailed) {
    open(OpenMode::write);
    log.clear();
    FaultPlatform platform;
    platform.failNth(FileCall::close, 1, EIO);
    table.reset();
    const std::vector<std::string> expected = {
        warningLine("tsX_close", "tableFileClose(" + path() + ") failed: System file routine failed.")};
    EXPECT_EQ(warningsOf("tsX_close"), expected);
    EXPECT_EQ(platform.count(FileCall::close), 1);
}

TEST_F(Lifecycle, OpeningAnOpenTableClosesItFirst) {
    open(OpenMode::write);
    ASSERT_EQ(writeSimple(1, 6), NO_ERROR);
    const std::size_t descriptors = openDescriptors();
    log.clear();
    ASSERT_EQ(mt_open(table.get(), OpenMode::write), NO_ERROR) << "its own lock must not keep it out";
    EXPECT_EQ(openDescriptors(), descriptors);
    const std::vector<std::string> notes = functionsOf(log.notes());
    const std::vector<std::string> expected = {
        "Tabulo/C NOTE: + tableStorage_init", "Tabulo/C NOTE: + tableStorage_uninit",
        "Tabulo/C NOTE: - tableStorage_uninit", "Tabulo/C NOTE: - tableStorage_init"};
    EXPECT_EQ(notes, expected);
    EXPECT_EQ(table->records.dataInfo.messageCount, 6);
    ASSERT_EQ(writeSimple(7, 9), NO_ERROR);
    ASSERT_EQ(closeTable(table), NO_ERROR);
    EXPECT_EQ(difference(fileBytes(), closed(9)), "");
}

TEST_F(Lifecycle, OpeningAnOpenTableInAnotherModeChangesWhatItMayDo) {
    open(OpenMode::write);
    ASSERT_EQ(writeSimple(1, 2), NO_ERROR);
    ASSERT_EQ(mt_open(table.get(), OpenMode::read), NO_ERROR);
    EXPECT_EQ(writeSimple(3, 3), READ_ONLY_ERROR);
    ASSERT_EQ(mt_open(table.get(), OpenMode::write), NO_ERROR);
    EXPECT_EQ(writeSimple(3, 3), NO_ERROR);
    ASSERT_EQ(mt_open(table.get(), OpenMode::create), NO_ERROR);
    EXPECT_EQ(table->records.dataInfo.messageCount, 0);
    EXPECT_EQ(table->writer->summary.messageCount, 0);
    ASSERT_EQ(writeSimple(1, 6), NO_ERROR);
    ASSERT_EQ(closeTable(table), NO_ERROR);
    EXPECT_EQ(difference(fileBytes(), closed(6)), "");
}

TEST_F(Lifecycle, ATableThatCannotBeOpenedAgainKeepsNothingOfItsFormerState) {
    open(OpenMode::write);
    ASSERT_EQ(writeSimple(1, 6), NO_ERROR);
    std::filesystem::remove(path());
    ASSERT_EQ(mt_open(table.get(), OpenMode::read), FILE_OPEN_ERROR);
    EXPECT_EQ(table->records.dataInfo.messageCount, 0);
    EXPECT_EQ(table->records.staticIndexes, mthStaticIndexes{});
    EXPECT_EQ(table->writer->summary.messageCount, 0);
    EXPECT_EQ(writeSimple(7, 7), FILE_WRITE_ERROR) << "no file is open";
    std::int32_t last = 0;
    EXPECT_EQ(mt_getLastUniformMessageId(table.get(), &last), MASTER_INACTIVE_ERROR);
}

TEST_F(Lifecycle, AWriterGoesOnWithTheStaticIndexesOfTheLastFooterAndTheOpenBlock) {
    Message resent = simpleMessage(3, shape);
    resent.metadata.connMsgId = 2000000000;
    std::vector<Message> messages = simpleMessages(1, 6, shape);
    messages[2] = resent;
    place(closedImage(shape, messages));
    open(OpenMode::write);
    EXPECT_EQ(table->records.staticIndexes.connMsgIds[RESENT], 2000000000) << "it is in the closed block";
    EXPECT_EQ(table->records.staticIndexes.connMsgIds[APP_TO], 6) << "it is in the open block";
    EXPECT_EQ(table->writer->summary.staticIndexes, table->records.staticIndexes);
    EXPECT_EQ(table->writer->summary.messageCount, 2);
    EXPECT_EQ(table->writer->summary.minimum.seqNum, 5);
    EXPECT_EQ(table->writer->summary.maximum.seqNum, 6);
}

TEST_F(Lifecycle, ManyWritersOneAfterAnotherMakeTheFileOfASingleOne) {
    for (std::int32_t n = 1; n <= 13; ++n) {
        open(OpenMode::write);
        ASSERT_EQ(writeSimple(n, n), NO_ERROR);
        ASSERT_EQ(closeTable(table), NO_ERROR);
        ASSERT_EQ(difference(fileBytes(), closed(n)), "") << "after message " << n;
    }
    EXPECT_EQ(recoveries(), 0U) << "a closed table was recovered";
}

}  // namespace
}  // namespace tabulo::internal::test
