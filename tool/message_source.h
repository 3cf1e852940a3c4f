// The messages that the user wants, out of the tables that the user names: what all verbs on messages begin with.
#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tabulo/reader.h"
#include "tool/console.h"
#include "tool/selection.h"
#include "tool/tables.h"
#include "tool/times.h"

namespace CLI {
class App;
}  // namespace CLI

namespace tabulo::tool {

struct SourceOptions {
    std::vector<std::string> files;
    SelectionOptions selection;
    std::string merge = "uid";
};

// Declares FILE..., --merge, and the selection.
void declareSource(CLI::App& app, SourceOptions* options);

// Which times are needed, and from when "-10m" counts.
struct SourceTimes {
    bool areShown = true;
    bool countFromNow = false;  // else from the newest message
};

// What it is to find no table at all.
enum class NoTables { refused, awaited };

// A stretch of a table's file; without an end, to where the data ends when it is begun.
struct Stretch {
    std::optional<Position> from{};
    std::optional<Position> before{};
};

class MessageSource {
  public:
    // Opens the tables and makes the selection ready for each. The errors of expandPaths, openTables, makeSelection;
    // where tables are awaited, a selection that needs to know their fields is an error, too.
    MessageSource(Console& console, const SourceOptions& options, const SourceTimes& times,
                  NoTables none = NoTables::refused);

    std::vector<Reader>& readers() noexcept { return readers_; }
    const Times& times() const noexcept { return *times_; }
    // Whether a table had one when it was opened; told only where times are needed.
    bool hasMessages() const noexcept { return hasMessages_; }
    const Selection& selection(std::size_t table) const { return selections_[table]; }
    std::vector<const Layout*> layouts() const;
    std::vector<std::string> names() const;
    // The selection for a table whose layout has changed.
    Selection selectionFor(const Layout& layout) const;

    // Begins to give the messages, of all tables or of a stretch of each. `what` is the work as progress names it.
    void begin(const std::string& what, bool backward, const std::vector<Stretch>& stretches = {});
    // The next message that is selected, valid until the next call; null at the end.
    const MessageView* next();
    // Lets go of the messages; what they have cost can no longer be explained.
    void end() noexcept { merged_.reset(); }
    // The number of the table of that message.
    std::size_t table() const noexcept { return merged_->table(); }

    // With --explain: tells for each table what was pushed down, and what was read and skipped since begin.
    void explain();

  private:
    Work workOf(std::size_t table);
    void showProgress(std::size_t table, const Progress& progress);
    // The time of each table's last message; of its first one where damage hides the last.
    std::vector<std::int64_t> lastTimes();

    Console& console_;
    const SourceOptions& options_;
    MergeBy merge_ = MergeBy::uniformId;
    std::vector<Reader> readers_;
    std::optional<Times> times_;
    std::int64_t newest_ = 0;
    bool hasMessages_ = false;
    std::vector<Selection> selections_;
    std::optional<MergedMessages> merged_;
    Work shown_;                      // how far all tables together are
    std::vector<Progress> progress_;  // of each table
    std::chrono::steady_clock::time_point flushed_;
};

}  // namespace tabulo::tool
