// What a statement of SQL answers, printed row by row.
#pragma once

#include <rapidjson/stringbuffer.h>
#include <sqlite3.h>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tool/console.h"
#include "tool/listing.h"
#include "tool/message_format.h"
#include "tool/sql.h"

namespace tabulo::tool {

class SqlOutput {
  public:
    // For the rows of a statement that was prepared; a statement that has no columns prints nothing. csv has its head
    // at once.
    SqlOutput(Console& console, SqlFormat format, sqlite3_stmt* statement);
    // The row at which the statement stands.
    void add();
    // Prints what is left. Without it the first rows for eyes may be missing.
    void end();

  private:
    bool isText(int column) const;
    void addShown();
    void addCsv();
    void addJson();
    void addJsonString(std::string_view text);
    void addJsonBytes(std::string_view bytes);

    Console& console_;
    SqlFormat format_;
    sqlite3_stmt* statement_;
    Spill spill_;
    std::vector<std::string> names_;  // for ndjson as keys, with quotes and colon
    std::optional<Listing> listing_;
    std::string text_;
    rapidjson::StringBuffer json_;
};

}  // namespace tabulo::tool
