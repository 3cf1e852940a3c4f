// The SQLite extension: message tables and session info tables as virtual tables, and functions for FIX messages.
// docs/sql.md tells what it offers.
#pragma once

#include "adapters/sqlite/sqlite.h"

namespace tabulo::sqlite {

// Adds the modules and functions to a connection, which keeps them until it is closed. SQLite's code; *message, which
// the caller frees with sqlite3_free, tells what is wrong when it is not SQLITE_OK.
int addTo(sqlite3* database, char** message);

}  // namespace tabulo::sqlite
