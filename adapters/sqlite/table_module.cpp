// CREATE VIRTUAL TABLE t USING tabulo('path' [, 'path or glob'...] [, time_unit='ms']).
#include <algorithm>
#include <string_view>
#include <utility>

#include "adapters/sqlite/failure.h"
#include "adapters/sqlite/message_cursor.h"
#include "adapters/sqlite/module_arguments.h"
#include "adapters/sqlite/modules.h"

namespace tabulo::sqlite {

namespace {

using Shared = std::shared_ptr<Connection>;

struct NamedTable : MessageVirtualTable {
    std::shared_ptr<TableSet> tables;
};

// SQLite's own arguments come first: the names of the module, the database and the table.
constexpr int OWN_ARGUMENTS = 3;
constexpr std::string_view TIME_UNIT = "time_unit";

TimeUnit unitNamed(const std::string& name) {
    for (const TimeUnit unit :
         {TimeUnit::seconds, TimeUnit::milliseconds, TimeUnit::microseconds, TimeUnit::nanoseconds}) {
        if (timeUnitName(unit) == name) {
            return unit;
        }
    }
    throw Error({.code = Code::wrongParameter, .detail = "time_unit is one of s, ms, us, ns, not '" + name + "'"});
}

void readArguments(int count, const char* const* arguments, std::vector<std::string>* paths,
                   std::optional<TimeUnit>* unit) {
    for (int i = OWN_ARGUMENTS; i < count; ++i) {
        const ModuleArgument argument = moduleArgument(arguments[i]);
        if (argument.name.empty()) {
            paths->push_back(argument.value);
        } else if (argument.name == TIME_UNIT) {
            *unit = unitNamed(argument.value);
        } else {
            throw Error(
                {.code = Code::wrongParameter,
                 .detail = "tabulo(...) takes paths in quotes and time_unit='ms', not " + std::string(arguments[i])});
        }
    }
    if (paths->empty()) {
        throw Error({.code = Code::wrongParameter,
                     .detail = "tabulo(...) takes the path of a table, as in tabulo('/data/orders')"});
    }
}

int create(sqlite3* database, void* owner, int count, const char* const* arguments, sqlite3_vtab** made,
           char** message) {
    return guarded(message, [&] {
        std::vector<std::string> paths;
        std::optional<TimeUnit> unit;
        readArguments(count, arguments, &paths, &unit);
        auto table = std::make_unique<NamedTable>();
        table->connection = *static_cast<Shared*>(owner);
        table->tables = std::make_shared<TableSet>(*table->connection, std::move(paths), TableSet::Layouts::one, unit);
        table->columns = columnsOf(&table->tables->layout());
        return declare(database, std::move(table), made);
    });
}

// Another function than the one that creates, so that no table is there by the module's name alone.
int connect(sqlite3* database, void* owner, int count, const char* const* arguments, sqlite3_vtab** made,
            char** message) {
    return create(database, owner, count, arguments, made, message);
}

int choose(sqlite3_vtab* base, sqlite3_index_info* info) {
    return guarded(&base->zErrMsg, [&] {
        auto* table = static_cast<NamedTable*>(base);
        const Plan plan = choosePlan(info, table->columns, table->tables.get());
        info->idxNum = table->numberOf(plan);
        info->idxStr = sqlite3_mprintf("%s", describe(plan, table->columns).c_str());
        info->needToFreeIdxStr = 1;
        return SQLITE_OK;
    });
}

int filter(sqlite3_vtab_cursor* cursor, int number, const char*, int, sqlite3_value** arguments) {
    auto* table = static_cast<NamedTable*>(cursor->pVtab);
    return guarded(&table->zErrMsg, [&] {
        static_cast<MessageCursor*>(cursor)->begin(table->plans[static_cast<std::size_t>(number)], table->tables,
                                                   arguments, {});
        return SQLITE_OK;
    });
}

}  // namespace

int addTableModule(const Shared& connection) {
    static const sqlite3_module module = [] {
        sqlite3_module methods{};
        methods.xCreate = create;
        methods.xConnect = connect;
        methods.xBestIndex = choose;
        methods.xFilter = filter;
        setCommonMethods(&methods);
        methods.xDestroy = methods.xDisconnect;
        return methods;
    }();
    return sqlite3_create_module_v2(connection->database(), "tabulo", &module, new Shared(connection),
                                    [](void* owner) { delete static_cast<Shared*>(owner); });
}

}  // namespace tabulo::sqlite
