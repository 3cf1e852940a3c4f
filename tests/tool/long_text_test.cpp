#include "tool/format/long_text.h"

#include <optional>
#include <string>

#include "tabulo/reader.h"
#include "tabulo/writer.h"
#include "tests/tool/recorded_session.h"
#include "tests/tool/tool_test.h"
#include "tool/status.h"

namespace tabulo::tool::test {

namespace {

class LongTextTest : public ToolTest {
  protected:
    // The long form of one message that was stored in a table.
    std::string printed(const Message& message, const Layout& layout = plainLayout(), PrinterOptions options = {}) {
        std::filesystem::remove(file("table"));
        Writer writer = Writer::create(file("table"), layout);
        writer.append(message);
        writer.close();
        return printed(file("table"), 0, options);
    }
    std::string printed(const std::string& path, std::int64_t ordinal, PrinterOptions options = {}) {
        const Times times({"ms", ""}, std::nullopt, console);
        options.times = &times;
        options.longForm = true;
        Reader reader(path);
        Messages messages = reader.messages(Query().from(reader.positionOf(ordinal).value()));
        std::string text;
        const MessagePrinter printer = makePrinter(MessageFormat::text, options);
        printer(*messages.next(), &text);
        return text;
    }
    static Message orderOf(std::string_view wire) {
        Message message;
        message.uniformId = 7;
        message.seqNum = 3;
        message.id = 1;
        message.time = orderTime(1);
        message.type = "D";
        message.wire = wire;
        return message;
    }

    Console console;
};

TEST_F(LongTextTest, AMessageIsPrintedFieldByFieldWithNames) {
    Message message = orderOf("8=FIX.4.4\00135=D\00154=2\00118=1 G\00158=hi\0015001=x\00110=000\001");
    message.possDup = true;
    message.outOfSequence = true;
    EXPECT_EQ(printed(message),
              R"(2026-11-20 19:31:45.673  table  uid 7  APP_TO  seq 3  D NewOrderSingle  PossDup  out of sequence
     8  BeginString  FIX.4.4
    35  MsgType      D  NewOrderSingle
    54  Side         2  Sell
    18  ExecInst     1 G  Not held; All or none
    58  Text         hi
  5001               x
    10  CheckSum     000

)");
}

TEST_F(LongTextTest, DataGarbageAndWhatIsNotPrintableAreShownEscaped) {
    EXPECT_EQ(printed(orderOf(std::string_view("95=7\00196=a\0011=b\0=\001\x1b[31m red\0011=\xFF\nx", 31))),
              R"(2026-11-20 19:31:45.673  table  uid 7  APP_TO  seq 3  D NewOrderSingle
    95  RawDataLength  7
    96  RawData        a\x011=b\x00=
     ?  (no field)     \x1B[31m red
     1  Account        \xFF\x0Ax

)");
    EXPECT_EQ(printed(orderOf("")), "2026-11-20 19:31:45.673  table  uid 7  APP_TO  seq 3  D NewOrderSingle\n\n");
}

TEST_F(LongTextTest, ARecordedMessageWithTextInUtf16KeepsItsFieldsApart) {
    makeRecorded(file("client-day1"), "client-day1", plainLayout());
    const std::string text = printed(file("client-day1"), 138);
    EXPECT_NE(text.find("   347  MessageEncoding  UTF-16LE\n"), std::string::npos) << text;
    EXPECT_NE(text.find("   354  EncodedTextLen   74\n   355  EncodedText      A\\x01\\xF3\\x00d\\x00z\\x01:"),
              std::string::npos)
        << text;
    EXPECT_NE(text.find("e\\x00\n    10  CheckSum         177\n\n"), std::string::npos) << text;
}

TEST_F(LongTextTest, WithoutAWireMessageTheIndexedFieldsAreShown) {
    Message message = orderOf("");
    message.wire = Text();
    message.texts = {"ACME", Text()};
    message.numbers = {10.5, std::int64_t{100}};
    EXPECT_EQ(printed(message, ordersLayout()),
              R"(2026-11-20 19:31:45.673  table  uid 7  APP_TO  seq 3  D NewOrderSingle  without a wire message
     -  Symbol  ACME
     -  Price  10.5
     -  OrderQty  100

)");
}

TEST_F(LongTextTest, ColourIsThereWhenAskedForOnly) {
    const Message message = orderOf("54=2\00158=\x1b[31m\001");
    EXPECT_EQ(printed(message).find('\x1b'), std::string::npos);
    const std::string text = printed(message, plainLayout(), {.colour = true});
    EXPECT_NE(text.find("\x1b[2m    54\x1b[0m  Side  2\x1b[36m  Sell\x1b[0m\n"), std::string::npos) << text;
    EXPECT_NE(text.find("Text  \\x1B[31m\n"), std::string::npos) << text;
}

TEST_F(LongTextTest, LinesAreCutToTheWidth) {
    const std::string text = printed(orderOf("54=2\00158=0123456789\001"), plainLayout(), {.width = 20});
    EXPECT_EQ(text,
              "2026-11-20 19:31:45…\n    54  Side  2  Se…\n"
              "    58  Text  01234…\n\n");
    const std::string coloured = printed(orderOf("54=2\001"), plainLayout(), {.width = 17, .colour = true});
    EXPECT_NE(coloured.find("Side  2\x1b[36m …\x1b[0m\n"), std::string::npos) << coloured;
}

TEST_F(LongTextTest, ADictionaryNamesWhatItHas) {
    makeFile("d.xml",
             "<fix><messages><message name='Ord\x1b' msgtype='D'/></messages><fields>"
             "<field number='5001' name='HouseData' type='DATA'/><field number='5000' name='HouseDataLen' "
             "type='LENGTH'/><field number='54' name='Side' type='CHAR'><value enum='2' description='SOLD'/></field>"
             "</fields></fix>");
    PrinterOptions options;
    options.dictionary = file("d.xml");
    EXPECT_EQ(printed(orderOf("54=2\0015000=3\0015001=a\001b\001"), plainLayout(), options),
              R"(2026-11-20 19:31:45.673  table  uid 7  APP_TO  seq 3  D Ord\x1B
    54  Side          2  SOLD
  5000  HouseDataLen  3
  5001  HouseData     a\x01b

)");
    options.dictionary = file("missing.xml");
    EXPECT_THROW(printed(orderOf("54=2\001"), plainLayout(), options), Failure);
}

}  // namespace

}  // namespace tabulo::tool::test
