// SQLite as this extension reaches it: through the table of functions that the loading program hands over, or, linked
// into a program of ours (SQLITE_CORE), directly.
#pragma once

#include <sqlite3ext.h>

#ifndef SQLITE_CORE
SQLITE_EXTENSION_INIT3
#endif
