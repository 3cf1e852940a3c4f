// The files that the user names, and the messages of several of them merged.
#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tabulo/reader.h"
#include "tool/console.h"

namespace tabulo::tool {

struct NamedFile {
    std::filesystem::path path;
    bool fromFolder = false;  // found in a folder that was named: what is wrong with it is no failure
};

// The files that the arguments stand for, in their order; a folder stands for the files in it, by name, without those
// that recoveries have cut out. Failure for what does not exist, and for a folder that cannot be read.
std::vector<NamedFile> expandPaths(const std::vector<std::string>& arguments);

// The message tables among them, open for reading. A session info table, a foreign or an unreadable file is named and
// skipped (Console::warn) when it was found in a folder, and ends the command when it was named itself.
std::vector<Reader> openTables(Console& console, const std::vector<NamedFile>& files);

enum class MergeBy { uniformId, time, nothing };

// The messages that queries select in several tables. By uniform id or time the head of each table is compared; a
// table's own order never changes, and ties follow the order of the tables. By nothing one table follows the other.
// All queries go in the same direction.
class MergedMessages {
  public:
    // One query for each reader. The readers must outlive it.
    MergedMessages(Console& console, std::vector<Messages> messages, MergeBy merge, bool backward);

    // The next message, valid until the next call; null at the end. Damage of a table is told (Console::warn) behind
    // everything in front of it; the others go on.
    const MessageView* next();
    // The number of the table of the message that was given last.
    std::size_t table() const noexcept { return given_; }
    const Messages& of(std::size_t table) const { return messages_[table]; }

  private:
    void advance(std::size_t table);

    Console& console_;
    std::vector<Messages> messages_;
    std::vector<const MessageView*> heads_;
    MergeBy merge_;
    bool backward_;
    bool begun_ = false;
    std::size_t given_ = 0;
};

}  // namespace tabulo::tool
