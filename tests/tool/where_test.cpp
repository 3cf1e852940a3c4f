#include "tool/where.h"

#include <algorithm>
#include <cmath>
#include <optional>
#include <string>
#include <vector>

#include "tabulo/reader.h"
#include "tabulo/writer.h"
#include "tests/tool/tool_test.h"
#include "tool/status.h"

namespace tabulo::tool::test {

namespace {

class WhereTestTest : public ToolTest {
  protected:
    const Layout layout{.texts = {"Symbol", "Odd name=1"}, .numbers = {"Price"}};

    // Whether a condition holds for a message with this symbol, price and wire message.
    bool holds(const std::string& condition, const Text& symbol, const Number& price, const Text& wire = {}) {
        Message message;
        message.texts = {symbol};
        message.numbers = {price};
        message.wire = wire;
        std::vector<std::byte> frame;
        encode(message, layout, frame);
        const MessageCopy copy(frame, layout);
        return WhereTest(parseWhere(condition), layout)(copy.view());
    }
    bool holdsFor(const std::string& condition, const Text& symbol) { return holds(condition, symbol, {}); }
    bool holdsForPrice(const std::string& condition, const Number& price) { return holds(condition, {}, price); }
    bool holdsForWire(const std::string& condition, const Text& wire) { return holds(condition, {}, {}, wire); }

