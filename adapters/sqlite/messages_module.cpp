// tabulo_messages('path or glob'): what message tables with any fields have in common.
#include <map>
#include <optional>
#include <utility>

#include "adapters/sqlite/failure.h"
#include "adapters/sqlite/message_cursor.h"
#include "adapters/sqlite/modules.h"
#include "adapters/sqlite/value_bytes.h"

namespace tabulo::sqlite {

namespace {

using Shared = std::shared_ptr<Connection>;

// Sets of tables are kept, so that a join does not open them again for each of its rows.
constexpr std::size_t MOST_KEPT = 16;

struct FunctionTable : MessageVirtualTable {
    std::map<std::string, std::shared_ptr<TableSet>> kept;

    std::shared_ptr<TableSet> tablesOf(const std::string& pattern) {
        const auto found = kept.find(pattern);
        if (found != kept.end()) {
            return found->second;
        }
        if (kept.size() >= MOST_KEPT) {
            kept.clear();
        }
        auto tables = std::make_shared<TableSet>(*connection, std::vector{pattern}, TableSet::Layouts::any);
        kept.emplace(pattern, tables);
        return tables;
    }
};

int connect(sqlite3* database, void* owner, int, const char* const*, sqlite3_vtab** made, char** message) {
    return guarded(message, [&] {
        auto table = std::make_unique<FunctionTable>();
        table->connection = *static_cast<Shared*>(owner);
        table->columns = columnsOf(nullptr);
        return declare(database, std::move(table), made);
    });
}

// The constraint that gives the argument; -1 when there is none, -2 when it is not known yet in this order of a join.
int argumentOf(const sqlite3_index_info& info, const std::vector<Column>& columns) {
    int found = -1;
    for (int i = 0; i < info.nConstraint; ++i) {
        const auto& constraint = info.aConstraint[i];
        if (constraint.iColumn >= 0 &&
            columns[static_cast<std::size_t>(constraint.iColumn)].kind == ColumnKind::files &&
            constraint.op == SQLITE_INDEX_CONSTRAINT_EQ) {
            if (constraint.usable != 0) {
                return i;
            }
            found = -2;
        }
    }
    return found;
}

int choose(sqlite3_vtab* base, sqlite3_index_info* info) {
    return guarded(&base->zErrMsg, [&] {
        auto* table = static_cast<FunctionTable*>(base);
        const int argument = argumentOf(*info, table->columns);
        if (argument == -2) {
            return SQLITE_CONSTRAINT;
        }
        if (argument == -1) {
            throw Error({.code = Code::wrongParameter,
                         .detail = "tabulo_messages needs its tables, as in tabulo_messages('/data/*')"});
        }
        sqlite3_value* value = nullptr;
        std::shared_ptr<TableSet> tables;
        if (sqlite3_vtab_rhs_value(info, argument, &value) == SQLITE_OK && value != nullptr) {
            tables = table->tablesOf(std::string(textOf(value)));
        }
        Plan plan = choosePlan(info, table->columns, tables.get());
        plan.tablesArgument = static_cast<int>(plan.terms.size());
        info->aConstraintUsage[argument].argvIndex = plan.tablesArgument + 1;
        info->aConstraintUsage[argument].omit = 1;
        info->idxNum = table->numberOf(plan);
        info->idxStr = sqlite3_mprintf("%s", describe(plan, table->columns).c_str());
        info->needToFreeIdxStr = 1;
        return SQLITE_OK;
    });
}

int filter(sqlite3_vtab_cursor* cursor, int number, const char*, int, sqlite3_value** arguments) {
    auto* table = static_cast<FunctionTable*>(cursor->pVtab);
    return guarded(&table->zErrMsg, [&] {
        const Plan plan = table->plans[static_cast<std::size_t>(number)];
        const std::string pattern(textOf(arguments[plan.tablesArgument]));
        static_cast<MessageCursor*>(cursor)->begin(plan, table->tablesOf(pattern), arguments, pattern);
        return SQLITE_OK;
    });
}

}  // namespace

int addMessagesModule(const Shared& connection) {
    static const sqlite3_module module = [] {
        sqlite3_module methods{};
        methods.xConnect = connect;
        methods.xBestIndex = choose;
        methods.xFilter = filter;
        setCommonMethods(&methods);
        return methods;
    }();
    return sqlite3_create_module_v2(connection->database(), "tabulo_messages", &module, new Shared(connection),
                                    [](void* owner) { delete static_cast<Shared*>(owner); });
}

}  // namespace tabulo::sqlite
