#include <gtest/gtest.h>

#include <cerrno>
#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "tests/sessioninfo/session_info_fixture.h"
#include "tests/support/debug_log.h"
#include "tests/support/fault_platform.h"

namespace tabulo::internal::test {
namespace {

const Values someValues = {20, 10, 30, 40, 50, 60};
const Values changedValues = {20, 10, 33, 40, 50, 60};

class SessionInfoReplica : public SessionInfoTest {
  protected:
    void SetUp() override {
        for (const char* name : {"replica1", "replica2"}) {
            std::filesystem::create_directory(directory.file(name));
        }
        place(whole);
        open(OpenMode::write);
    }
    // Path of the file with this index, 0 = master.
    std::string pathOf(int index) const {
        return index == 0 ? path : directory.file("replica" + std::to_string(index) + "/session");
    }
    // Puts a further open file, a copy of the master, into the storage by hand.
    void addReplica() {
        TableStorage* storage = table->storage.get();
        const auto index = static_cast<std::int32_t>(storage->files.size());
        writeFile(pathOf(index), fileBytes());
        TableFile* file = nullptr;
        ASSERT_EQ(tableFileOpen(&file, pathOf(index).c_str(), OpenMode::write, nullptr), NO_ERROR);
        storage->files.push_back(file);
        storage->activeIndexes.push_back(index);
        storage->activeCount += 1;
    }
    std::vector<std::int32_t> activeFiles() const {
        const TableStorage& storage = *table->storage;
        return {storage.activeIndexes.begin(), storage.activeIndexes.begin() + storage.activeCount};
    }
    Values valuesOf(int index) const { return valuesIn(readFile(pathOf(index))); }
    ErrorCode writeThree() { return writeValues(table.get(), {3}, {33}); }

