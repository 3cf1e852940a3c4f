#include "tabulo/writer.h"

#include <gtest/gtest.h>
#include <sys/mman.h>

#include <fstream>
#include <limits>
#include <regex>
#include <type_traits>

#include "tests/api/api_test.h"
#include "tests/support/child_process.h"

namespace tabulo::test {
namespace {

using ApiWriter = TableTest;

void append(Writer& writer, std::int32_t first, std::int32_t last) {
    for (std::int32_t n = first; n <= last; ++n) {
        writer.append(SimpleMessage(n).message);
    }
}

// The bytes of the hex dump in the description of the format.
Bytes documentedTable() {
    const std::string page = internal::test::readText(TABULO_SOURCE_DIRECTORY "/docs/file_format.md");
    const std::regex line("\n    [0-9a-f]{8}: ((?:[0-9a-f]{2} ?){1,16}) ");
    std::string digits;
    for (std::sregex_iterator match(page.begin(), page.end(), line), end; match != end; ++match) {
        digits += (*match)[1].str();
    }
    return internal::test::fromHex(digits);
}

TEST_F(ApiWriter, WritesTheTableThatTheFormatsDescriptionShowsByteByByte) {
    const Bytes expected = documentedTable();
    ASSERT_EQ(expected.size(), 325u) << "the dump was not found";
    Writer writer = Writer::create(path(), {.texts = {"Symbol"}, .numbers = {"Price"}});
    Message sent{.uniformId = 1, .seqNum = 2, .id = 7, .time = 1700000000000, .type = "D"};
    sent.text0 = "A1";
    sent.texts = {Text("ACME")};
    sent.numbers = {Number(10.5)};
    sent.wire = "35=D\00155=ACME\001";
    writer.append(sent);
    Message received{.uniformId = 2, .seqNum = 3, .id = 536870911, .time = 1700000000001, .type = "8", .possDup = true};
    received.wire = "35=8\001";
    writer.append(received);
    writer.close();
    EXPECT_EQ(difference(fileBytes(), expected), "");
}

TEST_F(ApiWriter, IsMoveOnlyAndCannotBeMadeWithoutATable) {
    static_assert(!std::is_copy_constructible_v<Writer> && !std::is_default_constructible_v<Writer>);
    static_assert(std::is_nothrow_move_constructible_v<Writer> && std::is_nothrow_move_assignable_v<Writer>);
    Writer writer = Writer::create(path(), layout);
    Writer moved = std::move(writer);
    append(moved, 1, 2);
    EXPECT_TABULO_ERROR(tableClosed, append(writer, 3, 3));  // NOLINT: what a move leaves is what is tested
    EXPECT_TABULO_ERROR(tableClosed, static_cast<void>(writer.path()));
    EXPECT_FALSE(writer.isOpen());
    writer.close();
    moved.close();
    EXPECT_EQ(inspect(path()).messageCount, 2);
}

TEST_F(ApiWriter, SaysWhatItWrites) {
    const Writer writer = Writer::create(path(), layout);
    EXPECT_EQ(writer.path(), path());
    EXPECT_EQ(writer.table(), "orders");
    EXPECT_EQ(writer.layout(), layout);
    EXPECT_TRUE(writer.warnings().empty());
}

TEST_F(ApiWriter, NeverEmptiesATableByCreatingItAgain) {
    {
        Writer writer = Writer::create(path(), layout);
        append(writer, 1, 4);
    }
    const Bytes before = fileBytes();
    const Error error = errorOf([&] { static_cast<void>(Writer::create(path(), layout)); });
    EXPECT_EQ(error.code(), Code::fileOpen);
    EXPECT_EQ(error.systemText(), "File exists");
    EXPECT_EQ(error.path(), path());
    EXPECT_EQ(difference(fileBytes(), before), "");
}

TEST_F(ApiWriter, DoesNotCreateOverAnEmptyFileAFolderOrWithoutAFolder) {
    std::ofstream(directory.file("empty")).close();
    EXPECT_TABULO_ERROR(fileOpen, static_cast<void>(Writer::create(directory.file("empty"), layout)));
    EXPECT_TABULO_ERROR(fileOpen, static_cast<void>(Writer::create(directory.path(), layout)));
    EXPECT_TABULO_ERROR(fileOpen, static_cast<void>(Writer::create(directory.file("no/orders"), layout)));
    EXPECT_FALSE(std::filesystem::exists(directory.file("no")));
}

TEST_F(ApiWriter, DoesNotMakeATableThatItWasAskedToOpen) {
    for (const bool withLayout : {false, true}) {
        const Error error =
            errorOf([&] { static_cast<void>(withLayout ? Writer::open(path(), layout) : Writer::open(path())); });
        EXPECT_EQ(error.code(), Code::fileOpen);
        EXPECT_EQ(error.systemText(), "No such file or directory");
        EXPECT_FALSE(std::filesystem::exists(path()));
    }
}

TEST_F(ApiWriter, OpensATableWithTheLayoutThatItHas) {
    layout.summarisedTexts = 3;
    {
        Writer writer = Writer::create(path(), layout);
        append(writer, 1, 4);
    }
    Writer writer = Writer::open(path());
    EXPECT_EQ(writer.layout(), layout);
    append(writer, 5, 5);
    writer.close();
    EXPECT_EQ(inspect(path()).messageCount, 5);
}

TEST_F(ApiWriter, MakesTheTableOrGoesOnWithItWhenAskedForEither) {
    for (std::int32_t n = 1; n <= 5; ++n) {
        Writer writer = Writer::openOrCreate(path(), layout);
        append(writer, n, n);
    }
    EXPECT_EQ(inspect(path()).messageCount, 5);
}

TEST_F(ApiWriter, RefusesATableOfAnotherLayout) {
    Writer::create(path(), layout).close();
    const Bytes before = fileBytes();
    Layout other = layout;
    other.texts.push_back("Side");
    EXPECT_TABULO_ERROR(stringFieldsCountMismatch, static_cast<void>(Writer::open(path(), other)));
    other = layout;
    other.numbers.pop_back();
    EXPECT_TABULO_ERROR(numericFieldsCountMismatch, static_cast<void>(Writer::open(path(), other)));
    other = layout;
    other.numbers[0] = "LastPx";
    EXPECT_TABULO_ERROR(numericFieldsNamesMismatch, static_cast<void>(Writer::open(path(), other)));
    other = layout;
    other.messagesPerBlock += 1;
    EXPECT_TABULO_ERROR(configMismatch, static_cast<void>(Writer::openOrCreate(path(), other)));
    EXPECT_EQ(difference(fileBytes(), before), "");
}

TEST_F(ApiWriter, RefusesALayoutThatNoTableCanHave) {
    const auto refuses = [&](Code code, const Layout& impossible) {
        const Error error = errorOf([&] { static_cast<void>(Writer::create(path(), impossible)); });
        EXPECT_EQ(error.name(), codeName(code)) << error.what();
        EXPECT_FALSE(std::filesystem::exists(path()));
    };
    refuses(Code::stringFieldsLimit, {.texts = std::vector<std::string>(13, "A")});
    refuses(Code::numericFieldsLimit, {.numbers = std::vector<std::string>(17, "A")});
    refuses(Code::wrongParameter, {.messagesPerBlock = 0});
    refuses(Code::wrongParameter, {.messagesPerBlock = std::numeric_limits<std::int32_t>::min()});
    refuses(Code::wrongParameter, {.summarisedTexts = -1});
    refuses(Code::wrongParameter, {.summarisedTexts = 5});
    refuses(Code::wrongParameter, {.texts = {"A"}, .builtInTexts = 3});
    refuses(Code::wrongParameter, {.builtInTexts = 1});
    refuses(Code::wrongParameter, {.builtInTexts = 5});
    refuses(Code::wrongParameter, {.texts = {std::string("A\0B", 3)}});
    refuses(Code::wrongParameter, {.numbers = {std::string("\0", 1)}});
}

TEST_F(ApiWriter, RefusesNamesThatTakeMoreRoomThanAHeaderHas) {
    // 140 bytes without names; a name takes 5 more than its length.
    const std::string longest(8096 - 140 - 5, 'A');
    EXPECT_TABULO_ERROR(wrongParameter, static_cast<void>(Writer::create(path(), {.texts = {longest + "A"}})));
    EXPECT_FALSE(std::filesystem::exists(path()));
    Writer::create(path(), {.texts = {longest}}).close();
    EXPECT_EQ(inspect(path()).headerSize, 8096);
    EXPECT_EQ(inspect(path()).layout.texts, std::vector<std::string>{longest});
}

TEST_F(ApiWriter, RefusesAPathThatIsNone) {
    EXPECT_TABULO_ERROR(wrongParameter, static_cast<void>(Writer::create("", layout)));
    const std::filesystem::path withZero(path().string() + std::string("\0x", 2));
    EXPECT_TABULO_ERROR(wrongParameter, static_cast<void>(Writer::create(withZero, layout)));
    EXPECT_TABULO_ERROR(wrongParameter, static_cast<void>(Writer::open(withZero)));
    EXPECT_FALSE(std::filesystem::exists(path())) << "the path was cut at its zero byte";
}

TEST_F(ApiWriter, IsTheOnlyWriterOfItsTable) {
    const Writer writer = Writer::create(path(), layout);
    EXPECT_TABULO_ERROR(fileOpen, static_cast<void>(Writer::open(path())));
    EXPECT_EQ(internal::test::runInChild([&] {
                  try {
                      static_cast<void>(Writer::openOrCreate(path(), layout));
                      return 0;
                  } catch (const Error& error) {
                      return static_cast<int>(error.code());
                  }
              }),
              static_cast<int>(Code::fileOpen));
}

TEST_F(ApiWriter, OpensAFileWhoseHeaderWasNeverWrittenOnlyWithALayout) {
    std::ofstream(path()).close();
    EXPECT_TABULO_ERROR(fileSize, static_cast<void>(Writer::open(path())));
    Writer writer = Writer::open(path(), layout);
    append(writer, 1, 1);
    writer.close();
    EXPECT_EQ(inspect(path()).messageCount, 1);
}

TEST_F(ApiWriter, TellsOfARecoveryAndOfWhatItSaved) {
    {
        Writer writer = Writer::create(path(), layout);
        append(writer, 1, 2);
    }
    const Bytes junk = internal::test::pattern(200, 3);
    internal::test::appendFile(path().string(), junk);
    const std::int64_t end = static_cast<std::int64_t>(fileBytes().size() - junk.size());
    const Writer writer = Writer::open(path());
    ASSERT_FALSE(writer.warnings().empty());
    const std::string cutFile = path().string() + ".cut-" + std::to_string(end);
    bool named = false;
    for (const std::string& warning : writer.warnings()) {
        named = named || warning.find(cutFile) != std::string::npos;
    }
    EXPECT_TRUE(named) << writer.warnings()[0];
    EXPECT_EQ(cutFilesOf(path()), std::vector<std::filesystem::path>{cutFile});
    EXPECT_EQ(difference(readFile(cutFile), junk), "");
}

TEST_F(ApiWriter, SaysWhereTheNextMessageWillStand) {
    Writer writer = Writer::create(path(), layout);
    const std::int64_t header = static_cast<std::int64_t>(fileBytes().size());
    EXPECT_EQ(writer.end(), (Position{header, header + 8}));
    for (std::int32_t n = 1; n <= 7; ++n) {
        const Position before = writer.end();
        append(writer, n, n);
        const Bytes bytes = fileBytes();
        std::vector<std::byte> frame = simpleFrames(layout, n, n);
        const auto* stored = reinterpret_cast<const std::byte*>(bytes.data()) + before.offset;
        EXPECT_TRUE(std::equal(frame.begin(), frame.end(), stored)) << "message " << n << " stands elsewhere";
        EXPECT_EQ(writer.end().block == before.block, n % 3 != 0) << n;
    }
    const Position end = writer.end();
    writer.close();
    EXPECT_EQ(Writer::open(path()).end(), end);
}

TEST_F(ApiWriter, DropsEverythingAndGoesOn) {
    Writer writer = Writer::create(path(), layout);
    const Bytes empty = fileBytes();
    append(writer, 1, 8);
    writer.drop();
    EXPECT_EQ(difference(fileBytes(), empty), "");
    append(writer, 1, 1);
    writer.close();
    EXPECT_EQ(inspect(path()).messageCount, 1);
}

TEST_F(ApiWriter, IsClosedOnceAndThenRefusesEverythingButSayingWhatItWas) {
    Writer writer = Writer::create(path(), layout);
    append(writer, 1, 2);
    writer.close();
    EXPECT_FALSE(writer.isOpen());
    writer.close();
    EXPECT_EQ(writer.path(), path());
    EXPECT_EQ(writer.layout(), layout);
    EXPECT_TABULO_ERROR(tableClosed, append(writer, 3, 3));
    EXPECT_TABULO_ERROR(tableClosed, writer.appendFrames({}));
    EXPECT_TABULO_ERROR(tableClosed, writer.drop());
    EXPECT_TABULO_ERROR(tableClosed, writer.commit());
    EXPECT_TABULO_ERROR(tableClosed, static_cast<void>(writer.end()));
    EXPECT_TRUE(inspect(path()).closedCleanly);
    EXPECT_EQ(Writer::open(path()).warnings().size(), 0u) << "the table was not closed cleanly";
}

TEST_F(ApiWriter, ClosesTheTableAtItsEnd) {
    {
        Writer writer = Writer::create(path(), layout);
        append(writer, 1, 5);
    }
    EXPECT_TRUE(inspect(path()).closedCleanly);
}

TEST_F(ApiWriter, LeavesNoTraceOfAMessageThatItRefuses) {
    Writer writer = Writer::create(path(), layout);
    append(writer, 1, 2);
    const Bytes before = fileBytes();
    Message message;
    message.texts.resize(3);
    EXPECT_TABULO_ERROR(stringFieldsCountMismatch, writer.append(message));
    message.texts.clear();
    message.type = "toolong";
    const Error error = errorOf([&] { writer.append(message); });
    EXPECT_EQ(error.code(), Code::wrongParameter);
    EXPECT_EQ(error.stored(), 0);
    EXPECT_EQ(difference(fileBytes(), before), "");
    append(writer, 3, 3);
    writer.close();
    EXPECT_EQ(inspect(path()).messageCount, 3);
}

// The bytes of such a text are not looked at: they are of a stretch of addresses without memory behind it.
TEST_F(ApiWriter, RefusesATextThatIsLargerThanAFrameWithoutLookingAtIt) {
    constexpr std::size_t size = std::size_t{INT32_MAX} + 1;
    void* const stretch = ::mmap(nullptr, size, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    ASSERT_NE(stretch, MAP_FAILED);
    Writer writer = Writer::create(path(), layout);
    SimpleMessage message(1);
    message.message.wire = std::string_view(static_cast<const char*>(stretch), size);
    const Error error = errorOf([&] { writer.append(message.message); });
    EXPECT_EQ(error.code(), Code::streamExtension) << error.what();
    EXPECT_EQ(error.stored(), 0);
    ::munmap(stretch, size);
}

TEST(ApiSyncPolicy, RefusesTimesAndNumbersThatAreNone) {
    EXPECT_TABULO_ERROR(wrongParameter, static_cast<void>(SyncPolicy::every(std::chrono::seconds(0))));
    EXPECT_TABULO_ERROR(wrongParameter, static_cast<void>(SyncPolicy::every(std::chrono::seconds(-1))));
    EXPECT_TABULO_ERROR(wrongParameter, static_cast<void>(SyncPolicy::every(std::chrono::seconds(1LL << 31))));
    EXPECT_TABULO_ERROR(wrongParameter, static_cast<void>(SyncPolicy::after(0)));
    EXPECT_TABULO_ERROR(wrongParameter, static_cast<void>(SyncPolicy::everyOrAfter(std::chrono::seconds(1), -5)));
}

}  // namespace
}  // namespace tabulo::test
