// What verbs that list print: rows of named values, aligned for eyes or as one JSON object a line.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "tool/console.h"

namespace CLI {
class App;
}  // namespace CLI

namespace tabulo::tool {

// The smallest and the largest of some values.
struct ListRange {
    std::int64_t first = 0;
    std::int64_t last = 0;
};

// A value of a row. None is null in JSON and "-" for eyes; a list is an array, and joined with ", " for eyes; pairs are
// an object; a range is an array of two, and "first..last" for eyes. Doubles that are no number in JSON are texts.
template <typename T>
using ListPairs = std::vector<std::pair<std::string, T>>;
using ListValue = std::variant<std::monostate, bool, std::int64_t, double, std::string, std::vector<std::string>,
                               std::vector<std::int64_t>, ListRange, ListPairs<std::int64_t>, ListPairs<double>,
                               ListPairs<ListRange>>;

struct ListColumn {
    std::string key;    // in JSON; empty for a value that only eyes see
    std::string title;  // for eyes; empty for a value that only JSON has
};

// What a value is for eyes, where that differs from its JSON (a size, a time).
struct ListCell {
    ListValue value{};
    std::string text{};  // empty: made from the value
};

enum class ListFormat { text, ndjson };

// Declares "-o text|ndjson".
void declareListFormat(CLI::App& app, ListFormat* format);

// Takes the rows of one list. For eyes the widths are those of the first rows (up to 1000), so that any number of rows
// takes the same memory; lines are cut to the terminal's width; whatever a text holds is shown escaped.
class Listing {
  public:
    Listing(Console& console, ListFormat format, std::vector<ListColumn> columns);
    void add(const std::vector<ListCell>& row);
    // Prints what is left; a list for eyes without rows is nothing.
    void end();

  private:
    void settle();
    void print(const std::vector<std::string>& cells, bool isTitle);

    Console& console_;
    ListFormat format_;
    std::vector<ListColumn> columns_;
    std::vector<std::vector<std::string>> rows_;  // for eyes, not printed yet
    std::vector<std::size_t> widths_;             // once they are settled
    std::vector<bool> isNumber_;                  // by column: aligned at the right
    bool isSettled_ = false;
};

// One row on its own: a line for each value for eyes, titles in front; one JSON object otherwise.
void printRecord(Console& console, ListFormat format, const std::vector<ListColumn>& columns,
                 const std::vector<ListCell>& row);

// A text as eyes may see it: SOH as "|", every other byte that is not printable as \xHH, broken UTF-8 included; so are
// the characters that would turn or hide what stands around them.
std::string shownText(std::string_view text);
// How many columns a shown text takes, and its beginning that fits into so many; a text that was cut ends in "…".
std::size_t shownWidth(std::string_view text) noexcept;
std::string cutText(std::string_view text, std::size_t width);
// A size in bytes as "12.3 KiB".
std::string shownBytes(std::int64_t bytes);

}  // namespace tabulo::tool
