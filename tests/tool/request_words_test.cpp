// The words of requests that the server of tables takes apart itself.
#include "tool/serve/request_words.h"

#include <gtest/gtest.h>

#include <string>

namespace tabulo::tool::serve {
namespace {

TEST(RequestWords, APlaceIsTwoOffsetsOfWhichTheSecondIsNotInFrontOfTheFirst) {
    EXPECT_EQ(placeOf("7.15"), (Position{7, 15}));
    EXPECT_EQ(placeOf("0.0"), (Position{0, 0}));
    EXPECT_EQ(placeOf("9223372036854775807.9223372036854775807"), (Position{INT64_MAX, INT64_MAX}));
    for (const char* wrong : {"", ".", "7", "7.", ".7", "7.6", "-1.5", "7.15.3", "7,15", " 7.15", "7.15 ", "+7.15",
                              "0x7.15", "9223372036854775808.9223372036854775808", "7.15~"}) {
        EXPECT_EQ(placeOf(wrong), std::nullopt) << wrong;
    }
    EXPECT_EQ(placeText({7, 15}), "7.15");
}

TEST(RequestWords, ACursorHasAPlaceForEachTable) {
    const std::vector<Position> two = {{7, 15}, {100, 108}};
    EXPECT_EQ(cursorText(two), "7.15~100.108");
    EXPECT_EQ(cursorOf("7.15~100.108", 2), two);
    EXPECT_EQ(cursorOf("7.15", 1), std::vector<Position>{two[0]});
    for (const char* wrong :
         {"", "7.15", "7.15~", "~7.15", "7.15~100.108~1.2", "7.15~x", "7.15~~100.108", "7.15~100.108~"}) {
        EXPECT_EQ(cursorOf(wrong, 2), std::nullopt) << wrong;
    }
    EXPECT_EQ(cursorOf("", 0), std::vector<Position>());
    EXPECT_EQ(cursorOf("7.15", 0), std::nullopt);
}

TEST(RequestWords, AHostIsANameInSmallLettersAndAPort) {
    const auto is = [](std::string_view host, const std::string& name, const std::string& port) {
        const HostWords words = hostWords(host);
        EXPECT_EQ(words.name, name) << host;
        EXPECT_EQ(words.port, port) << host;
    };
    is("Desk.Example:8443", "desk.example", "8443");
    is("desk", "desk", "");
    is("[::1]:80", "[::1]", "80");
    is("[::1]", "[::1]", "");
    is("a:b:80", "a:b", "80");
    is("", "", "");
}

TEST(RequestWords, OnlyAddressesInNumbersAreTakenForThem) {
    for (const char* address : {"127.0.0.1", "10.1.2.3", "[::1]", "[fe80::1]"}) {
        EXPECT_TRUE(isNumericHost(address)) << address;
    }
    for (const char* name :
         {"", "::1", "[]", "[::1", "localhost", "127.0.0.1.evil", "127.1", "0x7f.0.0.1", "[127.0.0.1]"}) {
        EXPECT_FALSE(isNumericHost(name)) << name;
    }
    EXPECT_FALSE(isNumericHost(std::string("127.0.0.1\0.evil", 15)));
}

TEST(RequestWords, ACookieIsFoundByItsWholeName) {
    EXPECT_EQ(cookieValue("a=1; name=token; b=2", "name"), "token");
    EXPECT_EQ(cookieValue("name=", "name"), "");
    EXPECT_EQ(cookieValue("name=a=b", "name"), "a=b");
    for (const char* without : {"", ";", "=", "name", "xname=1", "name2=1", "a=name=1", "NAME=1"}) {
        EXPECT_EQ(cookieValue(without, "name"), std::nullopt) << without;
    }
}

TEST(RequestWords, ALengthBeyondEveryNumberIsMore) {
    EXPECT_FALSE(isMore("", 10));
    EXPECT_FALSE(isMore("10", 10));
    EXPECT_TRUE(isMore("11", 10));
    EXPECT_TRUE(isMore("99999999999999999999999", 10));
    EXPECT_FALSE(isMore("x", 10));
}

TEST(RequestWords, AWordForAShellStandsForItsText) {
    EXPECT_EQ(shellWord("data/orders-1"), "data/orders-1");
    EXPECT_EQ(shellWord(""), "''");
    EXPECT_EQ(shellWord("two words"), "'two words'");
    EXPECT_EQ(shellWord("it's $(x)"), "'it'\\''s $(x)'");
}

}  // namespace
}  // namespace tabulo::tool::serve
