// The modules and functions that a connection is given, one source each. All give SQLite's codes.
#pragma once

#include <memory>

#include "adapters/sqlite/connection.h"

namespace tabulo::sqlite {

// These share the connection's state, and let go of it when SQLite drops them.
int addTableModule(const std::shared_ptr<Connection>& connection);     // tabulo('...')
int addMessagesModule(const std::shared_ptr<Connection>& connection);  // tabulo_messages('...')
int addStatsFunction(const std::shared_ptr<Connection>& connection);   // tabulo_stats()

int addSession(sqlite3* database);       // tabulo_session('...')
int addFixTags(sqlite3* database);       // fix_tags(wire)
int addFixFunctions(sqlite3* database);  // fix_tag, fix_text, fix_name

}  // namespace tabulo::sqlite
