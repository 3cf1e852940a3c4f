// Several files: the iterator, dropping one of them, replicas beside a master.
#include <array>
#include <cerrno>
#include <filesystem>

#include "tests/storage/storage_fixture.h"
#include "tests/support/fault_platform.h"

namespace tabulo::internal::test {
namespace {

using Lines = std::vector<std::string>;

// A storage that is open for writing, with two more files put beside its master.
class TableStorageFiles : public StorageFixture {
  protected:
    void SetUp() override {
        for (int i = 1; i <= 2; ++i) {
            std::filesystem::create_directory(directory.file("replica" + std::to_string(i)));
        }
        storage = makeStorage(3);
        ASSERT_EQ(init(OpenMode::write), NO_ERROR);
        storage->files.resize(3);
        storage->activeIndexes = {0, 1, 2};
        storage->activeCount = 3;
        for (std::size_t i = 1; i <= 2; ++i) {
            ASSERT_EQ(tableFileOpen(&storage->files[i], replicaPath(i).c_str(), OpenMode::write, nullptr), NO_ERROR);
        }
        log.clear();
        owner.calls.clear();
    }
    std::string replicaPath(std::size_t i) const { return directory.file("replica" + std::to_string(i) + "/orders"); }

    // The file numbers that an iteration yields, in its order.
    std::vector<std::int32_t> iterate() const {
        std::vector<std::int32_t> numbers;
        TableStorageFileIterator iterator;
        tableStorage_fileIteratorInit(&iterator);
        while (tableStorage_nextFile(storage.get(), &iterator) != nullptr) {
            numbers.push_back(tableStorage_fileIndex(storage.get(), &iterator));
        }
        return numbers;
    }
    // Iterates and drops the file with this number; what the iteration yielded.
    std::vector<std::int32_t> iterateDropping(std::int32_t number, ErrorCode expected) {
        std::vector<std::int32_t> numbers;
        TableStorageFileIterator iterator;
        tableStorage_fileIteratorInit(&iterator);
        while (tableStorage_nextFile(storage.get(), &iterator) != nullptr) {
            numbers.push_back(tableStorage_fileIndex(storage.get(), &iterator));
            if (numbers.back() == number) {
                EXPECT_EQ(tableStorage_closeFile(storage.get(), &iterator), expected);
            }
        }
        return numbers;
    }
};

TEST_F(TableStorageFiles, AnIterationYieldsTheActiveFilesMasterFirst) {
    TableStorageFileIterator iterator{77};
    tableStorage_fileIteratorInit(&iterator);
    EXPECT_EQ(iterator.position, 0);
    EXPECT_EQ(tableStorage_nextFile(storage.get(), &iterator), storage->files[0]);
    EXPECT_EQ(tableStorage_nextFile(storage.get(), &iterator), storage->files[1]);
    EXPECT_EQ(tableStorage_nextFile(storage.get(), &iterator), storage->files[2]);
    EXPECT_EQ(tableStorage_nextFile(storage.get(), &iterator), nullptr);
    EXPECT_EQ(tableStorage_nextFile(storage.get(), &iterator), nullptr) << "the end stays the end";
}

TEST_F(TableStorageFiles, ADroppedFileIsGoneAndTheIterationGoesOnWithTheNext) {
    for (const std::int32_t number : {0, 1, 2}) {
        storage.reset();
        SetUp();
        EXPECT_EQ(iterateDropping(number, NO_ERROR), (std::vector<std::int32_t>{0, 1, 2})) << "dropping " << number;
        std::vector<std::int32_t> left = {0, 1, 2};
        left.erase(left.begin() + number);
        EXPECT_EQ(iterate(), left);
        EXPECT_EQ(storage->activeCount, 2);
        left.push_back(-1);
        EXPECT_EQ(storage->activeIndexes, left);
        EXPECT_EQ(storage->files[static_cast<std::size_t>(number)], nullptr);
    }
}

TEST_F(TableStorageFiles, TheLastFileMayBeDropped) {
    for (const std::int32_t number : {1, 0, 2}) {
        iterateDropping(number, NO_ERROR);
    }
    EXPECT_FALSE(tableStorage_isActive(storage.get()));
    EXPECT_EQ(iterate(), std::vector<std::int32_t>{});
    EXPECT_EQ(tableStorage_uninit(storage.get()), NO_ERROR);
}

TEST_F(TableStorageFiles, AFileWhoseCloseFailsIsDroppedAllTheSameAndItsRecordFreed) {
    FaultPlatform platform;
    platform.failNth(FileCall::close, 1, EIO);
    EXPECT_EQ(iterateDropping(1, SYSTEM_FILE_ERROR), (std::vector<std::int32_t>{0, 1, 2}));
    EXPECT_EQ(iterate(), (std::vector<std::int32_t>{0, 2}));
    EXPECT_EQ(storage->files[1], nullptr);
    EXPECT_EQ(platform.count(FileCall::close), 1);
}

TEST_F(TableStorageFiles, BeforeTheFirstFileThereIsNothingToDrop) {
    TableStorageFileIterator iterator;
    tableStorage_fileIteratorInit(&iterator);
    EXPECT_EQ(tableStorage_closeFile(storage.get(), &iterator), NO_ERROR);
    EXPECT_EQ(iterator.position, 0);
    iterator.position = 9;
    EXPECT_EQ(tableStorage_closeFile(storage.get(), &iterator), NO_ERROR);
    EXPECT_EQ(storage->activeCount, 3);
}

TEST_F(TableStorageFiles, ClosingGoesFromTheLastFileToTheFirst) {
    std::vector<int> expected;
    for (std::size_t i = 3; i > 0; --i) {
        expected.push_back(storage->files[i - 1]->stream.descriptor);
    }
    const FaultPlatform platform;
    EXPECT_EQ(tableStorage_uninit(storage.get()), NO_ERROR);
    std::vector<int> closed;
    for (const RecordedCall& call : platform.calls(FileCall::close)) {
        closed.push_back(call.descriptor);
    }
    EXPECT_EQ(closed, expected);
}

TEST_F(TableStorageFiles, ClosingStopsAtTheFirstFailureAndAFurtherCallGoesOn) {
    FaultPlatform platform;
    platform.failNth(FileCall::close, 2, EIO);
    EXPECT_EQ(tsX_close(storage.get()), SYSTEM_FILE_ERROR);
    EXPECT_EQ(log.warnings(), Lines{warningLine("tsX_close", "tableFileClose(" + replicaPath(1) +
                                                                 ") failed: System file routine failed.")});
    EXPECT_EQ(storage->files[2], nullptr);
    EXPECT_EQ(storage->activeIndexes, (std::vector<std::int32_t>{0, 1, -1}));
    EXPECT_EQ(storage->activeCount, 2) << "the remaining files stay open";
    EXPECT_EQ(tsX_close(storage.get()), NO_ERROR);
    EXPECT_EQ(storage->activeCount, 0);
    EXPECT_EQ(storage->activeIndexes, (std::vector<std::int32_t>{-1, -1, -1}));
    EXPECT_EQ(platform.count(FileCall::close), 3);
}

TEST_F(TableStorageFiles, DestroyingClosesEveryFileThoughEveryCloseFails) {
    FaultPlatform platform;
    platform.failAll(FileCall::close, EIO);
    storage.reset();
    EXPECT_EQ(platform.count(FileCall::close), 3);
    EXPECT_EQ(
        log.warnings(),
        (Lines{warningLine("tsX_close", "tableFileClose(" + replicaPath(2) + ") failed: System file routine failed."),
               warningLine("tsX_close", "tableFileClose(" + replicaPath(1) + ") failed: System file routine failed."),
               warningLine("tsX_close", "tableFileClose(" + path + ") failed: System file routine failed.")}));
}

TEST_F(TableStorageFiles, TruncatingCutsEveryActiveFileToTheHeader) {
    for (const std::size_t i : {0UL, 1UL, 2UL}) {
        ASSERT_EQ(tableFileWrite(storage->files[i], pattern(90).data(), 90), NO_ERROR);
        ASSERT_EQ(tableFileFlush(storage->files[i]), NO_ERROR);
    }
    iterateDropping(1, NO_ERROR);
    EXPECT_EQ(tableStorage_truncate(storage.get()), NO_ERROR);
    EXPECT_EQ(readFile(path).size(), 40U);
    EXPECT_EQ(readFile(replicaPath(1)).size(), 90U) << "a dropped file is not touched";
    EXPECT_EQ(readFile(replicaPath(2)).size(), 40U);
}

TEST_F(TableStorageFiles, TruncatingHandsOutTheCodeOfAFailedCut) {
    ASSERT_EQ(tableFileWrite(storage->files[0], pattern(90).data(), 90), NO_ERROR);
    FaultPlatform platform;
    platform.failNth(FileCall::truncate, 1, EIO);
    EXPECT_EQ(tableStorage_truncate(storage.get()), FILE_TRUNCATE_ERROR);
}

TEST_F(TableStorageFiles, TruncatingAFileThatIsOpenForReadingIsRefused) {
    ASSERT_EQ(tableStorage_uninit(storage.get()), NO_ERROR);
    ASSERT_EQ(init(OpenMode::read), NO_ERROR);
    EXPECT_EQ(tableStorage_truncate(storage.get()), READ_ONLY_ERROR);
}

// One file beside a master of a known size.
class TableStorageReplica : public StorageFixture {
  protected:
    void SetUp() override {
        writeFile(path, fakeTable(50, 100));
        std::filesystem::create_directory(directory.file("replica1"));
        storage = makeStorage(2);
        ASSERT_EQ(init(OpenMode::write), NO_ERROR);
        log.clear();
        owner.calls.clear();
    }
    void TearDown() override {
        if (file != nullptr) {
            EXPECT_EQ(tableFileClose(file), NO_ERROR);
        }
    }
    ErrorCode open(std::int64_t size, OpenMode mode = OpenMode::write) {
        masterSize = size;
        return tsX_openReplica(storage.get(), &file, replica.c_str(), mode, &masterSize);
    }

