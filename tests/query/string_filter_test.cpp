#include "query/string_filter.h"

#include <gtest/gtest.h>

#include <clocale>

#include "query/query_conditions.h"

namespace tabulo::internal::test {
namespace {

using Bound = const char*;

// A filter filled by its setters.
StringFilter filterOf(const std::vector<std::string>& values, const std::vector<std::pair<Bound, Bound>>& ranges = {},
                      bool ignoreCase = false) {
    const QueryConditionsPtr conditions(conditions_create());
    EXPECT_EQ(conditions_addStringFilter(conditions.get(), 0, false, ignoreCase), NO_ERROR);
    EXPECT_EQ(conditions_setStringFilterValueCount(conditions.get(), static_cast<std::int32_t>(values.size())),
              NO_ERROR);
    for (std::size_t i = 0; i < values.size(); ++i) {
        EXPECT_EQ(conditions_setStringFilterValue(conditions.get(), values[i].c_str(), static_cast<std::int32_t>(i)),
                  NO_ERROR);
    }
    EXPECT_EQ(conditions_setStringFilterRangeCount(conditions.get(), static_cast<std::int32_t>(2 * ranges.size())),
              NO_ERROR);
    for (std::size_t k = 0; k < ranges.size(); ++k) {
        EXPECT_EQ(conditions_setStringFilterRange(conditions.get(), ranges[k].first, ranges[k].second,
                                                  static_cast<std::int32_t>(2 * k)),
                  NO_ERROR);
    }
    return conditions->stringFilters.back();
}

TEST(StringFilter, AcceptsItsValuesOnly) {
    const StringFilter filter = filterOf({"delta", "alpha", "", "charlie", "bravo"});
    for (const char* text : {"", "alpha", "bravo", "charlie", "delta"}) {
        EXPECT_TRUE(stringFilter_accepts(filter, text)) << text;
    }
    for (const char* text : {"a", "alph", "alphaa", "Alpha", "echo", "\x80"}) {
        EXPECT_FALSE(stringFilter_accepts(filter, text)) << text;
    }
}

TEST(StringFilter, ARangeRejectsItsEndsAndAcceptsWhatLiesBetween) {
    const StringFilter filter = filterOf({}, {{"B", "D"}});
    EXPECT_FALSE(stringFilter_accepts(filter, "B"));
    EXPECT_FALSE(stringFilter_accepts(filter, "D"));
    EXPECT_TRUE(stringFilter_accepts(filter, "C"));
    EXPECT_TRUE(stringFilter_accepts(filter, "BA"));
    EXPECT_FALSE(stringFilter_accepts(filter, "DA"));
    EXPECT_FALSE(stringFilter_accepts(filter, "c"));
}

TEST(StringFilter, AnOpenBoundIsUnlimitedAndTwoOfThemAcceptEverything) {
    EXPECT_TRUE(stringFilter_accepts(filterOf({}, {{nullptr, "B"}}), ""));
    EXPECT_FALSE(stringFilter_accepts(filterOf({}, {{nullptr, "B"}}), "B"));
    EXPECT_TRUE(stringFilter_accepts(filterOf({}, {{"B", nullptr}}), "\xff\xff"));
    EXPECT_FALSE(stringFilter_accepts(filterOf({}, {{"B", nullptr}}), "B"));
    EXPECT_TRUE(stringFilter_accepts(filterOf({}, {{nullptr, nullptr}}), ""));
}

TEST(StringFilter, EachOfSeveralRangesIsTried) {
    const StringFilter filter = filterOf({}, {{"x", "z"}, {"a", "c"}});
    EXPECT_TRUE(stringFilter_accepts(filter, "b"));
    EXPECT_TRUE(stringFilter_accepts(filter, "y"));
    EXPECT_FALSE(stringFilter_accepts(filter, "m"));
}

TEST(StringFilter, IgnoringCaseHoldsForValuesAndNotForRanges) {
    const StringFilter filter = filterOf({"abc", "Xyz"}, {{"B", "D"}}, true);
    EXPECT_TRUE(stringFilter_accepts(filter, "ABC"));
    EXPECT_TRUE(stringFilter_accepts(filter, "aBc"));
    EXPECT_TRUE(stringFilter_accepts(filter, "xYZ"));
    EXPECT_TRUE(stringFilter_accepts(filter, "C"));
    EXPECT_FALSE(stringFilter_accepts(filter, "c")) << "the range keeps its case";
}

TEST(StringFilter, IgnoringCaseSortsAndSearchesByOneOrder) {
    // '_' lies between the upper and the lower case letters: two different foldings would lose values here.
    const StringFilter filter = filterOf({"a_", "AB", "b_", "Bb", "_", "ZZ", "a"}, {}, true);
    for (const char* text : {"A_", "ab", "B_", "bB", "_", "zz", "A"}) {
        EXPECT_TRUE(stringFilter_accepts(filter, text)) << text;
    }
}

TEST(StringFilter, IgnoringCaseFoldsAsciiOnlyInEveryLocale) {
    const StringFilter filter = filterOf({"\xe4"}, {}, true);
    std::string before = std::setlocale(LC_ALL, nullptr);
    for (const char* locale : {"C", "de_DE.ISO-8859-1", "C.UTF-8"}) {
        std::setlocale(LC_ALL, locale);
        EXPECT_TRUE(stringFilter_accepts(filter, "\xe4"));
        EXPECT_FALSE(stringFilter_accepts(filter, "\xc4")) << locale;
    }
    std::setlocale(LC_ALL, before.c_str());
}

TEST(StringFilter, BytesFrom0x80UpAreAboveAscii) {
    const StringFilter filter = filterOf({"\xff", "a", "\x80"}, {{"z", "\x90"}});
    EXPECT_TRUE(stringFilter_accepts(filter, "\x80"));
    EXPECT_TRUE(stringFilter_accepts(filter, "\xff"));
    EXPECT_TRUE(stringFilter_accepts(filter, "\x8f")) << "inside the range";
    EXPECT_FALSE(stringFilter_accepts(filter, "\x90"));
    EXPECT_GT(text_compare("\x80", "\x7f"), 0);
    EXPECT_GT(text_compareIgnoringCase("\x80", "\x7f"), 0);
}

TEST(StringFilter, TextsEndAtTheirFirstNulOrTheirEnd) {
    const StringFilter filter = filterOf({"ab"});
    using namespace std::string_view_literals;
    EXPECT_TRUE(stringFilter_accepts(filter, "ab\0"sv));
    EXPECT_TRUE(stringFilter_accepts(filter, "ab\0cd\0"sv));
    EXPECT_TRUE(stringFilter_accepts(filter, "abc"sv.substr(0, 2))) << "nothing behind the stored end counts";
    EXPECT_FALSE(stringFilter_accepts(filter, "a\0b"sv));
    EXPECT_TRUE(stringFilter_accepts(filterOf({""}), "\0ab"sv));
    EXPECT_TRUE(stringFilter_accepts(filterOf({"ab"}, {}, true), "AB\0cd"sv));
    for (const auto compare : {text_compare, text_compareIgnoringCase}) {
        EXPECT_EQ(compare("ab\0x"sv, "ab"sv), 0);
        EXPECT_EQ(compare("ab"sv, "ab\0x"sv), 0);
        EXPECT_LT(compare("ab\0x"sv, "abc"sv), 0);
        EXPECT_GT(compare("abc"sv, "ab\0x"sv), 0);
    }
}

TEST(StringFilter, TheMsgTypeIsComparedByFiveCharacters) {
    EXPECT_TRUE(stringFilter_acceptsMsgType(filterOf({"ABCDEFG"}), "ABCDE"));
    EXPECT_FALSE(stringFilter_acceptsMsgType(filterOf({"ABCDEFG"}), "ABCD"));
    EXPECT_FALSE(stringFilter_acceptsMsgType(filterOf({}, {{"ABCDEF", nullptr}}), "ABCDE"))
        << "five characters of the minimum are the MsgType itself";
    EXPECT_TRUE(stringFilter_acceptsMsgType(filterOf({}, {{"A", "C"}}), "B"));
    EXPECT_FALSE(stringFilter_acceptsMsgType(filterOf({}, {{"A", "C"}}), "C"));
}

TEST(StringFilter, TheMsgTypeKeepsItsCaseAlsoAmongValuesSortedWithoutIt) {
    const StringFilter filter = filterOf({"b", "A", "a", "D", "C"}, {}, true);
    for (const char* type : {"b", "A", "a", "D", "C"}) {
        EXPECT_TRUE(stringFilter_acceptsMsgType(filter, type)) << type;
    }
    for (const char* type : {"B", "d", "c"}) {
        EXPECT_FALSE(stringFilter_acceptsMsgType(filter, type)) << type;
    }
}

TEST(StringFilter, AFilterWithNeitherValuesNorRangesAcceptsNothing) {
    EXPECT_FALSE(stringFilter_accepts(filterOf({}), ""));
    EXPECT_FALSE(stringFilter_accepts(filterOf({}), "a"));
    EXPECT_FALSE(stringFilter_acceptsMsgType(filterOf({}), "D"));
}

}  // namespace
}  // namespace tabulo::internal::test
