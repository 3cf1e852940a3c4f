#include "tool/sql_output.h"

#include <algorithm>
#include <new>

#include "tool/format/csv_value.h"
#include "tool/format/json_text.h"
#include "tool/format/pieces.h"
#include "tool/text_bytes.h"

namespace tabulo::tool {

namespace {

// The bytes of a text or a blob, which the statement holds until its next step.
std::string_view bytesAt(sqlite3_stmt* statement, int column) {
    const bool isBlob = sqlite3_column_type(statement, column) == SQLITE_BLOB;
    const void* const bytes = isBlob ? sqlite3_column_blob(statement, column) : sqlite3_column_text(statement, column);
    const int length = sqlite3_column_bytes(statement, column);
    if (bytes == nullptr && (length > 0 || !isBlob)) {
        throw std::bad_alloc();
    }
    return length == 0 ? std::string_view()
                       : std::string_view(static_cast<const char*>(bytes), static_cast<std::size_t>(length));
}

// Of a value that is no text and no blob; absent for NULL.
Number numberAt(sqlite3_stmt* statement, int column) {
    switch (sqlite3_column_type(statement, column)) {
        case SQLITE_INTEGER:
            return static_cast<std::int64_t>(sqlite3_column_int64(statement, column));
        case SQLITE_FLOAT:
            return sqlite3_column_double(statement, column);
        default:
            return {};
    }
}

std::string utf8Name(sqlite3_stmt* statement, int column) {
    const char* const name = sqlite3_column_name(statement, column);
    if (name == nullptr) {
        throw std::bad_alloc();
    }
    return isUtf8(name) ? std::string(name) : shownText(name);
}

// The names of a statement's columns: of several that are equal, the second is "NAME#2".
std::vector<std::string> uniqueNames(sqlite3_stmt* statement) {
    std::vector<std::string> names;
    for (int column = 0; column < sqlite3_column_count(statement); ++column) {
        const std::string name = utf8Name(statement, column);
        std::string unique = name;
        for (int n = 2; std::find(names.begin(), names.end(), unique) != names.end(); ++n) {
            unique = name + '#' + std::to_string(n);
        }
        names.push_back(std::move(unique));
    }
    return names;
}

std::vector<ListColumn> shownColumns(sqlite3_stmt* statement) {
    std::vector<ListColumn> columns;
    for (int column = 0; column < sqlite3_column_count(statement); ++column) {
        const std::string name = shownText(utf8Name(statement, column));
        columns.push_back({"", name.empty() ? " " : name});  // a column without a title would not be shown
    }
    return columns;
}

std::string csvHead(const std::vector<std::string>& names) {
    std::string head;
    for (const std::string& name : names) {
        head += head.empty() ? "" : ",";
        appendCsvValue(name, &head);
    }
    return head + "\r\n";
}

}  // namespace

SqlOutput::SqlOutput(Console& console, SqlFormat format, sqlite3_stmt* statement)
    : console_(console), format_(format), statement_(statement) {
    if (sqlite3_column_count(statement) == 0) {
        return;
    }
    spill_ = [&console](std::string* out) {
        console.write(*out);
        out->clear();
    };
    if (format == SqlFormat::text) {
        listing_.emplace(console, ListFormat::text, shownColumns(statement));
        return;
    }
    names_ = uniqueNames(statement);
    if (format == SqlFormat::csv) {
        console.write(csvHead(names_));
        return;
    }
    for (std::string& name : names_) {
        json_.Clear();
        appendJsonString(name, &json_);
        name.assign(json_.GetString(), json_.GetSize()) += ':';
    }
}

void SqlOutput::add() {
    switch (format_) {
        case SqlFormat::text:
            addShown();
            break;
        case SqlFormat::csv:
            addCsv();
            break;
        case SqlFormat::ndjson:
            addJson();
            break;
    }
}

void SqlOutput::end() {
    if (listing_.has_value()) {
        listing_->end();
    }
}

// Whether a value is a text or a blob.
bool SqlOutput::isText(int column) const {
    const int type = sqlite3_column_type(statement_, column);
    return type == SQLITE_TEXT || type == SQLITE_BLOB;
}

void SqlOutput::addShown() {
    std::vector<ListCell> row;
    for (int column = 0; column < sqlite3_column_count(statement_); ++column) {
        if (isText(column)) {
            row.push_back({std::string(bytesAt(statement_, column))});
            continue;
        }
        const Number number = numberAt(statement_, column);
        ListCell cell;
        if (const auto* integer = std::get_if<std::int64_t>(&number)) {
            cell.value = *integer;
        } else if (const auto* real = std::get_if<double>(&number)) {
            cell.value = *real;
        }
        appendNumber(number, &cell.text);
        row.push_back(std::move(cell));
    }
    listing_->add(row);
}

void SqlOutput::addCsv() {
    const int columns = sqlite3_column_count(statement_);
    text_.clear();
    for (int column = 0; column < columns; ++column) {
        if (isText(column)) {
            appendCsvValue(bytesAt(statement_, column), &text_, spill_);
        } else {
            appendNumber(numberAt(statement_, column), &text_);
        }
        text_ += column + 1 < columns ? "," : "\r\n";
    }
    console_.write(text_);
}

void SqlOutput::addJson() {
    text_ = "{";
    for (int column = 0; column < sqlite3_column_count(statement_); ++column) {
        text_ += column == 0 ? "" : ",";
        text_ += names_[static_cast<std::size_t>(column)];
        const Number number = numberAt(statement_, column);
        if (isText(column)) {
            addJsonBytes(bytesAt(statement_, column));
        } else if (std::holds_alternative<std::monostate>(number)) {
            text_ += "null";
        } else {
            text_ += isNanOrInfinite(number) ? "\"" : "";
            appendNumber(number, &text_);
            text_ += isNanOrInfinite(number) ? "\"" : "";
        }
    }
    text_ += "}\n";
    console_.write(text_);
}

// As a string, or as what JSON can hold of bytes that are no UTF-8.
void SqlOutput::addJsonBytes(std::string_view bytes) {
    if (isUtf8(bytes)) {
        addJsonString(bytes);
        return;
    }
    text_ += R"({"base64":")";
    appendPiecesBase64(bytes, &text_, spill_);
    text_ += "\"}";
}

void SqlOutput::addJsonString(std::string_view text) {
    text_ += '"';
    appendPieces(text, &text_, spill_, [this](std::string_view piece) {
        json_.Clear();
        appendJsonText(piece, &json_);
        text_.append(json_.GetString(), json_.GetSize());
    });
    text_ += '"';
}

}  // namespace tabulo::tool
