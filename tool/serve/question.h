// A request for something of the tables: what it names, checked once, here; and how long it may take.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "tabulo/reader.h"
#include "tool/console.h"
#include "tool/selection.h"
#include "tool/serve/table_board.h"

namespace tabulo::tool::serve {

// Names and values, decoded; several values of a name in the order in which they were given.
using Parameters = std::multimap<std::string, std::string>;

// What is wrong with a question, and the HTTP status that tells it.
struct Refusal : std::runtime_error {
    Refusal(int httpStatus, const std::string& why) : std::runtime_error(why), status(httpStatus) {}
    int status;
};

// Ends a question that has taken too long, or whose server ends.
struct TimeIsUp {};

// A table of a question, open for it alone.
struct AskedTable {
    Sight sight{};
    Reader reader;
    Selection selection{};
};

class Question {
  public:
    // All must outlive it. Refusal (400) for more parameters than a question has.
    Question(const Parameters& parameters, const TableBoard& board, const std::atomic<bool>& ending,
             std::chrono::seconds most);

    // A parameter; none when it is not there. Refusal when it is given twice.
    std::optional<std::string> one(const std::string& name) const;
    std::vector<std::string> several(const std::string& name) const;
    // The same, with commas between several in one, as the command takes them.
    std::vector<std::string> listed(const std::string& name) const;
    // A number in a range; Refusal for anything else.
    std::int64_t number(const std::string& name, std::int64_t otherwise, std::int64_t least, std::int64_t most) const;
    // A time as pages count.
    std::optional<double> time(const std::string& name) const;

    // The message tables that are named, opened; all when none is named. With the filters of the question, unless its
    // parameters mean something else: all of them, or `until`. Refusal: 404 for one that is not there, 400 for a filter
    // that cannot be.
    enum class Filters { all, exceptUntil, none };
    std::vector<AskedTable> tables(Filters filters = Filters::all);
    // The one table that is named.
    AskedTable table();
    // What is known of the tables that are named, of both kinds; of all when none is named.
    std::vector<Sight> sights() const;
    // Whether it has filters.
    bool isFiltered(Filters filters = Filters::all) const;
    // The question as options of a verb of the command, with the tables behind them.
    std::string command(std::string_view verb, const std::vector<Sight>& tables) const;

    bool isOver() const;
    // Throws TimeIsUp when it has taken too long.
    void check() const;
    // Work that ends so.
    Work work() const;
    Console& console() noexcept { return console_; }

  private:
    SelectionOptions options(Filters filters) const;
    AskedTable open(const Sight& sight, const SelectionOptions& options);

    const Parameters& parameters_;
    const TableBoard& board_;
    const std::atomic<bool>& ending_;
    std::chrono::steady_clock::time_point deadline_;
    Console console_;
};

}  // namespace tabulo::tool::serve
