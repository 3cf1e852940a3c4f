// Opening a table whose file is replaced by others meanwhile.
#include <gtest/gtest.h>

#include <string>

#include "storage/file_platform.h"
#include "tabulo/reader.h"
#include "tabulo/writer.h"
#include "tests/api/api_test.h"

namespace tabulo::test {
namespace {

// While it lives, each opening of a path finds one of two files in turn, for so many openings; then the first one.
class ReplacedFile {
  public:
    ReplacedFile(const std::filesystem::path& path, const std::filesystem::path& other, int times) {
        path_ = path.string();
        other_ = other.string();
        times_ = times;
        opened = 0;
        platform_ = internal::filePlatform_system();
        platform_.open = [](const char* asked, internal::FileAccess access, int* descriptor) {
            opened += asked == path_ ? 1 : 0;
            const bool isOther = asked == path_ && opened % 2 == 0 && opened <= times_;
            return internal::filePlatform_system().open(isOther ? other_.c_str() : asked, access, descriptor);
        };
        previous_ = internal::filePlatform_install(&platform_);
    }
    ~ReplacedFile() { internal::filePlatform_install(previous_); }
    ReplacedFile(const ReplacedFile&) = delete;
    ReplacedFile& operator=(const ReplacedFile&) = delete;

    static inline int opened = 0;

  private:
    static inline std::string path_;
    static inline std::string other_;
    static inline int times_ = 0;
    internal::FilePlatform platform_;
    const internal::FilePlatform* previous_ = nullptr;
};

class ApiOpenTable : public TableTest {
  protected:
    // Two tables whose layouts differ in a name.
    void SetUp() override {
        Writer::create(path(), layout).close();
        layout.texts[0] = "Other";
        Writer::create(directory.file("other"), layout).close();
    }
};

TEST_F(ApiOpenTable, TriesAgainWhenTheFileWasReplacedByOneWithOtherNames) {
    const ReplacedFile replaced(path(), directory.file("other"), 6);
    const Reader reader(path());
    EXPECT_EQ(reader.layout(), ordersLayout());
    EXPECT_EQ(ReplacedFile::opened, 8);
}

TEST_F(ApiOpenTable, GivesUpBehindTheTenthTime) {
    const ReplacedFile replaced(path(), directory.file("other"), 1000);
    const Error error = errorOf([&] { const Reader reader(path()); });
    EXPECT_EQ(error.code(), Code::configMismatch);
    EXPECT_EQ(error.detail(), "the file is being replaced all the time");
    EXPECT_EQ(ReplacedFile::opened, 20) << "two for each time";
}

}  // namespace
}  // namespace tabulo::test
