// What the layer of files asks of the operating system, call by call.
#include "storage/file_platform.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <string>

#include "tests/support/bytes.h"
#include "tests/support/temporary_directory.h"

namespace tabulo::internal::test {
namespace {

class SystemsFilePlatform : public ::testing::Test {
  protected:
    void SetUp() override {
        writeFile(path, pattern(10));
        ASSERT_FALSE(platform.open(path.c_str(), FileAccess::readWrite, &descriptor).failed());
    }
    void TearDown() override { EXPECT_FALSE(platform.close(descriptor).failed()); }

    const TemporaryDirectory directory;
    const std::string path = directory.file("orders");
    const FilePlatform& platform = filePlatform_system();
    int descriptor = -1;
    std::uint8_t byte = 0;
    std::size_t transferred = 77;
};

TEST_F(SystemsFilePlatform, ATransferOfNothingIsNoErrorWhateverFailedBeforeIt) {
    errno = EIO;
    EXPECT_EQ(platform.readAt(descriptor, &byte, 1, 10, &transferred).number, 0) << "at the end of the file";
    EXPECT_EQ(transferred, 0U);
    transferred = 77;
    EXPECT_EQ(platform.writeAt(descriptor, &byte, 0, 5, &transferred).number, 0);
    EXPECT_EQ(transferred, 0U);
    EXPECT_EQ(readFile(path), pattern(10));
}

TEST_F(SystemsFilePlatform, APathThatLeadsNowhereIsNoOtherFileButAnError) {
    bool same = false;
    EXPECT_EQ(platform.isAt(descriptor, directory.file("nowhere").c_str(), &same).number, ENOENT);
    EXPECT_EQ(platform.isAt(descriptor, path.c_str(), &same).number, 0);
    EXPECT_TRUE(same);
    EXPECT_EQ(platform.isAt(descriptor, directory.root().c_str(), &same).number, 0);
    EXPECT_FALSE(same);
}

// The system cannot be asked for it as a whole: the directory's name has no room.
TEST_F(SystemsFilePlatform, ADirectoryWhoseNameIsTooLongIsNotCommittedInSilence) {
    std::string folder = "/";
    while (folder.size() < 5000) {
        folder += "./";
    }
    EXPECT_EQ(platform.syncDirectory((folder + "orders").c_str()).number, ENAMETOOLONG);
    EXPECT_EQ(platform.syncDirectory((folder.substr(0, 4001) + "orders").c_str()).number, 0);
}

TEST_F(SystemsFilePlatform, AFileIsRemovedOnceAndRenamedOnceAndThenIsMissing) {
    const std::string other = directory.file("other");
    EXPECT_EQ(platform.rename(path.c_str(), other.c_str()).number, 0);
    EXPECT_TRUE(filePlatform_isMissing(platform.rename(path.c_str(), other.c_str())));
    EXPECT_EQ(readFile(other), pattern(10));
    EXPECT_EQ(platform.remove(other.c_str()).number, 0);
    EXPECT_TRUE(filePlatform_isMissing(platform.remove(other.c_str())));
}

// A process without a standard input gets its number for the next file that it opens.
TEST_F(SystemsFilePlatform, ADirectoryThatIsOpenUnderTheNumberZeroIsCommittedAndClosed) {
    const int input = ::dup(STDIN_FILENO);
    ::close(STDIN_FILENO);
    errno = EIO;
    const SystemError error = platform.syncDirectory(path.c_str());
    const bool isLeftOpen = ::fcntl(STDIN_FILENO, F_GETFD) >= 0;
    if (input >= 0) {
        ::dup2(input, STDIN_FILENO);
        ::close(input);
    }
    EXPECT_EQ(error.number, 0);
    EXPECT_FALSE(isLeftOpen);
}

TEST_F(SystemsFilePlatform, ARefusedTransferHasItsErrorAndTransfersNothing) {
    EXPECT_EQ(platform.readAt(descriptor, &byte, 1, -1, &transferred).number, EINVAL);
    EXPECT_EQ(transferred, 0U);
    transferred = 77;
    EXPECT_EQ(platform.writeAt(descriptor, &byte, 1, -1, &transferred).number, EINVAL);
    EXPECT_EQ(transferred, 0U);
    EXPECT_EQ(readFile(path), pattern(10));
}

}  // namespace
}  // namespace tabulo::internal::test
