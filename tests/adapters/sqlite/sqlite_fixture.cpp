#include "tests/adapters/sqlite/sqlite_fixture.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>

#include "adapters/sqlite/extension.h"

namespace tabulo::sqlite::test {

namespace {

std::string hexOf(const std::string& bytes) {
    static const char* const digits = "0123456789abcdef";
    std::string text = "x'";
    for (const char character : bytes) {
        const auto byte = static_cast<unsigned char>(character);
        text += digits[byte >> 4];
        text += digits[byte & 15];
    }
    return text + "'";
}

std::string realText(double value) {
    if (std::isinf(value)) {
        return value < 0 ? "-9e999" : "9e999";
    }
    std::array<char, 40> text{};
    std::snprintf(text.data(), text.size(), "%.17g", value);
    const std::string number = text.data();
    return number.find_first_of(".e") == std::string::npos ? number + ".0" : number;
}

void bind(sqlite3_stmt* statement, int place, const SqlValue& value) {
    if (const auto* integer = std::get_if<std::int64_t>(&value)) {
        sqlite3_bind_int64(statement, place, *integer);
    } else if (const auto* real = std::get_if<double>(&value)) {
        sqlite3_bind_double(statement, place, *real);
    } else if (const auto* text = std::get_if<std::string>(&value)) {
        sqlite3_bind_text64(statement, place, text->data(), text->size(), SQLITE_TRANSIENT, SQLITE_UTF8);
    } else if (const auto* blob = std::get_if<Blob>(&value)) {
        sqlite3_bind_blob64(statement, place, blob->bytes.data(), blob->bytes.size(), SQLITE_TRANSIENT);
    } else {
        sqlite3_bind_null(statement, place);
    }
}

std::string bytesOf(const void* bytes, int size) {
    return size == 0 ? std::string() : std::string(static_cast<const char*>(bytes), static_cast<std::size_t>(size));
}

SqlValue valueOf(sqlite3_stmt* statement, int column) {
    switch (sqlite3_column_type(statement, column)) {
        case SQLITE_INTEGER:
            return sqlite3_column_int64(statement, column);
        case SQLITE_FLOAT:
            return sqlite3_column_double(statement, column);
        case SQLITE_TEXT: {
            const unsigned char* text = sqlite3_column_text(statement, column);
            return bytesOf(text, sqlite3_column_bytes(statement, column));
        }
        case SQLITE_BLOB: {
            const void* blob = sqlite3_column_blob(statement, column);
            return Blob{bytesOf(blob, sqlite3_column_bytes(statement, column))};
        }
        default:
            return {};
    }
}

}  // namespace

std::string sqlText(const std::string& text) {
    std::string quoted = "'";
    for (const char character : text) {
        quoted.append(character == '\'' ? 2 : 1, character);
    }
    return quoted + "'";
}

std::string sqlLiteral(const SqlValue& value) {
    if (const auto* integer = std::get_if<std::int64_t>(&value)) {
        // Its digits alone would be a real with a sign in front.
        return *integer == INT64_MIN ? "(-9223372036854775807 - 1)" : std::to_string(*integer);
    }
    if (const auto* real = std::get_if<double>(&value)) {
        return std::isnan(*real) ? "NULL" : realText(*real);
    }
    if (const auto* text = std::get_if<std::string>(&value)) {
        const bool isPlain = std::all_of(text->begin(), text->end(), [](char c) { return c >= ' ' && c <= '~'; });
        return isPlain ? sqlText(*text) : "CAST(" + hexOf(*text) + " AS TEXT)";
    }
    const auto* blob = std::get_if<Blob>(&value);
    return blob != nullptr ? hexOf(blob->bytes) : "NULL";
}

std::string Answer::text() const {
    std::string lines;
    for (const std::vector<std::string>& row : rows) {
        for (std::size_t i = 0; i < row.size(); ++i) {
            lines += (i == 0 ? "" : "|") + row[i];
        }
        lines += "\n";
    }
    return lines + error;
}

Connection::Connection() {
    EXPECT_EQ(sqlite3_open(":memory:", &handle_), SQLITE_OK);
    char* message = nullptr;
    EXPECT_EQ(addTo(handle_, &message), SQLITE_OK) << message;
    sqlite3_free(message);
}

Connection::~Connection() {
    EXPECT_EQ(sqlite3_close(handle_), SQLITE_OK) << "something of the connection is still in use";
}

Answer Connection::run(const std::string& sql, const std::vector<SqlValue>& parameters) {
    Answer answer;
    sqlite3_stmt* statement = nullptr;
    answer.code = sqlite3_prepare_v2(handle_, sql.data(), static_cast<int>(sql.size()), &statement, nullptr);
    if (answer.code == SQLITE_OK) {
        for (std::size_t i = 0; i < parameters.size(); ++i) {
            bind(statement, static_cast<int>(i) + 1, parameters[i]);
        }
        while ((answer.code = sqlite3_step(statement)) == SQLITE_ROW) {
            std::vector<std::string>& row = answer.rows.emplace_back();
            for (int column = 0; column < sqlite3_column_count(statement); ++column) {
                row.push_back(sqlLiteral(valueOf(statement, column)));
            }
        }
    }
    if (answer.code == SQLITE_DONE) {
        answer.code = SQLITE_OK;
    } else {
        answer.error = sqlite3_errmsg(handle_);
    }
    sqlite3_finalize(statement);
    return answer;
}

Answer Connection::must(const std::string& sql, const std::vector<SqlValue>& parameters) {
    Answer answer = run(sql, parameters);
    EXPECT_EQ(answer.error, "") << sql;
    return answer;
}

std::string Connection::plan(const std::string& sql) {
    std::string text;
    for (const std::vector<std::string>& row : must("EXPLAIN QUERY PLAN " + sql).rows) {
        text += row.back() + "\n";
    }
    return text;
}

std::int64_t Connection::stat(const std::string& name) {
    const Answer answer = must("SELECT json_extract(tabulo_stats(), '$." + name + "')");
    return answer.rows.empty() ? -1 : std::stoll(answer.rows[0].at(0));
}

Statement::Statement(const Connection& connection, const std::string& sql) {
    EXPECT_EQ(sqlite3_prepare_v2(connection.handle(), sql.c_str(), -1, &handle_, nullptr), SQLITE_OK)
        << sqlite3_errmsg(connection.handle()) << ": " << sql;
}

Statement::~Statement() {
    sqlite3_finalize(handle_);
}

}  // namespace tabulo::sqlite::test
