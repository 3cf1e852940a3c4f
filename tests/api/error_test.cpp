#include "tabulo/error.h"

#include <gtest/gtest.h>

#include <regex>
#include <string>
#include <type_traits>

#include "core/error_codes.h"
#include "tests/support/bytes.h"

namespace tabulo::test {
namespace {

TEST(ApiError, HasTheNamesAndTheNumbersOfTheLibrarysCodes) {
    const std::string header = internal::test::readText(TABULO_SOURCE_DIRECTORY "/src/core/error_codes.h");
    const std::regex enumerator("\\b([A-Z_]+_ERROR) = ([0-9]+)");
    int codes = 0;
    for (std::sregex_iterator match(header.begin(), header.end(), enumerator), end; match != end; ++match) {
        const int number = std::stoi((*match)[2]);
        if (number != 0) {
            EXPECT_EQ(codeName(static_cast<Code>(number)), (*match)[1].str());
            ++codes;
        }
    }
    EXPECT_EQ(codes, 38);
}

TEST(ApiError, HasTheTextsOfTheLibrarysCodesAndAnAdviceForEach) {
    for (int number = 1; number <= 38; ++number) {
        const auto code = static_cast<Code>(number);
        EXPECT_EQ(codeText(code), internal::getErrorMessage(static_cast<internal::ErrorCode>(number)));
        EXPECT_FALSE(codeAdvice(code).empty()) << number;
    }
}

TEST(ApiError, KnowsNothingAboutANumberThatNamesNoCode) {
    for (const int number : {0, -1, 39, 1000}) {
        EXPECT_EQ(codeName(static_cast<Code>(number)), "UNKNOWN_ERROR");
        EXPECT_EQ(codeText(static_cast<Code>(number)), "Unknown error");
        EXPECT_EQ(codeAdvice(static_cast<Code>(number)), "");
    }
}

Error fullError() {
    Error::Details details;
    details.code = Code::fileWrite;
    details.path = "data/orders";
    details.offset = 4096;
    details.detail = "the block cannot be written";
    details.systemText = "No space left on device";
    details.warnings = {"one", "two"};
    details.stored = 7;
    return Error(details);
}

TEST(ApiError, SaysWhatWhereWhyAndWhatToDoInOneLine) {
    const Error error = fullError();
    EXPECT_STREQ(error.what(),
                 "FILE_WRITE_ERROR: the block cannot be written: data/orders, at offset 4096: No space left on device "
                 "(make space, then open the table again and ask for its last message)");
}

TEST(ApiError, SaysTheCodesTextWhereThereIsNoDetailAndLeavesOutWhatIsNotKnown) {
    Error::Details details;
    details.code = Code::readOnly;
    EXPECT_STREQ(Error(details).what(),
                 "READ_ONLY_ERROR: Unable to write to a table opened in read-only mode (open the table for writing)");
}

TEST(ApiError, GivesEachPart) {
    const Error error = fullError();
    EXPECT_EQ(error.code(), Code::fileWrite);
    EXPECT_EQ(error.name(), "FILE_WRITE_ERROR");
    EXPECT_EQ(error.path(), "data/orders");
    EXPECT_EQ(error.table(), "orders");
    EXPECT_EQ(error.offset(), 4096);
    EXPECT_EQ(error.detail(), "the block cannot be written");
    EXPECT_EQ(error.systemText(), "No space left on device");
    EXPECT_EQ(error.advice(), codeAdvice(Code::fileWrite));
    EXPECT_EQ(error.warnings(), (std::vector<std::string>{"one", "two"}));
    EXPECT_EQ(error.stored(), 7);
}

TEST(ApiError, StaysWholeWhenItIsMovedFrom) {
    Error original = fullError();
    const Error moved = std::move(original);
    EXPECT_STREQ(original.what(), moved.what());  // NOLINT: what a move leaves is what is tested
    EXPECT_EQ(original.stored(), 7);
}

TEST(ApiError, IsAStandardExceptionWhoseCopiesThrowNothing) {
    static_assert(std::is_base_of_v<std::exception, Error>);
    static_assert(std::is_nothrow_copy_constructible_v<Error> && std::is_nothrow_copy_assignable_v<Error>);
}

}  // namespace
}  // namespace tabulo::test
