// Opening for writing with a condition on what stands at the path.
#include <gtest/gtest.h>

#include <filesystem>

#include "storage/table_file.h"
#include "tests/storage/open_table_file.h"
#include "tests/support/bytes.h"
#include "tests/support/fault_platform.h"
#include "tests/support/log_capture.h"
#include "tests/support/temporary_directory.h"

namespace tabulo::internal::test {
namespace {

class FilePresenceOnOpening : public ::testing::Test {
  protected:
    // The code of opening; *created tells as tableFileOpen does.
    ErrorCode tryOpen(FilePresence presence, OpenMode mode = OpenMode::write) {
        TableFile* file = nullptr;
        created = false;
        const ErrorCode code = tableFileOpen(&file, path.c_str(), mode, &created, presence);
        const TableFilePtr owned(file);
        return code;
    }

    const TemporaryDirectory directory;
    const std::string path = directory.file("orders");
    const LogCapture log;
    bool created = false;
};

TEST_F(FilePresenceOnOpening, AMissingFileIsNotCreatedWhereOneMustExist) {
    EXPECT_EQ(tryOpen(FilePresence::existing), FILE_OPEN_ERROR);
    EXPECT_FALSE(created);
    EXPECT_FALSE(std::filesystem::exists(path));
    EXPECT_EQ(log.warnings(),
              std::vector<std::string>{"Tabulo/C WARNING: tableFileOpen(): fopen() failed: No such file or directory"});
}

TEST_F(FilePresenceOnOpening, AnExistingFileIsRefusedUntouchedWhereNoneMayExist) {
    writeFile(path, pattern(10));
    EXPECT_EQ(tryOpen(FilePresence::missing), FILE_OPEN_ERROR);
    EXPECT_EQ(toHex(readFile(path)), toHex(pattern(10)));
    EXPECT_EQ(log.warnings(),
              std::vector<std::string>{"Tabulo/C WARNING: tableFileOpen(): fopen() failed: File exists"});
}

TEST_F(FilePresenceOnOpening, EachIsOpenedWhereItIsAsAsked) {
    EXPECT_EQ(tryOpen(FilePresence::missing), NO_ERROR);
    EXPECT_TRUE(created);
    writeFile(path, pattern(10));
    EXPECT_EQ(tryOpen(FilePresence::existing), NO_ERROR);
    EXPECT_FALSE(created);
    EXPECT_EQ(toHex(readFile(path)), toHex(pattern(10)));
}

TEST_F(FilePresenceOnOpening, IsNotAskedForInTheOtherModes) {
    EXPECT_EQ(tryOpen(FilePresence::existing, OpenMode::create), NO_ERROR);
    EXPECT_EQ(tryOpen(FilePresence::missing, OpenMode::create), NO_ERROR);
    EXPECT_EQ(tryOpen(FilePresence::missing, OpenMode::read), NO_ERROR);
}

TEST_F(FilePresenceOnOpening, TheFirstErrorOfTheSystemIsKeptUntilItIsCleared) {
    systemError_clear();
    EXPECT_EQ(systemError_first().number, 0);
    EXPECT_EQ(tryOpen(FilePresence::existing), FILE_OPEN_ERROR);
    EXPECT_EQ(systemError_first().number, ENOENT);
    FaultPlatform platform;
    platform.failNth(FileCall::open, 1, EACCES);
    EXPECT_EQ(tryOpen(FilePresence::any), FILE_OPEN_ERROR);
    EXPECT_EQ(systemError_first().number, ENOENT);
    systemError_clear();
    EXPECT_EQ(tryOpen(FilePresence::any), NO_ERROR);
    EXPECT_EQ(systemError_first().number, 0) << "that the file was missing is no failure";
    platform.failNth(FileCall::close, 2, EIO);
    EXPECT_EQ(tryOpen(FilePresence::any), NO_ERROR) << "the close of the record is not part of it";
    EXPECT_EQ(systemError_first().number, EIO);
    systemError_clear();
}

}  // namespace
}  // namespace tabulo::internal::test
