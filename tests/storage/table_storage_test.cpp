// The life of a storage: its log lines, closing, reopening, dropping files.
#include "storage/table_storage.h"

#include <cerrno>
#include <filesystem>

#include "tests/storage/storage_fixture.h"
#include "tests/support/allocation_failure.h"
#include "tests/support/fault_platform.h"

namespace tabulo::internal::test {
namespace {

using Lines = std::vector<std::string>;

std::string selfAndConfig(const StoragePtr& storage) {
    return "self=" + pointerText(storage.get()) + ", config=" + pointerText(storage->config);
}

class TableStorageLife : public StorageFixture {
  protected:
    Lines uninitLines() const {
        return {noteLine("+ tableStorage_uninit", selfAndConfig(storage)),
                noteLine("- tableStorage_uninit", selfAndConfig(storage))};
    }
};

TEST_F(TableStorageLife, CreatingLogsItsPointersAndOpensNothing) {
    storage = makeStorage(1);
    log.clear();
    storage = makeStorage(1);
    const std::string config = pointerText(storage->config);
    const Lines all = log.all();
    ASSERT_GE(all.size(), 2U);
    EXPECT_EQ(all[0], noteLine("+ tableStorage_create",
                               "owner=" + pointerText(&owner) + ", (KSVTboTableConfig*)config=" + config + "."));
    EXPECT_EQ(all[1],
              noteLine("- tableStorage_create", "self=" + pointerText(storage.get()) + ", self->config=" + config));
    EXPECT_EQ(storage->activeCount, 0);
    EXPECT_TRUE(storage->files.empty());
    EXPECT_TRUE(storage->activeIndexes.empty());
    EXPECT_EQ(storage->headerSize, 0);
    EXPECT_EQ(storage->specificHeaderOffset, 0);
    EXPECT_EQ(storage->footerSize, 0);
    EXPECT_FALSE(tableStorage_isActive(storage.get()));
    EXPECT_EQ(tableStorage_getConfig(storage.get()), storage->config);
    EXPECT_TRUE(owner.calls.empty());
}

TEST_F(TableStorageLife, CreatingWithoutMemoryGivesNoneAndLeavesTheConfiguration) {
    log_setFacility(nullptr);
    KSVTboTableConfig* config = tableConfig_create("orders", 1);
    TableStorage* none = nullptr;
    {
        const AllocationFailure failure(1);
        none = tableStorage_create(fakeOwnerOps(), &owner, config);
    }
    EXPECT_EQ(none, nullptr);
    EXPECT_STREQ(tableConfig_getTableName(config), "orders");
    tableConfig_destroy(config);
}

TEST_F(TableStorageLife, InitAndUninitLogTwoNotesEach) {
    ASSERT_EQ(init(OpenMode::write), NO_ERROR);
    EXPECT_EQ(log.all(), (Lines{noteLine("+ tableStorage_init", selfAndConfig(storage)),
                                noteLine("- tableStorage_init", "self=" + pointerText(storage.get()) + ", result=0")}));
    log.clear();
    EXPECT_EQ(tableStorage_uninit(storage.get()), NO_ERROR);
    EXPECT_EQ(log.all(), uninitLines());
    EXPECT_TRUE(storage->files.empty());
    EXPECT_TRUE(storage->activeIndexes.empty());
    EXPECT_TRUE(isFree());
}

TEST_F(TableStorageLife, AFailedInitUndoesItselfBetweenItsLines) {
    EXPECT_EQ(init(OpenMode::read), FILE_OPEN_ERROR);
    Lines expected = {noteLine("+ tableStorage_init", selfAndConfig(storage))};
    for (const std::string& line : uninitLines()) {
        expected.push_back(line);
    }
    expected.push_back(noteLine("- tableStorage_init", "self=" + pointerText(storage.get()) + ", result=10"));
    EXPECT_EQ(log.notes(), expected);
}

TEST_F(TableStorageLife, DestroyingLogsAroundItsUninit) {
    ASSERT_EQ(init(OpenMode::write), NO_ERROR);
    log.clear();
    Lines expected = {noteLine("+ tableStorage_destroy", selfAndConfig(storage))};
    for (const std::string& line : uninitLines()) {
        expected.push_back(line);
    }
    expected.push_back(noteLine("- tableStorage_destroy", "self=" + pointerText(storage.get())));
    storage.reset();
    EXPECT_EQ(log.all(), expected);
    EXPECT_TRUE(isFree());
}

TEST_F(TableStorageLife, NotesOfTheStorageDoNotGoToTheLogFile) {
    const DebugLog debug;
    ASSERT_EQ(init(OpenMode::write), NO_ERROR);
    ASSERT_EQ(tableStorage_uninit(storage.get()), NO_ERROR);
    for (const std::string& line : debug.lines()) {
        EXPECT_EQ(line.find("tableStorage"), std::string::npos) << line;
    }
}

TEST_F(TableStorageLife, InitOnAnInitialisedStorageUninitialisesItFirst) {
    ASSERT_EQ(init(OpenMode::write), NO_ERROR);
    log.clear();
    EXPECT_EQ(init(OpenMode::write), NO_ERROR) << "the storage's own lock stands in its way";
    EXPECT_EQ(storage->activeCount, 1);
    Lines uninits;
    for (const std::string& line : log.all()) {
        if (line.find("tableStorage_uninit") != std::string::npos) {
            uninits.push_back(line);
        }
    }
    EXPECT_EQ(uninits, uninitLines());
    ASSERT_EQ(tableStorage_uninit(storage.get()), NO_ERROR);
    EXPECT_TRUE(isFree()) << "the first file leaked";
}

TEST_F(TableStorageLife, NullStoragesAreRefusedOrEmpty) {
    TableStorageFileIterator iterator;
    tableStorage_fileIteratorInit(&iterator);
    EXPECT_EQ(tableStorage_init(nullptr, OpenMode::write), NULL_POINTER_ERROR);
    EXPECT_EQ(tableStorage_uninit(nullptr), NULL_POINTER_ERROR);
    EXPECT_EQ(tableStorage_ensureMode(nullptr, OpenMode::write), NULL_POINTER_ERROR);
    EXPECT_EQ(tableStorage_truncate(nullptr), NULL_POINTER_ERROR);
    EXPECT_EQ(tableStorage_closeFile(nullptr, &iterator), NULL_POINTER_ERROR);
    EXPECT_EQ(tableStorage_closeFile(storage.get(), nullptr), NULL_POINTER_ERROR);
    EXPECT_EQ(tableStorage_getConfig(nullptr), nullptr);
    EXPECT_FALSE(tableStorage_isActive(nullptr));
    EXPECT_EQ(tableStorage_nextFile(nullptr, &iterator), nullptr);
    EXPECT_EQ(tableStorage_nextFile(storage.get(), &iterator), nullptr) << "no file is open";
    tableStorage_destroy(nullptr);
}

// Closing that fails.

TEST_F(TableStorageLife, AFailedCloseIsWarnedAndReturnedAndAFurtherOneGoesOn) {
    ASSERT_EQ(init(OpenMode::write), NO_ERROR);
    FaultPlatform platform;
    platform.failNth(FileCall::close, 1, EIO);
    log.clear();
    EXPECT_EQ(tableStorage_uninit(storage.get()), SYSTEM_FILE_ERROR);
    EXPECT_EQ(log.warnings(), Lines{warningLine("tsX_close", "tableFileClose(" + path +
                                                                 ") failed: System file routine "
                                                                 "failed.")});
    EXPECT_EQ(storage->files.size(), 1U) << "the arrays are freed only after a complete close";
    EXPECT_EQ(storage->activeCount, 1);
    EXPECT_EQ(tableStorage_uninit(storage.get()), NO_ERROR);
    EXPECT_TRUE(storage->files.empty());
    EXPECT_EQ(storage->activeCount, 0);
}

TEST_F(TableStorageLife, DestroyingGoesOnBehindAFailedCloseAndPrintsThePath) {
    ASSERT_EQ(init(OpenMode::write), NO_ERROR);
    FaultPlatform platform;
    platform.failAll(FileCall::close, EIO);
    log.clear();
    Lines expected = {noteLine("+ tableStorage_destroy", selfAndConfig(storage)), uninitLines()[0],
                      warningLine("tsX_close", "tableFileClose(" + path + ") failed: System file routine failed."),
                      uninitLines()[1], noteLine("- tableStorage_destroy", "self=" + pointerText(storage.get()))};
    storage.reset();
    EXPECT_EQ(log.all(), expected);
    EXPECT_EQ(platform.count(FileCall::close), 1);
}

TEST_F(TableStorageLife, AnInitThatFailsWithAFailingCloseLeavesNothingBehind) {
    FaultPlatform platform;
    platform.failAll(FileCall::close, EIO);
    owner.openedCode = NO_DATA_ERROR;
    EXPECT_EQ(init(OpenMode::write), NO_DATA_ERROR) << "the first failure is the result";
    EXPECT_EQ(storage->activeCount, 0);
    platform.clear();
    EXPECT_TRUE(isFree());
}

// Reopening.

TEST_F(TableStorageLife, EnsuringTheStoragesOwnModeDoesAndLogsNothing) {
    for (const OpenMode mode : {OpenMode::write, OpenMode::read}) {
        ASSERT_EQ(init(mode), NO_ERROR);
        const TableFile* before = tableStorage_master(storage.get());
        log.clear();
        owner.calls.clear();
        const DebugLog debug;
        EXPECT_EQ(tableStorage_ensureMode(storage.get(), mode), NO_ERROR);
        EXPECT_EQ(debug.text(), "");
        EXPECT_TRUE(log.writes().empty());
        EXPECT_TRUE(owner.calls.empty());
        EXPECT_EQ(tableStorage_master(storage.get()), before);
    }
}

TEST_F(TableStorageLife, AStorageOpenedInModeTwoIsInModeOneForReopeningToo) {
    ASSERT_EQ(init(OpenMode::create), NO_ERROR);
    const DebugLog debug;
    EXPECT_EQ(tableStorage_ensureMode(storage.get(), OpenMode::write), NO_ERROR);
    EXPECT_EQ(debug.text(), "") << "the files were reopened";
}

TEST_F(TableStorageLife, EnsuringAnotherModeReopensEachTimeAndKeepsTheStoragesMode) {
    writeFile(path, fakeTable(50, 100));
    ASSERT_EQ(init(OpenMode::write), NO_ERROR);
    for (int i = 0; i < 2; ++i) {
        owner.calls.clear();
        log.clear();
        const DebugLog debug;
        EXPECT_EQ(tableStorage_ensureMode(storage.get(), OpenMode::read), NO_ERROR);
        const Lines lines = debug.lines();
        ASSERT_GE(lines.size(), 2U);
        EXPECT_EQ(lines.front(), debugLine("tableStorage_ensureMode", "reopening table: old mode=1, new mode=0."));
        EXPECT_EQ(lines.back(), debugLine("tableReopen", "(mode=0) returned 0."));
        EXPECT_TRUE(log.writes().empty()) << "reopening is no init";
        EXPECT_EQ(owner.calls, (Lines{"verifyHeader 19", "loadHeader 19", "opened 150 50 19"}));
        EXPECT_EQ(storage->mode, OpenMode::write);
        EXPECT_EQ(tableFileGetMode(tableStorage_master(storage.get())), OpenMode::read);
        EXPECT_TRUE(isFree()) << "the writer's lock is gone";
    }
}

TEST_F(TableStorageLife, RecoveryFollowsTheModeOfInitAndNotOfTheReopening) {
    writeFile(path, fakeTable(50, 100));
    ASSERT_EQ(init(OpenMode::read), NO_ERROR);
    owner.calls.clear();
    owner.verifyCode = FILE_SIZE_ERROR;
    EXPECT_EQ(tableStorage_ensureMode(storage.get(), OpenMode::write), NO_ERROR);
    EXPECT_EQ(owner.calls, (Lines{"verifyHeader 19", "loadHeader 19", "opened 150 50 19"})) << "still a reader";
    owner.verifyCode = NO_ERROR;
    ASSERT_EQ(init(OpenMode::write), NO_ERROR);
    owner.calls.clear();
    owner.verifyCode = FILE_SIZE_ERROR;
    EXPECT_EQ(tableStorage_ensureMode(storage.get(), OpenMode::read), NO_ERROR);
    EXPECT_EQ(owner.calls, (Lines{"verifyHeader 19", "recover", "opened 150 50 19"})) << "still a writer";
}

TEST_F(TableStorageLife, AnUninitialisedStorageCannotBeReopened) {
    const DebugLog debug;
    EXPECT_EQ(tableStorage_ensureMode(storage.get(), OpenMode::read), NULL_POINTER_ERROR);
    EXPECT_EQ(tableStorage_ensureMode(storage.get(), OpenMode::write), NULL_POINTER_ERROR);
    EXPECT_EQ(debug.text(), "");
}

TEST_F(TableStorageLife, AFailedReopenGoesBackToTheStoragesModeAndReturnsItsCode) {
    writeFile(path, fakeTable(50, 100));
    ASSERT_EQ(init(OpenMode::read), NO_ERROR);
    TableFile* other = nullptr;
    ASSERT_EQ(tableFileOpen(&other, path.c_str(), OpenMode::write, nullptr), NO_ERROR);
    owner.calls.clear();
    const DebugLog debug;
    EXPECT_EQ(tableStorage_ensureMode(storage.get(), OpenMode::write), FILE_OPEN_ERROR);
    EXPECT_TRUE(tableStorage_isActive(storage.get()));
    EXPECT_EQ(tableFileGetMode(tableStorage_master(storage.get())), OpenMode::read);
    EXPECT_EQ(owner.calls, (Lines{"verifyHeader 19", "loadHeader 19", "opened 150 50 19"}));
    EXPECT_NE(debug.text().find(debugLine("tableReopen", "(mode=1) returned 10.")), std::string::npos);
    EXPECT_EQ(tableFileClose(other), NO_ERROR);
}

TEST_F(TableStorageLife, AReopenWhoseCloseFailsGoesBackToTheStoragesMode) {
    writeFile(path, fakeTable(50, 100));
    ASSERT_EQ(init(OpenMode::write), NO_ERROR);
    FaultPlatform platform;
    platform.failNth(FileCall::close, 1, EIO);
    const DebugLog debug;
    EXPECT_EQ(tableStorage_ensureMode(storage.get(), OpenMode::read), SYSTEM_FILE_ERROR);
    EXPECT_NE(debug.text().find(debugLine("tableReopen", "(mode=0) returned 4.")), std::string::npos);
    ASSERT_TRUE(tableStorage_isActive(storage.get()));
    EXPECT_EQ(tableFileGetMode(tableStorage_master(storage.get())), OpenMode::write);
    EXPECT_EQ(tableStorage_uninit(storage.get()), NO_ERROR);
}

TEST_F(TableStorageLife, AReopenThatTheTableRefusesIsTriedInTheStoragesModeOnce) {
    writeFile(path, fakeTable(50, 100));
    ASSERT_EQ(init(OpenMode::read), NO_ERROR);
    owner.calls.clear();
    owner.verifyCode = CONFIG_MISMATCH_ERROR;
    EXPECT_EQ(tableStorage_ensureMode(storage.get(), OpenMode::write), CONFIG_MISMATCH_ERROR);
    EXPECT_EQ(owner.calls, (Lines{"verifyHeader 19", "verifyHeader 19"}));
    EXPECT_FALSE(tableStorage_isActive(storage.get()));
    EXPECT_TRUE(isFree());
}

TEST_F(TableStorageLife, AFileThatWasDroppedComesBackByAReopen) {
    ASSERT_EQ(init(OpenMode::write), NO_ERROR);
    TableStorageFileIterator iterator;
    ASSERT_NE(tableStorage_nextFile(storage.get(), &iterator), nullptr);
    ASSERT_EQ(tableStorage_closeFile(storage.get(), &iterator), NO_ERROR);
    EXPECT_FALSE(tableStorage_isActive(storage.get()));
    EXPECT_EQ(tableStorage_master(storage.get()), nullptr);
    EXPECT_EQ(tableStorage_ensureMode(storage.get(), OpenMode::read), NO_ERROR);
    EXPECT_TRUE(tableStorage_isActive(storage.get()));
}

}  // namespace
}  // namespace tabulo::internal::test
