#include "jni/modified_utf8.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <string_view>

namespace tabulo::internal::test {
namespace {

using namespace std::string_view_literals;

// The characters with the numbers of the bytes.
std::u16string eachByte(std::string_view bytes) {
    std::u16string characters;
    for (const char byte : bytes) {
        characters += static_cast<char16_t>(static_cast<unsigned char>(byte));
    }
    return characters;
}

void expectEachByte(std::string_view bytes) {
    EXPECT_EQ(eachByte(bytes), modifiedUtf8_decode(bytes));
}

// Modified UTF-8 of UTF-16 units, written down independently of the decoder.
std::string encode(std::u16string_view units) {
    std::string bytes;
    for (const char16_t unit : units) {
        const unsigned value = unit;
        if (value >= 1 && value <= 0x7FU) {
            bytes += static_cast<char>(value);
        } else if (value <= 0x7FFU) {
            bytes += static_cast<char>(0xC0U | (value >> 6));
            bytes += static_cast<char>(0x80U | (value & 0x3FU));
        } else {
            bytes += static_cast<char>(0xE0U | (value >> 12));
            bytes += static_cast<char>(0x80U | ((value >> 6) & 0x3FU));
            bytes += static_cast<char>(0x80U | (value & 0x3FU));
        }
    }
    return bytes;
}

TEST(ModifiedUtf8, AsciiIsItself) {
    EXPECT_EQ(u"8=FIX.4.4\x01~\x7F", modifiedUtf8_decode("8=FIX.4.4\x01~\x7F"));
    EXPECT_EQ(u"", modifiedUtf8_decode(""));
}

TEST(ModifiedUtf8, TwoAndThreeByteSequencesAreOneCharacter) {
    EXPECT_EQ(u"\u0080\u00E9\u07FF", modifiedUtf8_decode("\xC2\x80\xC3\xA9\xDF\xBF"));
    EXPECT_EQ(u"\u0800\u20AC\uFFFF", modifiedUtf8_decode("\xE0\xA0\x80\xE2\x82\xAC\xEF\xBF\xBF"));
}

TEST(ModifiedUtf8, TheTwoByteFormOfZeroAndAZeroByteAreTheZeroCharacter) {
    EXPECT_EQ(u"a\0b"sv, modifiedUtf8_decode("a\xC0\x80\x62"));
    EXPECT_EQ(u"a\0b"sv, modifiedUtf8_decode("a\0b"sv));
}

TEST(ModifiedUtf8, SurrogatesEncodedOneByOneStayAsTheyAre) {
    EXPECT_EQ((std::u16string{0xD83D, 0xDE00}), modifiedUtf8_decode("\xED\xA0\xBD\xED\xB8\x80"));
    EXPECT_EQ((std::u16string{0xDC00, u'x', 0xD800}), modifiedUtf8_decode("\xED\xB0\x80x\xED\xA0\x80"));
}

TEST(ModifiedUtf8, AFourByteSequenceIsASurrogatePair) {
    EXPECT_EQ(u"\U0001F600", modifiedUtf8_decode("\xF0\x9F\x98\x80"));
    EXPECT_EQ(u"\U00010000\U0010FFFF", modifiedUtf8_decode("\xF0\x90\x80\x80\xF4\x8F\xBF\xBF"));
}

TEST(ModifiedUtf8, AByteThatBelongsToNoSequenceIsTheCharacterOfItsNumber) {
    for (unsigned byte = 0x80; byte <= 0xFF; ++byte) {
        const char text[] = {'<', static_cast<char>(byte), '>'};
        expectEachByte({text, 3});
        expectEachByte({text, 2});
    }
}

TEST(ModifiedUtf8, ASequenceThatIsCutIsTakenByteByByte) {
    expectEachByte("\xE2\x82");
    expectEachByte("\xF0\x9F\x98");
    expectEachByte("\xE2\x82x");
    expectEachByte("\xF0\x9F\x98\xC3");
    EXPECT_EQ(u"\u00F0\u00E9", modifiedUtf8_decode("\xF0\xC3\xA9")) << "a sequence inside a broken one counts";
}

TEST(ModifiedUtf8, FormsThatAreLongerThanNeededAreTakenByteByByte) {
    expectEachByte("\xC1\x81");
    expectEachByte("\xC0\x81");
    expectEachByte("\xE0\x80\x80");
    expectEachByte("\xE0\x9F\xBF");
    expectEachByte("\xF0\x80\x80\x80");
    expectEachByte("\xF0\x8F\xBF\xBF");
}

TEST(ModifiedUtf8, NumbersBehindTheLastCharacterAreTakenByteByByte) {
    expectEachByte("\xF4\x90\x80\x80");
    expectEachByte("\xF7\xBF\xBF\xBF");
    expectEachByte("\xF8\x88\x80\x80\x80");
}

TEST(ModifiedUtf8, WhateverJavaEncodesComesBack) {
    const std::uint32_t seed = std::random_device{}();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    for (int round = 0; round < 200; ++round) {
        std::u16string text(random() % 50, u'\0');
        std::generate(text.begin(), text.end(), [&] {
            const unsigned shift = random() % 16;
            return static_cast<char16_t>((random() & 0xFFFFU) >> shift);
        });
        ASSERT_EQ(text, modifiedUtf8_decode(encode(text)));
    }
}

std::string_view whole(std::string_view text) {
    return text.substr(0, modifiedUtf8_wholeLength(text));
}

TEST(ModifiedUtf8, AWholeTextIsNotShortened) {
    for (const std::string_view text : {""sv, "a"sv, "\xC3\xA9"sv, "\xE2\x82\xAC"sv, "\xF0\x9F\x98\x80"sv,
                                        "a\xC0\x80"sv, "\xED\xA0\xBD\xED\xB8\x80"sv, "\xED\xB8\x80"sv}) {
        EXPECT_EQ(text, whole(text));
    }
}

TEST(ModifiedUtf8, AnIncompleteCharacterAtTheEndIsLeftOut) {
    EXPECT_EQ("a", whole("a\xC3"));
    EXPECT_EQ("a", whole("a\xE2"));
    EXPECT_EQ("a", whole("a\xE2\x82"));
    EXPECT_EQ("a", whole("a\xF0\x9F\x98"));
    EXPECT_EQ("", whole("\xF0"));
}

TEST(ModifiedUtf8, HalfASurrogatePairAtTheEndIsLeftOut) {
    EXPECT_EQ("a", whole("a\xED\xA0\xBD"));
    EXPECT_EQ("a", whole("a\xED\xA0\xBD\xED"));
    EXPECT_EQ("a", whole("a\xED\xA0\xBD\xED\xB8"));
    EXPECT_EQ("a\xED\xA0\xBD\xED\xB8\x80", whole("a\xED\xA0\xBD\xED\xB8\x80"));
}

TEST(ModifiedUtf8, AnyCutOfATextKeepsAllCharactersThatAreWhole) {
    const std::u16string text = u"a\u00E9\u20AC\U0001F600\u0800z\U00010000\u007F\u0080";
    const std::string bytes = encode(text);
    for (std::size_t cut = 0; cut <= bytes.size(); ++cut) {
        std::size_t kept = 0;
        for (std::size_t units = 0; units <= text.size(); ++units) {
            const bool insidePair = units > 0 && units < text.size() && (text[units] & 0xFC00) == 0xDC00;
            const std::size_t length = encode(text.substr(0, units)).size();
            if (!insidePair && length <= cut) {
                kept = length;
            }
        }
        EXPECT_EQ(kept, modifiedUtf8_wholeLength(std::string_view(bytes).substr(0, cut))) << "cut at " << cut;
    }
}

}  // namespace
}  // namespace tabulo::internal::test
