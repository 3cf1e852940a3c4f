// One table of a Follower: where it has come to, the message that waits to be given, and what becomes of its file.
#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <filesystem>
#include <memory>
#include <optional>

#include "api/reader_state.h"
#include "storage/file_changes.h"
#include "tabulo/follower.h"

namespace tabulo::api {

struct FollowedTable {
    std::filesystem::path path;
    std::size_t index = 0;
    std::shared_ptr<ReaderState> reader;  // null when it is out and was closed
    std::shared_ptr<TableState> shown;    // the reader's
    std::optional<Messages> messages;
    const MessageView* pending = nullptr;  // the next message, when it is there
    Position position;                     // behind the message that was given last
    std::int64_t fileEnd = 0;              // when the last round of looks at all tables began
    bool isOut = false;                    // removed, or failed: not looked at any more
    // The file was dropped or replaced, and the one that stands there now could not be opened yet, since that moment.
    std::optional<FollowEventKind> change;
    std::chrono::steady_clock::time_point changedAt;
    int watch = internal::NO_FILE_WATCH;  // of the file, or of the one before while `isWatched` is false
    bool isWatched = false;               // as far as its changes are reported

    // Where in the table following begins. Throws vseek, and the codes of finding a uniform id. Called here only: as a
    // member it may look into a FollowFrom.
    static Position startOf(const Call& call, ReaderState& reader, const FollowFrom& from);
};

// Opens a table and finds where it begins. Throws what Follower::add does.
std::unique_ptr<FollowedTable> followedTable_open(const std::filesystem::path& path, const FollowFrom& from);
// Notes how far the file reaches now. Throws the codes of the file.
void followedTable_measure(FollowedTable* table);
// Looks for the next message, when none is pending; a table that was dropped or replaced is opened anew, with events
// that say so. Throws what reading gives.
void followedTable_look(FollowedTable* table, std::deque<FollowEvent>* events);
// Watches the table's file for changes. True when it was not watched before: it may have changed until now.
bool followedTable_watch(FollowedTable* table, internal::FileChanges* changes);
// True when there is nothing that a look would find before its file is reported to have changed, but for another file
// at its path.
bool followedTable_isReported(const FollowedTable& table);
// The pending message has been given.
void followedTable_take(FollowedTable* table);
// Closes the file of a table that is out; its position and its layout stay.
void followedTable_close(FollowedTable* table);

}  // namespace tabulo::api
