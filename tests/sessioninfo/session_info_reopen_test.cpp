#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <vector>

#include "tests/sessioninfo/session_info_fixture.h"
#include "tests/support/debug_log.h"
#include "tests/support/fault_platform.h"

namespace tabulo::internal::test {
namespace {

const Values someValues = {20, 10, 30, 40, 50, 60};

// A table that was opened for reading and is then written.
class SessionInfoReopen : public SessionInfoTest {
  protected:
    void SetUp() override {
        place(whole);
        open(OpenMode::read);
    }
    // Whether a second writer can have the file.
    bool isFree() {
        const SessionInfoTablePtr other = createSessionTable(directory.root());
        return si_init(other.get(), OpenMode::write) == NO_ERROR;
    }
    const Bytes whole = sessionFile(defaultTags, someValues);
};

TEST_F(SessionInfoReopen, AWriteSwitchesTheTableToWriting) {
    ASSERT_TRUE(isFree()) << "a reader holds no lock";
    ASSERT_EQ(writeValues(table.get(), {3}, {33}), NO_ERROR);
    EXPECT_EQ(fileValues(), (Values{20, 10, 33, 40, 50, 60}));
    EXPECT_EQ(readValues(table.get(), defaultTags), (Values{20, 10, 33, 40, 50, 60}));
    EXPECT_FALSE(isFree()) << "the table is a writer now";
}

TEST_F(SessionInfoReopen, EveryWriteReopensTheFileAgain) {
    DebugLog debug;
    for (int i = 1; i <= 3; ++i) {
        debug.clear();
        FaultPlatform platform;
        ASSERT_EQ(writeValues(table.get(), {3}, {i}), NO_ERROR) << "write " << i;
        EXPECT_EQ(platform.count(FileCall::close), 1) << "write " << i;
        EXPECT_EQ(platform.count(FileCall::open), 1) << "write " << i;
        EXPECT_EQ(platform.count(FileCall::lock), 1) << "write " << i;
        EXPECT_EQ(platform.count(FileCall::writeAt), 1) << "write " << i;
        EXPECT_NE(debug.text().find(debugLine("tableStorage_ensureMode", "reopening table: old mode=0, new mode=1.\n")),
                  std::string::npos)
            << "write " << i;
    }
    EXPECT_EQ(fileValues(), (Values{20, 10, 3, 40, 50, 60}));
}

TEST_F(SessionInfoReopen, ATableOpenedForWritingIsNeverReopened) {
    open(OpenMode::write);
    FaultPlatform platform;
    ASSERT_EQ(writeValues(table.get(), {3}, {33}), NO_ERROR);
    EXPECT_EQ(platform.count(FileCall::open), 0);
}

TEST_F(SessionInfoReopen, AWriteKeepsWhatAnotherWriterHasWrittenSinceTheOpen) {
    {
        const SessionInfoTablePtr other = openSessionTable(directory.root(), OpenMode::write);
        ASSERT_EQ(writeValues(other.get(), {1, 3}, {11, 31}), NO_ERROR);
    }
    ASSERT_EQ(writeValues(table.get(), {3}, {33}), NO_ERROR);
    EXPECT_EQ(fileValues(), (Values{20, 11, 33, 40, 50, 60}));
}

TEST_F(SessionInfoReopen, ARefusedReopenLeavesTheTableReadableAndItsValuesFresh) {
    SessionInfoTablePtr writer = openSessionTable(directory.root(), OpenMode::write);
    ASSERT_NE(writer, nullptr);
    EXPECT_EQ(writeValues(table.get(), {3}, {33}), FILE_OPEN_ERROR);
    EXPECT_EQ(readValues(table.get(), defaultTags), someValues) << "the refused value is nowhere";
    ASSERT_EQ(writeValues(writer.get(), {3}, {34}), NO_ERROR) << "the writer is not disturbed";
    EXPECT_EQ(readValues(table.get(), {3}), Values{34});
    EXPECT_EQ(si_drop(table.get()), FILE_OPEN_ERROR);
    EXPECT_EQ(readValues(table.get(), {3, 6}), (Values{34, 60}));
    writer.reset();
    ASSERT_EQ(writeValues(table.get(), {3}, {35}), NO_ERROR) << "and each write asks again";
    EXPECT_EQ(fileValues(), (Values{20, 10, 35, 40, 50, 60}));
}

TEST_F(SessionInfoReopen, AnUnknownTagInAWriteChangesNothing) {
    EXPECT_EQ(writeValues(table.get(), {3, 99}, {33, 1}), WRONG_PARAMETER_ERROR);
    EXPECT_EQ(difference(fileBytes(), whole), "");
    EXPECT_EQ(readValues(table.get(), defaultTags), someValues);
}

TEST_F(SessionInfoReopen, AFileThatEndsAtItsHeaderGetsItsValuesWithTheFirstWrite) {
    place(cutTo(whole, 68));
    open(OpenMode::read);
    log.clear();
    ASSERT_EQ(writeValues(table.get(), {4}, {44}), NO_ERROR);
    EXPECT_EQ(fileValues(), (Values{0, 0, 0, 44, 0, 0}));
    EXPECT_EQ(log.warnings(), std::vector<std::string>{}) << "recovery follows the mode of the open";
}

TEST_F(SessionInfoReopen, ACutValueAreaIsNotRecoveredByAWriteToATableOpenedForReading) {
    place(cutTo(whole, 100));
    EXPECT_EQ(writeValues(table.get(), {4}, {44}), FILE_READ_ERROR);
    EXPECT_EQ(difference(fileBytes(), cutTo(whole, 100)), "");
    place(whole);
    ASSERT_EQ(writeValues(table.get(), {4}, {44}), NO_ERROR) << "the table can be used on";
    EXPECT_EQ(fileValues(), (Values{20, 10, 30, 44, 50, 60}));
}

TEST_F(SessionInfoReopen, AReadBehindAWriteStillComesFromTheFileAndIsNotTriedTwice) {
    ASSERT_EQ(writeValues(table.get(), {3}, {33}), NO_ERROR);
    patchFile(path, 68, fromHex("63"));
    EXPECT_EQ(readValues(table.get(), {2}), Values{99}) << "the table was opened for reading";
    FaultPlatform platform;
    platform.failNth(FileCall::readAt, 1, EIO);
    EXPECT_EQ(readCode(table.get(), {2}), FILE_READ_ERROR) << "its file is held for writing, nobody else is at it";
    EXPECT_EQ(platform.count(FileCall::readAt), 1);
}

TEST_F(SessionInfoReopen, AFailedWriteLeavesNoActiveFileAndTheNextOneBringsItBack) {
    {
        FaultPlatform platform;
        platform.failAll(FileCall::writeAt, ENOSPC);
        EXPECT_EQ(writeValues(table.get(), {3}, {33}), FILE_FLUSH_ERROR);
    }
    EXPECT_EQ(log.warnings(), std::vector<std::string>{closedWarning(0, FILE_FLUSH_ERROR)});
    EXPECT_EQ(readCode(table.get(), {3}), MASTER_INACTIVE_ERROR);
    ASSERT_EQ(writeValues(table.get(), {4}, {44}), NO_ERROR);
    EXPECT_EQ(fileValues(), (Values{20, 10, 30, 44, 50, 60})) << "the file's own values are loaded by the reopen";
    EXPECT_EQ(readValues(table.get(), defaultTags), fileValues());
}

TEST_F(SessionInfoReopen, DroppingReopensTheTableToo) {
    ASSERT_EQ(si_drop(table.get()), NO_ERROR);
    EXPECT_EQ(difference(fileBytes(), sessionFile(defaultTags, Values(6, 0))), "");
    EXPECT_EQ(readValues(table.get(), defaultTags), Values(6, 0));
    EXPECT_FALSE(isFree());
}

TEST_F(SessionInfoReopen, DroppingATableWhoseReaderSawNoneOfItsExtraTagsClearsThemAll) {
    place(sessionFile({9, 8, 7}, {90, 80, 70}));
    open(OpenMode::read, Tags{7});
    ASSERT_EQ(si_drop(table.get()), NO_ERROR);
    EXPECT_EQ(difference(fileBytes(), sessionFile({9, 8, 7}, {0, 0, 0})), "");
}

TEST_F(SessionInfoReopen, ASecondWriterIsRefusedAndTouchesNothing) {
    open(OpenMode::write);
    const SessionInfoTablePtr other = createSessionTable(directory.root());
    EXPECT_EQ(si_init(other.get(), OpenMode::write), FILE_OPEN_ERROR);
    EXPECT_EQ(si_init(other.get(), OpenMode::create), FILE_OPEN_ERROR);
    EXPECT_EQ(difference(fileBytes(), whole), "");
    ASSERT_EQ(writeValues(table.get(), {3}, {33}), NO_ERROR);
}

}  // namespace
}  // namespace tabulo::internal::test
