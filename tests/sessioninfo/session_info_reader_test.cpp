#include <gtest/gtest.h>

#include <cerrno>
#include <cstddef>
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

// A table opened for reading; the test, or a second table, changes the file under it.
class SessionInfoReader : public SessionInfoTest {
  protected:
    void SetUp() override {
        place(whole);
        open(OpenMode::read);
    }
    // Puts one value into the file as a writer would: in place.
    void change(std::size_t slot, std::uint8_t value) const {
        patchFile(path, 68 + 8 * slot, std::vector<std::uint8_t>{value});
    }
    const Bytes whole = sessionFile(defaultTags, someValues);
};

TEST_F(SessionInfoReader, EveryReadSeesTheFileAsItIsAtThatMoment) {
    for (std::uint8_t i = 100; i < 110; ++i) {
        change(2, i);
        EXPECT_EQ(readValues(table.get(), {3}), Values{i});
        EXPECT_EQ(readValues(table.get(), defaultTags), (Values{20, 10, i, 40, 50, 60}));
    }
}

TEST_F(SessionInfoReader, AReaderThatOpenedBeforeTheFirstWriteSeesIt) {
    place(sessionFile(defaultTags, {}));
    open(OpenMode::read);
    EXPECT_EQ(readValues(table.get(), defaultTags), Values(6, 0));
    const SessionInfoTablePtr writer = openSessionTable(directory.root(), OpenMode::write);
    ASSERT_EQ(writeValues(writer.get(), {5}, {55}), NO_ERROR);
    EXPECT_EQ(readValues(table.get(), defaultTags), (Values{0, 0, 0, 0, 55, 0}));
    ASSERT_EQ(writeValues(writer.get(), {5, 2}, {56, 22}), NO_ERROR);
    EXPECT_EQ(readValues(table.get(), defaultTags), (Values{22, 0, 0, 0, 56, 0}));
    ASSERT_EQ(si_drop(writer.get()), NO_ERROR);
    EXPECT_EQ(readValues(table.get(), defaultTags), Values(6, 0));
}

TEST_F(SessionInfoReader, OneFailedReadIsTriedOnceMore) {
    change(0, 99);
    FaultPlatform platform;
    platform.failNth(FileCall::readAt, 1, EIO);
    EXPECT_EQ(readValues(table.get(), {2}), Values{99});
    EXPECT_EQ(platform.count(FileCall::readAt), 2);
}

TEST_F(SessionInfoReader, ASecondFailedReadStandsAndChangesNothing) {
    change(0, 99);
    FaultPlatform platform;
    platform.failAll(FileCall::readAt, EIO);
    EXPECT_EQ(readCode(table.get(), {2}), FILE_READ_ERROR);
    EXPECT_EQ(platform.count(FileCall::readAt), 2) << "tried once more, and no more";
    EXPECT_EQ(table->values[0], 20) << "a failed load leaves the table's values";
    platform.failAll(FileCall::readAt, 0);
    EXPECT_EQ(readValues(table.get(), {2}), Values{99}) << "the table stays usable";
}

TEST_F(SessionInfoReader, AFileCutBackToItsHeaderLeavesTheValuesAsTheyWere) {
    ASSERT_EQ(readValues(table.get(), {3}), Values{30});
    place(cutTo(whole, 68));
    EXPECT_EQ(readValues(table.get(), defaultTags), someValues);
}

TEST_F(SessionInfoReader, AFileCutElsewhereIsAReadErrorUntilItIsWholeAgain) {
    for (std::size_t length = 69; length < 116; ++length) {
        place(cutTo(whole, length));
        EXPECT_EQ(readCode(table.get(), {2, 6}), FILE_READ_ERROR) << "cut to " << length;
        EXPECT_EQ(table->values[5], 60) << "cut to " << length;
    }
    place(sessionFile(defaultTags, {1, 2, 3, 4, 5, 6}));
    EXPECT_EQ(readValues(table.get(), defaultTags), (Values{1, 2, 3, 4, 5, 6}));
}

