// What all verbs that look at tables have in common: recorded sessions, live writers, damage.
#include <unistd.h>

#include <fstream>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "tabulo/error.h"
#include "tabulo/writer.h"
#include "tests/support/test_run.h"
#include "tests/tool/tool_test.h"

namespace tabulo::tool::test {

namespace {

using internal::test::testEffort;
using internal::test::testSeed;

const std::vector<std::vector<std::string>> LOOKS = {
    {"ls"}, {"info"}, {"blocks"}, {"stats", "--by", "type,minute,field:Symbol"}};

class LookingTest : public ToolTest {
  protected:
    ProgramResult look(std::vector<std::string> verb, const std::string& table) const {
        verb.push_back(table);
        return run(verb);
    }
};

// The value of a field on the wire.
std::string wireValue(const std::string& wire, const std::string& tag) {
    const std::string mark = "\001" + tag + "=";
    const std::size_t begin = wire.find(mark);
    return begin == std::string::npos
               ? ""
               : wire.substr(begin + mark.size(), wire.find('\001', begin + 1) - begin - mark.size());
}

TEST_F(LookingTest, TheCountsOfARecordedSessionAreThoseOfItsLog) {
    std::ifstream log(TABULO_SOURCE_DIRECTORY "/examples/data/client-day1.fixlog", std::ios::binary);
    std::map<std::string, int> types;
    std::map<std::string, int> symbols;
    Writer writer = Writer::create(file("day1"), ordersLayout(100));
    std::int32_t count = 0;
    for (std::string line; std::getline(log, line);) {
        const std::string wire = line.substr(line.find("8=FIX"));
        const std::string type = wireValue(wire, "35");
        const std::string symbol = wireValue(wire, "55");
        ++types[type];
        ++symbols[symbol];
        Message message;
        message.uniformId = ++count;
        message.id = firstId(line.substr(25, 3) == "OUT" ? MessageClass::appTo : MessageClass::appFrom) + count;
        message.time = 1795203105673 + count;
        message.type = type;
        message.texts = {symbol.empty() ? Text() : Text(symbol)};
        message.wire = wire;
        writer.append(message);
    }
    writer.close();
    ASSERT_GT(count, 10000);
    const std::string byType = look({"stats", "-o", "ndjson", "--by", "type"}, "day1").output;
    for (const auto& [type, messages] : types) {
        const std::string wanted = "{\"type\":\"" + type + "\",\"messages\":" + std::to_string(messages) + ",";
        EXPECT_NE(byType.find(wanted), std::string::npos) << wanted << " in\n" << byType;
    }
    EXPECT_EQ(occurrences(byType, "\n"), static_cast<int>(types.size()));
    const std::string bySymbol = look({"stats", "-o", "ndjson", "--by", "field:Symbol"}, "day1").output;
    for (const auto& [symbol, messages] : symbols) {
        const std::string value = symbol.empty() ? "null" : "\"" + symbol + "\"";
        const std::string wanted = "{\"field:Symbol\":" + value + ",\"messages\":" + std::to_string(messages) + ",";
        EXPECT_NE(bySymbol.find(wanted), std::string::npos) << wanted;
    }
    EXPECT_NE(look({"ls", "-o", "ndjson"}, "day1").output.find("\"messages\":" + std::to_string(count) + ","),
              std::string::npos);
    EXPECT_EQ(occurrences(look({"blocks", "-o", "ndjson"}, "day1").output, "\"closed\":true"), count / 100);
}

TEST_F(LookingTest, BesideAWriterAtWorkEveryVerbIsDoneAndChangesNothing) {
    const std::string path = makeOrders("orders", 10, 1, 700);
    const ProcessSignal isStarted;
    ChildProcess writer([&] {
        Writer table = Writer::open(path);
        isStarted.raise();
        for (std::int32_t n = 11; n < 400000; ++n) {
            table.append(OrderMessage(n).message);
        }
        ::pause();
        return 0;
    });
    ASSERT_TRUE(isStarted.await());
    for (int round = 0; round < 5; ++round) {
        for (const auto& verb : LOOKS) {
            const ProgramResult result = look(verb, "orders");
            EXPECT_EQ(result.status, 0) << verb[0] << ": " << result.errors;
            EXPECT_NE(result.output, "") << verb[0];
        }
    }
    writer.kill();
    EXPECT_EQ(contents().size(), 1U) << "a file stands beside the table";
    for (const auto& verb : LOOKS) {
        EXPECT_EQ(look(verb, "orders").status, 0) << verb[0] << " behind the writer's kill";
    }
}

TEST_F(LookingTest, ATableThatIsEmptiedAgainAndAgainEndsNoVerbBadly) {
    const std::string path = makeOrders("orders", 10, 1, 7);
    const ProcessSignal isStarted;
    ChildProcess writer([&] {
        Writer table = Writer::open(path);
        isStarted.raise();
        for (std::int32_t n = 1;; n = n % 500 + 1) {
            if (n == 1) {
                table.drop();
            }
            table.append(OrderMessage(n).message);
        }
        return 0;
    });
    ASSERT_TRUE(isStarted.await());
    for (int round = 0; round < 10 * testEffort(); ++round) {
        for (const auto& verb : LOOKS) {
            const ProgramResult result = look(verb, "orders");
            // Whatever it met is told: nothing that was emptied meanwhile looks like all there is.
            EXPECT_TRUE(result.status == 0 || result.status == 3 || result.status == 1) << verb[0] << result.status;
            EXPECT_EQ(result.status != 0,
                      occurrences(result.errors, "tabulo: ") > occurrences(result.errors, "times are taken for"))
                << verb[0] << ": " << result.errors;
        }
    }
}

TEST_F(LookingTest, WhateverIsDamagedEveryVerbEndsAndSaysSo) {
    std::mt19937 random(testSeed());
    const Bytes whole = readFile(makeOrders("orders", 60, 1, 7));
    for (int image = 0; image < 60 * testEffort(); ++image) {
        Bytes bytes = whole;
        if (image % 3 == 0) {
            bytes.resize(random() % whole.size());
        }
        for (std::uint32_t patches = random() % 4 + (image % 3 == 0 ? 0 : 1); patches > 0 && !bytes.empty();
             --patches) {
            // Most of the bytes are filters, which say nothing of what is asked here: the rest must get its share.
            const std::size_t at = random() % 3 == 0 ? random() % 400 : random();
            bytes[at % bytes.size()] = static_cast<std::uint8_t>(random());
        }
        internal::test::writeFile(file("orders"), bytes);
        for (const auto& verb : LOOKS) {
            const ProgramResult result = look(verb, "orders");
            EXPECT_TRUE(result.status == 0 || result.status == 1 || result.status == 2 || result.status == 3)
                << verb[0] << " of image " << image << " has ended with " << result.status;
            EXPECT_TRUE(result.status == 0 || !result.errors.empty()) << verb[0] << " of image " << image;
        }
        EXPECT_EQ(readFile(file("orders")), bytes);
    }
    EXPECT_EQ(contents().size(), 1U);
}

TEST_F(LookingTest, HelpHasExamplesAndWrongVerbsAreRefused) {
    for (const char* verb : {"ls", "info", "blocks", "session", "stats"}) {
        const ProgramResult result = run({verb, "--help"});
        EXPECT_EQ(result.status, 0);
        EXPECT_NE(result.output.find(std::string("  tabulo ") + verb), std::string::npos) << result.output;
        EXPECT_EQ(result.errors, "");
    }
    const ProgramResult unknown = run({"lst", "orders"});
    EXPECT_EQ(unknown.status, 2);
    EXPECT_EQ(unknown.errors, "tabulo: there is no verb 'lst'\ntabulo: 'tabulo help' lists the verbs\n");
    const ProgramResult missing = run({});
    EXPECT_EQ(missing.status, 2);
    EXPECT_EQ(missing.errors, "tabulo: a verb is missing\ntabulo: 'tabulo help' lists the verbs\n");
    EXPECT_NE(run({"help"}).output.find("\nVerbs:\n"), std::string::npos);
}

TEST_F(LookingTest, ATableWhoseHeaderDoesNotTellItsKindIsNotTakenForTheOtherKind) {
    const std::string path = makeOrders("orders", 5);
    const Bytes noKind(4, 0xFF);
    internal::test::patchFile(path, 24, noKind);
    for (const char* verb : {"cat", "tail", "session"}) {
        const ProgramResult result = run({verb, "orders"});
        EXPECT_EQ(result.status, 1) << verb;
        EXPECT_NE(result.errors.find("TABLE_TYPE_ERROR"), std::string::npos) << verb << ": " << result.errors;
        EXPECT_EQ(result.errors.find("holds no"), std::string::npos) << verb << ": " << result.errors;
    }
}

}  // namespace

}  // namespace tabulo::tool::test
