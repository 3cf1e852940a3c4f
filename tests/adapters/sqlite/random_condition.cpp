#include "tests/adapters/sqlite/random_condition.h"

#include <charconv>
#include <limits>

namespace tabulo::sqlite::test {

namespace {

using namespace std::string_literals;

const std::vector<SqlValue>& oddValues() {
    static const std::vector<SqlValue> values = {SqlValue(),
                                                 std::int64_t{0},
                                                 std::int64_t{-1},
                                                 std::int64_t{777},
                                                 std::int64_t{12},
                                                 std::int64_t{5},
                                                 (std::int64_t{1} << 53) + 1,
                                                 std::numeric_limits<std::int64_t>::max(),
                                                 std::numeric_limits<std::int64_t>::min(),
                                                 std::int64_t{1} << 31,
                                                 std::int64_t{1} << 40,
                                                 777.0,
                                                 700.0,
                                                 0.5,
                                                 -0.0,
                                                 1e300,
                                                 0x1p53,
                                                 0x1p63,
                                                 -0x1p63,
                                                 std::numeric_limits<double>::infinity(),
                                                 -std::numeric_limits<double>::infinity(),
                                                 "777"s,
                                                 "7e2"s,
                                                 " 12"s,
                                                 "a"s,
                                                 ""s,
                                                 "2026"s,
                                                 "2026-11-20T19:31:45.673Z"s,
                                                 "2026-11-18"s,
                                                 "APP_TO"s,
                                                 "app_from"s,
                                                 "\xff"s,
                                                 "A\0"s,
                                                 Blob{""},
                                                 Blob{"a"},
                                                 Blob{"near-1"}};
    return values;
}

}  // namespace

const TwinColumn& RandomCondition::column(const NamedTable& table) {
    // Those that blocks can be decided by more often than others.
    static const std::vector<std::string> frequent = {"uid", "time_raw", "time", "class", "type", "rowid", "id", "seq"};
    const std::vector<TwinColumn>& columns = table.table->columns;
    if (random_.percent(30)) {
        const std::string& name = random_.of(frequent);
        for (const TwinColumn& candidate : columns) {
            if (candidate.name == name) {
                return candidate;
            }
        }
    }
    return random_.of(columns);
}

const TwinColumn& RandomCondition::columnOf(const NamedTable& table, ColumnType type) {
    for (;;) {
        const TwinColumn& candidate = column(table);
        if (candidate.type == type) {
            return candidate;
        }
    }
}

SqlValue RandomCondition::changed(SqlValue value) {
    if (const auto* integer = std::get_if<std::int64_t>(&value)) {
        switch (random_.below(4)) {
            case 0:
                return static_cast<double>(*integer);
            case 1:
                return std::to_string(*integer);
            case 2:
                return static_cast<double>(*integer) + 0.5;
            default:
                return *integer == std::numeric_limits<std::int64_t>::max() ? *integer : *integer + 1;
        }
    }
    if (const auto* text = std::get_if<std::string>(&value)) {
        std::int64_t number = 0;
        const auto [end, error] = std::from_chars(text->data(), text->data() + text->size(), number);
        if (error == std::errc() && random_.percent(60)) {
            return number;
        }
        switch (random_.below(4)) {
            case 0:
                return Blob{*text};
            case 1:
                return *text + " ";
            case 2:
                return text->substr(0, text->size() / 2);
            default: {
                std::string upper = *text;
                for (char& character : upper) {
                    character = character >= 'a' && character <= 'z' ? static_cast<char>(character - 32) : character;
                }
                return upper;
            }
        }
    }
    const auto* blob = std::get_if<Blob>(&value);
    return blob != nullptr ? SqlValue(blob->bytes) : value;
}

SqlValue RandomCondition::someValue(const NamedTable& table, const TwinColumn& column) {
    if (random_.percent(20)) {
        return random_.of(oddValues());
    }
    const auto place = static_cast<std::size_t>(&column - table.table->columns.data());
    const SqlValue& value = random_.of(table.table->rows)[place];
    return random_.percent(25) ? changed(value) : value;
}

std::string RandomCondition::value(const NamedTable& table, const TwinColumn& column) {
    const SqlValue value = someValue(table, column);
    if (random_.percent(30)) {
        parameters_->push_back(value);
        return "?";
    }
    const std::string literal = sqlLiteral(value);
    if (random_.percent(6)) {
        static const std::vector<std::string> types = {"TEXT", "INTEGER", "REAL", "NUMERIC", "BLOB"};
        return "CAST(" + literal + " AS " + random_.of(types) + ")";
    }
    return literal;
}

std::string RandomCondition::collation() {
    return random_.percent(80) ? "" : random_.percent(50) ? " COLLATE NOCASE" : " COLLATE RTRIM";
}

std::string RandomCondition::operand(const NamedTable& table, const TwinColumn& column) {
    const std::string name = table.name + "." + column.name;
    if (random_.percent(4)) return "+" + name;
    if (random_.percent(3)) return "CAST(" + name + " AS TEXT)";
    if (random_.percent(3)) return "length(" + name + ")";
    // Of a plain column on the left SQLite forgets the collation, where another column is equal to it: its mistake.
    const std::string collated = collation();
    return (collated.empty() ? "" : "+") + name + collated;
}

std::string RandomCondition::oneOf(const NamedTable& table, const TwinColumn& column) {
    std::string text = operand(table, column) + (random_.percent(20) ? " NOT IN (" : " IN (");
    if (random_.percent(25)) {
        const TwinColumn& other = random_.percent(60) ? column : this->column(table);
        text += "SELECT " + other.name + " FROM live" + std::to_string(table.number) + " AS s";
        return text + " WHERE " + simple({"s", table.table, table.number}) + ")";
    }
    const int count = random_.between(0, 6);
    for (int i = 0; i < count; ++i) {
        text += (i == 0 ? "" : ", ") + value(table, column);
    }
    return text + ")";
}

std::string RandomCondition::like(const NamedTable& table, const TwinColumn& column) {
    static const std::vector<std::string> patterns = {"near-%", "NEAR-1%", "%1", "_", "a%",    "7%",
                                                      "near-1", "%",       "",   "A", "2026%", "near-1_"};
    static const std::vector<std::string> globs = {"near-*", "NEAR-*", "*1", "?",    "[a-z]*",
                                                   "7*",     "near-1", "",   "2026*"};
    const bool isLike = random_.percent(60);
    // An ordinary table that is joined from the left loses rows by a LIKE on its rowid: SQLite's mistake.
    const std::string sign = column.name == "rowid" ? "+" : "";
    return sign + table.name + "." + column.name + (random_.percent(15) ? " NOT" : "") +
           (isLike ? " LIKE " : " GLOB ") + sqlText(random_.of(isLike ? patterns : globs));
}

std::string RandomCondition::simple(const NamedTable& table) {
    static const std::vector<std::string> comparisons = {"=", "=", "==", "IS", "IS NOT", "<", "<=", ">", ">=", "!="};
    const TwinColumn& column = this->column(table);
    const int kind = random_.below(100);
    if (kind < 50) {
        const std::string left = operand(table, column);
        const std::string comparison = " " + random_.of(comparisons) + " ";
        return left + comparison + value(table, column) + (random_.percent(50) ? collation() : "");
    }
    if (kind < 56) {
        const std::string left = value(table, column);
        return left + " " + random_.of(comparisons) + " " + operand(table, column);
    }
    if (kind < 68) {
        const std::string left = operand(table, column) + (random_.percent(15) ? " NOT BETWEEN " : " BETWEEN ");
        const std::string low = value(table, column);
        return left + low + " AND " + value(table, column);
    }
    if (kind < 82) {
        return oneOf(table, column);
    }
    if (kind < 88) {
        return table.name + "." + column.name + (random_.percent(50) ? " IS NULL" : " IS NOT NULL");
    }
    if (kind < 95) {
        return like(table, column);
    }
    return operand(table, column) + " " + random_.of(comparisons) + " " + operand(table, this->column(table));
}

std::string RandomCondition::any(const std::vector<NamedTable>& tables, int depth) {
    if (depth == 0 || random_.percent(45)) {
        return simple(random_.of(tables));
    }
    const int kind = random_.below(100);
    const std::string left = any(tables, depth - 1);
    if (kind < 55) return "(" + left + " AND " + any(tables, depth - 1) + ")";
    if (kind < 85) return "(" + left + " OR " + any(tables, depth - 1) + ")";
    return "NOT (" + left + ")";
}

std::string RandomCondition::join(const NamedTable& left, const NamedTable& right) {
    static const std::vector<std::pair<std::string, std::string>> pairs = {
        {"Symbol", "Symbol"}, {"uid", "uid"},       {"text0", "text0"}, {"seq", "seq"},      {"uid", "seq"},
        {"uid", "prevSeq"},   {"Symbol", "uid"},    {"uid", "Symbol"},  {"Symbol", "text0"}, {"rowid", "rowid"},
        {"time", "time"},     {"time_raw", "time"}, {"type", "type"},   {"rowid", "uid"},    {"wire", "wire"},
        {"class", "class"},   {"text0", "seq"},     {"block", "offset"}};
    const auto& [a, b] = random_.of(pairs);
    return left.name + "." + a + (random_.percent(92) ? " = " : " <= ") + right.name + "." + b + collation();
}

}  // namespace tabulo::sqlite::test
