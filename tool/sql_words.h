// What a connection knows by name: its tables and columns, and the words that can be typed.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "tool/sql_session.h"

namespace tabulo::tool {

// A text between quotes, of which each in it is doubled: '"' for names, '\'' for texts.
std::string sqlQuoted(std::string_view text, char quote);

// The statement that lists the tables and views, and the one that lists the columns of all of them, or of one.
std::string tablesQuery();
std::string columnsQuery(std::string_view table);

// What a word that was begun can become, sorted: keywords, functions, tables and columns; names that are no plain words
// stand in double quotes. After a '.' at the beginning of a line it is one of the shell's commands, after a double
// quote a name. What could do something to a terminal is not among them.
std::vector<std::string> sqlWords(const SqlSession& session, std::string_view lineInFront, std::string_view begun);

}  // namespace tabulo::tool
