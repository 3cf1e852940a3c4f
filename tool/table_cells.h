// What verbs say of a table, as cells of their lists.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "tabulo/index.h"
#include "tabulo/table_info.h"
#include "tool/listing.h"
#include "tool/times.h"

namespace tabulo::tool {

// A row that is put together value by value, for printRecord and Listing.
struct ListRecord {
    std::vector<ListColumn> columns{};
    std::vector<ListCell> row{};

    void add(std::string key, std::string title, ListCell cell);
    // A time has two values in JSON: `key` in ISO 8601 (null without a unit), and `key` + "Raw", the number as a text.
    void addTime(const std::string& key, std::string title, std::optional<std::int64_t> time, const Times& times);
};

template <typename T>
ListValue optionalValue(const std::optional<T>& value) {
    return value.has_value() ? ListValue(std::int64_t{*value}) : ListValue();
}

// The names of the texts that have a filter in every block, in the file's order.
std::vector<std::string> filteredTexts(const Layout& layout);
// A time of the table, for the guess at their unit; none when it has no messages, or damage in front of them.
std::optional<std::int64_t> sampleTime(const TableInfo& info);
// Whether two errors tell of the same damage: a block's damage is told at its length word or at its first message.
bool isSameDamage(const Error& a, const Error& b);
// The side index that queries of a message table would use.
std::optional<IndexInfo> indexOf(const TableInfo& info);
// Yes, no, or none for unknown.
ListCell openCell(OpenForWriting open);
// A size in bytes.
ListCell bytesCell(std::int64_t bytes);
// The texts of names for a list; a field without a name is "(no name)" for eyes.
ListCell namesCell(const std::vector<std::string>& names);
// A list of paths.
ListCell pathsCell(const std::vector<std::filesystem::path>& paths);

// Throws Failure for a file that holds a table of another kind than a verb is for, and tells the verb that is.
// Whether it is one, which a file is not whose header does not tell.
bool isOfKind(const std::filesystem::path& path, TableKind kind);
[[noreturn]] void refuseKind(const std::filesystem::path& path, TableKind kind);

}  // namespace tabulo::tool
