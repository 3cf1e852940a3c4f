// sql: what its arguments are; what it does with them is in tool/sql.h.
#include "tool/sql.h"

#include <map>
#include <memory>

#include "tool/verb.h"

namespace tabulo::tool {

namespace {

std::function<void(Console&)> declare(CLI::App& app) {
    const auto options = std::make_shared<SqlOptions>();
    const std::map<std::string, SqlFormat> formats{
        {"text", SqlFormat::text}, {"csv", SqlFormat::csv}, {"ndjson", SqlFormat::ndjson}};
    app.add_option("STATEMENT", options->first,
                   "What to run, with ';' between several; without it, or when a file has this name, statements are "
                   "asked for on a terminal, or read from standard input");
    app.add_option("FILE", options->files, "Tables, or folders of them; each is a table named after its file");
    app.add_option_function<std::string>(
           "-o,--output", [options, formats](const std::string& name) { options->format = formats.at(name); },
           "text: for eyes; csv, ndjson: for programs")
        ->check(CLI::IsMember({"text", "csv", "ndjson"}))
        ->type_name("text|csv|ndjson");
    app.add_option("--time-unit", options->timeUnit,
                   "The unit of the tables' times: s, ms, us or ns; guessed without it")
        ->check(CLI::IsMember({"s", "ms", "us", "ns"}))
        ->type_name("s|ms|us|ns");
    return [options](Console& console) { runSql(console, *options); };
}

}  // namespace

const Verb sqlVerb{"sql", "Answers questions in SQL over tables, while they are written",
                   "# the messages of each type\n"
                   "tabulo sql 'SELECT type, count(*) AS messages FROM orders GROUP BY type' orders\n"
                   "# an order's messages, by a tag of the wire message\n"
                   "tabulo sql \"SELECT time, fix_text(wire) FROM orders WHERE fix_tag(wire, 11) = 'order-7'\" orders\n"
                   "# two tables joined: names that are no plain words stand in double quotes\n"
                   "tabulo sql 'SELECT a.uid, b.uid FROM orders a JOIN \"client-day1\" b ON a.Symbol = b.Symbol' "
                   "orders client-day1\n"
                   "# all tables of a folder that have one layout are also the table messages\n"
                   "tabulo sql -o csv 'SELECT \"table\", max(time) FROM messages GROUP BY 1' data/ > newest.csv\n"
                   "# statements from a file\n"
                   "tabulo sql -o ndjson orders < report.sql\n"
                   "# asking one after the other; .help tells what there is\n"
                   "tabulo sql orders client.session\n",
                   declare};

}  // namespace tabulo::tool
