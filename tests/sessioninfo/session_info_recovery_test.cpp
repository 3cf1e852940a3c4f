#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "tests/sessioninfo/session_info_fixture.h"
#include "tests/support/call_hook.h"
#include "tests/support/debug_log.h"
#include "tests/support/fault_platform.h"

namespace tabulo::internal::test {
namespace {

// No byte of a value is zero, so that a kept one and a lost one differ in every byte.
const Values someValues = {0x0102030405060708, -0x1112131415161718, 0x2122232425262728,
                           0x3132333435363738, -0x4142434445464748, 0x5152535455565758};

// The first `count` values and zeros for the rest.
Values keptFirst(std::size_t count) {
    Values values = someValues;
    std::fill(values.begin() + static_cast<std::ptrdiff_t>(count), values.end(), 0);
    return values;
}

class SessionInfoRecovery : public SessionInfoTest {
  protected:
    std::string failedWarning() const { return warningLine("tsX_openReplica", "Table " + path + " recovery failed!"); }
    const Bytes whole = sessionFile(defaultTags, someValues);
};

TEST_F(SessionInfoRecovery, AValueAreaCutAtAnyByteKeepsItsWholeValuesAndGetsZerosForTheRest) {
    for (std::size_t length = 68; length < 116; ++length) {
        place(cutTo(whole, length));
        log.clear();
        open(OpenMode::write);
        const Values expected = keptFirst((length - 68) / 8);
        EXPECT_EQ(readValues(table.get(), defaultTags), expected) << "cut to " << length;
        EXPECT_EQ(difference(fileBytes(), sessionFile(defaultTags, expected)), "") << "cut to " << length;
        EXPECT_EQ(log.warnings(), std::vector<std::string>{recoveredWarning(length, 116)}) << "cut to " << length;
        open(OpenMode::read);
        EXPECT_EQ(readValues(table.get(), defaultTags), expected) << "cut to " << length;
    }
}

TEST_F(SessionInfoRecovery, ACutInTheMiddleOfTheThirdValueKeepsValuesOneAndTwo) {
    place(cutTo(whole, 68 + 2 * 8 + 4));
    open(OpenMode::write);
    EXPECT_EQ(readValues(table.get(), {2, 1, 3}), (Values{someValues[0], someValues[1], 0}));
    EXPECT_EQ(fileBytes().size(), 116U);
}

TEST_F(SessionInfoRecovery, AWholeFileIsNotRecovered) {
    place(whole);
    open(OpenMode::write);
    EXPECT_EQ(log.warnings(), std::vector<std::string>{});
    EXPECT_EQ(difference(fileBytes(), whole), "");
}

TEST_F(SessionInfoRecovery, AFileThatGoesOnBehindItsValuesIsCutAndKeepsThemAll) {
    for (const std::size_t surplus : {1U, 8U, 48U, 9000U}) {
        place(cutTo(whole, 116 + surplus));
        log.clear();
        open(OpenMode::write);
        EXPECT_EQ(readValues(table.get(), defaultTags), someValues) << surplus;
        EXPECT_EQ(difference(fileBytes(), whole), "") << surplus;
        EXPECT_EQ(log.warnings(), std::vector<std::string>{recoveredWarning(116 + surplus, 116)}) << surplus;
    }
}

TEST_F(SessionInfoRecovery, SizesAndValuesAreCountedWithTheStoredTagsAndNotWithTheConfiguredOnes) {
    const Tags stored = {7, 8, 9, 1, 2, 3, 4, 5};
    const Values values = {70, 80, 90, 10, 20, 30, 40, 50};
    place(cutTo(sessionFile(stored, values), headerSizeFor(8) + 7 * 8 + 1));
    open(OpenMode::write, Tags{5, 1});
    EXPECT_EQ(tagsOf(table.get()), stored);
    EXPECT_EQ(difference(fileBytes(), sessionFile(stored, {70, 80, 90, 10, 20, 30, 40, 0})), "");
    EXPECT_EQ(readValues(table.get(), {5, 4, 7}), (Values{0, 40, 70}));
}

TEST_F(SessionInfoRecovery, ARecoveredTableCanBeWrittenAtOnce) {
    place(cutTo(whole, 75));
    open(OpenMode::write);
    ASSERT_EQ(writeValues(table.get(), {6}, {66}), NO_ERROR);
    EXPECT_EQ(fileValues(), (Values{0, 0, 0, 0, 0, 66}));
}

TEST_F(SessionInfoRecovery, OpenedForReadingOnlyACutValueAreaIsAReadErrorAndIsLeftAlone) {
    for (std::size_t length = 69; length < 116; ++length) {
        place(cutTo(whole, length));
        EXPECT_EQ(init(OpenMode::read), FILE_READ_ERROR) << "cut to " << length;
        EXPECT_EQ(difference(fileBytes(), cutTo(whole, length)), "") << "cut to " << length;
    }
}

TEST_F(SessionInfoRecovery, OpenedForReadingOnlyAFileThatGoesOnBehindItsValuesReadsThem) {
    place(cutTo(whole, 130));
    open(OpenMode::read);
    EXPECT_EQ(readValues(table.get(), defaultTags), someValues);
    EXPECT_EQ(fileBytes().size(), 130U);
    EXPECT_EQ(log.warnings(), std::vector<std::string>{});
}

TEST_F(SessionInfoRecovery, AReadThatFailsWhileATableIsOpenedNeverCostsAValue) {
    int opened = 0;
    for (const Bytes& file : {whole, cutTo(whole, 108)}) {
        const Values expected = file.size() == whole.size() ? someValues : keptFirst(5);
        for (int n = 1; n <= 6; ++n) {
            place(file);
            ErrorCode code = NO_ERROR;
            {
                FaultPlatform platform;
                platform.failNth(FileCall::readAt, n, EIO);
                code = init(OpenMode::write);
            }
            opened += code == NO_ERROR ? 1 : 0;
            if (code == NO_ERROR) {
                EXPECT_EQ(readValues(table.get(), defaultTags), expected) << "read " << n << " failed";
            }
            open(OpenMode::write);
            EXPECT_EQ(readValues(table.get(), defaultTags), expected) << "read " << n << " failed";
        }
    }
    EXPECT_LT(opened, 12) << "no read has failed";
}

TEST_F(SessionInfoRecovery, WhenNothingCanBeReadTheFileIsLeftAlone) {
    for (const Bytes& file : {whole, cutTo(whole, 100)}) {
        place(file);
        {
            FaultPlatform platform;
            platform.failAll(FileCall::readAt, EIO);
            EXPECT_EQ(init(OpenMode::write), FILE_READ_ERROR);
            EXPECT_EQ(platform.count(FileCall::writeAt), 0);
            EXPECT_EQ(platform.count(FileCall::truncate), 0);
        }
        EXPECT_EQ(difference(fileBytes(), file), "");
    }
}

// Behind two looks at its size the first read finds the file damaged; the second one is the recovery's own.
TEST_F(SessionInfoRecovery, AFileThatIsCutToLessThanAGenericHeaderBeforeItsRecoveryIsLeftAlone) {
    for (const std::size_t length : {0U, 5U, 11U}) {
        place(cutTo(whole, 100));
        log.clear();
        {
            constexpr int RECOVERY = 3;
            const CallHook cut([&](int call) {
                if (call == RECOVERY) {
                    std::filesystem::resize_file(path, length);
                }
            });
            EXPECT_NE(init(OpenMode::write), NO_ERROR) << "a file without tags is recovered, cut to " << length;
        }
        EXPECT_EQ(log.warnings(), std::vector<std::string>{failedWarning()}) << "cut to " << length;
        EXPECT_EQ(difference(fileBytes(), cutTo(whole, length)), "") << "cut to " << length;
    }
}

TEST_F(SessionInfoRecovery, AValueAreaThatCannotBeRewrittenFailsTheOpenWithAWarningAndIsRecoveredLater) {
    place(cutTo(whole, 100));
    {
        FaultPlatform platform;
        platform.failAll(FileCall::writeAt, ENOSPC);
        EXPECT_EQ(init(OpenMode::write, Tags{4}), FILE_FLUSH_ERROR);
    }
    EXPECT_EQ(log.warnings(), std::vector<std::string>{failedWarning()});
    EXPECT_EQ(tagsOf(table.get()), Tags{4}) << "the stored tags go with the failed open";
    EXPECT_EQ(difference(fileBytes(), cutTo(whole, 100)), "");
    open(OpenMode::write);
    EXPECT_EQ(readValues(table.get(), defaultTags), keptFirst(4));
}

TEST_F(SessionInfoRecovery, ASurplusThatCannotBeCutFailsTheOpenWithAWarningAndTheValuesStay) {
    place(cutTo(whole, 130));
    {
        FaultPlatform platform;
        platform.failAll(FileCall::truncate, EPERM);
        EXPECT_EQ(init(OpenMode::write), FILE_TRUNCATE_ERROR);
    }
    EXPECT_EQ(log.warnings(), std::vector<std::string>{failedWarning()});
    EXPECT_EQ(difference(fileBytes(), cutTo(whole, 130)), "");
    open(OpenMode::write);
    EXPECT_EQ(difference(fileBytes(), whole), "");
}

TEST_F(SessionInfoRecovery, AHeaderThatCannotBeWrittenFailsTheOpenOfANewTable) {
    FaultPlatform platform;
    platform.failAll(FileCall::writeAt, ENOSPC);
    EXPECT_EQ(init(OpenMode::write), FILE_FLUSH_ERROR);
    platform.clear();
    EXPECT_EQ(si_init(table.get(), OpenMode::write), NO_ERROR) << "the same table opens when there is room again";
    EXPECT_EQ(difference(fileBytes(), sessionFile(defaultTags, {})), "");
}

TEST_F(SessionInfoRecovery, TheHeaderOfANewTableIsOneWrite) {
    FaultPlatform platform;
    open(OpenMode::write);
    ASSERT_EQ(platform.count(FileCall::writeAt), 1);
    EXPECT_EQ(platform.calls(FileCall::writeAt)[0].length, 68);
}

}  // namespace
}  // namespace tabulo::internal::test
