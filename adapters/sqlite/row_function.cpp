#include "adapters/sqlite/row_function.h"

#include <memory>
#include <optional>

#include "adapters/sqlite/failure.h"
#include "adapters/sqlite/module_arguments.h"
#include "adapters/sqlite/value_bytes.h"

namespace tabulo::sqlite {

namespace {

struct FunctionTable : sqlite3_vtab {
    const RowFunction* function = nullptr;
    std::optional<std::string> argument;  // of CREATE VIRTUAL TABLE
};

struct RowCursor : sqlite3_vtab_cursor {
    std::vector<Row> rows;
    std::size_t at = 0;
    std::string argument;
};

const RowFunction& functionOf(sqlite3_vtab_cursor* cursor) {
    return *static_cast<FunctionTable*>(cursor->pVtab)->function;
}

int connect(sqlite3* database, void* owner, int count, const char* const* arguments, sqlite3_vtab** made,
            char** message) {
    return guarded(message, [&] {
        constexpr int OWN_ARGUMENTS = 3;
        auto table = std::make_unique<FunctionTable>();
        table->function = static_cast<const RowFunction*>(owner);
        if (count > OWN_ARGUMENTS) {
            table->argument = moduleArgument(arguments[OWN_ARGUMENTS]).value;
            static_cast<void>(table->function->rowsOf(*table->argument));  // what is wrong is told now
        }
        const int code = sqlite3_declare_vtab(database, table->function->declaration);
        if (code == SQLITE_OK) {
            // What reads files must not be reached from the schema of a database that came from elsewhere.
            sqlite3_vtab_config(database, table->function->isTable ? SQLITE_VTAB_DIRECTONLY : SQLITE_VTAB_INNOCUOUS);
            *made = table.release();
        }
        return code;
    });
}

int disconnect(sqlite3_vtab* table) {
    delete static_cast<FunctionTable*>(table);
    return SQLITE_OK;
}

int choose(sqlite3_vtab* base, sqlite3_index_info* info) {
    const auto* table = static_cast<FunctionTable*>(base);
    bool isAwaited = false;
    for (int i = 0; i < info->nConstraint; ++i) {
        const auto& constraint = info->aConstraint[i];
        if (constraint.iColumn != table->function->columns || constraint.op != SQLITE_INDEX_CONSTRAINT_EQ) {
            continue;
        }
        if (constraint.usable != 0) {
            info->aConstraintUsage[i].argvIndex = 1;
            info->aConstraintUsage[i].omit = 1;
            info->estimatedCost = 100;
            info->estimatedRows = 30;
            info->idxNum = 1;
            return SQLITE_OK;
        }
        isAwaited = true;
    }
    info->estimatedCost = 100;
    return isAwaited ? SQLITE_CONSTRAINT : SQLITE_OK;
}

int openCursor(sqlite3_vtab* table, sqlite3_vtab_cursor** cursor) {
    return guarded(&table->zErrMsg, [&] {
        *cursor = new RowCursor;
        return SQLITE_OK;
    });
}

int closeCursor(sqlite3_vtab_cursor* cursor) {
    delete static_cast<RowCursor*>(cursor);
    return SQLITE_OK;
}

// Without an argument, or with NULL for one, there are no rows.
int filter(sqlite3_vtab_cursor* base, int number, const char*, int, sqlite3_value** arguments) {
    return guarded(&base->pVtab->zErrMsg, [&] {
        auto* cursor = static_cast<RowCursor*>(base);
        const auto* table = static_cast<FunctionTable*>(base->pVtab);
        const std::optional<std::string_view> given = number == 1 ? bytesOf(arguments[0]) : std::nullopt;
        const std::optional<std::string> argument =
            given.has_value() ? std::optional<std::string>(*given) : (number == 1 ? std::nullopt : table->argument);
        cursor->at = 0;
        cursor->rows.clear();
        cursor->argument = argument.value_or("");
        if (argument.has_value()) {
            cursor->rows = table->function->rowsOf(*argument);
        }
        return SQLITE_OK;
    });
}

int step(sqlite3_vtab_cursor* cursor) {
    static_cast<RowCursor*>(cursor)->at += 1;
    return SQLITE_OK;
}

int isAtEnd(sqlite3_vtab_cursor* base) {
    const auto* cursor = static_cast<RowCursor*>(base);
    return cursor->at >= cursor->rows.size() ? 1 : 0;
}

int giveColumn(sqlite3_vtab_cursor* base, sqlite3_context* context, int column) {
    const auto* cursor = static_cast<RowCursor*>(base);
    const bool isArgument = column == functionOf(base).columns;
    const RowCell cell =
        isArgument ? RowCell(cursor->argument) : cursor->rows[cursor->at][static_cast<std::size_t>(column)];
    if (const auto* number = std::get_if<std::int64_t>(&cell)) {
        sqlite3_result_int64(context, *number);
    } else if (const auto* text = std::get_if<std::string>(&cell)) {
        sqlite3_result_text64(context, text->data(), text->size(), SQLITE_TRANSIENT, SQLITE_UTF8);
    }
    return SQLITE_OK;
}

int giveRowid(sqlite3_vtab_cursor* cursor, sqlite3_int64* rowid) {
    *rowid = static_cast<sqlite3_int64>(static_cast<RowCursor*>(cursor)->at) + 1;
    return SQLITE_OK;
}

sqlite3_module moduleWith(decltype(sqlite3_module::xCreate) create) {
    sqlite3_module methods{};
    methods.xCreate = create;
    methods.xConnect = connect;
    methods.xBestIndex = choose;
    methods.xDisconnect = disconnect;
    methods.xDestroy = disconnect;
    methods.xOpen = openCursor;
    methods.xClose = closeCursor;
    methods.xFilter = filter;
    methods.xNext = step;
    methods.xEof = isAtEnd;
    methods.xColumn = giveColumn;
    methods.xRowid = giveRowid;
    return methods;
}

}  // namespace

int addRowFunction(sqlite3* database, const RowFunction* function) {
    static const sqlite3_module alone = moduleWith(nullptr);
    static const sqlite3_module asTable = moduleWith(connect);
    return sqlite3_create_module_v2(database, function->name, function->isTable ? &asTable : &alone,
                                    const_cast<RowFunction*>(function), nullptr);
}

}  // namespace tabulo::sqlite
