// Follows several message tables at once and hands every new message to a listener, in the order of the uniform ids,
// which number the messages of all tables of an engine in one sequence.
//
// The watcher runs on the thread that starts it until the listener asks it to stop or an error occurs. Per pass it
// looks at the next message of each table; the smallest uniform id wins, the first table on ties. An id that does not
// follow the one delivered before is logged once as a gap, and delivered in the next pass. A pass that finds nothing
// calls the listener's onIdle and then waits: not at all for the first ten such passes in a row, from the
// eleventh on passes x 20 + 50 milliseconds, growing without a limit until a message comes.
//
// Such a pause ends early when the file of a table changes (storage/file_changes.h). The pass that this brings is not
// counted: when it finds nothing, what is left of the pause follows, so that passes x 20 + 50 milliseconds always lie
// between two passes that are. Such passes, and those without a pause, read only the files that have changed since they
// were seen empty, which is all that can be told from there; a pass behind a gap and one behind the end of a pause read
// every file, so that neither order nor delivery rests on what the system reports. Nothing else is different where
// changes are not reported, but for a NOTE at the start.
//
// The tables are borrowed and must outlive the watcher's use of them; other processes may write them. The listener may
// write to, drop or destroy a table: a destroyed one ends the watch with MASTER_INACTIVE_ERROR.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <vector>

#include "core/error_codes.h"
#include "core/handle.h"
#include "watcher/table_reader.h"

namespace tabulo::internal {

struct WatcherState;

struct MessageWatcher {
    std::vector<std::unique_ptr<TableReader>> readers;   // in the order given
    std::int32_t idlePasses = 0;                         // passes in a row that found nothing
    void (*pause)(std::int64_t milliseconds) = nullptr;  // in place of the wait that a destroy ends; for tests
    std::vector<char> texts;                             // of the message being delivered
    std::multimap<int, TableReader*> byWatch;            // the readers by the watches of their files
    std::shared_ptr<WatcherState> state;                 // outlives the watcher with whoever asks it to stop
};

// Who takes the messages of a watch. Both operations get their owner and set *stop to 1 to end the watch; a result
// other than NO_ERROR ends it with that code.
struct WatchListener {
    void* owner = nullptr;
    // A message, and the index of its table. Texts are copies, valid during the call.
    ErrorCode (*onMessage)(void* owner, const MessageView& message, std::int32_t tableIndex,
                           std::int32_t* stop) = nullptr;
    // A pass that found nothing; NO_DATA_ERROR means NO_ERROR here.
    ErrorCode (*onIdle)(void* owner, std::int32_t* stop) = nullptr;
};

// A watcher over `count` tables, owned by the caller; none at all makes one that only idles. Null for a null table, a
// null array with a count above 0, a negative count, or when memory is short.
MessageWatcher* messageWatcher_create(MessageTable* const* tables, std::int32_t count) noexcept;
// Frees the watcher, not the tables; null is accepted. While the watcher is watching it is a request, which any thread
// may make, the listener included: it ends the wait between two passes, the watch ends with NO_ERROR behind the pass
// under way, and the memory goes with it. The request is made once; nobody else uses the watcher afterwards.
void messageWatcher_destroy(MessageWatcher* watcher) noexcept;
using MessageWatcherPtr = Handle<MessageWatcher, messageWatcher_destroy>;

// Watches until the listener stops it (NO_ERROR) or an error occurs, from one starting uniform id per table on: older
// messages are consumed silently, -1 stands for 1. More ids than tables are ignored. NULL_POINTER_ERROR: watcher, one
// of the listener's operations, or ids with a count above 0; WRONG_PARAMETER_ERROR: it is running already;
// INDEX_OUT_OF_BOUNDS_ERROR: fewer ids than tables, nothing is positioned; the codes of tableReader_position, of
// tableReader_peek (onIdle is then called once more, so that the listener can hand on what it has gathered) and of the
// listener, also when it stopped the watch with the same call. The start and the end are written to the warning
// channel. A watcher can be started again after it has returned.
ErrorCode messageWatcher_startWatching(MessageWatcher* watcher, std::int32_t count, const std::int32_t* startingIds,
                                       const WatchListener& listener) noexcept;

// The pause after the given number of idle passes, in milliseconds; 0 for none. Called here only: tests ask instead of
// waiting.
std::int64_t messageWatcher_pauseAfter(std::int32_t idlePasses) noexcept;

}  // namespace tabulo::internal
