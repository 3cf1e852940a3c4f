// SQL over tables, beside an ordinary table of SQLite with the same messages.
//
//   sql_driver <extension> <results.json> <turns>
//
// In a directory that has the tables "orders" of the workload and "reports" of command_driver, each with its side
// index. The extension is loaded as any program loads it. Ordinary and virtual tables take turns; their answers are
// compared.
#include <sqlite3.h>
#include <time.h>

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "benchmarks/fail.h"

namespace {

using tabulo::internal::bench::fail;

constexpr int JOINED = 1000;       // orders
constexpr int UNINDEXED = 10;      // look-ups of a turn
constexpr int INDEXED = 10'000;    // likewise
constexpr int ORDINARY_SCANS = 2;  // likewise, by a table of SQLite that has no index

// Nanoseconds that this thread has had of a processor: nothing here waits for anything.
std::int64_t now() {
    timespec time{};
    (void)::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return std::int64_t{time.tv_sec} * 1'000'000'000 + time.tv_nsec;
}

// The results, a JSON object a line; each is printed, too.
class Figures {
  public:
    explicit Figures(const char* path) : file_(path) {}

    void add(const std::string& subject, const std::string& metric, const std::string& unit, double value) {
        std::printf("sql          %-24s %-28s %14.3f %s\n", subject.c_str(), metric.c_str(), value, unit.c_str());
        file_ << R"({"group": "sql", "subject": ")" << subject << R"(", "metric": ")" << metric << R"(", "unit": ")"
              << unit << R"(", "value": )" << value << "}" << std::endl;
    }

  private:
    std::ofstream file_;
};

class Database {
  public:
    // A connection that has these tables alone: each statement looks whether any of a connection's has changed.
    Database(const std::string& extension, const std::vector<std::string>& tables) {
        char* message = nullptr;
        if (sqlite3_open("ordinary.sqlite", &handle_) != SQLITE_OK ||
            sqlite3_enable_load_extension(handle_, 1) != SQLITE_OK ||
            sqlite3_load_extension(handle_, extension.c_str(), nullptr, &message) != SQLITE_OK) {
            fail("the extension cannot be loaded: " + std::string(message == nullptr ? "" : message));
        }
        execute("PRAGMA mmap_size=17179869184");
        for (const std::string& name : tables) {
            execute("CREATE VIRTUAL TABLE temp." + name + " USING tabulo('" + name + "')");
        }
    }
    ~Database() { sqlite3_close(handle_); }
    Database(const Database&) = delete;
    Database& operator=(const Database&) = delete;

    void execute(const std::string& sql) {
        if (sqlite3_exec(handle_, sql.c_str(), nullptr, nullptr, nullptr) != SQLITE_OK) {
            fail(sql + ": " + sqlite3_errmsg(handle_));
        }
    }
    sqlite3_stmt* prepare(const std::string& sql) {
        sqlite3_stmt* statement = nullptr;
        if (sqlite3_prepare_v2(handle_, sql.c_str(), -1, &statement, nullptr) != SQLITE_OK) {
            fail(sql + ": " + sqlite3_errmsg(handle_));
        }
        return statement;
    }
    // Steps through the rows of a statement, and adds them to the answer.
    void step(sqlite3_stmt* statement, std::string* answer) {
        int code = SQLITE_ROW;
        while ((code = sqlite3_step(statement)) == SQLITE_ROW) {
            for (int column = 0; column < sqlite3_column_count(statement); ++column) {
                const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(statement, column));
                *answer += std::string(text == nullptr ? "NULL" : text) + "|";
            }
        }
        if (code != SQLITE_DONE) {
            fail(std::string(sqlite3_sql(statement)) + ": " + sqlite3_errmsg(handle_));
        }
        sqlite3_reset(statement);
    }

  private:
    sqlite3* handle_ = nullptr;
};

// The seconds that a statement takes to its last row.
double seconds(Database& database, const std::string& sql, std::string* answer) {
    sqlite3_stmt* statement = database.prepare(sql);
    const std::int64_t start = now();
    database.step(statement, answer);
    const double took = static_cast<double>(now() - start) / 1e9;
    sqlite3_finalize(statement);
    return took;
}

// The microseconds that one of many look-ups takes: of a statement that is prepared once, with a parameter.
double microseconds(Database& database, const std::string& sql, const std::vector<std::string>& values, int count,
                    std::string* answer) {
    sqlite3_stmt* statement = database.prepare(sql);
    const std::int64_t start = now();
    for (int i = 0; i < count; ++i) {
        const std::string& value = values[static_cast<std::size_t>(i) % values.size()];
        sqlite3_bind_text(statement, 1, value.data(), static_cast<int>(value.size()), SQLITE_STATIC);
        database.step(statement, answer);
    }
    const double took = static_cast<double>(now() - start) / 1e3 / count;
    sqlite3_finalize(statement);
    return took;
}

