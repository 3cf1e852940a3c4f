#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <limits>
#include <string>

#include "tests/sessioninfo/session_info_fixture.h"
#include "tests/support/bytes.h"

namespace tabulo::internal::test {
namespace {

constexpr std::int64_t smallest = std::numeric_limits<std::int64_t>::min();
constexpr std::int64_t largest = std::numeric_limits<std::int64_t>::max();

// A table with the six default tags: signature, byte order, version 5.800, header size; type name; tags.
const char* const goldenHeader = R"(
    4b 65 73 74 72 6f 76 61 44 62
    01
    05 00
    20 03
    44 00 00 00
    11 00 00 00
    53 65 73 73 69 6f 6e 49 6e 66 6f 54 61 62 6c 65 00
    06 00 00 00
    02 00 00 00
    01 00 00 00
    03 00 00 00
    04 00 00 00
    05 00 00 00
    06 00 00 00
)";
const char* const goldenValues = R"(
    01 00 00 00 00 00 00 00
    ff ff ff ff ff ff ff ff
    00 00 00 00 00 00 00 80
    ff ff ff ff ff ff ff 7f
    88 77 66 55 44 33 22 11
    00 00 00 00 00 00 00 00
)";
const Values golden = {1, -1, smallest, largest, 0x1122334455667788, 0};

class SessionInfoLayout : public SessionInfoTest {};

TEST_F(SessionInfoLayout, ATableWithTheDefaultTagsIsTheGoldenFile) {
    open(OpenMode::write);
    EXPECT_EQ(difference(fileBytes(), fromHex(goldenHeader)), "") << "before the first write";
    EXPECT_EQ(fileBytes().size(), 68U);
    ASSERT_EQ(writeValues(table.get(), defaultTags, golden), NO_ERROR);
    EXPECT_EQ(difference(fileBytes(), fromHex(std::string(goldenHeader) + goldenValues)), "");
    EXPECT_EQ(fileBytes().size(), 116U);
    ASSERT_EQ(si_uninit(table.get()), NO_ERROR);
    EXPECT_EQ(fileBytes().size(), 116U) << "closing adds nothing";
}

TEST_F(SessionInfoLayout, TheGoldenFileReadsBackInBothModesAndStaysAsItIs) {
    const Bytes file = fromHex(std::string(goldenHeader) + goldenValues);
    for (const OpenMode mode : {OpenMode::read, OpenMode::write}) {
        place(file);
        open(mode);
        EXPECT_EQ(readValues(table.get(), defaultTags), golden) << "mode " << openMode_number(mode);
        EXPECT_EQ(readValues(table.get(), {6, 5, 1}), (Values{0, 0x1122334455667788, -1}))
            << "mode " << openMode_number(mode);
        table.reset();
        EXPECT_EQ(difference(fileBytes(), file), "") << "mode " << openMode_number(mode);
    }
    EXPECT_EQ(log.warnings(), std::vector<std::string>{});
}

TEST_F(SessionInfoLayout, AFreshFileThatHoldsOnlyItsHeaderReadsBackAllValuesAsZero) {
    open(OpenMode::write);
    EXPECT_EQ(readValues(table.get(), defaultTags), Values(6, 0));
    table.reset();
    EXPECT_EQ(fileBytes().size(), 68U) << "reading writes no values";
    open(OpenMode::read);
    EXPECT_EQ(readValues(table.get(), defaultTags), Values(6, 0));
    table.reset();
    EXPECT_EQ(fileBytes().size(), 68U) << "a reader leaves the file alone";
}

TEST_F(SessionInfoLayout, ATableOfOneTagIsFiftySixBytesLong) {
    open(OpenMode::write, Tags{7});
    ASSERT_EQ(writeValues(table.get(), {7}, {-2}), NO_ERROR);
    EXPECT_EQ(fileBytes().size(), 56U);
    EXPECT_EQ(difference(fileBytes(), sessionFile({7}, {-2})), "");
    open(OpenMode::read, Tags{7});
    EXPECT_EQ(readValues(table.get(), {7}), Values{-2});
}

