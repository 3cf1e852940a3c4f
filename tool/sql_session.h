// One connection to SQLite in memory, in which tables of ours are virtual tables.
#pragma once

#include <sqlite3.h>

#include <filesystem>
#include <functional>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "tabulo/table_info.h"
#include "tool/console.h"
#include "tool/sql.h"
#include "tool/tables.h"

namespace tabulo::tool {

class SqlSession {
  public:
    // The Console must outlive it.
    explicit SqlSession(Console& console);
    SqlSession(const SqlSession&) = delete;
    SqlSession& operator=(const SqlSession&) = delete;

    // Makes a table of each file, named after it; one whose name is taken (letters count in either case) becomes
    // "NAME_2", which is said. When there are several message tables, all of one layout, and no table is called
    // "messages", that is all of them. Files are found and left out as in tables.h; Failure when there is no table.
    void addTables(const std::vector<std::string>& arguments, const std::string& timeUnit);

    // Runs the statements of a text one after the other, and prints their rows. At an error the rows in front of it are
    // printed, and it is thrown as a Failure; Interrupted when the user has interrupted. Nothing is ever written to a
    // file that has a name: ATTACH, and VACUUM, which needs it, are refused.
    void run(const std::string& text, SqlFormat format);

    // For statements of somebody who may see the added tables and nothing else: from now on they may only read, and
    // only those tables; no file, no setting, no extension. Failure for what they may not.
    void allowReadingOnly();
    // No text or blob becomes longer than so many bytes.
    void limit(std::int64_t bytes) noexcept {
        sqlite3_limit(connection_.get(), SQLITE_LIMIT_LENGTH, static_cast<int>(bytes));
    }
    // Runs one statement, and gives it to `row` behind each of its rows, until that gives false. The statement ends
    // when `isOver` says so, which another thread asks again and again: false is given then. `head` is called first,
    // once the columns are known. Failure with SQLite's words, and for more than one statement.
    bool query(const std::string& statement, const std::function<bool()>& isOver,
               const std::function<void(sqlite3_stmt*)>& head, const std::function<bool(sqlite3_stmt*)>& row);
    // The first column of a query's rows, without NULLs.
    std::vector<std::string> texts(const std::string& query) const;

  private:
    struct Closer {
        void operator()(sqlite3* connection) const noexcept { sqlite3_close_v2(connection); }
    };

    static int authorize(void* session, int action, const char* first, const char* second, const char* schema,
                         const char* trigger);
    void addTable(const NamedFile& file, const TableInfo& info, const std::string& timeUnit);
    void addMessages(const std::vector<TableInfo>& tables, const std::string& timeUnit);
    std::string nameFor(const TableInfo& info);
    bool create(const std::string& statement);
    void runStatement(sqlite3_stmt* statement, SqlFormat format);
    bool isAllowed(int action, const char* first, const char* second) const;
    [[noreturn]] void fail(int code, std::string_view statement) const;

    Console& console_;
    std::unique_ptr<sqlite3, Closer> connection_;
    std::set<std::string> taken_;  // the names of tables, in small letters
    bool isReadingOnly_ = false;
    bool isRefused_ = false;  // by authorize
};

}  // namespace tabulo::tool
