#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <string>

#include "core/log.h"
#include "tests/sessioninfo/session_info_fixture.h"
#include "tests/support/allocation_failure.h"
#include "tests/support/fault_platform.h"

namespace tabulo::internal::test {
namespace {

const Values someValues = {20, 10, 30, 40, 50, 60};
constexpr int mostAllocations = 100;

class SessionInfoLifecycle : public SessionInfoTest {};

TEST_F(SessionInfoLifecycle, ACreatedTableHasTheConfiguredTagsAndNoFile) {
    table = createSessionTable(directory.root(), Tags{7, 3});
    EXPECT_EQ(tagsOf(table.get()), (Tags{7, 3}));
    EXPECT_EQ(tagsOf(createSessionTable(directory.root()).get()), defaultTags);
    EXPECT_FALSE(std::filesystem::exists(path));
}

TEST_F(SessionInfoLifecycle, WithoutATableOrItsStorageTheOperationsAreANullPointer) {
    const std::int32_t tag = 1;
    std::int64_t value = 5;
    SessionInfoTable bare;
    for (SessionInfoTable* none : {static_cast<SessionInfoTable*>(nullptr), &bare}) {
        EXPECT_EQ(si_init(none, OpenMode::read), NULL_POINTER_ERROR);
        EXPECT_EQ(si_read(none, 1, &tag, &value), NULL_POINTER_ERROR);
        EXPECT_EQ(si_write(none, 1, &tag, &value), NULL_POINTER_ERROR);
        EXPECT_EQ(si_drop(none), NULL_POINTER_ERROR);
        EXPECT_EQ(si_uninit(none), NULL_POINTER_ERROR);
    }
    EXPECT_EQ(value, 5);
}

TEST_F(SessionInfoLifecycle, DestroyingNothingIsAccepted) {
    si_destroy(nullptr);
    si_destroy(new SessionInfoTable);
}

TEST_F(SessionInfoLifecycle, ATableThatWasNeverOpenedCannotBeReadOrWritten) {
    table = createSessionTable(directory.root());
    EXPECT_EQ(readCode(table.get(), {1}), MASTER_INACTIVE_ERROR);
    EXPECT_EQ(writeValues(table.get(), {1}, {1}), NULL_POINTER_ERROR);
    EXPECT_FALSE(std::filesystem::exists(path));
}

TEST_F(SessionInfoLifecycle, AModeOutsideItsRangeIsAWrongParameter) {
    for (const OpenMode mode : {OpenMode{-1}, OpenMode{3}}) {
        EXPECT_EQ(init(mode), WRONG_PARAMETER_ERROR) << openMode_number(mode);
        EXPECT_FALSE(std::filesystem::exists(path)) << openMode_number(mode);
    }
}

TEST_F(SessionInfoLifecycle, UninitialisingClosesTheFileAndTheTableOpensAgainInAnyMode) {
    open(OpenMode::write);
    ASSERT_EQ(writeValues(table.get(), defaultTags, someValues), NO_ERROR);
    ASSERT_EQ(si_uninit(table.get()), NO_ERROR);
    EXPECT_NE(openSessionTable(directory.root(), OpenMode::write), nullptr) << "the lock is released";
    ASSERT_EQ(si_init(table.get(), OpenMode::read), NO_ERROR);
    EXPECT_EQ(readValues(table.get(), defaultTags), someValues);
    ASSERT_EQ(si_init(table.get(), OpenMode::write), NO_ERROR) << "an open table is closed first";
    ASSERT_EQ(writeValues(table.get(), {1}, {11}), NO_ERROR);
    EXPECT_EQ(fileValues(), (Values{20, 11, 30, 40, 50, 60}));
}

TEST_F(SessionInfoLifecycle, InitialisingSetsEveryValueToZeroBeforeTheFileIsLoaded) {
    open(OpenMode::write);
    ASSERT_EQ(writeValues(table.get(), defaultTags, someValues), NO_ERROR);
    std::filesystem::remove(path);
    ASSERT_EQ(si_init(table.get(), OpenMode::write), NO_ERROR);
    EXPECT_EQ(readValues(table.get(), defaultTags), Values(6, 0)) << "a new file has no values";
}

TEST_F(SessionInfoLifecycle, DestroyingAnOpenTableReleasesItsFile) {
    open(OpenMode::write);
    FaultPlatform platform;
    table.reset();
    EXPECT_EQ(platform.count(FileCall::close), 1);
    EXPECT_NE(openSessionTable(directory.root(), OpenMode::write), nullptr);
}

TEST_F(SessionInfoLifecycle, AFailedOpenLeavesNoFileOpen) {
    place(cutTo(sessionFile(defaultTags, someValues), 90));
    FaultPlatform platform;
    ASSERT_EQ(init(OpenMode::read), FILE_READ_ERROR);
    EXPECT_EQ(platform.count(FileCall::open), 1);
    EXPECT_EQ(platform.count(FileCall::close), 1);
}

// Nobody listens to the log here: a listener's own allocations would count.
class SessionInfoMemory : public ::testing::Test {
  protected:
    SessionInfoMemory() { log_setFacility(nullptr); }

