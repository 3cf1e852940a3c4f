#include "tabulo/message.h"

#include <gtest/gtest.h>

#include <limits>
#include <string>

#include "tests/api/api_test.h"

namespace tabulo::test {
namespace {

struct ClassRange {
    MessageClass messageClass;
    const char* name;
    std::int32_t first;
    std::int32_t last;
};

const std::vector<ClassRange> CLASSES = {
    {MessageClass::appTo, "APP_TO", 0, 536870910},
    {MessageClass::appFrom, "APP_FROM", 536870911, 1073741822},
    {MessageClass::adminTo, "ADMIN_TO", 1073741823, 1342177278},
    {MessageClass::adminFrom, "ADMIN_FROM", 1342177279, 1610612734},
    {MessageClass::resent, "RESENT", 1610612735, 2147483647},
};

TEST(ApiMessageClass, IsToldByTheRangeThatAnIdLiesIn) {
    for (const ClassRange& range : CLASSES) {
        EXPECT_EQ(classOf(range.first), range.messageClass);
        EXPECT_EQ(classOf(range.last), range.messageClass);
        EXPECT_EQ(firstId(range.messageClass), range.first);
        EXPECT_EQ(lastId(range.messageClass), range.last);
    }
    EXPECT_EQ(classOf(-1), std::nullopt);
    EXPECT_EQ(classOf(std::numeric_limits<std::int32_t>::min()), std::nullopt);
}

TEST(ApiMessageClass, HasANameAndIsFoundByIt) {
    for (const ClassRange& range : CLASSES) {
        EXPECT_EQ(className(range.messageClass), range.name);
        EXPECT_EQ(classNamed(range.name), range.messageClass);
    }
    EXPECT_EQ(classNamed("APP"), std::nullopt);
    EXPECT_EQ(classNamed(""), std::nullopt);
    EXPECT_EQ(className(static_cast<MessageClass>(5)), "");
    EXPECT_EQ(className(static_cast<MessageClass>(-1)), "");
}

MessageCopy copyOf(const Message& message, const Layout& layout) {
    std::vector<std::byte> frame;
    encode(message, layout, frame);
    return MessageCopy(frame, layout);
}

TEST(ApiMessage, ComesBackFromItsFrameWithEveryField) {
    const Layout layout = ordersLayout();
    SimpleMessage simple(7);
    simple.message.prevSeqNum = -3;
    simple.message.outOfSequence = true;
    const MessageCopy copy = copyOf(simple.message, layout);
    const MessageView view = copy.view();
    EXPECT_EQ(view.uniformId(), 7);
    EXPECT_EQ(view.seqNum(), 7);
    EXPECT_EQ(view.prevSeqNum(), -3);
    EXPECT_EQ(view.id(), 7);
    EXPECT_EQ(view.messageClass(), MessageClass::appTo);
    EXPECT_EQ(view.time(), 7000);
    EXPECT_EQ(view.type(), "D");
    EXPECT_FALSE(view.possDup());
    EXPECT_TRUE(view.outOfSequence());
    EXPECT_EQ(view.text0(), "t7");
    EXPECT_EQ(view.text1(), std::nullopt);
    EXPECT_EQ(view.textCount(), 2u);
    EXPECT_EQ(view.text(0), "symbol-7");
    EXPECT_EQ(view.text("ClOrdID"), "order-7");
    EXPECT_EQ(view.numberCount(), 2u);
    EXPECT_EQ(view.number(0), Number(3.5));
    EXPECT_EQ(view.number("OrderQty"), Number(std::int64_t{700}));
    EXPECT_EQ(view.wire(), std::string_view("35=D\00134=7\001"));
    EXPECT_EQ(view.nonMetadata(), "extra 7");
    EXPECT_EQ(view.layout(), layout);
    EXPECT_EQ(view.ordinal(), 0);
}

TEST(ApiMessage, TellsAnAbsentTextFromAnEmptyOneAndKeepsZeroBytes) {
    const Layout layout = ordersLayout();
    Message message;
    const std::string withZero("a\0b\0", 4);
    message.texts = {Text(""), Text()};
    message.wire = withZero;
    const MessageCopy copy = copyOf(message, layout);
    EXPECT_EQ(copy.view().text(0), "");
    EXPECT_EQ(copy.view().text(1), std::nullopt);
    EXPECT_EQ(copy.view().wire(), withZero);
    EXPECT_EQ(copy.view().nonMetadata(), std::nullopt);
    EXPECT_EQ(copy.view().number(0), Number());
    EXPECT_EQ(copy.view().type(), "");
}

TEST(ApiMessage, LeavesFieldsThatAreNotGivenAbsent) {
    const Layout layout = ordersLayout();
    Message message;
    message.texts = {Text("one")};
    message.numbers = {Number(1.5)};
    const MessageCopy copy = copyOf(message, layout);
    EXPECT_EQ(copy.view().text(0), "one");
    EXPECT_EQ(copy.view().text(1), std::nullopt);
    EXPECT_EQ(copy.view().number(1), Number());
}

TEST(ApiMessage, IsRefusedWithAFieldThatTheLayoutHasNoPlaceFor) {
    const Layout layout = ordersLayout();
    std::vector<std::byte> frames(3, std::byte{7});
    Message message;
    message.texts = {Text(), Text(), Text()};
    EXPECT_TABULO_ERROR(stringFieldsCountMismatch, encode(message, layout, frames));
    message.texts.clear();
    message.numbers = {Number(), Number(), Number()};
    EXPECT_TABULO_ERROR(numericFieldsCountMismatch, encode(message, layout, frames));
    EXPECT_EQ(frames, std::vector<std::byte>(3, std::byte{7})) << "a refused message has left bytes behind";
}

TEST(ApiMessage, IsRefusedWithATypeThatCannotBeStored) {
    const Layout layout;
    std::vector<std::byte> frames;
    Message message;
    message.type = "ABCDEF";
    EXPECT_TABULO_ERROR(wrongParameter, encode(message, layout, frames));
    message.type = std::string_view("A\0B", 3);
    EXPECT_TABULO_ERROR(wrongParameter, encode(message, layout, frames));
    message.type = "ABCDE";
    EXPECT_EQ(copyOf(message, layout).view().type(), "ABCDE");
}

TEST(ApiMessage, NamesTheFieldsThatThereAreWhenAnUnknownOneIsAskedFor) {
    const MessageCopy copy = copyOf(SimpleMessage(1).message, ordersLayout());
    const Error error = errorOf([&] { static_cast<void>(copy.view().text("Side")); });
    EXPECT_EQ(error.code(), Code::wrongParameter);
    EXPECT_EQ(error.detail(), "no text of the table is named 'Side'; it has 'Symbol', 'ClOrdID', in all 2");
    EXPECT_TABULO_ERROR(wrongParameter, static_cast<void>(copy.view().number("Symbol")));
    EXPECT_TABULO_ERROR(wrongParameter, static_cast<void>(copy.view().text("")));
    EXPECT_TABULO_ERROR(indexOutOfBounds, static_cast<void>(copy.view().text(2)));
    EXPECT_TABULO_ERROR(indexOutOfBounds, static_cast<void>(copy.view().number(2)));
}

TEST(ApiMessage, IsNotGuessedWhenTwoFieldsHaveTheName) {
    const Layout layout{.texts = {"A", "A"}};
    const MessageCopy copy = copyOf(Message{}, layout);
    EXPECT_TABULO_ERROR(wrongParameter, static_cast<void>(copy.view().text("A")));
}

TEST(ApiMessageCopy, IsRefusedForBytesThatAreNotOneFrame) {
    const Layout layout = ordersLayout();
    std::vector<std::byte> frame = simpleFrames(layout, 1, 1);
    for (std::size_t length = 0; length < frame.size(); ++length) {
        EXPECT_TABULO_ERROR(noData, MessageCopy(std::span(frame).first(length), layout));
    }
    std::vector<std::byte> longer = frame;
    longer.push_back(std::byte{0});
    const Error error = errorOf([&] { MessageCopy(longer, layout); });
    EXPECT_EQ(error.code(), Code::noData);
    EXPECT_EQ(error.offset(), static_cast<std::int64_t>(frame.size()));
    frame.back() = std::byte{1};
    EXPECT_TABULO_ERROR(consistency, MessageCopy(frame, layout));
}

TEST(ApiMessageCopy, SaysSoWhenItWasMovedFrom) {
    MessageCopy copy = copyOf(SimpleMessage(1).message, ordersLayout());
    const MessageCopy moved = std::move(copy);
    EXPECT_EQ(moved.view().uniformId(), 1);
    EXPECT_TABULO_ERROR(tableClosed, static_cast<void>(copy.view()));  // NOLINT: what a move leaves is what is tested
}

TEST(ApiMessageCopy, OutlivesTheViewThatItWasMadeFrom) {
    std::optional<MessageCopy> first = copyOf(SimpleMessage(9).message, ordersLayout());
    const MessageCopy second(first->view());
    first.reset();
    EXPECT_EQ(second.view().text("ClOrdID"), "order-9");
    EXPECT_EQ(second.view().layout(), ordersLayout());
}

TEST(ApiMessage, OfATableWithFewerBuiltInTextsHasNoneThere) {
    for (const std::int32_t builtIn : {2, 3}) {
        const Layout layout{.summarisedTexts = 0, .builtInTexts = builtIn};
        Message message;
        message.wire = "wire";
        message.nonMetadata = "rest";
        if (builtIn == 3) {
            message.text0 = "zero";
        }
        const MessageCopy copy = copyOf(message, layout);
        EXPECT_EQ(copy.view().wire(), "wire");
        EXPECT_EQ(copy.view().nonMetadata(), "rest");
        EXPECT_EQ(copy.view().text0(), builtIn == 3 ? Text("zero") : Text());
        EXPECT_EQ(copy.view().text1(), std::nullopt);
        std::vector<std::byte> frames;
        message.text1 = "one";
        EXPECT_TABULO_ERROR(stringFieldsCountMismatch, encode(message, layout, frames));
    }
}

}  // namespace
}  // namespace tabulo::test
