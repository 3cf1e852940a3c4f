#include <gtest/gtest.h>

#include <random>
#include <string>
#include <utility>
#include <vector>

#include "tabulo/fix.h"
#include "tests/support/test_run.h"

namespace tabulo::test {

namespace {

using Fields = std::vector<std::pair<std::int32_t, std::string>>;

Fields fieldsOf(std::string_view wire, const FixDataFields& data = FixDataFields::standard()) {
    Fields found;
    FixFields fields(wire, data);
    for (FixField field; fields.next(&field);) {
        found.emplace_back(field.tag, field.value);
    }
    return found;
}

// "|" stands for the byte that ends a field.
std::string wireOf(std::string text) {
    for (char& c : text) {
        c = c == '|' ? FIX_END_OF_FIELD : c;
    }
    return text;
}

TEST(FixMessageTest, AMessageIsTakenApartIntoItsFields) {
    EXPECT_EQ(fieldsOf(wireOf("8=FIX.4.4|35=D|58=a=b|10=123|")),
              (Fields{{8, "FIX.4.4"}, {35, "D"}, {58, "a=b"}, {10, "123"}}));
    EXPECT_EQ(fieldsOf(""), Fields{});
    EXPECT_EQ(fieldsOf("1="), (Fields{{1, ""}}));
    EXPECT_EQ(fieldsOf(wireOf("1=|1=|")), (Fields{{1, ""}, {1, ""}}));
}

TEST(FixMessageTest, ADataFieldIsAsLongAsItsLengthSays) {
    EXPECT_EQ(fieldsOf(wireOf("95=6|96=a|37=x|11=y|")), (Fields{{95, "6"}, {96, wireOf("a|37=x")}, {11, "y"}}));
    EXPECT_EQ(fieldsOf(wireOf("354=2|355=|||10=1|")), (Fields{{354, "2"}, {355, wireOf("||")}, {10, "1"}}));
    EXPECT_EQ(fieldsOf(wireOf("95=3|96=a|b")), (Fields{{95, "3"}, {96, wireOf("a|b")}})) << "the end of the message";
    EXPECT_EQ(fieldsOf(wireOf("95=0|96=|1=a|")), (Fields{{95, "0"}, {96, ""}, {1, "a"}}));
    EXPECT_EQ(fieldsOf(wireOf("93=3|89=|=||")), (Fields{{93, "3"}, {89, wireOf("|=|")}})) << "tags need not rise";
}

TEST(FixMessageTest, ALengthThatLeadsToNoEndOfAFieldIsNotBelieved) {
    const Fields plain = {{96, "ab"}, {11, "y"}};
    for (const char* length : {"1", "3", "99", "-1", "x", "", "99999999999999999999999", "2 "}) {
        Fields expected = plain;
        expected.insert(expected.begin(), {95, length});
        EXPECT_EQ(fieldsOf(wireOf("95=" + std::string(length) + "|96=ab|11=y|")), expected) << length;
    }
}

TEST(FixMessageTest, ALengthCountsForTheFieldBehindItOnly) {
    EXPECT_EQ(fieldsOf(wireOf("95=3|1=x|96=a|b|")), (Fields{{95, "3"}, {1, "x"}, {96, "a"}, {0, "b"}}));
    EXPECT_EQ(fieldsOf(wireOf("95=3|355=a|b|")), (Fields{{95, "3"}, {355, "a"}, {0, "b"}})) << "another's length";
}

TEST(FixMessageTest, WhatIsNoFieldIsGivenWithoutATag) {
    EXPECT_EQ(fieldsOf(wireOf("hello|35=D||=x|0=y|-1=z|99999999999=w|2147483648=v|")), (Fields{{0, "hello"},
                                                                                               {35, "D"},
                                                                                               {0, ""},
                                                                                               {0, "=x"},
                                                                                               {0, "0=y"},
                                                                                               {0, "-1=z"},
                                                                                               {0, "99999999999=w"},
                                                                                               {0, "2147483648=v"}}));
    EXPECT_EQ(fieldsOf(wireOf("054=1|2147483647=m|")), (Fields{{54, "1"}, {2147483647, "m"}}));
    EXPECT_EQ(fieldsOf(std::string(3, '\0')), (Fields{{0, std::string(3, '\0')}}));
}

TEST(FixMessageTest, DataFieldsOfADictionaryAreKnown) {
    FixDataFields data;
    EXPECT_EQ(data.dataTagOf(95), 0);
    data.add(5003, 5002);
    data.add(5001, 5000);
    data.add(5003, 5004);
    EXPECT_EQ(data.dataTagOf(5003), 5004);
    EXPECT_EQ(data.dataTagOf(5001), 5000);
    EXPECT_EQ(data.dataTagOf(5002), 0);
    EXPECT_EQ(fieldsOf(wireOf("5001=3|5000=a|b|"), data), (Fields{{5001, "3"}, {5000, wireOf("a|b")}}));
}

TEST(FixMessageTest, TheFirstOfSeveralFieldsIsTheValue) {
    EXPECT_EQ(fixValue(wireOf("11=a|11=b|"), 11), "a");
    EXPECT_EQ(fixValue(wireOf("95=4|96=|11=|11=b|"), 11), "b") << "the first one stands in a data field";
    EXPECT_EQ(fixValue(wireOf("11=a|"), 37), std::nullopt);
}

// Random bytes, more of them such as make fields than others would.
std::string randomWire(std::mt19937& random) {
    static constexpr std::string_view FREQUENT = "\x01\x01\x01===0123459569693540893";
    std::string wire;
    const std::size_t length = random() % 80;
    while (wire.size() < length) {
        if (random() % 12 == 0) {
            wire += static_cast<char>(random() % 256);
        } else if (random() % 6 == 0) {
            wire += random() % 2 == 0 ? "95=" + std::to_string(random() % 9) +
                                            "\x01"
                                            "96="
                                      : "354=3\x01"
                                        "355=";
        } else {
            wire += FREQUENT[random() % FREQUENT.size()];
        }
    }
    return wire;
}

// Whatever the bytes are: fields follow one another without a gap and to the end, each inside the message, each as the
// rules say.
TEST(FixMessageTest, FieldsOfRandomBytesHoldAllOfThem) {
    const std::uint32_t seed = internal::test::testSeed();
    std::mt19937 random(seed);
    for (int round = 0; round < 20000; ++round) {
        const std::string wire = randomWire(random);
        SCOPED_TRACE(testing::Message() << "seed " << seed << ", round " << round << ": "
                                        << testing::PrintToString(wire));
        FixFields fields(wire);
        std::size_t end = 0;
        bool ended = true;
        std::int32_t lastTag = 0;
        std::string lastValue;
        for (FixField field; fields.next(&field);) {
            ASSERT_TRUE(ended) << "a field behind the last one";
            const auto begin = static_cast<std::size_t>(field.value.data() - wire.data());
            ASSERT_LE(begin + field.value.size(), wire.size());
            const std::string head = wire.substr(end, begin - end);
            if (field.tag == 0) {
                ASSERT_EQ(head, "");
            } else {
                ASSERT_TRUE(head.ends_with('='));
                ASSERT_EQ(fixTag(head.substr(0, head.size() - 1)), field.tag);
            }
            if (field.value.find(FIX_END_OF_FIELD) != std::string_view::npos) {
                ASSERT_EQ(FixDataFields::standard().dataTagOf(lastTag), field.tag);
                ASSERT_EQ(lastValue.find_first_not_of("0123456789"), std::string::npos);
                ASSERT_EQ(std::stoul(lastValue), field.value.size());
            }
            end = begin + field.value.size();
            ended = field.ended;
            ASSERT_EQ(ended, end < wire.size());
            if (ended) {
                ASSERT_EQ(wire[end], FIX_END_OF_FIELD);
                ++end;
            }
            lastTag = field.tag;
            lastValue = field.value;
        }
        ASSERT_EQ(end, wire.size());
    }
}

TEST(FixDataFields, KnowsTheLengthsOfTheStandardsDataFieldsAndNoOther) {
    const std::vector<std::pair<std::int32_t, std::int32_t>> pairs = {
        {90, 91},     {93, 89},     {95, 96},     {212, 213},   {348, 349},   {350, 351},   {352, 353},   {354, 355},
        {356, 357},   {358, 359},   {360, 361},   {362, 363},   {364, 365},   {445, 446},   {618, 619},   {621, 622},
        {1184, 1185}, {1277, 1278}, {1280, 1281}, {1282, 1283}, {1397, 1398}, {1401, 1402}, {1403, 1404}, {1468, 1469}};
    std::vector<std::pair<std::int32_t, std::int32_t>> found;
    for (std::int32_t tag = 1; tag < 10'000; ++tag) {
        if (const std::int32_t data = FixDataFields::standard().dataTagOf(tag); data != 0) {
            found.emplace_back(tag, data);
        }
    }
    EXPECT_EQ(found, pairs);
}

}  // namespace

}  // namespace tabulo::test
