// The extension as programs with an SQLite of their own load it.
#include <cstdio>

#include <array>

#include "tests/adapters/sqlite/sql_test.h"

namespace tabulo::sqlite::test {
namespace {

class Loading : public SqlTest {
  protected:
    // What a command of the shell writes, errors too.
    static std::string outputOf(const std::string& command) {
        std::string output;
        FILE* pipe = ::popen((PRELOAD + command + " 2>&1").c_str(), "r");
        if (pipe == nullptr) {
            return "the shell does not start";
        }
        std::array<char, 4096> bytes{};
        for (std::size_t size = 0; (size = std::fread(bytes.data(), 1, bytes.size(), pipe)) > 0;) {
            output.append(bytes.data(), size);
        }
        const int status = ::pclose(pipe);
        return status == 0 ? output : output + "\nended with " + std::to_string(status);
    }

    // A sanitized extension needs its sanitizer in front of the program that loads it, which frees less than it could.
    inline static const std::string PRELOAD =
        *TABULO_PRELOAD == '\0' ? ""
                                : "ASAN_OPTIONS=detect_leaks=0:verify_asan_link_order=0 LD_PRELOAD='" TABULO_PRELOAD
                                  "' ";
};

TEST_F(Loading, TheShellOfSqliteLoadsItByItsFile) {
    StoredTable table(path("orders"), ordersLayout(), simpleMessages(5));
    EXPECT_EQ(outputOf("sqlite3 -batch :memory: '.load " TABULO_SQLITE "' \"CREATE VIRTUAL TABLE o USING tabulo('" +
                       path("orders").string() + "')\" 'SELECT count(*), max(ClOrdID) FROM o' \"SELECT fix_name(54)\""),
              "5|order-5\nSide\n");
}

// Debian's Python: one built otherwise may not be able to load any extension.
TEST_F(Loading, PythonLoadsItByItsFile) {
    StoredTable table(path("orders"), ordersLayout(), simpleMessages(5));
    const std::string program =
        "import sqlite3\n"
        "connection = sqlite3.connect(\":memory:\")\n"
        "connection.enable_load_extension(True)\n"
        "connection.load_extension(\"" TABULO_SQLITE
        "\")\n"
        "rows = connection.execute(\"SELECT uid, time_raw, wire FROM tabulo_messages(?) WHERE uid IN (2, 3)\", [\"" +
        path("orders").string() +
        "\"])\n"
        "print(rows.fetchall())\n";
    EXPECT_EQ(outputOf("/usr/bin/python3 -c '" + program + "'"),
              "[(2, 2000, b'35=D\\x0134=2\\x01'), (3, 3000, b'35=D\\x0134=3\\x01')]\n");
}

TEST_F(Loading, AMissingTableIsToldInTheShell) {
    EXPECT_NE(outputOf("sqlite3 -batch :memory: '.load " TABULO_SQLITE "' \"CREATE VIRTUAL TABLE o USING tabulo('" +
                       path("missing").string() + "')\"")
                  .find("FILE_OPEN_ERROR"),
              std::string::npos);
}

}  // namespace
}  // namespace tabulo::sqlite::test