void expectSame(const std::string& what, const std::string& ours, const std::string& theirs) {
    if (ours != theirs || ours.empty()) {
        fail(what + ": the virtual table does not answer what an ordinary one does");
    }
}

// ClOrdIDs of orders all over the table, in no order.
std::vector<std::string> someIds(Database& database) {
    std::vector<std::string> ids;
    sqlite3_stmt* statement =
        database.prepare("SELECT ClOrdID FROM ordinary NOT INDEXED WHERE rowid % 97 = 1 ORDER BY rowid * 7919 % 10007");
    while (sqlite3_step(statement) == SQLITE_ROW) {
        ids.emplace_back(reinterpret_cast<const char*>(sqlite3_column_text(statement, 0)));
    }
    sqlite3_finalize(statement);
    return ids;
}

void scan(Figures& figures, Database& database, const char* metric, const std::string& select,
          const std::string& rest) {
    std::string ours;
    std::string theirs;
    figures.add("tabulo", metric, "s", seconds(database, select + " FROM plain" + rest, &ours));
    figures.add("sqlite", metric, "s", seconds(database, select + " FROM ordinary NOT INDEXED" + rest, &theirs));
    expectSame(metric, ours, theirs);
}

void lookUp(Figures& figures, Database& plain, Database& indexed, const std::vector<std::string>& ids) {
    const auto look = [&](Database& database, const char* subject, const std::string& table, int count) {
        std::string answer;
        figures.add(
            subject, "ClOrdID", "us",
            microseconds(database, "SELECT uid, time_raw FROM " + table + " WHERE ClOrdID = ?", ids, count, &answer));
        return answer;
    };
    const std::string ours = look(plain, "tabulo", "plain", UNINDEXED);
    const std::string theirs = look(plain, "sqlite", "ordinary NOT INDEXED", ORDINARY_SCANS);
    expectSame("a look-up", ours.substr(0, theirs.size()), theirs);
    expectSame("a look-up with indexes", look(indexed, "tabulo-indexed", "orders", INDEXED),
               look(indexed, "sqlite-indexed", "ordinary", INDEXED));
}

void join(Figures& figures, Database& database) {
    const auto sql = [](const std::string& table) {
        return "SELECT count(*), sum(report.uid) FROM " + table + " AS sent JOIN " + table +
               " AS report ON report.ClOrdID = sent.ClOrdID AND report.type = '8' WHERE sent.type = 'D' AND sent.uid"
               " BETWEEN 1001 AND " +
               std::to_string(1000 + JOINED);
    };
    std::string ours;
    std::string theirs;
    figures.add("tabulo-indexed", "join", "ms", 1e3 * seconds(database, sql("reports"), &ours));
    figures.add("sqlite-indexed", "join", "ms", 1e3 * seconds(database, sql("ordinaryReports"), &theirs));
    expectSame("a join", ours, theirs);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 4) {
        fail("usage: sql_driver <extension> <results.json> <turns>");
    }
    Figures figures(argv[2]);
    std::filesystem::create_hard_link("orders", "plain");  // the same file without its side index
    Database database(argv[1], {"plain"});
    database.execute("PRAGMA journal_mode=OFF");
    database.execute("CREATE VIRTUAL TABLE temp.reports USING tabulo('reports')");
    database.execute("CREATE TABLE ordinary AS SELECT * FROM plain");
    database.execute("CREATE INDEX ordinaryIds ON ordinary(ClOrdID)");
    database.execute("CREATE TABLE ordinaryReports AS SELECT * FROM reports");
    database.execute(
        "CREATE INDEX reportIds ON ordinaryReports(ClOrdID); CREATE INDEX reportUids ON ordinaryReports(uid)");
    database.execute("DROP TABLE temp.reports");
    Database indexed(argv[1], {"orders"});
    Database joined(argv[1], {"reports"});
    const std::vector<std::string> ids = someIds(database);
    for (int turn = 0; turn < std::stoi(argv[3]); ++turn) {
        scan(figures, database, "aggregate", "SELECT count(*), sum(OrderQty), max(Price)", "");
        scan(figures, database, "group by", "SELECT Symbol, count(*)", " GROUP BY Symbol ORDER BY Symbol");
        lookUp(figures, database, indexed, ids);
        join(figures, joined);
    }
    return 0;
}
