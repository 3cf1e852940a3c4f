// fix_tags(wire): the fields of a message as rows, in their order, also those inside groups.
#include "adapters/sqlite/modules.h"
#include "adapters/sqlite/row_function.h"
#include "tabulo/fix.h"

namespace tabulo::sqlite {

namespace {

std::vector<Row> fieldsOf(std::string_view wire) {
    std::vector<Row> rows;
    FixFields fields(wire);
    std::int64_t position = 0;
    for (FixField field; fields.next(&field);) {
        const std::string_view name = FixDictionary::builtIn().tagName(field.tag);
        // What is no field has no tag.
        rows.push_back({field.tag == 0 ? RowCell() : RowCell(std::int64_t{field.tag}),
                        name.empty() ? RowCell() : RowCell(std::string(name)), RowCell(std::string(field.value)),
                        RowCell(++position)});
    }
    return rows;
}

constexpr RowFunction FIX_TAGS{"fix_tags",
                               "CREATE TABLE x(tag INTEGER, name TEXT, value TEXT, position INTEGER, wire BLOB HIDDEN)",
                               4, fieldsOf, false};

}  // namespace

int addFixTags(sqlite3* database) {
    return addRowFunction(database, &FIX_TAGS);
}

}  // namespace tabulo::sqlite
