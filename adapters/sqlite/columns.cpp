#include "adapters/sqlite/columns.h"

#include <algorithm>
#include <span>
#include <string_view>

#include "tabulo/columns.h"

namespace tabulo::sqlite {

namespace {

// An SQL identifier, quoted.
std::string identifier(const std::string& name) {
    std::string text = "\"";
    for (const char character : name) {
        text.append(character == '"' ? 2 : 1, character);
    }
    return text + "\"";
}

bool isTaken(std::span<const Column> columns, const std::string& name) {
    return std::any_of(columns.begin(), columns.end(),
                       [&](const Column& column) { return sqlite3_stricmp(column.name.c_str(), name.c_str()) == 0; });
}

// `common`: how many columns, in front, are of no field.
void addField(ColumnKind kind, std::size_t field, const std::string& name, std::size_t common,
              std::vector<Column>* columns) {
    const std::string base = isTaken(std::span(*columns).first(common), name) ? "fields." + name : name;
    std::string unique = base;
    for (int number = 2; isTaken(*columns, unique); ++number) {
        unique = base + "#" + std::to_string(number);
    }
    columns->push_back({kind, field, unique});
}

std::string_view typeOf(ColumnKind kind) {
    if (isInteger(kind)) {
        return " INTEGER";
    }
    switch (kind) {
        case ColumnKind::block:
        case ColumnKind::offset:
            return " INTEGER";
        case ColumnKind::wire:
            return " BLOB";
        case ColumnKind::number:
            return "";  // a type would have a comparison convert what is stored
        default:
            return " TEXT";
    }
}

bool isHidden(ColumnKind kind) {
    return kind >= ColumnKind::file;
}

// SQLite takes a null pointer for NULL.
const char* dataOf(std::string_view text) {
    return text.empty() ? "" : text.data();
}

void giveNumber(sqlite3_context* context, const Number& number) {
    if (const auto* integer = std::get_if<std::int64_t>(&number)) {
        sqlite3_result_int64(context, *integer);
    } else if (const auto* real = std::get_if<double>(&number)) {
        sqlite3_result_double(context, *real);  // NULL for one that is no number
    } else {
        sqlite3_result_null(context);
    }
}

void giveWire(sqlite3_context* context, const Text& wire) {
    if (wire.has_value()) {
        sqlite3_result_blob64(context, dataOf(*wire), wire->size(), SQLITE_TRANSIENT);
    } else {
        sqlite3_result_null(context);
    }
}

}  // namespace

bool isInteger(ColumnKind kind) noexcept {
    switch (kind) {
        case ColumnKind::uid:
        case ColumnKind::seq:
        case ColumnKind::prevSeq:
        case ColumnKind::id:
        case ColumnKind::timeRaw:
        case ColumnKind::possDup:
        case ColumnKind::outOfSequence:
            return true;
        default:
            return false;
    }
}

std::vector<Column> columnsOf(const Layout* layout) {
    std::vector<Column> columns;
    for (const auto& [kind, name] : {std::pair{ColumnKind::table, "table"},
                                     {ColumnKind::uid, "uid"},
                                     {ColumnKind::seq, "seq"},
                                     {ColumnKind::prevSeq, "prevSeq"},
                                     {ColumnKind::id, "id"},
                                     {ColumnKind::messageClass, "class"},
                                     {ColumnKind::time, "time"},
                                     {ColumnKind::timeRaw, "time_raw"},
                                     {ColumnKind::type, "type"},
                                     {ColumnKind::possDup, "possDup"},
                                     {ColumnKind::outOfSequence, "outOfSequence"},
                                     {ColumnKind::text0, "text0"},
                                     {ColumnKind::text1, "text1"},
                                     {ColumnKind::wire, "wire"},
                                     {ColumnKind::nonMetadata, "nonMetadata"},
                                     {ColumnKind::file, "file"},
                                     {ColumnKind::block, "block"},
                                     {ColumnKind::offset, "offset"}}) {
        columns.push_back({kind, 0, name});
    }
    if (layout == nullptr) {
        // The first hidden column is the first argument.
        const auto file =
            std::find_if(columns.begin(), columns.end(), [](const Column& c) { return c.kind == ColumnKind::file; });
        columns.insert(file, {ColumnKind::files, 0, "files"});
        return columns;
    }
    // Names are given with regard to all others, whatever the order in which the columns come.
    const auto wire =
        std::find_if(columns.begin(), columns.end(), [](const Column& c) { return c.kind == ColumnKind::wire; });
    const std::ptrdiff_t place = wire - columns.begin();
    const std::size_t common = columns.size();
    const std::vector<std::string> names = fieldNames(*layout);
    for (std::size_t i = 0; i < names.size(); ++i) {
        const bool isText = i < layout->texts.size();
        addField(isText ? ColumnKind::text : ColumnKind::number, isText ? i : i - layout->texts.size(), names[i],
                 common, &columns);
    }
    std::rotate(columns.begin() + place, columns.begin() + static_cast<std::ptrdiff_t>(common), columns.end());
    return columns;
}

std::string declarationOf(const std::vector<Column>& columns) {
    std::string text;
    for (const Column& column : columns) {
        text += (text.empty() ? "CREATE TABLE x(" : ", ") + identifier(column.name);
        text += typeOf(column.kind);
        text += isHidden(column.kind) ? " HIDDEN" : "";
    }
    return text + ")";
}

Text textOf(const MessageView& message, const Column& column) {
    switch (column.kind) {
        case ColumnKind::table:
            return message.table();
        case ColumnKind::messageClass: {
            const auto messageClass = message.messageClass();
            return messageClass.has_value() ? Text(className(*messageClass)) : Text();
        }
        case ColumnKind::type:
            return message.type();
        case ColumnKind::text0:
            return message.text0();
        case ColumnKind::text1:
            return message.text1();
        case ColumnKind::text:
            return message.text(column.field);
        case ColumnKind::nonMetadata:
            return message.nonMetadata();
        default:
            return std::nullopt;
    }
}

void giveText(sqlite3_context* context, const Text& text) {
    if (text.has_value()) {
        sqlite3_result_text64(context, dataOf(*text), text->size(), SQLITE_TRANSIENT, SQLITE_UTF8);
    } else {
        sqlite3_result_null(context);
    }
}

void giveColumn(sqlite3_context* context, const Column& column, const ShownMessage& shown) {
    const MessageView& message = *shown.message;
    switch (column.kind) {
        case ColumnKind::uid:
            return sqlite3_result_int64(context, message.uniformId());
        case ColumnKind::seq:
            return sqlite3_result_int64(context, message.seqNum());
        case ColumnKind::prevSeq:
            return sqlite3_result_int64(context, message.prevSeqNum());
        case ColumnKind::id:
            return sqlite3_result_int64(context, message.id());
        case ColumnKind::time:
            return giveText(context, isoTime(message.time(), shown.unit));
        case ColumnKind::timeRaw:
            return sqlite3_result_int64(context, message.time());
        case ColumnKind::possDup:
            return sqlite3_result_int64(context, message.possDup());
        case ColumnKind::outOfSequence:
            return sqlite3_result_int64(context, message.outOfSequence());
        case ColumnKind::number:
            return giveNumber(context, message.number(column.field));
        case ColumnKind::wire:
            return giveWire(context, message.wire());
        case ColumnKind::file:
            return giveText(context, std::string_view(*shown.path));
        case ColumnKind::block:
            return sqlite3_result_int64(context, message.position().block);
        case ColumnKind::offset:
            return sqlite3_result_int64(context, message.position().offset);
        case ColumnKind::files:
            return sqlite3_result_null(context);
        case ColumnKind::table:
        case ColumnKind::messageClass:
        case ColumnKind::type:
        case ColumnKind::text0:
        case ColumnKind::text1:
        case ColumnKind::text:
        case ColumnKind::nonMetadata:
            return giveText(context, textOf(message, column));
    }
}

}  // namespace tabulo::sqlite
