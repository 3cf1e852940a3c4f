#include "adapters/sqlite/extension.h"

namespace tabulo::sqlite {

namespace {

// The first release that hands over the values of an IN and the literals of a condition.
constexpr int OLDEST_SQLITE = 3038000;

}  // namespace

int addTo(sqlite3* connection, char** message) {
    if (sqlite3_libversion_number() < OLDEST_SQLITE) {
        *message = sqlite3_mprintf("tabulo needs SQLite 3.38 or newer; this is %s", sqlite3_libversion());
        return SQLITE_ERROR;
    }
    static_cast<void>(connection);
    return SQLITE_OK;
}

}  // namespace tabulo::sqlite