    const TemporaryDirectory directory;
    const std::string path = directory.file("session");
};

TEST_F(SessionInfoMemory, WithoutMemoryNoTableIsCreatedAndTheConfigurationIsFreed) {
    SessionInfoTable* table = nullptr;
    int n = 0;
    while (table == nullptr && ++n < mostAllocations) {
        KSVTboTableConfig* config = makeSessionConfig(directory.root());
        const AllocationFailure failure(n);
        table = si_create(config);
    }
    const SessionInfoTablePtr owned(table);
    ASSERT_NE(owned, nullptr);
    EXPECT_GT(n, 2) << "the table and its storage are an allocation each";
    EXPECT_EQ(tagsOf(table), defaultTags);
}

TEST_F(SessionInfoMemory, WithoutAConfigurationNoTableIsCreated) {
    EXPECT_EQ(si_create(nullptr), nullptr);
}

TEST_F(SessionInfoMemory, AnOpenWithoutMemoryFailsAndLeavesTheFileAndTheConfiguredTags) {
    const Bytes whole = sessionFile(defaultTags, someValues);
    writeFile(path, whole);
    for (const OpenMode mode : {OpenMode::read, OpenMode::write}) {
        const SessionInfoTablePtr table = createSessionTable(directory.root(), Tags{3});
        ErrorCode code = OUT_OF_MEMORY_ERROR;
        int n = 0;
        while (code != NO_ERROR && ++n < mostAllocations) {
            {
                const AllocationFailure failure(n);
                code = si_init(table.get(), mode);
            }
            ASSERT_TRUE(code == NO_ERROR || code == OUT_OF_MEMORY_ERROR) << "allocation " << n << " gave " << code;
            EXPECT_EQ(tagsOf(table.get()), code == NO_ERROR ? defaultTags : Tags{3}) << "allocation " << n;
            EXPECT_EQ(difference(readFile(path), whole), "") << "allocation " << n;
        }
        EXPECT_GT(n, 1) << "no allocation has failed";
        EXPECT_EQ(readValues(table.get(), defaultTags), someValues) << "mode " << openMode_number(mode);
    }
}

TEST_F(SessionInfoMemory, AReadWithoutMemoryFailsAndTheNextOneSucceeds) {
    writeFile(path, sessionFile(defaultTags, someValues));
    const SessionInfoTablePtr table = openSessionTable(directory.root(), OpenMode::read);
    const std::int32_t tag = 4;
    std::int64_t value = 5;
    ErrorCode code = NO_ERROR;
    {
        const AllocationFailure failure(1);
        code = si_read(table.get(), 1, &tag, &value);
    }
    EXPECT_EQ(code, OUT_OF_MEMORY_ERROR);
    EXPECT_EQ(value, 5) << "the caller's array is left unchanged";
    EXPECT_EQ(readValues(table.get(), {4}), Values{40});
}

}  // namespace
}  // namespace tabulo::internal::test