    const std::string replica = directory.file("replica1/orders");
    TableFile* file = nullptr;
    std::int64_t masterSize = 0;
};

TEST_F(TableStorageReplica, OfTheMastersSizeIsOpenedAsItIs) {
    writeFile(replica, fakeTable(50, 100));
    EXPECT_EQ(open(150), NO_ERROR);
    EXPECT_EQ(owner.calls, (Lines{"verifyHeader 19", "loadHeader 19"}));
    EXPECT_EQ(masterSize, 150);
    EXPECT_TRUE(log.all().empty());
}

TEST_F(TableStorageReplica, DoesNotChangeTheStoragesHeaderSize) {
    writeFile(replica, fakeTable(60, 90));
    EXPECT_EQ(open(150), NO_ERROR);
    EXPECT_EQ(storage->headerSize, 50);
}

TEST_F(TableStorageReplica, LongerThanTheMasterIsCutAndRecovered) {
    writeFile(replica, fakeTable(50, 200));
    EXPECT_EQ(open(150), NO_ERROR);
    EXPECT_EQ(readFile(replica).size(), 150U);
    EXPECT_EQ(owner.calls, (Lines{"verifyHeader 19", "loadHeader 19", "recover"}));
    EXPECT_EQ(
        log.all(),
        (Lines{warningLine("tsX_openReplica", "Replica " + replica + " was truncated, old size: 250, new size: 150"),
               warningLine("tsX_openReplica", "Table " + replica + " was recovered, old size: 150, new size: 150")}));
    EXPECT_EQ(masterSize, 150);
}

TEST_F(TableStorageReplica, ThatCannotBeCutIsNotOpened) {
    writeFile(replica, fakeTable(50, 200));
    FaultPlatform platform;
    platform.failNth(FileCall::truncate, 1, EIO);
    EXPECT_EQ(open(150), FILE_TRUNCATE_ERROR);
    EXPECT_EQ(file, nullptr);
    EXPECT_EQ(owner.calls, (Lines{"verifyHeader 19", "loadHeader 19"})) << "a failed cut ends the opening";
    EXPECT_TRUE(log.all().empty());
    EXPECT_EQ(platform.count(FileCall::close), 1);
}

TEST_F(TableStorageReplica, ShorterThanTheMasterIsUnrecoverable) {
    writeFile(replica, fakeTable(50, 99));
    EXPECT_EQ(open(150), UNRECOVERABLE_ERROR);
    EXPECT_EQ(file, nullptr);
    EXPECT_EQ(toHex(readFile(replica)), toHex(fakeTable(50, 99)));
}

TEST_F(TableStorageReplica, OfAReadOnlyStorageIsTakenWhateverItsSize) {
    ASSERT_EQ(tableStorage_uninit(storage.get()), NO_ERROR);
    ASSERT_EQ(init(OpenMode::read), NO_ERROR);
    owner.calls.clear();
    for (const std::size_t records : {99UL, 200UL}) {
        writeFile(replica, fakeTable(50, records));
        EXPECT_EQ(open(150, OpenMode::read), NO_ERROR) << records << " bytes of records";
        EXPECT_EQ(readFile(replica).size(), 50 + records);
        EXPECT_EQ(tableFileClose(file), NO_ERROR);
        file = nullptr;
    }
    EXPECT_EQ(owner.calls.size(), 4U) << "nothing is recovered";
}

TEST_F(TableStorageReplica, NewBesideAMasterThatHoldsRecordsIsRefused) {
    EXPECT_EQ(open(150), UNRECOVERABLE_ERROR);
    EXPECT_EQ(file, nullptr);
    writeFile(replica, {});
    EXPECT_EQ(open(150), UNRECOVERABLE_ERROR) << "an empty one counts as new";
    EXPECT_EQ(file, nullptr);
}

TEST_F(TableStorageReplica, NewBesideAMasterWithoutRecordsIsCreated) {
    EXPECT_EQ(open(40), NO_ERROR);
    EXPECT_EQ(toHex(readFile(replica)), toHex(fakeTable(40, 0)));
    EXPECT_EQ(masterSize, 40);
}

TEST_F(TableStorageReplica, TheMastersSizeIsSetByTheFirstFile) {
    writeFile(replica, fakeTable(50, 70));
    EXPECT_EQ(open(0), NO_ERROR);
    EXPECT_EQ(masterSize, 120);
    EXPECT_EQ(tableFileClose(file), NO_ERROR);
    file = nullptr;
    owner.verifyCode = FILE_SIZE_ERROR;
    owner.onRecover = [](TableFile* recovered) { EXPECT_EQ(tableFileTruncate(recovered, 60), NO_ERROR); };
    EXPECT_EQ(open(0), NO_ERROR);
    EXPECT_EQ(masterSize, 60) << "the size behind the recovery";
    EXPECT_EQ(tableFileClose(file), NO_ERROR);
    file = nullptr;
    std::filesystem::remove(replica);
    EXPECT_EQ(open(0), NO_ERROR);
    EXPECT_EQ(masterSize, 40) << "the header of a new file";
}

TEST_F(TableStorageReplica, ThatIsRefusedIsClosedAndCleared) {
    writeFile(replica, fakeTable(50, 100));
    owner.verifyCode = CONFIG_MISMATCH_ERROR;
    const FaultPlatform platform;
    EXPECT_EQ(open(150), CONFIG_MISMATCH_ERROR);
    EXPECT_EQ(file, nullptr);
    EXPECT_EQ(platform.count(FileCall::close), 1);
    EXPECT_EQ(masterSize, 150);
}

}  // namespace
}  // namespace tabulo::internal::test
