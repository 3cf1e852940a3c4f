// The life of an order.
#include <fmt/format.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tool/fix_dictionary_file.h"
#include "tool/order_report.h"
#include "tool/order_search.h"
#include "tool/tables.h"
#include "tool/verb.h"

namespace tabulo::tool {

namespace {

struct OrderOptions {
    std::string id;
    std::vector<std::string> files;
    std::string idIs = "any";
    std::string dictionary;
    ListFormat format = ListFormat::text;
    TimeOptions time;
};

std::vector<OrderId> firstIds(const OrderOptions& options) {
    std::vector<OrderId> ids;
    if (options.idIs != "OrderID") {
        ids.push_back({OrderIdKind::client, options.id});
    }
    if (options.idIs != "ClOrdID") {
        ids.push_back({OrderIdKind::order, options.id});
    }
    return ids;
}

[[noreturn]] void refuseUnknown(const OrderOptions& options, std::size_t tables) {
    const std::string where = tables == 1 ? "the table" : fmt::format("{} tables", tables);
    const std::string names = options.idIs == "any"       ? "ClOrdID, OrigClOrdID or OrderID"
                              : options.idIs == "ClOrdID" ? "ClOrdID or OrigClOrdID"
                                                          : "OrderID";
    throw Failure(fmt::format("no message of {} names {} as {}", where, shownText(options.id), names));
}

void showOrder(Console& console, const OrderOptions& options) {
    if (options.id.empty() || options.id.find('\0') != std::string::npos) {
        throw UsageError("an order's ID has at least one byte");
    }
    std::optional<FixDictionary> named;
    if (!options.dictionary.empty()) {
        named = readFixDictionary(options.dictionary);
    }
    const FixDictionary& dictionary = named ? *named : FixDictionary::builtIn();
    std::vector<Reader> readers = openTables(console, expandPaths(console, options.files));
    OrderSearch search(console, readers);
    search.search(firstIds(options));
    if (!search.hasFound()) {
        search.tellDamage();
        refuseUnknown(options, readers.size());
    }
    const Times times(options.time, search.someTime(), console);

    const std::unique_ptr<OrderReport> report = options.format == ListFormat::text
                                                    ? makeOrderText(console, times, dictionary, readers.size() > 1)
                                                    : makeOrderNdjson(console, times, dictionary);
    OrderLife life;
    OrderEnd end;
    while (const MessageView* message = search.next()) {
        end.firstTime = life.messages() == 0 ? message->time() : end.firstTime;
        end.lastTime = message->time();
        report->add(*message, life.take(*message));
    }
    end.clOrdIds = search.clOrdIds();
    end.tables = search.tablesFound();
    report->end(life, end);
    console.flush();
    search.tellDamage();
}

std::function<void(Console&)> declare(CLI::App& app) {
    const auto options = std::make_shared<OrderOptions>();
    app.add_option("ID", options->id, "A ClOrdID or OrderID of the order")->required();
    app.add_option("FILE", options->files, "Tables, or folders of them")->required();
    app.add_option("--id-is", options->idIs, "What the ID is, for numbers that name different orders")
        ->type_name("any|ClOrdID|OrderID")
        ->check(CLI::IsMember({"any", "ClOrdID", "OrderID"}));
    app.add_option("--dictionary", options->dictionary, "An XML data dictionary with the names of types and values")
        ->type_name("FILE.xml");
    declareListFormat(app, &options->format);
    declareTimes(app, &options->time);
    return [options](Console& console) { showOrder(console, *options); };
}

}  // namespace

const Verb orderVerb{"order", "Shows the life of an order, over any number of tables and days",
                     "# an order and all that replaced it, over the tables of some days\n"
                     "tabulo order C1A-10009 monday/ tuesday/\n"
                     "# an order by the number that the other side gave it\n"
                     "tabulo order B261120-10004 client-day1 --id-is OrderID\n"
                     "# the quantities and prices of its fills\n"
                     "tabulo order C1A-10009 client-day1 -o ndjson | jq 'select(.ExecType == \"F\") | [.LastQty, "
                     ".LastPx]'\n",
                     declare};

}  // namespace tabulo::tool
