// A walk over the messages of a virtual table, and what the two modules that have such tables share.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "adapters/sqlite/columns.h"
#include "adapters/sqlite/connection.h"
#include "adapters/sqlite/grouped_rows.h"
#include "adapters/sqlite/message_stream.h"
#include "adapters/sqlite/plan.h"
#include "adapters/sqlite/table_set.h"

namespace tabulo::sqlite {

// SQLite holds it by its base.
struct MessageVirtualTable : sqlite3_vtab {
    virtual ~MessageVirtualTable() = default;

    std::shared_ptr<Connection> connection;
    std::vector<Column> columns;
    std::vector<Plan> plans;  // by the number that the chosen one is known by

    // The number of a plan.
    int numberOf(const Plan& plan);
};

class MessageCursor : public sqlite3_vtab_cursor {
  public:
    // A connection's moment begins, or goes on, with it.
    explicit MessageCursor(MessageVirtualTable* table);
    ~MessageCursor();
    MessageCursor(const MessageCursor&) = delete;
    MessageCursor& operator=(const MessageCursor&) = delete;

    // Begins with the first message. `argument` is what the tables were named by, where that is a column.
    void begin(const Plan& plan, std::shared_ptr<TableSet> tables, sqlite3_value** arguments, std::string argument);
    void step();
    bool isAtEnd() const noexcept { return grouped_ == nullptr ? shown_.message == nullptr : grouped_->isAtEnd(); }
    void giveColumn(sqlite3_context* context, int column) const;
    sqlite3_int64 rowid();

  private:
    MessageVirtualTable* table_;
    std::shared_ptr<TableSet> tables_;
    std::string argument_;
    std::unique_ptr<GroupedRows> grouped_;  // or
    std::unique_ptr<MessageStream> stream_;
    const Source* source_ = nullptr;  // of the message at hand
    ShownMessage shown_;
};

// What both modules do alike. Declares the table's columns to SQLite, which owns it from then on; and fills in the
// methods that disconnect, close, step and give columns and rowids.
int declare(sqlite3* database, std::unique_ptr<MessageVirtualTable> table, sqlite3_vtab** made);
void setCommonMethods(sqlite3_module* module) noexcept;

}  // namespace tabulo::sqlite
