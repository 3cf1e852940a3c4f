// How SQLite begins with the loaded extension: by the name that it makes of the file's, or by its common one.
#include "adapters/sqlite/extension.h"

SQLITE_EXTENSION_INIT1

extern "C" {

__attribute__((visibility("default"))) int sqlite3_tabulosqlite_init(sqlite3* connection, char** message,
                                                                     const sqlite3_api_routines* routines) {
    SQLITE_EXTENSION_INIT2(routines);
    return tabulo::sqlite::addTo(connection, message);
}
}
