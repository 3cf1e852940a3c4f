// The columns of a message table in SQL: those of the command's csv with SQL's types, and hidden ones that tell where a
// message stands.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "adapters/sqlite/sqlite.h"
#include "tabulo/message.h"
#include "tabulo/table_info.h"
#include "tabulo/times.h"

namespace tabulo::sqlite {

enum class ColumnKind {
    table,
    uid,
    seq,
    prevSeq,
    id,
    messageClass,
    time,     // ISO 8601 in UTC; the number where no unit is known
    timeRaw,  // the number
    type,
    possDup,
    outOfSequence,
    text0,
    text1,
    text,    // of the layout
    number,  // of the layout
    wire,
    nonMetadata,
    file,    // hidden: the path,
    block,   // the offset of the message's block in the file,
    offset,  // and of its frame
    files,   // hidden: the argument of tabulo_messages
};

// Columns of whole numbers that are never NULL, and that a query can ask for.
bool isInteger(ColumnKind kind) noexcept;

struct Column {
    ColumnKind kind;
    std::size_t field = 0;  // of a text or a number: which of the layout's
    std::string name;       // no two alike, without regard to the case of letters
};

// The columns of tables with this layout; without one those that all tables have, and the argument.
std::vector<Column> columnsOf(const Layout* layout);
// CREATE TABLE with them, as sqlite3_declare_vtab takes it.
std::string declarationOf(const std::vector<Column>& columns);

// The text of a column that is one: not of the time, nor of where a message stands.
Text textOf(const MessageView& message, const Column& column);
// Gives a text, which is copied, or NULL.
void giveText(sqlite3_context* context, const Text& text);

// What a message is shown with.
struct ShownMessage {
    const MessageView* message = nullptr;
    const std::string* path = nullptr;
    std::optional<TimeUnit> unit;
};

// Gives a column's value of a message as the result of an SQL function. Texts and blobs are copied.
void giveColumn(sqlite3_context* context, const Column& column, const ShownMessage& shown);

}  // namespace tabulo::sqlite
