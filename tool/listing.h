// What verbs that list print: rows of named values, aligned for eyes or as one JSON object a line.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "tool/console.h"

namespace tabulo::tool {

// A value of a row. None is null in JSON and "-" for eyes; a list is an array, and joined with ", " for eyes; pairs are
// an object.
using ListValue = std::variant<std::monostate, bool, std::int64_t, double, std::string, std::vector<std::string>,
                               std::vector<std::int64_t>, std::vector<std::pair<std::string, std::int64_t>>>;

struct ListColumn {
    std::string key;    // in JSON
    std::string title;  // for eyes; empty for a value that only JSON has
};

// What a value is for eyes, where that differs from its JSON (a size, a time).
struct ListCell {
    ListValue value{};
    std::string text{};  // empty: made from the value
};

enum class ListFormat { text, ndjson };

// Takes the rows of one list. For eyes the widths are those of the first rows (up to 1000), so that any number of rows
// takes the same memory; lines are cut to the terminal's width; whatever a text holds is shown escaped.
class Listing {
  public:
    Listing(Console& console, ListFormat format, std::vector<ListColumn> columns);
    void add(std::vector<ListCell> row);
    void end();

  private:
    void print(const std::vector<std::string>& cells);

    Console& console_;
    ListFormat format_;
    std::vector<ListColumn> columns_;
    std::vector<std::vector<std::string>> rows_;  // not printed yet
    std::vector<std::size_t> widths_;             // once they are settled
};

// A text as eyes may see it: SOH as "|", every other byte that is not printable as \xHH, broken UTF-8 included.
std::string shownText(std::string_view text);
// A size in bytes as "12.3 KiB".
std::string shownBytes(std::int64_t bytes);

}  // namespace tabulo::tool
