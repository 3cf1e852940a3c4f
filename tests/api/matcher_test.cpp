#include <gtest/gtest.h>

#include <iostream>
#include <type_traits>

#include "tests/api/api_test.h"
#include "tests/api/random_query.h"
#include "tests/support/test_run.h"

namespace tabulo::test {
namespace {

using ApiMatcher = TableTest;

MessageCopy copyOf(const StoredMessage& message, const Layout& layout) {
    std::vector<std::byte> frame;
    encode(message.borrowed(), layout, frame);
    return MessageCopy(frame, layout);
}

TEST_F(ApiMatcher, IsMoveOnlyAndSaysSoWhenItWasMovedFrom) {
    static_assert(!std::is_copy_constructible_v<Matcher> && !std::is_default_constructible_v<Matcher>);
    static_assert(std::is_nothrow_move_constructible_v<Matcher> && std::is_nothrow_move_assignable_v<Matcher>);
    const MessageCopy copy = copyOf(simpleMessage(5), layout);
    Matcher matcher(Query().seqNums(5, 5), layout);
    Matcher moved = std::move(matcher);
    EXPECT_TRUE(moved(copy.view()));
    // NOLINTBEGIN: what a move leaves is what is tested
    EXPECT_TABULO_ERROR(tableClosed, static_cast<void>(matcher(copy.view())));
    matcher = std::move(moved);
    EXPECT_TRUE(matcher(copy.view()));
    EXPECT_TABULO_ERROR(tableClosed, static_cast<void>(moved(copy.view())));
    // NOLINTEND
}

TEST_F(ApiMatcher, TestsMessagesThatStandInNoTable) {
    const Matcher matcher(Query().text("ClOrdID", TextCondition::anyOf({"order-5"})), layout);
    EXPECT_TRUE(matcher(copyOf(simpleMessage(5), layout).view()));
    EXPECT_FALSE(matcher(copyOf(simpleMessage(6), layout).view()));
}

TEST_F(ApiMatcher, SelectsEveryMessageWithoutAConditionAndNoneOfItsInversion) {
    const MessageCopy copy = copyOf(simpleMessage(5), layout);
    EXPECT_TRUE(Matcher(Query(), layout)(copy.view()));
    EXPECT_FALSE(Matcher(Query().inverted(), layout)(copy.view()));
    EXPECT_TRUE(Matcher(Query().inverted().seqNums(6, 6), layout)(copy.view()));
    EXPECT_FALSE(Matcher(Query().seqNums(5, 6).inverted(), layout)(copy.view()));
}

TEST_F(ApiMatcher, DoesNotLookAtPlacesAndDirection) {
    const MessageCopy copy = copyOf(simpleMessage(5), layout);
    const Query query = Query().from({-1, 3}).before({7, 7}).backward().seqNums(5, 5);
    EXPECT_TRUE(Matcher(query, layout)(copy.view()));
}

TEST_F(ApiMatcher, KeepsNothingOfTheQueryThatItWasMadeOf) {
    const MessageCopy copy = copyOf(simpleMessage(5), layout);
    std::optional<Query> query(std::in_place);
    query->seqNums(5, 6).text("ClOrdID", TextCondition::anyOf({"order-5", "order-6"}));
    const Matcher matcher(*query, layout);
    query->seqNums(6, 6);
    EXPECT_TRUE(matcher(copy.view()));
    query.reset();
    EXPECT_TRUE(matcher(copy.view()));
}

TEST_F(ApiMatcher, RefusesAMessageOfAnotherLayout) {
    const Matcher matcher(Query().seqNums(5, 5), layout);
    EXPECT_TRUE(matcher(copyOf(simpleMessage(5), layout).view()));
    const StoredMessage plain{.seqNum = 5};
    Layout writtenOut = layout;
    writtenOut.summarisedTexts = 4;
    EXPECT_TRUE(matcher(copyOf(plain, writtenOut).view())) << "the same layout in other words";
    for (const Layout& other :
         {Layout{}, Layout{.texts = {"Symbol"}, .numbers = {"Price", "OrderQty"}, .messagesPerBlock = 3},
          Layout{.texts = {"ClOrdID", "Symbol"}, .numbers = layout.numbers, .messagesPerBlock = 3},
          Layout{.texts = layout.texts, .numbers = {"Price"}, .messagesPerBlock = 3}}) {
        const MessageCopy copy = copyOf(plain, other);
        EXPECT_TABULO_ERROR(wrongParameter, static_cast<void>(matcher(copy.view())));
    }
}

TEST_F(ApiMatcher, RefusesAQueryThatATableOfTheLayoutWouldRefuse) {
    const TextCondition text = TextCondition::anyOf({"A"});
    EXPECT_TABULO_ERROR(wrongParameter, Matcher(Query().text("Side", text), layout));
    EXPECT_TABULO_ERROR(wrongParameter, Matcher(Query().text("", text), layout));
    EXPECT_TABULO_ERROR(wrongParameter, Matcher(Query().text("Price", text), layout));
    EXPECT_TABULO_ERROR(indexOutOfBounds, Matcher(Query().text(2, text), layout));
    EXPECT_TABULO_ERROR(wrongParameter, Matcher(Query().number("Symbol", IntegerCondition::above(1)), layout));
    EXPECT_TABULO_ERROR(indexOutOfBounds, Matcher(Query().number(2, DoubleCondition::above(1)), layout));
    EXPECT_TABULO_ERROR(wrongParameter, Matcher(Query().text("A", text), {.texts = {"A", "A"}}));
    const Layout without{.summarisedTexts = 0, .builtInTexts = 2};
    EXPECT_TABULO_ERROR(indexOutOfBounds, Matcher(Query().text(BuiltInText::text0, text), without));
    EXPECT_TABULO_ERROR(indexOutOfBounds, Matcher(Query().text(BuiltInText::text1, text), without));
    EXPECT_TRUE(Matcher(Query().text(BuiltInText::wire, TextCondition::absent()),
                        without)(copyOf(StoredMessage{}, without).view()));
}

TEST_F(ApiMatcher, AgreesWithTheReaderAndWithWhatTheConditionsSay) {
    const std::uint32_t seed = internal::test::testSeed();
    std::int64_t matched = 0;
    std::int64_t tested = 0;
    for (int number = 0; number < 40 * internal::test::testEffort(); ++number) {
        Random random(seed + static_cast<std::uint32_t>(number) * 7919U);
        StoredTable table(directory.file("m" + std::to_string(number)), randomLayout(random));
        for (std::int32_t n = random.below(40); n > 0; --n) {
            table.append(randomMessage(random, table));
        }
        Reader reader(table.writer.path());
        for (int i = 0; i < 20; ++i) {
            std::string fault;
            ModelQuery model;
            addRandomConditions(random, table, model, &fault);
            if (random.percent(20)) {
                model.query.inverted();
                model.inverted = true;
            }
            SCOPED_TRACE("table " + std::to_string(number) + " of seed " + std::to_string(seed) + ", query " +
                         std::to_string(i) + ": " + model.words);
            ASSERT_EQ(fault, "");
            const Matcher matcher(model.query, reader.layout());
            Messages selected = reader.messages(model.query);
            selected.next();
            for (const MessageView& message : reader.messages()) {
                const auto index = static_cast<std::size_t>(message.ordinal());
                const bool isSelected =
                    selected.current() != nullptr && selected.current()->position() == message.position();
                ASSERT_EQ(matcher(message), isSelected) << "message " << index;
                ASSERT_EQ(matcher(message), model.selects(table.messages[index])) << "message " << index;
                ASSERT_EQ(matcher(MessageCopy(message).view()), isSelected) << "a copy of message " << index;
                matched += isSelected ? 1 : 0;
                tested += 1;
                if (isSelected) {
                    selected.next();
                }
            }
            ASSERT_EQ(selected.current(), nullptr);
        }
    }
    std::cout << matched << " of " << tested << " messages matched\n";
    EXPECT_GT(matched * 10, tested);
    EXPECT_LT(matched * 10, tested * 8);
}

}  // namespace
}  // namespace tabulo::test
