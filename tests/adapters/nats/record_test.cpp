// What goes over, and what comes back from a stream that anybody can write to.
#include "adapters/nats/record.h"

#include <gtest/gtest.h>

#include <limits>

#include "adapters/nats/lag.h"
#include "adapters/nats/layout_text.h"
#include "adapters/nats/owner.h"
#include "adapters/nats/session_text.h"
#include "adapters/nats/subject_token.h"

namespace tabulo::shipping {

namespace {

using Headers = std::vector<std::pair<std::string, std::string>>;

const Headers MESSAGE = {{"Tabulo-Table", "orders"}, {"Tabulo-Place", "2/171"}, {"Tabulo-Message", "-5/7/9"}};

Stored stored(const std::string& subject, Headers headers, std::size_t size = 10) {
    return {.sequence = 4, .subject = subject, .headers = std::move(headers), .payload = std::vector<std::byte>(size)};
}

Headers with(Headers headers, const std::string& name, const std::string& value) {
    std::erase_if(headers, [&](const auto& header) { return header.first == name; });
    headers.emplace_back(name, value);
    return headers;
}

std::string refusalOf(const Stored& record) {
    try {
        (void)recordOf(record);
        return "";
    } catch (const ForeignRecord& error) {
        return error.what();
    }
}

TEST(SubjectToken, HasALetterAsItIsAndAnyOtherByteAsTwoDigits) {
    EXPECT_EQ(escaped("client-day_1"), "client-day_1");
    EXPECT_EQ(escaped("a.b c*>"), "a%2Eb%20c%2A%3E");
    EXPECT_EQ(escaped("\xFC@"), "%FC%40");
    EXPECT_EQ(escaped(""), "%");
}

TEST(SubjectToken, GivesEveryTextBack) {
    std::string all;
    for (int byte = 0; byte < 256; ++byte) {
        all += static_cast<char>(byte);
    }
    EXPECT_EQ(unescaped(escaped(all)), all);
    EXPECT_EQ(unescaped("%"), "");
}

TEST(SubjectToken, RefusesWhatNoTextBecomes) {
    for (const char* part : {"", "a.b", "%4", "%zz", "%2e", "%41", "a%", "=layout"}) {
        EXPECT_EQ(unescaped(part), std::nullopt) << part;
    }
}

TEST(StoredRecord, OfAMessageHasWhatItsHeadersSay) {
    const Stored message = stored("ENG1.orders.APP_TO.D", MESSAGE);
    const Record record = recordOf(message);
    EXPECT_EQ(record.kind, RecordKind::message);
    EXPECT_EQ(record.table, "orders");
    EXPECT_EQ(record.incarnation, 2);
    EXPECT_EQ(record.offset, 171);
    EXPECT_EQ(record.uniformId, -5);
    EXPECT_EQ(record.seqNum, 7);
    EXPECT_EQ(record.time, 9);
    EXPECT_EQ(record.whole, 10);
    EXPECT_TRUE(record.isLastPart());
}

TEST(StoredRecord, IsRefusedWithASentenceWhenAHeaderIsMissing) {
    for (const auto& [name, value] : MESSAGE) {
        Headers headers = MESSAGE;
        std::erase_if(headers, [&, wanted = name](const auto& header) { return header.first == wanted; });
        EXPECT_NE(refusalOf(stored("ENG1.orders.APP_TO.D", headers)).find("no header " + name), std::string::npos);
    }
}

TEST(StoredRecord, IsRefusedForNumbersThatCannotBe) {
    for (const auto& [name, value] : Headers{{"Tabulo-Place", "2/-1"},
                                             {"Tabulo-Place", "2/9223372036854775808"},
                                             {"Tabulo-Place", "2/1 "},
                                             {"Tabulo-Place", "0/171"},
                                             {"Tabulo-Place", "171"},
                                             {"Tabulo-Place", "2/171/3"},
                                             {"Tabulo-Message", "2147483648/7/9"},
                                             {"Tabulo-Message", "-5/7/"},
                                             {"Tabulo-Message", "-5//9"},
                                             {"Tabulo-Message", ""},
                                             {"Tabulo-Part", "0/5"},
                                             {"Tabulo-Part", "-1/20"},
                                             {"Tabulo-Part", "11/20"},
                                             {"Tabulo-Part", "1/9223372036854775807"},
                                             {"Tabulo-Part", "9223372036854775807/20"},
                                             {"Tabulo-Part", "3"}}) {
        EXPECT_NE(refusalOf(stored("ENG1.orders.APP_TO.D", with(MESSAGE, name, value))), "") << name << ": " << value;
    }
    EXPECT_EQ(refusalOf(stored("ENG1.orders.APP_TO.D", with(MESSAGE, "Tabulo-Part", "10/20"))), "");
}

TEST(StoredRecord, IsRefusedOnASubjectThatIsNoneOfOurs) {
    for (const char* subject : {"ENG1.orders", "ENG1.orders.APP_TO", "ENG1.orders.APP_TO.D.x", "ENG1.other.APP_TO.D",
                                "ENG1..APP_TO.D", "ENG1.=layout", ""}) {
        EXPECT_NE(refusalOf(stored(subject, MESSAGE)), "") << subject;
    }
}

TEST(StoredRecord, IsRefusedForATableThatWouldBeAFileOfAnotherFolder) {
    for (const char* name : {"..", ".", "../orders", "/tmp/orders", "a/b", ".tabulo-receive", ""}) {
        const std::string part = escaped(name);
        EXPECT_NE(refusalOf(stored("ENG1." + part + ".APP_TO.D", with(MESSAGE, "Tabulo-Table", part))), "") << name;
    }
    const std::string odd = escaped("..orders");
    EXPECT_EQ(refusalOf(stored("ENG1." + odd + ".APP_TO.D", with(MESSAGE, "Tabulo-Table", odd))), "");
}

TEST(LayoutText, GivesEveryLayoutBack) {
    const Layout layouts[] = {
        {},
        {.texts = {"ClOrdID", "", "a b\n%"}, .numbers = {"Price"}, .messagesPerBlock = 7},
        {.texts = {"x"}, .numbers = {}, .messagesPerBlock = 1, .summarisedTexts = 2, .builtInTexts = 3},
    };
    for (const Layout& layout : layouts) {
        const std::optional<Layout> back = layoutOf(layoutText(layout));
        ASSERT_TRUE(back.has_value()) << layoutText(layout);
        EXPECT_TRUE(*back == layout) << layoutText(layout);
    }
}

TEST(LayoutText, RefusesWhatNoLayoutBecomes) {
    for (const char* text : {"", "texts", "nonsense 1\n", "texts a.b\nnumbers\nmessagesPerBlock 1\nbuiltInTexts 4\n",
                             "texts\nnumbers\nmessagesPerBlock x\nbuiltInTexts 4\n",
                             "texts\nnumbers\nmessagesPerBlock 99999999999\nbuiltInTexts 4\n"}) {
        EXPECT_FALSE(layoutOf(text).has_value()) << text;
    }
}

TEST(SessionText, GivesAllValuesBack) {
    const std::vector<SessionValue> values = {{1, 2}, {-3, std::numeric_limits<std::int64_t>::min()}};
    EXPECT_EQ(sessionValuesOf(sessionText(values)), values);
    EXPECT_EQ(sessionValuesOf("1\n"), std::nullopt);
    EXPECT_EQ(sessionValuesOf("1 2 3\n"), std::nullopt);
    EXPECT_EQ(sessionValuesOf("x 2\n"), std::nullopt);
}

TEST(OwnerText, GivesTheOwnerBackAndRefusesWhatIsNone) {
    const Owner owner = Owner::here();
    const std::optional<Owner> back = ownerOf(owner.text());
    ASSERT_TRUE(back.has_value()) << owner.text();
    EXPECT_EQ(back->id, owner.id);
    EXPECT_EQ(back->pid, owner.pid);
    EXPECT_NE(Owner::here().id, owner.id);
    EXPECT_EQ(back->ended, 0);
    Owner ended = owner;
    ended.ended = 1'763'936'400;
    const std::optional<Owner> endedBack = ownerOf(ended.text());
    ASSERT_TRUE(endedBack.has_value()) << ended.text();
    EXPECT_EQ(endedBack->ended, ended.ended);
    EXPECT_FALSE(ownerOf(owner.text() + "ended soon\n").has_value());
    EXPECT_FALSE(ownerOf(ended.text() + "ended 1\n").has_value());
    EXPECT_FALSE(ownerOf("").has_value());
    EXPECT_FALSE(ownerOf("host a\npid 1\nstarted 2\nid zz\n").has_value());
}

TEST(LagText, GivesTheReportBackAndRefusesWhatIsNone) {
    const LagReport report{"ENG1", "shipper", "db7.example", 12, 3, 400, 1.5};
    const std::optional<LagReport> back = lagReportOf(lagText(report));
    ASSERT_TRUE(back.has_value()) << lagText(report);
    EXPECT_EQ(back->host, "db7.example");
    EXPECT_EQ(back->messages, 3);
    EXPECT_EQ(back->seconds, 1.5);
    EXPECT_FALSE(lagReportOf("stream x\n").has_value());
}

}  // namespace

}  // namespace tabulo::shipping
