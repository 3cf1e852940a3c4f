// tabulo_session('path'): the values of a session info table, as they are when it is asked.
#include "adapters/sqlite/modules.h"
#include "adapters/sqlite/row_function.h"
#include "tabulo/session_info.h"

namespace tabulo::sqlite {

namespace {

std::vector<Row> valuesOf(std::string_view path) {
    std::vector<Row> rows;
    for (const SessionValue& value : SessionInfo::open(path).values()) {
        rows.push_back({RowCell(std::int64_t{value.tag}), RowCell(value.value)});
    }
    return rows;
}

constexpr RowFunction SESSION{"tabulo_session", "CREATE TABLE x(tag INTEGER, value INTEGER, path TEXT HIDDEN)", 2,
                              valuesOf, true};

}  // namespace

int addSession(sqlite3* database) {
    return addRowFunction(database, &SESSION);
}

}  // namespace tabulo::sqlite