    // Opens the file at the first replica's place beside a master of that size.
    ErrorCode openReplica(const Bytes& bytes, std::int64_t masterSize, bool* isOpen) {
        writeFile(pathOf(1), bytes);
        TableFile* file = nullptr;
        const ErrorCode code =
            tsX_openReplica(table->storage.get(), &file, pathOf(1).c_str(), OpenMode::write, &masterSize);
        *isOpen = file != nullptr;
        if (file != nullptr) {
            EXPECT_EQ(tableFileClose(file), NO_ERROR);
        }
        return code;
    }
    const Bytes whole = sessionFile(defaultTags, someValues);
};

using Indexes = std::vector<std::int32_t>;
using Lines = std::vector<std::string>;

TEST_F(SessionInfoReplica, AWriteGoesToEveryActiveFileMasterFirstWithOneCallEach) {
    addReplica();
    addReplica();
    FaultPlatform platform;
    ASSERT_EQ(writeThree(), NO_ERROR);
    const auto writes = platform.calls(FileCall::writeAt);
    ASSERT_EQ(writes.size(), 3U);
    for (std::size_t i = 0; i < 3; ++i) {
        EXPECT_EQ(writes[i].descriptor, table->storage->files[i]->stream.descriptor) << "write " << i;
        EXPECT_EQ(difference(readFile(pathOf(static_cast<int>(i))), sessionFile(defaultTags, changedValues)), "");
    }
}

TEST_F(SessionInfoReplica, WithTheMastersWriteFailingAndTheReplicasSucceedingTheWriteIsGood) {
    addReplica();
    FaultPlatform platform;
    platform.failNth(FileCall::writeAt, 1, EIO);
    EXPECT_EQ(writeThree(), NO_ERROR);
    EXPECT_EQ(log.warnings(), Lines{closedWarning(0, FILE_FLUSH_ERROR)});
    EXPECT_EQ(table->storage->files[0], nullptr) << "the master is closed";
    EXPECT_EQ(platform.count(FileCall::close), 1);
    EXPECT_EQ(activeFiles(), Indexes{1});
    EXPECT_EQ(valuesOf(0), someValues);
    EXPECT_EQ(valuesOf(1), changedValues);
    ASSERT_EQ(writeValues(table.get(), {4}, {44}), NO_ERROR) << "the replica takes the next write alone";
    EXPECT_EQ(valuesOf(1), (Values{20, 10, 33, 44, 50, 60}));
}

TEST_F(SessionInfoReplica, AFailingReplicaIsClosedAndTheMasterGoesOn) {
    addReplica();
    FaultPlatform platform;
    platform.failNth(FileCall::writeAt, 2, EIO);
    EXPECT_EQ(writeThree(), NO_ERROR);
    EXPECT_EQ(log.warnings(), Lines{closedWarning(1, FILE_FLUSH_ERROR)});
    EXPECT_EQ(activeFiles(), Indexes{0});
    EXPECT_EQ(valuesOf(0), changedValues);
    EXPECT_EQ(valuesOf(1), someValues);
}

TEST_F(SessionInfoReplica, TheFileBehindADroppedOneStillGetsTheWrite) {
    addReplica();
    addReplica();
    FaultPlatform platform;
    platform.failNth(FileCall::writeAt, 2, EIO);
    EXPECT_EQ(writeThree(), NO_ERROR);
    EXPECT_EQ(log.warnings(), Lines{closedWarning(1, FILE_FLUSH_ERROR)});
    EXPECT_EQ(activeFiles(), (Indexes{0, 2}));
    EXPECT_EQ(valuesOf(2), changedValues);
}

TEST_F(SessionInfoReplica, TheWarningNamesThePositionInTheActiveListAndNotTheFilesIndex) {
    addReplica();
    addReplica();
    {
        FaultPlatform platform;
        platform.failNth(FileCall::writeAt, 1, EIO);
        ASSERT_EQ(writeThree(), NO_ERROR);
    }
    ASSERT_EQ(activeFiles(), (Indexes{1, 2}));
    log.clear();
    FaultPlatform platform;
    platform.failNth(FileCall::writeAt, 2, EIO);
    EXPECT_EQ(writeThree(), NO_ERROR);
    EXPECT_EQ(log.warnings(), Lines{closedWarning(1, FILE_FLUSH_ERROR)}) << "file 2 stood at position 1";
    EXPECT_EQ(activeFiles(), Indexes{1});
}

TEST_F(SessionInfoReplica, EachWarningCountsTheFilesThatWereActiveWhenItsFileFailed) {
    addReplica();
    addReplica();
    FaultPlatform platform;
    platform.failAll(FileCall::writeAt, EIO);
    EXPECT_EQ(writeThree(), FILE_FLUSH_ERROR);
    const std::string first = closedWarning(0, FILE_FLUSH_ERROR);
    EXPECT_EQ(log.warnings(), (Lines{first, first, first})) << "each moved up to the first position";
    EXPECT_EQ(activeFiles(), Indexes{});
    EXPECT_EQ(platform.count(FileCall::writeAt), 3) << "each file was tried";
}

TEST_F(SessionInfoReplica, WithEveryFileFailingTheLastFailuresCodeStands) {
    addReplica();
    tableFileSetRangeStart(table->storage->files[0], 100);  // its value area is out of reach
    {
        FaultPlatform platform;
        platform.failAll(FileCall::writeAt, EIO);
        EXPECT_EQ(writeThree(), FILE_FLUSH_ERROR);
    }
    EXPECT_EQ(log.warnings(), (Lines{closedWarning(0, VSEEK_ERROR), closedWarning(0, FILE_FLUSH_ERROR)}));

    open(OpenMode::write);
    addReplica();
    tableFileSetRangeStart(table->storage->files[1], 100);
    log.clear();
    FaultPlatform platform;
    platform.failAll(FileCall::writeAt, EIO);
    EXPECT_EQ(writeThree(), VSEEK_ERROR);
    EXPECT_EQ(log.warnings(), (Lines{closedWarning(0, FILE_FLUSH_ERROR), closedWarning(0, VSEEK_ERROR)}));
}

TEST_F(SessionInfoReplica, AFailureBehindASuccessDoesNotChangeTheResult) {
    addReplica();
    addReplica();
    FaultPlatform platform;
    platform.failNth(FileCall::writeAt, 1, EIO);
    platform.failNth(FileCall::writeAt, 3, EIO);
    EXPECT_EQ(writeThree(), NO_ERROR);
    EXPECT_EQ(log.warnings(), (Lines{closedWarning(0, FILE_FLUSH_ERROR), closedWarning(1, FILE_FLUSH_ERROR)}));
    EXPECT_EQ(activeFiles(), Indexes{1});
}

TEST_F(SessionInfoReplica, AFileWhoseCloseFailsTooIsDroppedAllTheSame) {
    addReplica();
    FaultPlatform platform;
    platform.failNth(FileCall::writeAt, 1, EIO);
    platform.failNth(FileCall::close, 1, EIO);
    EXPECT_EQ(writeThree(), NO_ERROR);
    EXPECT_EQ(log.warnings(), Lines{closedWarning(0, FILE_FLUSH_ERROR)});
    EXPECT_EQ(activeFiles(), Indexes{1});
}

TEST_F(SessionInfoReplica, DroppingClearsEveryFile) {
    addReplica();
    ASSERT_EQ(si_drop(table.get()), NO_ERROR);
    EXPECT_EQ(valuesOf(0), Values(6, 0));
    EXPECT_EQ(valuesOf(1), Values(6, 0));
}

TEST_F(SessionInfoReplica, ClosingTheTableClosesEveryFile) {
    addReplica();
    FaultPlatform platform;
    EXPECT_EQ(si_uninit(table.get()), NO_ERROR);
    EXPECT_EQ(platform.count(FileCall::close), 2);
}

TEST_F(SessionInfoReplica, AReplicaAsLongAsTheMasterOpensAsItIs) {
    bool isOpen = false;
    EXPECT_EQ(openReplica(whole, 116, &isOpen), NO_ERROR);
    EXPECT_TRUE(isOpen);
    EXPECT_EQ(log.warnings(), Lines{});
    EXPECT_EQ(difference(readFile(pathOf(1)), whole), "");
}

TEST_F(SessionInfoReplica, AReplicaLongerThanTheMasterIsCutToItsSizeAndRecovered) {
    bool isOpen = false;
    EXPECT_EQ(openReplica(cutTo(whole, 130), 116, &isOpen), NO_ERROR);
    EXPECT_TRUE(isOpen);
    const std::string& replica = pathOf(1);
    const Lines expected = {
        warningLine("tsX_openReplica", "Replica " + replica + " was truncated, old size: 130, new size: 116"),
        warningLine("tsX_openReplica", "Table " + replica + " was recovered, old size: 116, new size: 116")};
    EXPECT_EQ(log.warnings(), expected);
    EXPECT_EQ(difference(readFile(replica), whole), "");
}

TEST_F(SessionInfoReplica, AReplicaOfAMasterWithoutValuesIsCutToTheHeaderAndGetsZeros) {
    bool isOpen = false;
    EXPECT_EQ(openReplica(whole, 68, &isOpen), NO_ERROR);
    EXPECT_TRUE(isOpen);
    EXPECT_EQ(difference(readFile(pathOf(1)), sessionFile(defaultTags, Values(6, 0))), "");
}

TEST_F(SessionInfoReplica, AReplicaShorterThanTheMasterIsUnrecoverableAndLeftAlone) {
    for (const std::size_t length : {68U, 100U, 115U}) {
        bool isOpen = true;
        EXPECT_EQ(openReplica(cutTo(whole, length), 116, &isOpen), UNRECOVERABLE_ERROR) << length;
        EXPECT_FALSE(isOpen) << length;
        EXPECT_EQ(difference(readFile(pathOf(1)), cutTo(whole, length)), "") << length;
    }
}

TEST_F(SessionInfoReplica, AnEmptyReplicaBesideAMasterWithValuesIsUnrecoverable) {
    bool isOpen = true;
    EXPECT_EQ(openReplica({}, 116, &isOpen), UNRECOVERABLE_ERROR);
    EXPECT_FALSE(isOpen);
    EXPECT_EQ(openReplica({}, 68, &isOpen), NO_ERROR) << "a master that has only its header takes one";
    EXPECT_TRUE(isOpen);
    EXPECT_EQ(difference(readFile(pathOf(1)), sessionFile(defaultTags, {})), "");
}

}  // namespace
}  // namespace tabulo::internal::test
