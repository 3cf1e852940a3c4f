// What the tables of sessions are called.
#include "adapters/quickfix/session_name.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <random>

namespace tabulo {
namespace quickfix {
namespace test {

namespace {

TEST(SessionTableName, IsOfOneSessionAlone) {
    EXPECT_EQ(tableNameOf({"FIX.4.4", "CLIENT", "EXCHANGE", ""}), "FIX.4.4-CLIENT-EXCHANGE");
    EXPECT_EQ(tableNameOf({"FIXT.1.1", "A-B", "../c", "x.session"}), "FIXT.1.1-A%2DB-%2E%2E%2Fc-x%2Esession");
    EXPECT_EQ(tableNameOf({"..", "", "", ""}), "%2E.--");
}

TEST(SessionTableName, GivesTheSessionBack) {
    const char letters[] = "aZ0_.-%/~ \xfc";
    const char* const given = std::getenv("TABULO_TEST_SEED");
    const unsigned seed =
        given == nullptr ? std::random_device()() : static_cast<unsigned>(std::strtoul(given, nullptr, 10));
    SCOPED_TRACE("TABULO_TEST_SEED=" + std::to_string(seed));
    std::mt19937 chance(seed);
    const auto text = [&] {
        std::string made;
        for (unsigned long length = chance() % 6; made.size() < length;) {
            made += letters[chance() % (sizeof letters - 1)];
        }
        return made;
    };
    for (int round = 0; round < 2000; ++round) {
        const SessionName name = {text(), text(), text(), text()};
        SessionName found;
        ASSERT_TRUE(sessionOfTable(tableNameOf(name), &found)) << tableNameOf(name);
        EXPECT_EQ(found.beginString, name.beginString);
        EXPECT_EQ(found.senderCompId, name.senderCompId);
        EXPECT_EQ(found.targetCompId, name.targetCompId);
        EXPECT_EQ(found.qualifier, name.qualifier);
    }
    SessionName found;
    for (const char* other : {"", "orders", "a-b", "a-b-c-d-e", "FIX.4.4-A-B.session", "FIX.4.4-%41-B", "a-b-c-"}) {
        EXPECT_FALSE(sessionOfTable(other, &found)) << other;
    }
}

}  // namespace

}  // namespace test
}  // namespace quickfix
}  // namespace tabulo
