// The files that the user names, and the messages of several of them merged.
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "tabulo/reader.h"
#include "tool/console.h"

namespace tabulo::tool {

struct NamedFile {
    std::filesystem::path path;
    bool fromFolder = false;  // found in a folder that was named: what is wrong with it is no failure
};

// The files that the arguments stand for, in their order; a folder stands for the files in it, by name, without its
// folders, without names that begin with a dot, without what recoveries have cut out, and without side indexes. Failure
// for what does not exist or is neither file nor folder, and for a folder that cannot be read. What is no file in a
// folder (a pipe, a link that leads nowhere) is named and left out.
std::vector<NamedFile> expandPaths(Console& console, const std::vector<std::string>& arguments);

// The files of a folder that may be tables, as they are now; none of a folder that cannot be read. A table that is
// called like a side index (".idx") is not found.
std::vector<std::filesystem::path> filesThere(const std::filesystem::path& folder);

// Tables that appear in folders while they are watched.
class NewTables {
  public:
    // Of the arguments those that are folders; the files that they hold now are not new.
    explicit NewTables(const std::vector<std::string>& arguments);

    bool watchesFolders() const noexcept { return !folders_.empty(); }
    // What has come since, by name, each time that it is asked until it is known: files as filesThere
    // gives them.
    std::vector<std::filesystem::path> look() const;
    void know(const std::filesystem::path& path) { known_.insert(path); }

  private:
    std::vector<std::filesystem::path> folders_;
    std::set<std::filesystem::path> known_;
};

// The name of the table that a file was cut out of by a recovery: of "orders.cut-4096-1" it is "orders"; none for the
// name of any other file.
std::optional<std::string> tableOfCutFile(std::string_view name);

// Tells what is wrong with a file that could not be opened: says and leaves it out when it was found in a folder,
// throws it on when it was named itself. Call it in a handler of tabulo::Error, only.
void skipOrThrow(Console& console, const NamedFile& file);

// The message tables among them, open for reading. A foreign or an unreadable file is named and skipped (Console::warn)
// when it was found in a folder, and ends the command when it was named itself. A session info table ends the command
// when it was named; a folder's ones are left out without a word. There may be none.
std::vector<Reader> openTablesThere(Console& console, const std::vector<NamedFile>& files);
// The same, and Failure when there is none.
std::vector<Reader> openTables(Console& console, const std::vector<NamedFile>& files);

// The table's file in a sentence or a row: its path as it was given, escaped.
std::string shownPath(const std::filesystem::path& path);

// Where the data of a table ends now: up to there reading comes to an end, however fast the table grows. None when
// damage stands there, which is told behind the messages.
std::optional<Position> endNow(Reader& reader);
// All messages that a table has now: a writer that is faster than the reader would keep it reading for ever. Where
// damage hides the end, all up to there.
Messages messagesUntilNow(Reader& reader, const Work& work);

enum class MergeBy { uniformId, time, nothing };

// The messages that queries select in several tables. By uniform id or time the head of each table is compared; a
// table's own order never changes, and ties follow the order of the tables. By nothing one table follows the other.
// All queries go in the same direction; backward, the order of the tables is the reverse, too.
class MergedMessages {
  public:
    // One query for each table, with the name by which the user is told of it.
    MergedMessages(Console& console, std::vector<std::string> names, std::vector<Messages> messages, MergeBy merge,
                   bool backward);

    // The next message, valid until the next call; null at the end. Damage of a table is told (Console::warn) behind
    // everything in front of it, and so is a table that was emptied meanwhile; the others go on. The first uniform id
    // that two tables give is told once (Console::say).
    const MessageView* next();
    // The number of the table of the message that was given last.
    std::size_t table() const noexcept { return given_; }
    const Messages& of(std::size_t table) const { return messages_[table]; }

  private:
    struct Head {
        std::int64_t key = 0;
        std::size_t table = 0;
    };

    bool isBehind(const Head& a, const Head& b) const noexcept;
    const MessageView* advance(std::size_t table);
    const MessageView* nextInTurn();
    void push(std::size_t table);
    void tellRepeat(std::size_t table, std::int32_t uniformId);

    Console& console_;
    std::vector<std::string> names_;
    std::vector<Messages> messages_;
    std::vector<Head> heads_;  // a heap, the next one on top
    MergeBy merge_;
    bool backward_;
    bool begun_ = false;
    bool hasGiven_ = false;  // the table of the last message has not been asked for its next one yet
    std::size_t given_ = 0;
    std::size_t turn_ = 0;      // of the tables that follow one another, how many are done
    std::int32_t givenId_ = 0;  // the last message's uniform id
    bool repeatTold_ = false;
};

}  // namespace tabulo::tool
