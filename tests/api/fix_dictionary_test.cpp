#include <gtest/gtest.h>

#include <cstdint>
#include <set>
#include <sstream>
#include <string>
#include <utility>

#include "api/fix_dictionary_text.h"
#include "tabulo/fix.h"

namespace tabulo::test {

namespace {

TEST(FixDictionaryTest, TheBuiltInListNamesTagsValuesAndMessages) {
    const FixDictionary& dictionary = FixDictionary::builtIn();
    EXPECT_EQ(dictionary.tagName(11), "ClOrdID");
    EXPECT_EQ(dictionary.tagName(1409), "SessionStatus");
    EXPECT_EQ(dictionary.tagName(5001), "");
    EXPECT_EQ(dictionary.tagName(0), "");
    EXPECT_EQ(dictionary.messageName("D"), "NewOrderSingle");
    EXPECT_EQ(dictionary.messageName("AE"), "TradeCaptureReport");
    EXPECT_EQ(dictionary.messageName(""), "");
    EXPECT_EQ(dictionary.valueName(39, "E"), "Pending replace");
    EXPECT_EQ(dictionary.valueName(54, "?"), "");
    EXPECT_EQ(dictionary.valueName(103, "99"), "Other");
    EXPECT_EQ(dictionary.valueName(58, "1"), "");
}

TEST(FixDictionaryTest, OfSeveralValuesEachIsNamed) {
    const FixDictionary& dictionary = FixDictionary::builtIn();
    EXPECT_EQ(dictionary.valueName(18, "6 G"), "Participate, do not initiate; All or none");
    EXPECT_EQ(dictionary.valueName(18, "? G  "), "All or none");
    EXPECT_EQ(dictionary.valueName(18, "   "), "");
}

// Counts what is read from the list against the list itself.
TEST(FixDictionaryTest, EveryLineOfTheBuiltInListIsRead) {
    const FixDictionary& dictionary = FixDictionary::builtIn();
    std::istringstream tags{std::string(api::FIX_TAG_NAMES)};
    std::set<std::string> names;
    std::int32_t last = 0;
    std::int32_t tag = 0;
    for (std::string name; tags >> tag >> name; last = tag) {
        EXPECT_GT(tag, last) << name;
        EXPECT_EQ(dictionary.tagName(tag), name);
        EXPECT_TRUE(names.insert(name).second) << name << " stands there twice";
    }
    EXPECT_TRUE(tags.eof()) << "behind tag " << last;
    EXPECT_GT(names.size(), 800U);
    std::istringstream lines{std::string(api::FIX_VALUE_NAMES)};
    std::set<std::pair<std::int32_t, std::string>> values;
    for (std::string line; std::getline(lines, line);) {
        if (line.empty()) {
            continue;
        }
        std::istringstream words(line);
        ASSERT_TRUE(words >> tag) << line;
        EXPECT_NE(dictionary.tagName(tag), "") << line;
        words.get();
        for (std::string pair; std::getline(words, pair, ';');) {
            const std::size_t equals = pair.find('=');
            ASSERT_NE(equals, std::string::npos) << line;
            EXPECT_EQ(dictionary.valueName(tag, pair.substr(0, equals)), pair.substr(equals + 1)) << line;
            EXPECT_TRUE(values.emplace(tag, pair.substr(0, equals)).second) << pair << " of " << tag << " is a second";
        }
    }
    EXPECT_GT(values.size(), 600U);
}

TEST(FixDictionaryTest, ADictionaryNamesWhatItWasToldAndTheFallbackTheRest) {
    FixDictionary dictionary(&FixDictionary::builtIn());
    dictionary.nameTag(5001, "First");
    dictionary.nameTag(5001, "HouseFlags");
    dictionary.nameValue(54, "1", "BUY");
    dictionary.nameValue(54, "1", "SECOND_NAME");
    dictionary.nameMessage("U7", "HouseNotice");
    dictionary.nameMessage("U7", "SecondName");
    dictionary.addDataField(5003, 5002);
    EXPECT_EQ(dictionary.tagName(5001), "HouseFlags");
    EXPECT_EQ(dictionary.tagName(54), "Side") << "only a value of it has a name of its own";
    EXPECT_EQ(dictionary.valueName(54, "1"), "BUY");
    EXPECT_EQ(dictionary.valueName(54, "2"), "") << "the values of a tag are those of one dictionary";
    EXPECT_EQ(dictionary.valueName(39, "2"), "Filled");
    EXPECT_EQ(dictionary.messageName("U7"), "HouseNotice");
    EXPECT_EQ(dictionary.messageName("8"), "ExecutionReport");
    EXPECT_EQ(dictionary.dataFields().dataTagOf(5003), 5002);
    EXPECT_EQ(dictionary.dataFields().dataTagOf(95), 96);
    EXPECT_EQ(FixDictionary().tagName(11), "");
}

}  // namespace

}  // namespace tabulo::test
