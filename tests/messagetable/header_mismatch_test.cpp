#include "messagetable/header_mismatch.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdarg>
#include <cstdio>
#include <string>
#include <vector>

#include "tests/messagetable/expected_bytes.h"
#include "tests/messagetable/message_table_fixture.h"
#include "tests/support/allocation_failure.h"
#include "tests/support/debug_log.h"
#include "tests/support/log_capture.h"

namespace tabulo::internal::test {
namespace {

using Lines = std::vector<std::string>;

// A table made from one shape and opened with another.
class HeaderMismatch : public MessageTableTest {
  protected:
    void make(const TableShape& stored) {
        shape = stored;
        open(OpenMode::create);
        ASSERT_EQ(writeSimple(1, 1), NO_ERROR);
        ASSERT_EQ(closeTable(table), NO_ERROR);
    }
    // The code that both a reader and a writer get; the file must stay as it is.
    ErrorCode openAs(const TableShape& configured) {
        const Bytes before = fileBytes();
        std::vector<ErrorCode> codes;
        for (const OpenMode mode : {OpenMode::read, OpenMode::write}) {
            log.clear();
            const MessageTablePtr opened = createTable(directory.root(), configured);
            codes.push_back(mt_open(opened.get(), mode));
            EXPECT_EQ(toHex(fileBytes()), toHex(before))
                << "mode " << openMode_number(mode) << " changed a refused file";
        }
        EXPECT_EQ(codes[0], codes[1]);
        return codes[1];
    }
    static TableShape with(const Lines& strings, const Lines& numbers) {
        TableShape made;
        made.stringNames = strings;
        made.numericNames = numbers;
        return made;
    }
    std::string mismatch(const std::string& what) const {
        return warningLine("mtX_verify", "Configured " + what + " mismatch in " + path() + ":");
    }