    std::string refusal(const std::string& condition) {
        try {
            (void)WhereTest(parseWhere(condition), layout);
        } catch (const UsageError& error) {
            return error.what();
        }
        return "";
    }
};

constexpr std::int64_t BIG = 9007199254740993;  // the first integer that no double can hold

}  // namespace

TEST_F(WhereTestTest, TextsAreComparedByteByByte) {
    EXPECT_TRUE(holdsFor("Symbol=ACME", "ACME"));
    EXPECT_FALSE(holdsFor("Symbol=ACME", "acme"));
    EXPECT_FALSE(holdsFor("Symbol=ACME", std::string_view("ACME\0X", 6)));
    EXPECT_TRUE(holdsFor("Symbol!=ACME", "B"));
    EXPECT_TRUE(holdsFor("Symbol<B", "ACME"));
    EXPECT_FALSE(holdsFor("Symbol<ACME", "ACME"));
    EXPECT_TRUE(holdsFor("Symbol<=ACME", "ACME"));
    EXPECT_TRUE(holdsFor("Symbol>z", "\xC3\xA4"));
    EXPECT_TRUE(holdsFor("Symbol>=ACME", "ACME"));
    EXPECT_TRUE(holdsFor("Symbol=", ""));
}

TEST_F(WhereTestTest, AnAbsentValueMeetsOnlyNotEqualAndIsAbsent) {
    for (const std::string operation : {"=1", "<1", "<=1", ">1", ">=1", " in (1, 2)"}) {
        EXPECT_FALSE(holdsFor("Symbol" + operation, {})) << operation;
        EXPECT_FALSE(holdsForPrice("Price" + operation, {})) << operation;
        EXPECT_FALSE(holdsForWire("tag:54" + operation, "8=FIX\001")) << operation;
        EXPECT_FALSE(holdsForWire("tag:54" + operation, {})) << operation;
    }
    for (const std::string operation : {"!=1", " is absent"}) {
        EXPECT_TRUE(holdsFor("Symbol" + operation, {})) << operation;
        EXPECT_TRUE(holdsForPrice("Price" + operation, {})) << operation;
        EXPECT_TRUE(holdsForWire("tag:54" + operation, "8=FIX\001")) << operation;
        EXPECT_TRUE(holdsForWire("tag:54" + operation, {})) << operation;
    }
    EXPECT_FALSE(holdsFor("Symbol is absent", ""));
    EXPECT_FALSE(holdsForPrice("Price is absent", std::nan("")));
}

TEST_F(WhereTestTest, NumbersAreComparedExactly) {
    EXPECT_TRUE(holdsForPrice("Price=9007199254740993", BIG));
    EXPECT_FALSE(holdsForPrice("Price=9007199254740992", BIG));
    EXPECT_TRUE(holdsForPrice("Price>9007199254740992.0", BIG));
    EXPECT_FALSE(holdsForPrice("Price<=9007199254740992", BIG));
    EXPECT_TRUE(holdsForPrice("Price=1.50", 1.5));
    EXPECT_TRUE(holdsForPrice("Price=2", 2.0));
    EXPECT_TRUE(holdsForPrice("Price<1e30", BIG));
    EXPECT_TRUE(holdsForPrice("Price>-1e30", BIG));
    EXPECT_TRUE(holdsForPrice("Price>-2", -1.5));
    EXPECT_TRUE(holdsForPrice("Price>-1.5", std::int64_t{-1}));
    EXPECT_TRUE(holdsForPrice("Price!=1", std::nan("")));
    EXPECT_FALSE(holdsForPrice("Price>=1", std::nan("")));
    EXPECT_TRUE(holdsForPrice("Price in (1, +2)", std::int64_t{2}));
}

TEST_F(WhereTestTest, TagsAreLookedUpInTheWireMessage) {
    const std::string wire = "8=FIX\001154=7\00154=1\00158=x 54=9\00138=100\00154=2\001";
    EXPECT_TRUE(holdsForWire("tag:54=1", wire));
    EXPECT_FALSE(holdsForWire("tag:54=2", wire)) << "the first one counts";
    EXPECT_TRUE(holdsForWire("tag:8=FIX", wire));
    EXPECT_TRUE(holdsForWire("tag:38>20", wire)) << "numbers are compared as such";
    EXPECT_FALSE(holdsForWire("tag:38=100.0", wire)) << "but for equality as texts";
    EXPECT_TRUE(holdsForWire("tag:58 > a", wire));
    EXPECT_TRUE(holdsForWire("tag:54=1", "54=1")) << "without SOH behind it";
    EXPECT_TRUE(holdsForWire("tag:4 is absent", wire));
}

TEST_F(WhereTestTest, ValuesInQuotesKeepTheirSpacesAndCommas) {
    EXPECT_TRUE(holdsFor("Symbol = ACME ", "ACME"));
    EXPECT_TRUE(holdsFor("Symbol = ' ACME '", " ACME "));
    EXPECT_TRUE(holdsFor("Symbol in (A, \"B, C\" , 'D')", "B, C"));
    EXPECT_TRUE(holdsFor("Symbol in (A, \"B, C\" , 'D')", "D"));
    EXPECT_FALSE(holdsFor("Symbol in (A, \"B, C\" , 'D')", "B"));
    EXPECT_TRUE(holdsFor("Symbol=x is absent", "x is absent"));
    EXPECT_TRUE(holdsFor("Symbol=a in (b)", "a in (b)"));
    EXPECT_TRUE(holdsFor("Symbol=it's", "it's"));
}

TEST_F(WhereTestTest, WhatIsNoConditionIsRefused) {
    for (const std::string text : {"", "Symbol", "=x", "is absent", " in (A)", "tag:=1", "tag:x=1", "Symbol in A"}) {
        EXPECT_NE(refusal(text).find("is no condition: FIELD=VALUE"), std::string::npos)
            << text << ": " << refusal(text);
    }
}

TEST_F(WhereTestTest, AnUnknownFieldIsRefusedWithTheNamesOfTheTables) {
    EXPECT_EQ(refusal("Side=1"), "the table has no field 'Side'; it has Symbol, Odd name=1, Price");
    EXPECT_EQ(refusal("Price=cheap"), "'Price' is compared as a number, and 'cheap' is none");
    EXPECT_EQ(refusal("Price=nan"), "'Price' is compared as a number, and 'nan' is none");
    EXPECT_EQ(refusal("Symbol=1"), "");
}

TEST_F(WhereTestTest, EqualityAndRangesLetBlocksBeSkipped) {
    const std::string path = makeOrders("orders", 400, 1, 10);
    Reader reader(path);
    const auto skipped = [&](const std::string& condition) {
        Query query;
        const bool isPushed = WhereTest(parseWhere(condition), reader.layout()).push(&query);
        Messages messages = reader.messages(query);
        while (messages.next() != nullptr) {
        }
        return isPushed ? messages.blocksSkipped() : -1;
    };
    EXPECT_GT(skipped("ClOrdID=order-5"), 30);
    EXPECT_GT(skipped("ClOrdID in (order-5, order-6)"), 30);
    EXPECT_GT(skipped("Price<=102"), 30);
    EXPECT_GT(skipped("OrderQty>39000"), 30);
    EXPECT_EQ(skipped("ClOrdID!=order-5"), -1);
    EXPECT_EQ(skipped("Price is absent"), -1);
    EXPECT_EQ(skipped("tag:55=ACME"), -1);
}

}  // namespace tabulo::tool::test
