// What the tests of the extension share: a folder with tables, and a connection.
#pragma once

#include <filesystem>
#include <string>

#include "tests/adapters/sqlite/sqlite_fixture.h"
#include "tests/api/api_test.h"
#include "tests/api/stored_table.h"

namespace tabulo::sqlite::test {

using tabulo::test::ordersLayout;
using tabulo::test::simpleMessage;
using tabulo::test::simpleMessages;
using tabulo::test::StoredMessage;
using tabulo::test::StoredTable;

class SqlTest : public ::testing::Test {
  protected:
    std::filesystem::path path(const std::string& name) const { return directory.file(name); }
    // The path in quotes.
    std::string quoted(const std::string& name) const { return sqlText(path(name).string()); }
    // A virtual table of the name that is given, over a file or a glob of the other.
    Answer show(const std::string& table, const std::string& name) {
        return connection.run("CREATE VIRTUAL TABLE " + table + " USING tabulo(" + quoted(name) + ")");
    }
    // The only value that the statement gives.
    std::string valueOf(const std::string& sql) {
        const Answer answer = connection.must(sql);
        const bool isOne = answer.rows.size() == 1 && answer.rows[0].size() == 1;
        return isOne ? answer.rows[0][0] : "not one value: " + answer.text();
    }
    std::string countOf(const std::string& table) { return valueOf("SELECT count(*) FROM " + table); }

    const tabulo::test::TemporaryDirectory directory;
    Connection connection;
};

}  // namespace tabulo::sqlite::test
