// Strings of JSON, byte for byte as RapidJSON's writer has them.
#include "tool/format/json_text.h"

#include <gtest/gtest.h>
#include <rapidjson/writer.h>

#include <random>
#include <string>

#include "tests/support/test_run.h"

namespace tabulo::tool::test {

namespace {

std::string byUs(const std::string& text) {
    rapidjson::StringBuffer out;
    appendJsonString(text, &out);
    return {out.GetString(), out.GetSize()};
}

std::string byRapidJson(const std::string& text) {
    rapidjson::StringBuffer out;
    rapidjson::Writer<rapidjson::StringBuffer> writer(out);
    writer.String(text.data(), static_cast<rapidjson::SizeType>(text.size()));
    return {out.GetString(), out.GetSize()};
}

}  // namespace

TEST(JsonText, EscapesEveryCharacterAtEveryPlaceOfEightBytes) {
    for (int code = 0; code < 128; ++code) {
        for (std::size_t place = 0; place < 20; ++place) {
            for (const std::string around :
                 {"aaaaaaaaaaaaaaaaaaaa", "\xC3\xA4.\xC3\xA4.\xC3\xA4.\xC3\xA4.\xC3\xA4.\xC3\xA4.\xC3\xA4"}) {
                const std::string text = around.substr(0, place) + static_cast<char>(code) + around.substr(place);
                ASSERT_EQ(byUs(text), byRapidJson(text)) << "byte " << code << " at " << place;
            }
        }
    }
}

TEST(JsonText, IsThatOfAnyText) {
    const std::uint32_t seed = internal::test::testSeed();
    std::mt19937 random(seed);
    const std::vector<std::string> pieces = {"8=FIX.4.4",
                                             "\x01",
                                             "\"",
                                             "\\",
                                             "\n",
                                             "\x1F",
                                             "\x7F",
                                             " ",
                                             "/",
                                             "\xC3\xA4",
                                             "\xE2\x82\xAC",
                                             "\xF0\x9F\x98\x80",
                                             "abcdefghijklmnopq",
                                             ""};
    for (int round = 0; round < 5000; ++round) {
        std::string text;
        for (std::size_t count = random() % 30; count > 0; --count) {
            text += pieces[random() % pieces.size()];
        }
        ASSERT_EQ(byUs(text), byRapidJson(text)) << "seed " << seed << ", round " << round;
    }
}

}  // namespace tabulo::tool::test