TEST_F(SessionInfoReader, AFileCutWithinItsHeaderIsTheSeeksOwnError) {
    place(cutTo(whole, 67));
    EXPECT_EQ(readCode(table.get(), {2}), VSEEK_ERROR);
    place({});
    EXPECT_EQ(readCode(table.get(), {2}), VSEEK_ERROR);
    EXPECT_EQ(table->values[0], 20);
}

TEST_F(SessionInfoReader, ReadingLocksNobodyOutAndWritesNothing) {
    const SessionInfoTablePtr writer = openSessionTable(directory.root(), OpenMode::write);
    ASSERT_NE(writer, nullptr);
    const SessionInfoTablePtr second = openSessionTable(directory.root(), OpenMode::read);
    FaultPlatform platform;
    EXPECT_EQ(readValues(table.get(), defaultTags), someValues);
    EXPECT_EQ(readValues(second.get(), defaultTags), someValues);
    EXPECT_EQ(platform.count(FileCall::writeAt), 0);
    EXPECT_EQ(platform.count(FileCall::lock), 0);
}

TEST_F(SessionInfoReader, AMissingFileIsAFileOpenErrorAndIsNotCreated) {
    table.reset();
    std::filesystem::remove(path);
    log.clear();
    EXPECT_EQ(init(OpenMode::read), FILE_OPEN_ERROR);
    EXPECT_FALSE(std::filesystem::exists(path));
    ASSERT_EQ(log.warnings().size(), 2U);
    EXPECT_EQ(log.warnings()[1], warningLine("tsX_openReplica", "Unable to open a file " + path + " in mode 0."));
}

TEST_F(SessionInfoReader, WithoutAnActiveFileReadingIsAnInactiveMaster) {
    ASSERT_EQ(si_uninit(table.get()), NO_ERROR);
    EXPECT_EQ(readCode(table.get(), {2}), MASTER_INACTIVE_ERROR);
    EXPECT_EQ(readCode(table.get(), {99}), MASTER_INACTIVE_ERROR) << "before the tags are looked at";
}

TEST_F(SessionInfoReader, ASizeThatCannotBeAskedIsToldAndTheValuesStay) {
    ASSERT_EQ(readValues(table.get(), defaultTags), someValues);
    change(0, 99);
    {
        FaultPlatform platform;
        platform.failNth(FileCall::size, 1, EIO);
        EXPECT_EQ(readCode(table.get(), {2}), SYSTEM_FILE_ERROR);
        EXPECT_EQ(platform.count(FileCall::readAt), 0) << "nothing is read before";
    }
    EXPECT_EQ(readValues(table.get(), {2}), Values{99});
}

TEST_F(SessionInfoReader, ARefusedWriteLeavesItTheTagsOfTheFile) {
    const Tags asked = {3, 5};
    open(OpenMode::read, asked);
    ASSERT_EQ(tagsOf(table.get()), defaultTags);
    const SessionInfoTablePtr writer = openSessionTable(directory.root(), OpenMode::write);
    EXPECT_EQ(writeValues(table.get(), {3}, {33}), FILE_OPEN_ERROR) << "another writer has the file";
    EXPECT_EQ(tagsOf(table.get()), defaultTags);
    EXPECT_EQ(readValues(table.get(), defaultTags), someValues);
}

TEST_F(SessionInfoReader, TheFirstActiveFileIsTheOneThatIsRead) {
    const std::string other = directory.file("other");
    writeFile(other, sessionFile(defaultTags, {1, 2, 3, 4, 5, 6}));
    TableFile* file = nullptr;
    ASSERT_EQ(tableFileOpen(&file, other.c_str(), OpenMode::read, nullptr), NO_ERROR);
    TableStorage* storage = table->storage.get();
    storage->files.push_back(file);
    storage->activeIndexes = {1, 0};
    storage->activeCount = 2;
    EXPECT_EQ(readValues(table.get(), defaultTags), (Values{1, 2, 3, 4, 5, 6}));
    storage->activeIndexes = {0, 1};
    EXPECT_EQ(readValues(table.get(), defaultTags), someValues);
}

}  // namespace
}  // namespace tabulo::internal::test