TEST_F(SessionInfoLayout, ATableOfThirtyTwoTagsHoldsAllOfThem) {
    Tags tags;
    Values values;
    for (std::int32_t i = 0; i < MAX_SESSION_INFO_TAGS; ++i) {
        tags.push_back(1000 - i);
        values.push_back(smallest + i);
    }
    open(OpenMode::write, tags);
    ASSERT_EQ(writeValues(table.get(), tags, values), NO_ERROR);
    EXPECT_EQ(fileBytes().size(), 44U + 32 * 4 + 32 * 8);
    EXPECT_EQ(difference(fileBytes(), sessionFile(tags, values)), "");
    for (const OpenMode mode : {OpenMode::read, OpenMode::write}) {
        open(mode, tags);
        EXPECT_EQ(readValues(table.get(), tags), values) << "mode " << openMode_number(mode);
    }
}

TEST_F(SessionInfoLayout, TagsKeepAllThirtyTwoBits) {
    const Tags tags = {std::numeric_limits<std::int32_t>::min(), -1, 0, std::numeric_limits<std::int32_t>::max()};
    open(OpenMode::write, tags);
    ASSERT_EQ(writeValues(table.get(), tags, {1, 2, 3, 4}), NO_ERROR);
    EXPECT_EQ(difference(fileBytes(), sessionFile(tags, {1, 2, 3, 4})), "");
    open(OpenMode::read, tags);
    EXPECT_EQ(readValues(table.get(), {0, -1}), (Values{3, 2}));
}

TEST_F(SessionInfoLayout, StoredTagsBeyondTheConfiguredOnesAreAdoptedInTheFilesOrderReadAndWritten) {
    const Tags stored = {9, 6, 8, 5, 7};
    for (const OpenMode mode : {OpenMode::read, OpenMode::write}) {
        place(sessionFile(stored, {90, 60, 80, 50, 70}));
        open(mode, Tags{5, 6});
        EXPECT_EQ(tagsOf(table.get()), stored) << "mode " << openMode_number(mode);
        EXPECT_EQ(readValues(table.get(), {5, 6, 7, 8, 9}), (Values{50, 60, 70, 80, 90}))
            << "mode " << openMode_number(mode);
        ASSERT_EQ(writeValues(table.get(), {5, 8}, {55, 88}), NO_ERROR) << "mode " << openMode_number(mode);
        EXPECT_EQ(difference(fileBytes(), sessionFile(stored, {90, 60, 88, 55, 70})), "")
            << "mode " << openMode_number(mode);
    }
    EXPECT_EQ(log.warnings(), std::vector<std::string>{});
}

TEST_F(SessionInfoLayout, OfConfiguredReplicasNoneIsOpenedNorCreated) {
    open(OpenMode::write);
    ASSERT_EQ(writeValues(table.get(), {1}, {1}), NO_ERROR);
    EXPECT_EQ(table->storage->activeCount, 1);
    EXPECT_FALSE(std::filesystem::exists(directory.file("replica1")));
    EXPECT_FALSE(std::filesystem::exists(directory.file("replica2")));
}

TEST_F(SessionInfoLayout, OpeningInTheCreateModeEmptiesAnExistingTable) {
    place(sessionFile({9, 8, 2, 1, 3, 4, 5, 6}, Values(8, 77)));
    open(OpenMode::create);
    EXPECT_EQ(tagsOf(table.get()), defaultTags);
    EXPECT_EQ(readValues(table.get(), defaultTags), Values(6, 0));
    EXPECT_EQ(difference(fileBytes(), fromHex(goldenHeader)), "");
    ASSERT_EQ(writeValues(table.get(), {3}, {5}), NO_ERROR);
    EXPECT_EQ(fileValues(), (Values{0, 0, 5, 0, 0, 0}));
}

TEST_F(SessionInfoLayout, AnEmptyFileOpenedForWritingBecomesATable) {
    place({});
    open(OpenMode::write);
    EXPECT_EQ(difference(fileBytes(), fromHex(goldenHeader)), "");
    EXPECT_EQ(log.warnings(), std::vector<std::string>{});
}

}  // namespace
}  // namespace tabulo::internal::test
