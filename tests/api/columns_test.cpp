// Names of columns, and texts made fit to be seen.
#include "tabulo/columns.h"

#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <vector>

namespace tabulo::test {
namespace {

using namespace std::string_view_literals;

std::string shown(std::string_view text, std::size_t columns = std::string::npos) {
    std::string out = "<";
    const std::size_t used = appendShown(text, &out, columns);
    return out + ">" + std::to_string(used);
}

TEST(ApiColumns, ATextIsUtf8OnlyAsAWholeAndInTheShortestForms) {
    for (const std::string_view text : {""sv, "plain text"sv, "\x7f"sv, "\xc2\x80"sv, "\xdf\xbf"sv, "\xe0\xa0\x80"sv,
                                        "\xed\x9f\xbf"sv, "\xee\x80\x80"sv, "\xf0\x90\x80\x80"sv, "\xf4\x8f\xbf\xbf"sv,
                                        "eight ch\xc3\xa9"sv, "eight characters \xe2\x82\xac"sv}) {
        EXPECT_TRUE(isUtf8(text)) << shown(text);
    }
    for (const std::string_view text : {"\xc1\xbf"sv, "\xe0\x9f\xbf"sv, "\xed\xa0\x80"sv, "\xed\xbf\xbf"sv,
                                        "\xf0\x8f\xbf\xbf"sv, "\xf4\x90\x80\x80"sv, "\xc3"sv, "\xe2\x82"sv,
                                        "\xe2\x82z"sv, "eight ch\xc3"sv, "eight characters \xff and more of them"sv}) {
        EXPECT_FALSE(isUtf8(text)) << shown(text);
    }
}

TEST(ApiColumns, NoByteAboveAsciiIsUtf8OnItsOwn) {
    for (int byte = 0; byte < 256; ++byte) {
        EXPECT_EQ(isUtf8(std::string(1, static_cast<char>(byte))), byte < 0x80) << byte;
    }
}

TEST(ApiColumns, AShownTextHasTheBytesEscapedThatAreNotPrintable) {
    EXPECT_EQ(shown(""), "<>0");
    EXPECT_EQ(shown("35=D\00149=A"), "<35=D|49=A>9");
    EXPECT_EQ(shown("\n\x7f\0."sv), "<\\x0A\\x7F\\x00.>13");
    EXPECT_EQ(shown("caf\xc3\xa9 \xe2\x82\xac"), "<caf\xc3\xa9 \xe2\x82\xac>6");
    EXPECT_EQ(shown("\xc2\x85\xe2\x80\x8b"), "<\\xC2\\x85\\xE2\\x80\\x8B>20") << "a control, and what hides";
    EXPECT_EQ(shown("\xff"
                    "A\xff"),
              "<\\xFFA\\xFF>9")
        << "no UTF-8, and plain behind it";
    EXPECT_EQ(shown("\xe2\x82"), "<\\xE2\\x82>8") << "a character that is cut";
}

TEST(ApiColumns, AShownTextEndsInFrontOfWhatWouldGoBeyondTheColumns) {
    EXPECT_EQ(shown("abcdef", 3), "<abc>3");
    EXPECT_EQ(shown("abc", 3), "<abc>3");
    EXPECT_EQ(shown("abc", 0), "<>0");
    EXPECT_EQ(shown("a\xff"
                    "b",
                    4),
              "<a>1");
    EXPECT_EQ(shown("a\xff"
                    "b",
                    5),
              "<a\\xFF>5");
    EXPECT_EQ(shown("\xc3\xa9\xc3\xa9\xc3\xa9", 2), "<\xc3\xa9\xc3\xa9>2");
    EXPECT_EQ(shown("\xc2\x85", 7), "<>0");
}

TEST(ApiColumns, FieldsHaveNamesOfTheirOwn) {
    const Layout layout{.texts = {"Symbol", "", "Symbol", "\xff\xfe"}, .numbers = {"", "Symbol", "Price"}};
    EXPECT_EQ(fieldNames(layout),
              (std::vector<std::string>{"Symbol", "field1", "Symbol#2", "\\xFF\\xFE", "field4", "Symbol#3", "Price"}));
}

}  // namespace
}  // namespace tabulo::test
