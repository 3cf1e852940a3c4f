// Following tables while they are written, for tail: prints what is selected of what is stored, and keeps the places.
#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "tabulo/follower.h"
#include "tool/console.h"
#include "tool/message_source.h"
#include "tool/printing.h"
#include "tool/tables.h"
#include "tool/tail_state.h"

namespace tabulo::tool {

// The name of a table in a state: its whole path.
std::string tailName(const std::filesystem::path& path);

class MessageFollower {
  public:
    // Places are kept in `state`, and in a file of it unless `stateFile` is empty. All must outlive it.
    MessageFollower(Console& console, MessageSource& source, MessageOutput& output, std::string stateFile,
                    TailPlaces* state);

    // Also follows, from their beginning, the tables that are added to folders.
    void watch(NewTables tables) { newTables_.emplace(std::move(tables)); }
    // Follows a table from this place on; from its beginning, and says so, when no message can stand there.
    void add(std::size_t table, const Position& from);
    // Prints what is there, and what comes until the user ends it, unless `once`. Ends also when no table is left.
    void run(bool once);
    // What was printed reaches its reader, then the places their file.
    void settle();

  private:
    struct Table {
        std::filesystem::path path;
        std::string name;
        Selection selection;
        std::optional<Matcher> matcher;
        bool isOut = false;
    };

    void select(Table* table, Selection selection, const Layout& layout);
    std::optional<FollowEvent> nextEvent(std::chrono::milliseconds timeout);
    void onMessage(const FollowEvent& event);
    void onChange(const FollowEvent& event);
    void onLayoutChange(const FollowEvent& event);
    void lookForNewTables();
    // False for a file that may become a table yet.
    bool addNew(const std::filesystem::path& path, bool isLastTry);
    void leaveOut(Table* table, std::string_view why);
    void beginOutput();
    // Whether there is a table left, or none has come yet.
    bool goesOn() const;
    void tellRepeat(const MessageView& message);

    Console& console_;
    MessageSource& source_;
    MessageOutput& output_;
    std::string stateFile_;
    TailPlaces* state_;
    Follower follower_;
    std::vector<Table> tables_;  // by the follower's numbers
    std::optional<NewTables> newTables_;
    std::map<std::filesystem::path, int> triesOfNew_;
    std::chrono::steady_clock::time_point looked_;
    bool isUnsettled_ = true;
    std::chrono::steady_clock::time_point settled_;
    std::size_t lastTable_ = 0;
    std::int32_t lastUniformId_ = 0;
    bool repeatTold_ = false;
};

}  // namespace tabulo::tool
