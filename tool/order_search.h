// Finds all messages of an order in any number of tables.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tabulo/reader.h"
#include "tool/console.h"
#include "tool/order_ids.h"

namespace tabulo::tool {

// First all tables are searched for the order's ids, again and again until none is new; then the messages that name one
// of them are given by time. Kept are the ids, and for each table the stretch in which its messages are.
class OrderSearch {
  public:
    // The readers must outlive it. What is stored while it searches is not looked at.
    OrderSearch(Console& console, std::vector<Reader>& readers);

    // Searches for all ids that are linked to these.
    void search(const std::vector<OrderId>& begin);
    // Messages that belong to the order are there, in so many tables.
    bool hasFound() const noexcept { return tablesFound() > 0; }
    std::size_t tablesFound() const noexcept;
    // How many ClOrdIDs the order has.
    std::size_t clOrdIds() const noexcept;

    // The next message by the tables' times; a table's own order never changes, and ties follow the order of the
    // tables. Null at the end. Valid until the next call.
    const MessageView* next();
    // The time of a message that was found, from which a unit can be guessed.
    std::optional<std::int64_t> someTime() const noexcept { return someTime_; }

    // Tells of the tables that could not be read to their end (Console::warn).
    void tellDamage();

  private:
    // A query, and the message that it gives next.
    struct Asked {
        Messages messages;
        const MessageView* head = nullptr;
    };
    struct Table {
        Reader* reader = nullptr;
        OrderIdFields fields;
        std::optional<Position> end{};
        std::string damage{};
        // With how many ids its messages were tested: those from `testedFrom` on with so many, the others with fewer.
        std::size_t testedIds = 0;
        std::optional<Position> testedFrom{};
        // Where the order's messages begin and end.
        std::optional<Position> first{};
        Position behindLast{};
        // What gives them, and the next one.
        std::vector<Asked> asked{};
        bool isAskedForAll = false;  // each message is tested, with the ids that are known by then
        const MessageView* head = nullptr;
        Progress progress{};
    };

    bool searchTable(Table& table);
    void ask(Table& table, const Query& stretch, const Work& work);
    const MessageView* advance(Table& table);
    static void advance(Table& table, Asked& asked);
    bool belongs(const MessageView& message, const Table& table);
    void askForAll();

    Console& console_;
    std::vector<Table> tables_;
    OrderIds ids_;
    std::vector<std::string> unseen_;  // ClOrdIDs with which the search began and that no message has had yet
    OrderIdsOfMessage idsOfMessage_;
    std::optional<std::int64_t> someTime_;
    bool isGiving_ = false;
    Table* given_ = nullptr;
};

}  // namespace tabulo::tool
