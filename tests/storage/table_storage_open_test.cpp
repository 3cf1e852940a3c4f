// Opening: new files, existing files, what is refused, what is recovered.
#include <cerrno>
#include <filesystem>

#include "tests/storage/storage_fixture.h"
#include "tests/support/allocation_failure.h"
#include "tests/support/fault_platform.h"

namespace tabulo::internal::test {
namespace {

using Calls = std::vector<std::string>;

class TableStorageOpening : public StorageFixture {
  protected:
    void expectNothingOpen() const {
        EXPECT_FALSE(tableStorage_isActive(storage.get()));
        EXPECT_EQ(storage->activeCount, 0);
        EXPECT_TRUE(storage->files.empty());
        EXPECT_TRUE(storage->activeIndexes.empty());
        EXPECT_TRUE(isFree()) << "the file is still held";
    }
};

// New files.

TEST_F(TableStorageOpening, AMissingFileIsCreatedWithItsHeader) {
    ASSERT_EQ(init(OpenMode::write), NO_ERROR);
    EXPECT_EQ(toHex(readFile(path)),
              "4b 65 73 74 72 6f 76 61 44 62 01 05 00 20 03 28 00 00 00 " + toHex(pattern(21, 100)));
    EXPECT_EQ(owner.calls, (Calls{"writeHeader", "opened 40 40 19"}));
    EXPECT_EQ(owner.openedFile, tableStorage_master(storage.get()));
    EXPECT_EQ(storage->mode, OpenMode::write);
    EXPECT_EQ(storage->headerSize, 40);
    EXPECT_EQ(storage->specificHeaderOffset, 19);
    EXPECT_EQ(storage->footerSize, 0);
    EXPECT_EQ(storage->activeCount, 1);
    EXPECT_EQ(storage->activeIndexes, std::vector<std::int32_t>{0});
    EXPECT_TRUE(tableStorage_isActive(storage.get()));
}

TEST_F(TableStorageOpening, TheHeaderOfANewFileIsOneWrite) {
    for (const std::size_t specific : {21UL, 8000UL}) {
        const FaultPlatform platform;
        owner.specificHeader = pattern(specific, 100);
        ASSERT_EQ(init(OpenMode::create), NO_ERROR);
        ASSERT_EQ(platform.count(FileCall::writeAt), 1);
        EXPECT_EQ(platform.calls(FileCall::writeAt)[0].length, static_cast<std::int64_t>(specific) + 19);
        ASSERT_EQ(tableStorage_uninit(storage.get()), NO_ERROR);
    }
}

TEST_F(TableStorageOpening, TheSyncPolicyAppliesToTheHeaderOfANewFile) {
    FaultPlatform platform;
    tableFileSetSyncPolicy(true, 0, 0);
    EXPECT_EQ(init(OpenMode::write), NO_ERROR);
    tableFileSetSyncPolicy(false, 0, 0);
    EXPECT_EQ(platform.count(FileCall::sync), 1);
    EXPECT_EQ(platform.count(FileCall::syncDirectory), 1);
    EXPECT_EQ(tableStorage_uninit(storage.get()), NO_ERROR);
}

TEST_F(TableStorageOpening, InModeTwoAnExistingFileIsEmptiedAndTheStorageIsInModeOne) {
    writeFile(path, fakeTable(50, 100));
    ASSERT_EQ(init(OpenMode::create), NO_ERROR);
    EXPECT_EQ(storage->mode, OpenMode::write);
    EXPECT_EQ(toHex(readFile(path)), toHex(fakeTable(40, 0)));
    EXPECT_EQ(owner.calls, (Calls{"writeHeader", "opened 40 40 19"}));
}

TEST_F(TableStorageOpening, AnEmptyFileOpenedForWritingCountsAsNew) {
    writeFile(path, {});
    ASSERT_EQ(init(OpenMode::write), NO_ERROR);
    EXPECT_EQ(toHex(readFile(path)), toHex(fakeTable(40, 0)));
    EXPECT_EQ(owner.calls, (Calls{"writeHeader", "opened 40 40 19"}));
}

TEST_F(TableStorageOpening, AnEmptyFileOpenedForReadingIsTooShort) {
    writeFile(path, {});
    EXPECT_EQ(init(OpenMode::read), FILE_SIZE_ERROR);
    EXPECT_EQ(owner.calls, Calls{});
    expectNothingOpen();
}

TEST_F(TableStorageOpening, AHeaderOf8096BytesIsWrittenAndOf8097Refused) {
    owner.specificHeader = pattern(8096 - 19, 100);
    EXPECT_EQ(init(OpenMode::create), NO_ERROR);
    EXPECT_EQ(toHex(readFile(path)), toHex(fakeTable(8096, 0)));
    owner.specificHeader = pattern(8097 - 19, 100);
    EXPECT_EQ(init(OpenMode::create), WRONG_PARAMETER_ERROR);
    EXPECT_EQ(readFile(path).size(), 0U) << "nothing is written";
    expectNothingOpen();
}

TEST_F(TableStorageOpening, ATableThatCannotWriteItsHeaderFailsTheOpen) {
    owner.writeCode = NULL_POINTER_ERROR;
    EXPECT_EQ(init(OpenMode::write), NULL_POINTER_ERROR);
    EXPECT_EQ(readFile(path).size(), 0U);
    expectNothingOpen();
}

TEST_F(TableStorageOpening, AHeaderThatCannotBeWrittenFailsTheOpen) {
    FaultPlatform platform;
    platform.failAll(FileCall::writeAt, ENOSPC);
    EXPECT_EQ(init(OpenMode::write), FILE_FLUSH_ERROR) << "a small header fails at the flush";
    owner.specificHeader = pattern(5000, 100);
    EXPECT_EQ(init(OpenMode::write), FILE_WRITE_ERROR) << "a large one at the write";
    expectNothingOpen();
}

// Existing files.

TEST_F(TableStorageOpening, AnExistingFileIsVerifiedLoadedAndReportedOnce) {
    writeFile(path, fakeTable(50, 100));
    for (const OpenMode mode : {OpenMode::read, OpenMode::write}) {
        owner.calls.clear();
        ASSERT_EQ(init(mode), NO_ERROR) << "mode " << openMode_number(mode);
        EXPECT_EQ(owner.calls, (Calls{"verifyHeader 19", "loadHeader 19", "opened 150 50 19"}))
            << "mode " << openMode_number(mode);
        EXPECT_EQ(owner.readMark, 19);
        EXPECT_EQ(owner.streamLength, 150);
        EXPECT_EQ(storage->headerSize, 50);
        EXPECT_EQ(storage->specificHeaderOffset, 19);
        EXPECT_EQ(storage->mode, mode);
    }
    EXPECT_TRUE(log.warnings().empty());
    EXPECT_EQ(toHex(readFile(path)), toHex(fakeTable(50, 100))) << "opening changed the file";
}

TEST_F(TableStorageOpening, TheTableSeesAtMostTheLargestHeader) {
    writeFile(path, fakeTable(50, 9000));
    ASSERT_EQ(init(OpenMode::read), NO_ERROR);
    EXPECT_EQ(owner.streamLength, 8096);
    EXPECT_EQ(owner.calls.back(), "opened 9050 50 19");
}

TEST_F(TableStorageOpening, AFileWithoutAWholeGenericHeaderIsTooShort) {
    Bytes bytes = fakeTable(50, 0);
    bytes.resize(18);
    writeFile(path, bytes);
    for (const OpenMode mode : {OpenMode::read, OpenMode::write}) {
        EXPECT_EQ(init(mode), FILE_SIZE_ERROR) << "mode " << openMode_number(mode);
        EXPECT_EQ(owner.calls, Calls{}) << "it is not recovered either";
    }
    EXPECT_EQ(toHex(readFile(path)), toHex(bytes));
    expectNothingOpen();
}

TEST_F(TableStorageOpening, AGenericHeaderThatIsRefusedEndsTheOpenBeforeTheTableIsAsked) {
    struct Damage {
        std::size_t offset;
        const char* bytes;
        ErrorCode code;
    };
    for (const Damage& damage :
         {Damage{0, "00", SIGNATURE_ERROR}, Damage{10, "02", BYTE_ORDER_ERROR}, Damage{13, "84 03", VERSION_ERROR},
          Damage{15, "23 00", HEADER_CORRUPTED_ERROR}, Damage{15, "a1 1f", HEADER_CORRUPTED_ERROR}}) {
        writeFile(path, fakeTable(50, 9000));
        patchFile(path, damage.offset, fromHex(damage.bytes));
        const Bytes before = readFile(path);
        for (const OpenMode mode : {OpenMode::read, OpenMode::write}) {
            EXPECT_EQ(init(mode), damage.code) << "mode " << openMode_number(mode);
            EXPECT_EQ(owner.calls, Calls{}) << "code " << damage.code;
            expectNothingOpen();
        }
        EXPECT_EQ(readFile(path), before) << "a refused file was changed";
    }
}

TEST_F(TableStorageOpening, MinorVersion850OpensAnd900NamesTheExpectedVersion) {
    writeFile(path, fakeTable(50, 100));
    patchFile(path, 13, fromHex("52 03"));
    EXPECT_EQ(init(OpenMode::write), NO_ERROR);
    EXPECT_TRUE(log.warnings().empty());
    ASSERT_EQ(tableStorage_uninit(storage.get()), NO_ERROR);
    patchFile(path, 13, fromHex("84 03"));
    EXPECT_EQ(init(OpenMode::write), VERSION_ERROR);
    EXPECT_EQ(log.warnings(),
              Calls{warningLine("tsgh_verify", "Expected table version: 5.800, actual table version: 5.900")});
}

TEST_F(TableStorageOpening, FinalCodesOfTheTablesCheckAreNeverRecovered) {
    writeFile(path, fakeTable(50, 100));
    for (const ErrorCode code : {VERSION_ERROR, HEADER_CORRUPTED_ERROR, TABLE_TYPE_ERROR, CONFIG_MISMATCH_ERROR,
                                 STRING_FIELDS_COUNT_MISMATCH_ERROR, NUMERIC_FIELDS_COUNT_MISMATCH_ERROR,
                                 STRING_FIELDS_NAMES_MISMATCH_ERROR, NUMERIC_FIELDS_NAMES_MISMATCH_ERROR}) {
        owner.verifyCode = code;
        for (const OpenMode mode : {OpenMode::read, OpenMode::write}) {
            owner.calls.clear();
            EXPECT_EQ(init(mode), code) << "mode " << openMode_number(mode);
            EXPECT_EQ(owner.calls, Calls{"verifyHeader 19"}) << "code " << code;
            expectNothingOpen();
        }
    }
    EXPECT_TRUE(log.warnings().empty());
}

TEST_F(TableStorageOpening, AFileShorterThanItsHeaderOpensForReadingAsItStands) {
    Bytes bytes = fakeTable(50, 0);
    bytes.resize(30);
    writeFile(path, bytes);
    owner.verifyCode = FILE_SIZE_ERROR;
    EXPECT_EQ(init(OpenMode::read), NO_ERROR);
    EXPECT_EQ(owner.calls, (Calls{"verifyHeader 19", "loadHeader 19", "opened 30 50 19"}));
    EXPECT_TRUE(tableStorage_isActive(storage.get()));
    EXPECT_TRUE(log.warnings().empty());
}

TEST_F(TableStorageOpening, OtherCodesOpenNothingForReading) {
    writeFile(path, fakeTable(50, 100));
    owner.verifyCode = NO_DATA_ERROR;
    EXPECT_EQ(init(OpenMode::read), NO_DATA_ERROR);
    EXPECT_EQ(owner.calls, Calls{"verifyHeader 19"}) << "a reader never recovers, and never loads what is not verified";
    owner.calls.clear();
    owner.verifyCode = NO_ERROR;
    owner.loadCode = FILE_SIZE_ERROR;
    EXPECT_EQ(init(OpenMode::read), FILE_SIZE_ERROR) << "only the check's code is cleared";
    EXPECT_EQ(owner.calls, (Calls{"verifyHeader 19", "loadHeader 19"}));
    expectNothingOpen();
}

TEST_F(TableStorageOpening, AShortFileIsRecoveredForWriting) {
    writeFile(path, fakeTable(50, 100));
    owner.verifyCode = FILE_SIZE_ERROR;
    owner.onRecover = [](TableFile* file) { EXPECT_EQ(tableFileTruncate(file, 120), NO_ERROR); };
    EXPECT_EQ(init(OpenMode::write), NO_ERROR);
    EXPECT_EQ(owner.calls, (Calls{"verifyHeader 19", "recover", "opened 120 50 19"}));
    EXPECT_EQ(log.warnings(),
              Calls{warningLine("tsX_openReplica", "Table " + path + " was recovered, old size: 150, new size: 120")});
}

TEST_F(TableStorageOpening, WhatCannotBeLoadedIsRecoveredForWriting) {
    writeFile(path, fakeTable(50, 100));
    for (const ErrorCode code : {NO_DATA_ERROR, CONSISTENCY_ERROR, HEADER_CORRUPTED_ERROR, VERSION_ERROR}) {
        owner.calls.clear();
        owner.loadCode = code;
        EXPECT_EQ(init(OpenMode::write), NO_ERROR) << "only the check's codes are final, not code " << code;
        EXPECT_EQ(owner.calls, (Calls{"verifyHeader 19", "loadHeader 19", "recover", "opened 150 50 19"}));
    }
}

TEST_F(TableStorageOpening, AFailedRecoveryFailsTheOpenWithItsCode) {
    writeFile(path, fakeTable(50, 100));
    owner.verifyCode = FILE_SIZE_ERROR;
    owner.recoverCode = UNRECOVERABLE_ERROR;
    EXPECT_EQ(init(OpenMode::write), UNRECOVERABLE_ERROR);
    EXPECT_EQ(owner.calls, (Calls{"verifyHeader 19", "recover"}));
    EXPECT_EQ(log.warnings(), Calls{warningLine("tsX_openReplica", "Table " + path + " recovery failed!")});
    expectNothingOpen();
}

TEST_F(TableStorageOpening, ATableThatRefusesTheOpenedFilesFailsTheOpen) {
    owner.openedCode = NO_DATA_ERROR;
    EXPECT_EQ(init(OpenMode::write), NO_DATA_ERROR);
    expectNothingOpen();
}

TEST_F(TableStorageOpening, AMissingFileForReadingGivesTwoWarnings) {
    EXPECT_EQ(init(OpenMode::read), FILE_OPEN_ERROR);
    EXPECT_EQ(log.warnings(), (Calls{warningLine("tableFileOpen", "fopen() failed: No such file or directory"),
                                     warningLine("tsX_openReplica", "Unable to open a file " + path + " in mode 0.")}));
    EXPECT_FALSE(std::filesystem::exists(path));
}

TEST_F(TableStorageOpening, AFileHeldByAnotherWriterIsRefusedUntouched) {
    writeFile(path, {});
    TableFile* other = nullptr;
    ASSERT_EQ(tableFileOpen(&other, path.c_str(), OpenMode::write, nullptr), NO_ERROR);
    EXPECT_EQ(init(OpenMode::write), FILE_OPEN_ERROR);
    EXPECT_EQ(init(OpenMode::create), FILE_OPEN_ERROR);
    EXPECT_EQ(readFile(path).size(), 0U) << "a header was written into another writer's file";
    EXPECT_EQ(log.warnings().back(), warningLine("tsX_openReplica", "Unable to open a file " + path + " in mode 2."));
    EXPECT_EQ(tableFileClose(other), NO_ERROR);
}

TEST_F(TableStorageOpening, AnUnknownModeIsAWrongParameter) {
    EXPECT_EQ(init(OpenMode{3}), WRONG_PARAMETER_ERROR);
    EXPECT_EQ(init(OpenMode{-1}), WRONG_PARAMETER_ERROR);
    EXPECT_FALSE(std::filesystem::exists(path));
}

TEST_F(TableStorageOpening, AConfigurationWithoutAMasterPathIsAWrongParameter) {
    EXPECT_EQ(tableConfig_setPath(tableStorage_getConfig(storage.get()), 0, nullptr), NO_ERROR);
    EXPECT_EQ(init(OpenMode::write), WRONG_PARAMETER_ERROR);
}

TEST_F(TableStorageOpening, AFileThatCannotBeReadFailsTheOpen) {
    writeFile(path, fakeTable(50, 100));
    FaultPlatform platform;
    platform.failAll(FileCall::readAt, EIO);
    EXPECT_EQ(init(OpenMode::write), FILE_READ_ERROR);
    EXPECT_EQ(owner.calls, Calls{});
    expectNothingOpen();
    EXPECT_EQ(toHex(readFile(path)), toHex(fakeTable(50, 100)));
}

TEST_F(TableStorageOpening, WithoutMemoryTheOpenFailsAndNothingStaysOpen) {
    writeFile(path, fakeTable(50, 100));
    owner.silent = true;       // neither the fake owner
    log_setFacility(nullptr);  // nor the capture takes memory now
    int failures = 0;
    ErrorCode code = OUT_OF_MEMORY_ERROR;
    while (code == OUT_OF_MEMORY_ERROR && failures < 100) {
        storage = makeStorage(1);
        {
            const AllocationFailure failure(failures + 1);
            code = init(OpenMode::write);
        }
        if (code == OUT_OF_MEMORY_ERROR) {
            expectNothingOpen();
            ++failures;
        }
    }
    EXPECT_EQ(code, NO_ERROR);
    EXPECT_GE(failures, 5) << "two arrays, a stream and its buffer, a file take memory";
}

TEST_F(TableStorageOpening, WithReplicaRootsOnlyTheMasterIsOpened) {
    std::filesystem::create_directory(directory.file("replica1"));
    std::filesystem::create_directory(directory.file("replica2"));
    storage = makeStorage(3);
    ASSERT_EQ(init(OpenMode::write), NO_ERROR);
    EXPECT_EQ(storage->files.size(), 1U);
    EXPECT_EQ(storage->activeIndexes, std::vector<std::int32_t>{0});
    EXPECT_EQ(storage->activeCount, 1);
    EXPECT_TRUE(std::filesystem::exists(path));
    EXPECT_FALSE(std::filesystem::exists(directory.file("replica1/orders")));
    EXPECT_FALSE(std::filesystem::exists(directory.file("replica2/orders")));
}

}  // namespace
}  // namespace tabulo::internal::test
