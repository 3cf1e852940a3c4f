// What each format prints, byte for byte.
#include "tool/message_format.h"

#include <cmath>
#include <limits>
#include <optional>
#include <string>
#include <vector>

#include "tabulo/reader.h"
#include "tabulo/writer.h"
#include "tests/tool/tool_test.h"
#include "tool/status.h"
#include "tool/text_bytes.h"

namespace tabulo::tool::test {

namespace {

constexpr std::int64_t TIME = 1795203105673;  // 2026-11-20T19:31:45.673Z

// A message with something in every place.
Message fullMessage() {
    Message message;
    message.uniformId = 7;
    message.seqNum = 12;
    message.prevSeqNum = -3;
    message.id = firstId(MessageClass::appFrom);
    message.time = TIME;
    message.type = "8";
    message.possDup = true;
    message.outOfSequence = true;
    message.text0 = "first";
    message.text1 = "";
    message.texts = {"ACME", std::nullopt};
    message.numbers = {101.25, std::int64_t{-9007199254740993}};
    message.wire = "8=FIX.4.4\00135=8\00158=ä \"x\", y\\\00110=0\001";
    message.nonMetadata = "a\nb";
    return message;
}

// Nothing but what a message must have.
Message emptyMessage() {
    Message message;
    message.id = -1;
    message.time = TIME + 1;
    return message;
}

// Texts that no JSON can hold, and numbers that none knows.
Message strangeMessage() {
    Message message;
    message.id = 5;
    message.time = TIME;
    message.type = "\xFF";
    message.text0 = "\x80";
    message.texts = {"\xC3", "\x1B[31mred"};
    message.numbers = {std::nan(""), -std::numeric_limits<double>::infinity()};
    message.wire = std::string_view("8=FIX\001\0\xFE", 8);
    message.nonMetadata = "\xED\xA0\x80";  // half of a surrogate pair
    return message;
}

class MessageFormatTest : public ToolTest {
  protected:
    const Layout layout{.texts = {"Symbol", "Account"}, .numbers = {"Price", "Qty"}};

    // What a format prints for messages of one table.
    std::string printed(MessageFormat format, const std::vector<Message>& messages, PrinterOptions options = {}) {
        const std::string path = file("orders");
        std::filesystem::remove(path);
        Writer writer = Writer::create(path, layout);
        for (const Message& message : messages) {
            writer.append(message);
        }
        writer.close();
        Reader reader(path);
        const Times times({.unit = "ms", .zone = ""}, std::nullopt, console);
        options.times = &times;
        options.layouts = {&reader.layout()};
        const MessagePrinter print = makePrinter(format, options);
        std::string out = headOf(format, options);
        for (const MessageView& message : reader.messages()) {
            print(message, &out);
        }
        return out;
    }

    Console console;
};

const std::string CSV_HEAD =
    "table,uid,seq,prevSeq,id,class,time,timeRaw,type,possDup,outOfSequence,text0,text1,Symbol,Account,Price,Qty,wire,"
    "nonMetadata,wireBase64,nonMetadataBase64\r\n";

}  // namespace

TEST_F(MessageFormatTest, RawIsTheBytesOfTheWireMessagesAndNothingElse) {
    const std::string wire = "8=FIX.4.4\00135=8\00158=ä \"x\", y\\\00110=0\001";
    EXPECT_EQ(printed(MessageFormat::raw, {fullMessage(), emptyMessage(), fullMessage()}), wire + wire);
}

TEST_F(MessageFormatTest, FixIsALineForEachWireMessageWithBarsForSohAndOtherBytesEscaped) {
    EXPECT_EQ(printed(MessageFormat::fix, {fullMessage(), emptyMessage()}), "8=FIX.4.4|35=8|58=ä \"x\", y\\|10=0|\n");
    Message message = fullMessage();
    message.wire = "58=a\nb\x1B[2J\x7F\xFF\001";
    EXPECT_EQ(printed(MessageFormat::fix, {message}), "58=a\\x0Ab\\x1B[2J\\x7F\\xFF|\n");
}

TEST_F(MessageFormatTest, NdjsonGivesEveryFieldOfAMessage) {
    EXPECT_EQ(printed(MessageFormat::ndjson, {fullMessage()}),
              R"({"table":"orders","uid":7,"seq":12,"prevSeq":-3,"id":536870911,"class":"APP_FROM",)"
              R"("time":"2026-11-20T19:31:45.673Z","timeRaw":"1795203105673","type":"8","possDup":true,)"
              R"("outOfSequence":true,"text0":"first","text1":"",)"
              R"("fields":{"Symbol":"ACME","Account":null,"Price":101.25,"Qty":-9007199254740993},)"
              R"("wire":"8=FIX.4.4\u000135=8\u000158=ä \"x\", y\\\u000110=0\u0001","nonMetadata":"a\nb"})"
              "\n");
}

