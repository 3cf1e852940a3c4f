#include <gtest/gtest.h>

#include <cerrno>
#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "sessioninfo/session_info_file.h"
#include "tests/sessioninfo/session_info_fixture.h"
#include "tests/support/fault_platform.h"

namespace tabulo::internal::test {
namespace {

class SessionInfoValues : public SessionInfoTest {
  protected:
    void SetUp() override {
        open(OpenMode::write);
        ASSERT_EQ(writeValues(table.get(), defaultTags, start), NO_ERROR);
    }
    const Values start = {20, 10, 30, 40, 50, 60};
};

TEST_F(SessionInfoValues, AWriteSetsTheGivenTagsAndKeepsTheOthers) {
    ASSERT_EQ(writeValues(table.get(), {4, 2}, {-4, -2}), NO_ERROR);
    const Values expected = {-2, 10, 30, -4, 50, 60};
    EXPECT_EQ(readValues(table.get(), defaultTags), expected);
    EXPECT_EQ(fileValues(), expected) << "the file holds it when the write returns";
    open(OpenMode::read);
    EXPECT_EQ(readValues(table.get(), defaultTags), expected);
}

TEST_F(SessionInfoValues, ValuesComeInTheCallersOrderAndATagMayBeAskedTwice) {
    EXPECT_EQ(readValues(table.get(), {6, 1, 6, 2}), (Values{60, 10, 60, 20}));
}

TEST_F(SessionInfoValues, AWriteWithAnUnknownTagLeavesTheOldValueOfTheKnownOne) {
    for (const Tags& tags : {Tags{1, 99}, Tags{99, 1}}) {
        FaultPlatform platform;
        EXPECT_EQ(writeValues(table.get(), tags, {-1, -1}), WRONG_PARAMETER_ERROR);
        EXPECT_EQ(platform.count(FileCall::writeAt), 0) << "nothing is written";
        EXPECT_EQ(readValues(table.get(), defaultTags), start);
        EXPECT_EQ(fileValues(), start);
    }
    ASSERT_EQ(writeValues(table.get(), {3}, {33}), NO_ERROR);
    EXPECT_EQ(fileValues(), (Values{20, 10, 33, 40, 50, 60})) << "the next write does not carry the refused values";
}

TEST_F(SessionInfoValues, AnUnknownTagInAReadIsNoDataAndTheCallersArrayStays) {
    EXPECT_EQ(readCode(table.get(), {1, 99}), NO_DATA_ERROR);
    EXPECT_EQ(readCode(table.get(), {99}), NO_DATA_ERROR);
    open(OpenMode::read);
    EXPECT_EQ(readCode(table.get(), {1, 99}), NO_DATA_ERROR);
    EXPECT_EQ(readCode(table.get(), {0}), NO_DATA_ERROR) << "slots behind the last tag are 0 but no tag";
}

TEST_F(SessionInfoValues, OfATagGivenTwiceTheLastValueWins) {
    ASSERT_EQ(writeValues(table.get(), {5, 1, 5, 5}, {1, 2, 3, 4}), NO_ERROR);
    EXPECT_EQ(fileValues(), (Values{20, 2, 30, 40, 4, 60}));
}

TEST_F(SessionInfoValues, MoreTagsThanATableCanHoldMayBeReadAndWrittenInOneCall) {
    Tags tags;
    Values values;
    for (std::int32_t i = 0; i < 1000; ++i) {
        tags.push_back(1 + i % 6);
        values.push_back(i);
    }
    ASSERT_EQ(writeValues(table.get(), tags, values), NO_ERROR);
    EXPECT_EQ(fileValues(), (Values{997, 996, 998, 999, 994, 995}));
    const Values read = readValues(table.get(), tags);
    EXPECT_EQ(read.front(), 996);
    EXPECT_EQ(read[998], 998) << "entry 998 asks for tag 3";
    EXPECT_EQ(read.back(), 999);
}

TEST_F(SessionInfoValues, ANullArrayWithACountAboveZeroIsANullPointer) {
    const std::int32_t tag = 1;
    std::int64_t value = 5;
    EXPECT_EQ(si_read(table.get(), 1, nullptr, &value), NULL_POINTER_ERROR);
    EXPECT_EQ(si_read(table.get(), 1, &tag, nullptr), NULL_POINTER_ERROR);
    EXPECT_EQ(value, 5);
    EXPECT_EQ(si_write(table.get(), 1, nullptr, &value), NULL_POINTER_ERROR);
    EXPECT_EQ(si_write(table.get(), 1, &tag, nullptr), NULL_POINTER_ERROR);
    EXPECT_EQ(fileValues(), start);
}

TEST_F(SessionInfoValues, ANegativeCountIsAWrongParameter) {
    const std::int32_t tag = 1;
    std::int64_t value = 5;
    for (const std::int32_t count : {-1, INT32_MIN}) {
        EXPECT_EQ(si_read(table.get(), count, &tag, &value), WRONG_PARAMETER_ERROR) << count;
        EXPECT_EQ(si_write(table.get(), count, &tag, &value), WRONG_PARAMETER_ERROR) << count;
        EXPECT_EQ(si_read(table.get(), count, nullptr, nullptr), WRONG_PARAMETER_ERROR) << count;
        EXPECT_EQ(si_write(table.get(), count, nullptr, nullptr), WRONG_PARAMETER_ERROR) << count;
    }
    EXPECT_EQ(value, 5);
    EXPECT_EQ(fileValues(), start);
}

TEST_F(SessionInfoValues, ACountOfZeroNeedsNoArrays) {
    EXPECT_EQ(si_read(table.get(), 0, nullptr, nullptr), NO_ERROR);
    EXPECT_EQ(si_write(table.get(), 0, nullptr, nullptr), NO_ERROR);
    EXPECT_EQ(fileValues(), start);
}

TEST_F(SessionInfoValues, OpenedForWritingTheValuesInMemoryAnswerAndNoFileIsRead) {
    patchFile(path, 68, fromHex("63"));
    FaultPlatform platform;
    EXPECT_EQ(readValues(table.get(), defaultTags), start);
    EXPECT_EQ(platform.sequence(), "");
}

TEST_F(SessionInfoValues, AWriteHandsTheWholeValueAreaToTheSystemInOneCall) {
    for (int i = 0; i < 3; ++i) {
        FaultPlatform platform;
        ASSERT_EQ(writeValues(table.get(), {3}, {i}), NO_ERROR);
        ASSERT_EQ(platform.sequence(), "writeAt") << "and nothing else is asked of the system";
        EXPECT_EQ(platform.calls()[0].offset, 68);
        EXPECT_EQ(platform.calls()[0].length, 48);
    }
}

TEST_F(SessionInfoValues, TheFirstWriteOfTheWidestTableIsOneCallToo) {
    const Tags tags = tagsUpTo(MAX_SESSION_INFO_TAGS);
    table.reset();
    std::filesystem::remove(path);
    open(OpenMode::write, tags);
    FaultPlatform platform;
    ASSERT_EQ(writeValues(table.get(), {32}, {1}), NO_ERROR);
    ASSERT_EQ(platform.count(FileCall::writeAt), 1);
    EXPECT_EQ(platform.calls(FileCall::writeAt)[0].offset, 172);
    EXPECT_EQ(platform.calls(FileCall::writeAt)[0].length, 256);
}

TEST_F(SessionInfoValues, WithTheSyncPolicyOnAWriteIsCommittedBehindItsBytes) {
    FaultPlatform platform;
    tableFileSetSyncPolicy(true, 0, 0);
    const ErrorCode code = writeValues(table.get(), {3}, {1});
    tableFileSetSyncPolicy(false, 0, 0);
    EXPECT_EQ(code, NO_ERROR);
    EXPECT_EQ(platform.count(FileCall::writeAt), 1);
    EXPECT_EQ(platform.count(FileCall::sync), 1);
    EXPECT_EQ(platform.sequence().substr(0, 12), "writeAt sync");
}

TEST_F(SessionInfoValues, AFailedWriteOfTheOnlyFileClosesItGivesItsCodeAndNamesPositionZero) {
    FaultPlatform platform;
    platform.failAll(FileCall::writeAt, ENOSPC);
    EXPECT_EQ(writeValues(table.get(), {3}, {33}), FILE_FLUSH_ERROR);
    EXPECT_EQ(log.warnings(), std::vector<std::string>{closedWarning(0, FILE_FLUSH_ERROR)});
    EXPECT_EQ(table->storage->activeCount, 0);
    EXPECT_EQ(platform.count(FileCall::close), 1) << "the file is closed";
    EXPECT_EQ(readValues(table.get(), {3}), Values{33}) << "the new values stay in memory";
    EXPECT_EQ(fileValues(), start);
}

TEST_F(SessionInfoValues, WithoutAnActiveFileAWriteIsAFileWriteError) {
    {
        FaultPlatform platform;
        platform.failAll(FileCall::writeAt, ENOSPC);
        ASSERT_EQ(writeValues(table.get(), {3}, {33}), FILE_FLUSH_ERROR);
    }
    log.clear();
    EXPECT_EQ(writeValues(table.get(), {4}, {44}), FILE_WRITE_ERROR);
    EXPECT_EQ(si_drop(table.get()), FILE_WRITE_ERROR);
    EXPECT_EQ(log.warnings(), std::vector<std::string>{}) << "there is no file to warn of";
    EXPECT_EQ(fileValues(), start);
}

TEST_F(SessionInfoValues, AValueAreaThatCannotBeReachedIsTheSeeksOwnError) {
    tableFileSetRangeStart(table->storage->files[0], 69);
    EXPECT_EQ(writeValues(table.get(), {3}, {33}), VSEEK_ERROR);
    EXPECT_EQ(log.warnings(), std::vector<std::string>{closedWarning(0, VSEEK_ERROR)});
    EXPECT_EQ(fileValues(), start);
}

TEST_F(SessionInfoValues, DroppingSetsEveryValueToZeroAndKeepsTheFile) {
    ASSERT_EQ(si_drop(table.get()), NO_ERROR);
    EXPECT_EQ(readValues(table.get(), defaultTags), Values(6, 0));
    EXPECT_EQ(difference(fileBytes(), sessionFile(defaultTags, Values(6, 0))), "");
    ASSERT_EQ(writeValues(table.get(), {1}, {11}), NO_ERROR) << "the table can be used on";
    EXPECT_EQ(fileValues(), (Values{0, 11, 0, 0, 0, 0}));
}

TEST_F(SessionInfoValues, DroppingClearsStoredTagsThatAreNotConfiguredToo) {
    table.reset();
    open(OpenMode::write, Tags{4});
    ASSERT_EQ(si_drop(table.get()), NO_ERROR);
    EXPECT_EQ(fileValues(), Values(6, 0));
}

TEST_F(SessionInfoValues, DroppingIsOneWriteCallAndReturnsWhatTheWriteReturns) {
    FaultPlatform platform;
    ASSERT_EQ(si_drop(table.get()), NO_ERROR);
    EXPECT_EQ(platform.count(FileCall::writeAt), 1);
    platform.failAll(FileCall::writeAt, EIO);
    EXPECT_EQ(si_drop(table.get()), FILE_FLUSH_ERROR);
}

TEST_F(SessionInfoValues, AFileThatIsOpenForReadingIsNotWritten) {
    table.reset();
    open(OpenMode::read);
    const ByteStreamPtr stream(byteStream_create(0));
    ASSERT_EQ(siX_serialise(table.get(), stream.get()), NO_ERROR);
    EXPECT_EQ(siX_writeValues(table.get(), table->storage->files[0], stream.get()), READ_ONLY_ERROR);
    EXPECT_EQ(fileValues(), start);
}

}  // namespace
}  // namespace tabulo::internal::test
