// The verb sql of a build without SQLite.
#include "tests/tool/tool_test.h"

namespace tabulo::tool::test {

namespace {

class SqlAbsentTest : public ToolTest {};

}  // namespace

TEST_F(SqlAbsentTest, WhatIsMissingAndWhatToInstallIsSaid) {
    makeOrders("orders", 3);
    const ProgramResult result = run({"sql", "SELECT 1", "orders"});
    EXPECT_EQ(result.status, 1);
    EXPECT_NE(result.errors.find("built without SQLite"), std::string::npos) << result.errors;
    EXPECT_NE(result.errors.find("libsqlite3-dev"), std::string::npos) << result.errors;
    EXPECT_NE(run({"sql", "--help"}).output.find("Usage: tabulo sql"), std::string::npos);
}

}  // namespace tabulo::tool::test