TEST_F(MessageFormatTest, NdjsonHasNullForWhatIsAbsent) {
    EXPECT_EQ(printed(MessageFormat::ndjson, {emptyMessage()}),
              R"({"table":"orders","uid":0,"seq":0,"prevSeq":0,"id":-1,"class":null,)"
              R"("time":"2026-11-20T19:31:45.674Z","timeRaw":"1795203105674","type":"","possDup":false,)"
              R"("outOfSequence":false,"text0":null,"text1":null,)"
              R"("fields":{"Symbol":null,"Account":null,"Price":null,"Qty":null},"wire":null,"nonMetadata":null})"
              "\n");
}

TEST_F(MessageFormatTest, NdjsonGivesWhatIsNoUtf8InBase64AndNumbersThatJsonLacksAsStrings) {
    EXPECT_EQ(printed(MessageFormat::ndjson, {strangeMessage()}),
              R"({"table":"orders","uid":0,"seq":0,"prevSeq":0,"id":5,"class":"APP_TO",)"
              R"("time":"2026-11-20T19:31:45.673Z","timeRaw":"1795203105673","type":null,"typeBase64":"/w==",)"
              R"("possDup":false,"outOfSequence":false,"text0":null,"text0Base64":"gA==","text1":null,)"
              R"("fields":{"Symbol":null,"Account":"\u001B[31mred","Price":"NaN","Qty":"-Infinity"},)"
              R"("fieldsBase64":{"Symbol":"ww=="},"wire":null,"wireBase64":"OD1GSVgBAP4=",)"
              R"("nonMetadata":null,"nonMetadataBase64":"7aCA"})"
              "\n");
}

TEST_F(MessageFormatTest, CsvQuotesWhereItMustAndTellsTheEmptyTextFromAnAbsentOne) {
    EXPECT_EQ(printed(MessageFormat::csv, {fullMessage(), emptyMessage()}),
              CSV_HEAD +
                  "orders,7,12,-3,536870911,APP_FROM,2026-11-20T19:31:45.673Z,1795203105673,8,true,true,first,\"\","
                  "ACME,,101.25,-9007199254740993,\"8=FIX.4.4\00135=8\00158=ä \"\"x\"\", y\\\00110=0\001\","
                  "\"a\nb\",,\r\n"
                  "orders,0,0,0,-1,,2026-11-20T19:31:45.674Z,1795203105674,\"\",false,false,,,,,,,,,,\r\n");
}

TEST_F(MessageFormatTest, CsvGivesBinaryWireMessagesInBase64) {
    EXPECT_EQ(
        printed(MessageFormat::csv, {strangeMessage()}),
        CSV_HEAD +
            "orders,0,0,0,5,APP_TO,2026-11-20T19:31:45.673Z,1795203105673,\xFF,false,false,\x80,,\xC3,\x1B[31mred,"
            "NaN,-Infinity,,,OD1GSVgBAP4=,7aCA\r\n");
}

TEST_F(MessageFormatTest, TextIsALineInColumnsForEyes) {
    Message second = fullMessage();
    second.uniformId = 1234567;
    second.possDup = false;
    second.wire = "35=8\001\x1B[2J\001";
    EXPECT_EQ(printed(MessageFormat::text, {fullMessage(), emptyMessage(), second}),
              "2026-11-20 19:31:45.673       7  APP_FROM        12  8   PO  8=FIX.4.4|35=8|58=ä \"x\", y\\|10=0|\n"
              "2026-11-20 19:31:45.674       0  -                0      --  -\n"
              "2026-11-20 19:31:45.673  1234567  APP_FROM        12  8   -O  35=8|\\x1B[2J|\n");
}

TEST_F(MessageFormatTest, TextIsCutToTheWidthAndShowsTheTableWhereAsked) {
    EXPECT_EQ(printed(MessageFormat::text, {fullMessage()}, {.width = 60, .tableWidth = 8}),
              "2026-11-20 19:31:45.673  orders         7  APP_FROM        1\n");
    EXPECT_EQ(printed(MessageFormat::text, {fullMessage()}, {.width = 10}), "2026-11-20\n");
}

TEST_F(MessageFormatTest, ColourIsNotCountedAsWidthAndEndsWithItsColumn) {
    const std::string coloured = printed(MessageFormat::text, {fullMessage()}, {.width = 70, .colour = true});
    std::string plain;
    for (std::size_t i = 0; i < coloured.size(); ++i) {
        if (coloured[i] == '\x1B') {
            i = coloured.find('m', i);
        } else {
            plain.push_back(coloured[i]);
        }
    }
    EXPECT_EQ(plain, printed(MessageFormat::text, {fullMessage()}, {.width = 70}));
    EXPECT_NE(coloured.find("\x1B[36mAPP_FROM\x1B[0m"), std::string::npos) << coloured;
}

TEST_F(MessageFormatTest, FieldsThatCannotBeToldApartByTheirNamesGetOthers) {
    const Layout unclear{.texts = {"A", "", "A", "time"}, .numbers = {"A", ""}};
    const std::string path = file("unclear");
    Writer writer = Writer::create(path, unclear);
    Message message;
    message.texts = {"1", "2", "3", "4"};
    message.numbers = {std::int64_t{5}, std::int64_t{6}};
    writer.append(message);
    writer.close();
    Reader reader(path);
    const Times times({.unit = "ms", .zone = ""}, std::nullopt, console);
    const PrinterOptions options{.times = &times, .layouts = {&reader.layout()}};
    std::string line;
    Messages messages = reader.messages();
    makePrinter(MessageFormat::ndjson, options)(*messages.next(), &line);
    EXPECT_NE(line.find(R"("fields":{"A":"1","field1":"2","A#2":"3","time":"4","A#3":5,"field5":6})"),
              std::string::npos)
        << line;
    EXPECT_NE(headOf(MessageFormat::csv, options).find(",text1,A,field1,A#2,fields.time,A#3,field5,wire,"),
              std::string::npos)
        << headOf(MessageFormat::csv, options);
}

TEST_F(MessageFormatTest, AnUnknownFormatIsRefusedWithTheNamesOfAll) {
    try {
        messageFormatNamed("xml");
        FAIL() << "it was taken";
    } catch (const UsageError& error) {
        EXPECT_STREQ(error.what(), "there is no format 'xml': text, fix, raw, ndjson, csv");
    }
}

TEST(TextBytesTest, Base64IsPaddedForEveryLength) {
    const std::vector<std::pair<std::string, std::string>> known = {
        {"", ""}, {"f", "Zg=="}, {"fo", "Zm8="}, {"foo", "Zm9v"}, {"foob", "Zm9vYg=="}, {"\xFF\xFF\xFE", "///+"}};
    for (const auto& [bytes, expected] : known) {
        std::string text;
        appendBase64(bytes, &text);
        EXPECT_EQ(text, expected);
    }
}

TEST(TextBytesTest, NumbersComeInTheFewestDigitsThatGiveThemBack) {
    const std::vector<std::pair<Number, std::string>> known = {
        {Number(), ""},
        {Number(0.1), "0.1"},
        {Number(1e300), "1e+300"},
        {Number(std::numeric_limits<std::int64_t>::min()), "-9223372036854775808"},
        {Number(3.0), "3"},
        {Number(std::numeric_limits<double>::infinity()), "Infinity"}};
    for (const auto& [number, expected] : known) {
        std::string text;
        appendNumber(number, &text);
        EXPECT_EQ(text, expected);
    }
}

}  // namespace tabulo::tool::test
