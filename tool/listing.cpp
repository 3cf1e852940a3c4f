#include "tool/listing.h"

#include <fmt/format.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <algorithm>
#include <cmath>
#include <utility>

#include "tool/text_bytes.h"

namespace tabulo::tool {

namespace {

constexpr std::size_t ROWS_MEASURED = 1000;
constexpr std::string_view GAP = "  ";

using JsonWriter = rapidjson::Writer<rapidjson::StringBuffer>;

// Writes a value as JSON.
struct JsonValue {
    JsonWriter& json;

    void put(std::string_view text) const {
        const std::string valid = isUtf8(text) ? std::string() : shownText(text);  // JSON has no other bytes
        const std::string_view written = valid.empty() ? text : std::string_view(valid);
        json.String(written.data(), static_cast<rapidjson::SizeType>(written.size()));
    }
    void operator()(std::monostate) const { json.Null(); }
    void operator()(bool value) const { json.Bool(value); }
    void operator()(std::int64_t value) const { json.Int64(value); }
    void operator()(double value) const {
        if (std::isfinite(value)) {
            json.Double(value);
        } else {
            put(std::isnan(value) ? "NaN" : value > 0 ? "Infinity" : "-Infinity");
        }
    }
    void operator()(const std::string& text) const { put(text); }
    void operator()(const ListRange& range) const {
        json.StartArray();
        json.Int64(range.first);
        json.Int64(range.last);
        json.EndArray();
    }
    template <typename T>
    void operator()(const std::vector<T>& list) const {
        json.StartArray();
        for (const T& value : list) {
            (*this)(value);
        }
        json.EndArray();
    }
    template <typename T>
    void operator()(const ListPairs<T>& pairs) const {
        json.StartObject();
        for (const auto& [key, value] : pairs) {
            put(key);
            (*this)(value);
        }
        json.EndObject();
    }
};

// Gives a value as eyes see it.
struct ShownValue {
    std::string operator()(std::monostate) const { return "-"; }
    std::string operator()(bool value) const { return value ? "yes" : "no"; }
    std::string operator()(std::int64_t value) const { return std::to_string(value); }
    std::string operator()(double value) const { return fmt::format("{}", value); }
    std::string operator()(const std::string& text) const { return shownText(text); }
    std::string operator()(const ListRange& range) const { return fmt::format("{}..{}", range.first, range.last); }
    template <typename T>
    std::string operator()(const std::vector<T>& list) const {
        std::string text;
        for (const T& value : list) {
            text += (text.empty() ? "" : ", ") + (*this)(value);
        }
        return text.empty() ? "-" : text;
    }
    template <typename T>
    std::string operator()(const std::pair<std::string, T>& pair) const {
        return shownText(pair.first) + ' ' + (*this)(pair.second);
    }
};

std::string shownCell(const ListCell& cell) {
    return cell.text.empty() ? std::visit(ShownValue(), cell.value) : shownText(cell.text);
}

std::string jsonLine(const std::vector<ListColumn>& columns, const std::vector<ListCell>& row) {
    rapidjson::StringBuffer buffer;
    JsonWriter json(buffer);
    const JsonValue writer{json};
    json.StartObject();
    for (std::size_t i = 0; i < columns.size(); ++i) {
        if (!columns[i].key.empty()) {
            writer.put(columns[i].key);
            std::visit(writer, row[i].value);
        }
    }
    json.EndObject();
    return {buffer.GetString(), buffer.GetSize()};
}

void printLine(Console& console, std::string_view line, bool isTitle) {
    const int width = console.width();
    const std::string cut = width > 0 ? cutText(line, static_cast<std::size_t>(width)) : std::string(line);
    console.write(isTitle && console.hasColour() ? fmt::format("\x1b[1m{}\x1b[0m\n", cut) : cut + '\n');
}

bool isNumber(const ListValue& value) {
    return std::holds_alternative<std::int64_t>(value) || std::holds_alternative<double>(value);
}

}  // namespace

Listing::Listing(Console& console, ListFormat format, std::vector<ListColumn> columns)
    : console_(console), format_(format), columns_(std::move(columns)), isNumber_(columns_.size(), false) {
}

void Listing::add(const std::vector<ListCell>& row) {
    if (format_ == ListFormat::ndjson) {
        console_.write(jsonLine(columns_, row) + '\n');
        return;
    }
    std::vector<std::string> cells;
    for (std::size_t i = 0; i < columns_.size(); ++i) {
        if (!columns_[i].title.empty()) {
            cells.push_back(shownCell(row[i]));
        }
        isNumber_[i] = isNumber_[i] || (!isSettled_ && isNumber(row[i].value));
    }
    if (isSettled_) {
        print(cells, false);
        return;
    }
    rows_.push_back(std::move(cells));
    if (rows_.size() == ROWS_MEASURED) {
        settle();
    }
}

void Listing::end() {
    if (!rows_.empty()) {
        settle();
    }
}

// Prints the titles and the rows that have waited.
void Listing::settle() {
    std::vector<std::string> titles;
    std::vector<bool> numbers;
    for (std::size_t i = 0; i < columns_.size(); ++i) {
        if (!columns_[i].title.empty()) {
            titles.push_back(columns_[i].title);
            numbers.push_back(isNumber_[i]);
        }
    }
    isNumber_ = numbers;
    isNumber_.resize(columns_.size());
    widths_.clear();
    for (std::size_t i = 0; i < titles.size(); ++i) {
        std::size_t width = shownWidth(titles[i]);
        for (const auto& row : rows_) {
            width = std::max(width, shownWidth(row[i]));
        }
        widths_.push_back(width);
    }
    isSettled_ = true;
    print(titles, true);
    for (const auto& row : rows_) {
        print(row, false);
    }
    rows_.clear();
}

void Listing::print(const std::vector<std::string>& cells, bool isTitle) {
    std::string line;
    for (std::size_t i = 0; i < cells.size(); ++i) {
        const std::size_t width = shownWidth(cells[i]);
        const std::string padding(width < widths_[i] ? widths_[i] - width : 0, ' ');
        line += i == 0 ? "" : GAP;
        line += isNumber_[i] ? padding + cells[i] : cells[i] + padding;
    }
    line.erase(line.find_last_not_of(' ') + 1);
    printLine(console_, line, isTitle);
}

void printRecord(Console& console, ListFormat format, const std::vector<ListColumn>& columns,
                 const std::vector<ListCell>& row) {
    if (format == ListFormat::ndjson) {
        console.write(jsonLine(columns, row) + '\n');
        return;
    }
    std::size_t width = 0;
    for (const ListColumn& column : columns) {
        width = std::max(width, shownWidth(column.title));
    }
    for (std::size_t i = 0; i < columns.size(); ++i) {
        if (!columns[i].title.empty()) {
            const std::string padding(width - shownWidth(columns[i].title), ' ');
            printLine(console, fmt::format("{}{}{}{}", columns[i].title, padding, GAP, shownCell(row[i])), false);
        }
    }
}

}  // namespace tabulo::tool
