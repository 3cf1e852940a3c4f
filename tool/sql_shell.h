// Statements of SQL that are typed, or read from standard input.
#pragma once

#include "tool/console.h"
#include "tool/sql.h"
#include "tool/sql_session.h"

namespace tabulo::tool {

// Asks for statements on a terminal until it ends. What is wrong with one is said; Ctrl-C ends one, and no more.
void runSqlShell(Console& console, SqlSession& session, SqlFormat format);

// Runs the statements of standard input, the first that fails ends it as SqlSession::run does.
void runSqlInput(Console& console, SqlSession& session, SqlFormat format);

}  // namespace tabulo::tool