    LogCapture log;
};

TEST_F(HeaderMismatch, OneConfiguredStringFieldMoreThanStoredIsACountMismatchBeforeAnyNameIsCompared) {
    make(with({"Symbol", "Account"}, {"Price"}));
    EXPECT_EQ(openAs(with({"ClOrdID", "Symbol", "Account"}, {"Px"})), STRING_FIELDS_COUNT_MISMATCH_ERROR);
    EXPECT_EQ(log.warnings(),
              (Lines{mismatch("string fields count"), "\tread from config: 3 (ClOrdID, Symbol, Account),",
                     "\tstored in table : 2 (Symbol, Account)"}));
}

TEST_F(HeaderMismatch, StoredStringFieldsWithoutConfiguredOnesShowAnEmptyList) {
    make(with({"Symbol"}, {}));
    EXPECT_EQ(openAs(with({}, {})), STRING_FIELDS_COUNT_MISMATCH_ERROR);
    EXPECT_EQ(log.warnings(),
              (Lines{mismatch("string fields count"), "\tread from config: 0 (),", "\tstored in table : 1 (Symbol)"}));
}

TEST_F(HeaderMismatch, AnotherNumberOfNumericFieldsIsItsOwnMismatch) {
    make(with({"Symbol"}, {"Price"}));
    EXPECT_EQ(openAs(with({"Account"}, {"Price", "OrderQty"})), NUMERIC_FIELDS_COUNT_MISMATCH_ERROR);
    EXPECT_EQ(log.warnings(), (Lines{mismatch("numeric fields count"), "\tread from config: 2 (Price, OrderQty),",
                                     "\tstored in table : 1 (Price)"}));
}

TEST_F(HeaderMismatch, TheBlockLengthIsComparedBehindTheCountsAndBeforeTheNames) {
    make(with({"Symbol"}, {"Price"}));
    TableShape configured = with({"Account"}, {"Px"});
    configured.messagesPerBlock = 4;
    EXPECT_EQ(openAs(configured), CONFIG_MISMATCH_ERROR);
    EXPECT_TRUE(log.warnings().empty()) << ::testing::PrintToString(log.warnings());
    configured.numericNames.push_back("OrderQty");
    EXPECT_EQ(openAs(configured), NUMERIC_FIELDS_COUNT_MISMATCH_ERROR);
}

TEST_F(HeaderMismatch, NumericNamesAreComparedBeforeStringNames) {
    make(with({"Symbol"}, {"OrderQty", "Price"}));
    EXPECT_EQ(openAs(with({"Account"}, {"OrderQty", "Px"})), NUMERIC_FIELDS_NAMES_MISMATCH_ERROR);
    EXPECT_EQ(log.warnings(), (Lines{mismatch("numeric field 1 name"), "\tread from config: 2 (OrderQty, Px),",
                                     "\tstored in table : 2 (OrderQty, Price)"}));
}

TEST_F(HeaderMismatch, AStringNameIsNamedByItsNumberAmongTheConfiguredOnes) {
    make(with({"ClOrdID", "Symbol", "Account"}, {}));
    EXPECT_EQ(openAs(with({"ClOrdID", "Symbol", "Acct"}, {})), STRING_FIELDS_NAMES_MISMATCH_ERROR);
    EXPECT_EQ(log.warnings(), (Lines{mismatch("string field 2 name"), "\tread from config: 3 (ClOrdID, Symbol, Acct),",
                                     "\tstored in table : 3 (ClOrdID, Symbol, Account)"}));
}

TEST_F(HeaderMismatch, NamesOfOneLengthAreComparedByteByByteAndWithTheirCase) {
    make(with({"Symbol"}, {"Price"}));
    EXPECT_EQ(openAs(with({"symbol"}, {"Price"})), STRING_FIELDS_NAMES_MISMATCH_ERROR);
    EXPECT_EQ(openAs(with({"Symbol"}, {"PricE"})), NUMERIC_FIELDS_NAMES_MISMATCH_ERROR);
    EXPECT_EQ(openAs(with({"Symbol"}, {"Price"})), NO_ERROR);
    EXPECT_TRUE(log.warnings().empty()) << ::testing::PrintToString(log.warnings());
}

TEST_F(HeaderMismatch, TwoNamesThatChangedPlacesAreAMismatch) {
    make(with({"Symbol", "Account"}, {}));
    EXPECT_EQ(openAs(with({"Account", "Symbol"}, {})), STRING_FIELDS_NAMES_MISMATCH_ERROR);
    EXPECT_EQ(log.warnings().at(0), mismatch("string field 0 name"));
}

TEST_F(HeaderMismatch, AnAbsentNameShowsAsNullAndDiffersFromANameThatIsThere) {
    make(with({"", "Symbol"}, {}));
    EXPECT_EQ(openAs(with({"Account", "Symbol"}, {})), STRING_FIELDS_NAMES_MISMATCH_ERROR);
    EXPECT_EQ(log.warnings(), (Lines{mismatch("string field 0 name"), "\tread from config: 2 (Account, Symbol),",
                                     "\tstored in table : 2 (<null>, Symbol)"}));
    EXPECT_EQ(openAs(with({"", ""}, {})), STRING_FIELDS_NAMES_MISMATCH_ERROR);
    EXPECT_EQ(log.warnings(), (Lines{mismatch("string field 1 name"), "\tread from config: 2 (<null>, <null>),",
                                     "\tstored in table : 2 (<null>, Symbol)"}));
    EXPECT_EQ(openAs(with({"", "Symbol"}, {})), NO_ERROR) << "two absent names are equal";
}

TEST_F(HeaderMismatch, AnEmptyNameStoredWithItsNulEqualsAnAbsentOneAndTheTableWorks) {
    // As another writer may have stored it: length 1 and a NUL, so that the header is a byte longer than ours would be.
    const Bytes layout =
        ExpectedBytes().u32(13).text("MessageTable").u8(0).i32(3).i32(5).i32(3).i32(0).u32(1).u8(0).bytes();
    const std::int32_t size = 19 + static_cast<std::int32_t>(layout.size()) + 88;
    shape = with({""}, {});
    writeFile(path(), ExpectedBytes()
                          .append(expectedGenericHeader(size))
                          .append(layout)
                          .u64(0)
                          .u64(0)
                          .u64(static_cast<std::uint64_t>(size))
                          .i32(0)
                          .append(expectedEmptyIndexes())
                          .bytes());
    open(OpenMode::write);
    ASSERT_NE(table, nullptr);
    EXPECT_EQ(writeSimple(1, 4), NO_ERROR);
    EXPECT_EQ(closeTable(table), NO_ERROR);
    EXPECT_EQ(fileBytes()[static_cast<std::size_t>(size) - 89], 0) << "the stored name was overwritten by the tail";
    EXPECT_EQ(u64At(fileBytes(), static_cast<std::size_t>(size) - 88 + 16), fileBytes().size());
    open(OpenMode::write);
    EXPECT_EQ(table->records.dataInfo.messageCount, 4);
    EXPECT_TRUE(log.warnings().empty()) << "the tail stands at its place: " << log.warnings().front();
}

TEST_F(HeaderMismatch, AStoredNameWithoutItsNulIsAnotherName) {
    make(with({"Symbol"}, {}));
    patchFile(path(), 52 + 4 + 6, fromText("s"));
    EXPECT_EQ(openAs(with({"Symbol"}, {})), STRING_FIELDS_NAMES_MISMATCH_ERROR);
}

TEST_F(HeaderMismatch, NamesAreNoFormats) {
    make(with({"%s%n"}, {}));
    EXPECT_EQ(openAs(with({"%d%n"}, {})), STRING_FIELDS_NAMES_MISMATCH_ERROR);
    EXPECT_EQ(log.warnings().at(1), "\tread from config: 1 (%d%n),");
    EXPECT_EQ(log.warnings().at(2), "\tstored in table : 1 (%s%n)");
}

TEST_F(HeaderMismatch, TheDetailContinuesTheWarningWithoutAPrefix) {
    make(with({"Symbol"}, {}));
    ASSERT_EQ(openAs(with({}, {})), STRING_FIELDS_COUNT_MISMATCH_ERROR);
    ASSERT_FALSE(log.writes().empty());
    std::string warning;
    for (const LogWrite& written : log.writes()) {
        if (written.channel == "warning") {
            warning += written.text;
        }
    }
    EXPECT_EQ(warning, warningLine("mtX_verify", "Configured string fields count mismatch in " + path() +
                                                     ":\n\tread from config: 0 (),\n\tstored in table : 1 (Symbol)\n"));
}

// A facility that keeps warnings in a buffer of fixed size: it works where no memory is left.
struct FixedBufferLog {
    FixedBufferLog() { log_setFacility(&facility); }
    ~FixedBufferLog() { log_setFacility(nullptr); }
    FixedBufferLog(const FixedBufferLog&) = delete;
    FixedBufferLog& operator=(const FixedBufferLog&) = delete;

