#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "sessioninfo/session_info_file.h"
#include "tests/sessioninfo/session_info_fixture.h"
#include "tests/support/debug_log.h"

namespace tabulo::internal::test {
namespace {

constexpr std::size_t headerSizeOffset = 15;
constexpr std::size_t nameLengthOffset = 19;
constexpr std::size_t nameOffset = 23;
constexpr std::size_t countOffset = 40;

const Values someValues = {20, 10, 30, 40, 50, 60};

class SessionInfoVerify : public SessionInfoTest {
  protected:
    // Both ways of opening refuse the file with the code and leave it alone.
    void expectRefused(const Bytes& file, ErrorCode code, const std::string& what,
                       const std::optional<Tags>& tags = std::nullopt) {
        for (const OpenMode mode : {OpenMode::read, OpenMode::write}) {
            place(file);
            EXPECT_EQ(init(mode, tags), code) << what << ", mode " << openMode_number(mode);
            EXPECT_EQ(difference(fileBytes(), file), "") << what << ", mode " << openMode_number(mode);
            EXPECT_EQ(tagsOf(table.get()), tags.value_or(defaultTags)) << what << ": the table has its configured tags";
        }
    }
    static Bytes patched(Bytes file, std::size_t offset, const std::string& hex) {
        const Bytes bytes = fromHex(hex);
        std::copy(bytes.begin(), bytes.end(), file.begin() + static_cast<std::ptrdiff_t>(offset));
        return file;
    }
    const Bytes whole = sessionFile(defaultTags, someValues);
};

TEST_F(SessionInfoVerify, ATypeNameLengthOtherThanSeventeenIsATableTypeError) {
    for (const char* length : {"10 00 00 00", "12 00 00 00", "00 00 00 00", "0d 00 00 00", "11 00 00 80"}) {
        expectRefused(patched(whole, nameLengthOffset, length), TABLE_TYPE_ERROR, length);
    }
}

TEST_F(SessionInfoVerify, AnotherTypeNameIsATableTypeErrorItsNulIncluded) {
    expectRefused(patched(whole, nameOffset, "73"), TABLE_TYPE_ERROR, "a small first letter");
    expectRefused(patched(whole, nameOffset + 15, "66"), TABLE_TYPE_ERROR, "another last letter");
    expectRefused(patched(whole, nameOffset + 16, "20"), TABLE_TYPE_ERROR, "a blank for the NUL");
}

TEST_F(SessionInfoVerify, AMessageTableIsATableTypeError) {
    Bytes file = cutTo(whole, nameLengthOffset);
    const Bytes record = fromHex("0d 00 00 00 4d 65 73 73 61 67 65 54 61 62 6c 65 00");
    file.insert(file.end(), record.begin(), record.end());
    file.resize(140);
    expectRefused(file, TABLE_TYPE_ERROR, "MessageTable");
}

TEST_F(SessionInfoVerify, AStoredFieldCountOutsideOneToThirtyTwoIsACorruptedHeader) {
    for (const char* count : {"00 00 00 00", "21 00 00 00", "ff ff ff ff", "00 00 00 80", "ff ff ff 7f"}) {
        expectRefused(patched(whole, countOffset, count), HEADER_CORRUPTED_ERROR, count);
    }
}

TEST_F(SessionInfoVerify, ATypeRecordThatDoesNotEndAtTheStoredHeaderSizeIsACorruptedHeader) {
    expectRefused(patched(whole, countOffset, "05"), HEADER_CORRUPTED_ERROR, "a tag less");
    expectRefused(patched(whole, countOffset, "07"), HEADER_CORRUPTED_ERROR, "a tag more");
    for (const char* size : {"43", "45", "40", "48", "24"}) {
        expectRefused(patched(whole, headerSizeOffset, size), HEADER_CORRUPTED_ERROR, size);
    }
}

TEST_F(SessionInfoVerify, AHeaderSizeInTheMidstOfTheTagsIsLeftAloneAlsoWhenTheFileIsCut) {
    const Bytes file = patched(cutTo(whole, 100), headerSizeOffset, "30");
    expectRefused(file, HEADER_CORRUPTED_ERROR, "cut in the values");
}

TEST_F(SessionInfoVerify, AFileThatEndsWithinItsTypeRecordHasNotEnoughDataAndIsLeftAlone) {
    for (std::size_t length = nameLengthOffset; length < 68; ++length) {
        expectRefused(cutTo(whole, length), STREAM_NOT_ENOUGH_DATA_ERROR, "cut to " + std::to_string(length));
    }
}

TEST_F(SessionInfoVerify, RunningOutOfDataIsFoundBeforeAWrongValue) {
    const Bytes wrongLength = patched(whole, nameLengthOffset, "63");
    expectRefused(cutTo(wrongLength, nameOffset - 1), STREAM_NOT_ENOUGH_DATA_ERROR, "a cut wrong length");
    expectRefused(cutTo(wrongLength, nameOffset), TABLE_TYPE_ERROR, "a whole wrong length");
    const Bytes wrongName = patched(whole, nameOffset, "58");
    expectRefused(cutTo(wrongName, countOffset - 1), STREAM_NOT_ENOUGH_DATA_ERROR, "a cut wrong name");
    expectRefused(cutTo(wrongName, countOffset), TABLE_TYPE_ERROR, "a whole wrong name");
    const Bytes wrongCount = patched(whole, countOffset, "21");
    expectRefused(cutTo(wrongCount, countOffset + 3), STREAM_NOT_ENOUGH_DATA_ERROR, "a cut wrong count");
    expectRefused(cutTo(wrongCount, countOffset + 4), HEADER_CORRUPTED_ERROR, "a whole wrong count");
    expectRefused(patched(whole, countOffset, "20"), STREAM_NOT_ENOUGH_DATA_ERROR, "more tags than the file has bytes");
}

TEST_F(SessionInfoVerify, AFileThatEndsWithinTheGenericHeaderIsAFileSizeError) {
    for (std::size_t length = 1; length < nameLengthOffset; ++length) {
        expectRefused(cutTo(whole, length), FILE_SIZE_ERROR, "cut to " + std::to_string(length));
    }
    place({});
    EXPECT_EQ(init(OpenMode::read), FILE_SIZE_ERROR) << "an empty file";
    EXPECT_TRUE(fileBytes().empty());
}

TEST_F(SessionInfoVerify, AWrongGenericHeaderIsRefused) {
    expectRefused(patched(whole, 0, "6b"), SIGNATURE_ERROR, "signature");
    expectRefused(patched(whole, 10, "02"), BYTE_ORDER_ERROR, "byte order");
    expectRefused(patched(whole, 11, "06"), VERSION_ERROR, "version");
}

TEST_F(SessionInfoVerify, AConfiguredTagThatTheFileLacksIsNamedAndRefused) {
    const Tags tags = {1, 99, 2, 98};
    for (const OpenMode mode : {OpenMode::read, OpenMode::write}) {
        place(whole);
        log.clear();
        EXPECT_EQ(init(mode, tags), CONFIG_MISMATCH_ERROR);
        const std::vector<std::string> expected = {
            warningLine("siX_verify", "Field with tag 99 is missing in session info table")};
        EXPECT_EQ(log.warnings(), expected)
            << "mode " << openMode_number(mode) << ": the first one missing, in configured order";
        EXPECT_EQ(tagsOf(table.get()), tags);
        EXPECT_EQ(difference(fileBytes(), whole), "");
    }
}

TEST_F(SessionInfoVerify, AMissingTagIsNotRepairedInACutFileEither) {
    expectRefused(cutTo(whole, 90), CONFIG_MISMATCH_ERROR, "cut to 90", Tags{7});
}

TEST_F(SessionInfoVerify, ATagBehindTheStoredCountIsMissing) {
    expectRefused(sessionFile({1, 2}, {1, 2}), CONFIG_MISMATCH_ERROR, "tag 0", Tags{0});
}

TEST_F(SessionInfoVerify, ASupersetWhoseOpenFailsInTheEndLeavesTheConfiguredTags) {
    place(cutTo(whole, 90));
    EXPECT_EQ(init(OpenMode::read, Tags{3, 1}), FILE_READ_ERROR);
    EXPECT_EQ(tagsOf(table.get()), (Tags{3, 1}));
    place(whole);
    EXPECT_EQ(si_init(table.get(), OpenMode::read), NO_ERROR) << "the same table opens when the file is whole";
    EXPECT_EQ(tagsOf(table.get()), defaultTags);
    EXPECT_EQ(readValues(table.get(), {2, 6}), (Values{20, 60}));
}

TEST_F(SessionInfoVerify, OpenedAgainOnAnotherFileTheConfiguredTagsCountAndNotTheAdoptedOnes) {
    place(whole);
    ASSERT_EQ(init(OpenMode::write, Tags{3, 1}), NO_ERROR);
    ASSERT_EQ(si_uninit(table.get()), NO_ERROR);
    std::filesystem::remove(path);
    ASSERT_EQ(si_init(table.get(), OpenMode::write), NO_ERROR);
    EXPECT_EQ(difference(fileBytes(), sessionFile({3, 1}, {})), "");
    EXPECT_EQ(readValues(table.get(), {3, 1}), (Values{0, 0}));
}

TEST_F(SessionInfoVerify, VerifyingGivesFileSizeErrorForEveryOtherLengthAlsoForThatOfTheHeader) {
    for (const std::size_t length : {68U, 69U, 115U, 117U, 200U}) {
        place(whole);
        open(OpenMode::read, Tags{1});
        place(cutTo(whole, length));
        const ByteStreamPtr stream(byteStream_create(256));
        const Bytes bytes = fileBytes();
        byteStream_putBytes(stream.get(), bytes.data(), static_cast<std::int32_t>(bytes.size()));
        EXPECT_EQ(siX_verify(table.get(), table->storage->files[0], stream.get(), 19), FILE_SIZE_ERROR) << length;
        EXPECT_EQ(tagsOf(table.get()), defaultTags) << "the stored tags are adopted before the size is compared";
        place(whole);
        EXPECT_EQ(siX_verify(table.get(), table->storage->files[0], stream.get(), 19), NO_ERROR) << length;
    }
}

TEST_F(SessionInfoVerify, LoadingAFileWithoutATypeRecordIsAFileSizeError) {
    place(whole);
    open(OpenMode::read);
    const ByteStreamPtr stream(byteStream_create(256));
    byteStream_putBytes(stream.get(), whole.data(), static_cast<std::int32_t>(whole.size()));
    EXPECT_EQ(siX_load(table.get(), table->storage->files[0], stream.get(), 116), FILE_SIZE_ERROR);
    EXPECT_EQ(siX_load(table.get(), table->storage->files[0], stream.get(), 200), FILE_SIZE_ERROR);
    EXPECT_EQ(siX_load(table.get(), table->storage->files[0], stream.get(), 19), NO_ERROR);
    EXPECT_EQ(siX_load(table.get(), table->storage->files[0], stream.get(), 18), TABLE_TYPE_ERROR)
        << "errors of the type record come as they are";
    EXPECT_EQ(siX_load(table.get(), table->storage->files[0], stream.get(), 115), STREAM_NOT_ENOUGH_DATA_ERROR)
        << "of a record there is one byte";
}

TEST_F(SessionInfoVerify, TheFifthOperationDoesNothing) {
    place(whole);
    open(OpenMode::read);
    EXPECT_EQ(siX_noop(table.get()), NO_ERROR);
    EXPECT_EQ(table->storage->ops.opened(table.get(), nullptr, -1, -1, -1), NO_ERROR);
}

}  // namespace
}  // namespace tabulo::internal::test
