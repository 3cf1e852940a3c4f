// What a table's file says about itself: layout, names, sizes, and whether somebody writes it.
#pragma once

#include <array>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <stop_token>
#include <string>
#include <vector>

#include "tabulo/error.h"
#include "tabulo/message.h"

namespace tabulo {

// The layout of a message table: which fields are indexed, and how many messages make a block. It is fixed when the
// table is created. Names in a file hold no zero byte; an empty name is a field without one.
struct Layout {
    std::vector<std::string> texts{};      // names of the indexed text fields, 12 at most
    std::vector<std::string> numbers{};    // names of the indexed numeric fields, 16 at most
    std::int32_t messagesPerBlock = 1000;  // at least 1
    // How many texts have a filter in every block: text0, text1, the indexed ones, and so on, 14 at most. Without a
    // value: text0, text1 and all indexed ones.
    std::optional<std::int32_t> summarisedTexts{};
    // 4: text0, text1, wire and nonMetadata. Tables of other writers may lack text1 (3) or both (2).
    std::int32_t builtInTexts = 4;

    bool operator==(const Layout& other) const noexcept;
};

enum class TableKind { messages, sessionInfo };
enum class OpenForWriting { yes, no, unknown };

// A sequence number that the table keeps, and the time of the message that brought it.
struct SequencePoint {
    std::int32_t seqNum = 0;
    std::int64_t time = 0;

    bool operator==(const SequencePoint& other) const noexcept = default;
};

// What inspect tells. What a kind of table does not have is empty.
struct TableInfo {
    std::filesystem::path path{};
    std::string name{};
    TableKind kind = TableKind::messages;
    Layout layout{};                   // of a message table
    std::vector<std::int32_t> tags{};  // of a session info table, in the file's order
    std::int32_t formatMajor = 0;
    std::int32_t formatMinor = 0;
    std::int64_t fileSize = 0;
    std::int64_t headerSize = 0;

    std::int64_t closedBlocks = 0;
    std::int32_t openMessages = 0;  // whole messages of the block that is not closed
    std::int64_t messageCount = 0;  // of the closed blocks and the open one
    std::array<std::optional<std::int32_t>, messageClassCount> lastIds{};  // by class number
    std::optional<std::int32_t> lastUniformId{};                           // of the last message; 0 counts as none
    std::optional<SequencePoint> lastGood{};  // newest message in sequence that was not resent
    // The number under which the message had waited that was sent last after waiting, and the time of its sending.
    std::optional<SequencePoint> firstPending{};
    std::optional<SequencePoint> lastPending{};  // newest message that waited to be sent
    std::optional<std::int64_t> firstTime{};     // smallest time in the first block
    std::optional<std::int64_t> lastTime{};      // largest time in the last block

    bool closedCleanly = false;  // the header agrees with the file's end, so that no recovery is due
    OpenForWriting openForWriting = OpenForWriting::unknown;

    // What was met behind a sound header; what could not be told because of it is empty or counts what stands before.
    std::optional<Error> problem{};
};

// Reads a table's header, its first and its last footer and its open block; writes nothing and takes no lock, so that
// it never disturbs a writer. Throws when the header cannot be read.
TableInfo inspect(const std::filesystem::path& path);

// What recoveries have saved beside a table: the files "<table>.cut-<offset>", with "-1", "-2" and so on behind it, in
// the order of the offsets. fileOpen when the folder cannot be read.
std::vector<std::filesystem::path> cutFilesOf(const std::filesystem::path& path);

// Whether a process has the table open for writing, told from the system's list of locks without taking one. Unknown
// where the system has no such list, and when it lists no writer but could not: for files on a network, and for
// programs that cannot see all processes of the machine. fileOpen for a missing file.
OpenForWriting isOpenForWriting(const std::filesystem::path& path);

// How far long work has come.
struct Progress {
    std::int64_t done = 0;      // bytes of `total`
    std::int64_t total = 0;     // of the stretch of the file, as it was when the work began
    std::int64_t messages = 0;  // looked at
};

// How long work is watched and ended. The callback is called between blocks, and every 1000 messages inside longer
// ones; what it throws ends the work and reaches the caller. Work that is asked to stop ends without an exception and
// tells that it was not completed.
struct Work {
    std::stop_token stop{};
    std::function<void(const Progress&)> progress{};
};

struct ClassCounts {
    std::array<std::int64_t, messageClassCount> messages{};  // by class number
    std::int64_t withoutClass = 0;                           // with a negative id
    std::int64_t total = 0;
    bool complete = true;  // false when the work was stopped, or the table dropped meanwhile
};

// Walks over the whole table and counts. Throws at damage.
ClassCounts countByClass(const std::filesystem::path& path, const Work& work = {});

}  // namespace tabulo