    __attribute__((format(printf, 2, 0))) static void write(LogChannel*, const char* format, std::va_list arguments) {
        const int count = std::vsnprintf(text.data() + length, text.size() - length, format, arguments);
        length = std::min(text.size() - 1, length + static_cast<std::size_t>(count));
    }

    static inline std::array<char, 1000> text{};
    static inline std::size_t length = 0;
    LogChannel channel{[](LogChannel*) {}, write};
    LogFacility facility{[](LogFacility*) {}, &channel, &channel, &channel, &channel};
};

TEST(HeaderMismatchDetail, AListThatDoesNotFitInMemorySaysSo) {
    FixedBufferLog log;
    const std::string longName(300, 'n');
    MessageTableHeader configured;
    configured.layout.numericFieldCount = 1;
    configured.numericFieldNames[0] = {longName.c_str(), 301};
    MessageTableHeader stored;
    stored.layout.numericFieldCount = 1;
    stored.numericFieldNames[0] = {"Price", 6};
    {
        const AllocationFailure failure(1);
        headerMismatch_writeDetail("/db/orders", FieldKind::numeric, configured, stored);
    }
    EXPECT_STREQ(FixedBufferLog::text.data(),
                 "/db/orders:\n\tread from config: 1 (<out of memory>),\n\tstored in table : 1 (Price)\n");
}

}  // namespace
}  // namespace tabulo::internal::test
