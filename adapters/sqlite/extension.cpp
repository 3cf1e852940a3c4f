#include "adapters/sqlite/extension.h"

#include "adapters/sqlite/failure.h"
#include "adapters/sqlite/modules.h"

namespace tabulo::sqlite {

namespace {

// The first release that hands over the values of an IN and the literals of a condition.
constexpr int OLDEST_SQLITE = 3'038'000;

}  // namespace

int addTo(sqlite3* database, char** message) {
    if (sqlite3_libversion_number() < OLDEST_SQLITE) {
        *message = sqlite3_mprintf("tabulo needs SQLite 3.38 or newer; this is %s", sqlite3_libversion());
        return SQLITE_ERROR;
    }
    return guarded(message, [database] {
        const auto connection = std::make_shared<Connection>(database);
        int code = addTableModule(connection);
        code = code == SQLITE_OK ? addMessagesModule(connection) : code;
        code = code == SQLITE_OK ? addStatsFunction(connection) : code;
        code = code == SQLITE_OK ? addSession(database) : code;
        code = code == SQLITE_OK ? addFixTags(database) : code;
        return code == SQLITE_OK ? addFixFunctions(database) : code;
    });
}

}  // namespace tabulo::sqlite
